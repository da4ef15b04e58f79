#include "present/Layout.h"

namespace corvane {

namespace {

Rect Inset(const Rect& rect, const int32_t (&edges)[4]) {
    return {rect.left + edges[0], rect.top + edges[1], rect.right - edges[2], rect.bottom - edges[3]};
}

std::optional<Rect> Place(uint32_t isWindow, const DisplayPlace& place, const WindowWatchPtr& window) {
    if (isWindow == 0)
        return Rect{place.rectangle[0], place.rectangle[1], place.rectangle[2], place.rectangle[3]};
    return window != nullptr ? window->ScreenRect() : std::nullopt;
}

}    // namespace

Rect PictureRect(const RenderInfo& info, WindowWatch::Size client) {
    if (info.fullWindow)
        return {0, 0, client.width, client.height};
    return {info.margin.left, info.margin.top, int64_t{client.width} - info.margin.right,
            int64_t{client.height} - info.margin.bottom};
}

bool UsesBorder(const RenderInfo& info) {
    return info.hasBorder && !info.fullWindow && !info.noBorder;
}

Bands BandRects(const RenderInfo& info, bool bordered, int64_t width, int64_t height) {
    const Edges& edges = bordered ? info.border : info.margin;
    if (bordered) {
        width += int64_t{edges.left} + edges.right;
        height += int64_t{edges.top} + edges.bottom;
    }
    const int64_t innerBottom = height - edges.bottom;
    const int64_t innerRight = width - edges.right;
    return {Rect{0, 0, width, edges.top}, Rect{0, innerBottom, width, height},
            Rect{0, edges.top, edges.left, innerBottom}, Rect{innerRight, edges.top, width, innerBottom}};
}

std::optional<Rect> ZoomSource(const RenderInfo& info, uint32_t sourceWidth, uint32_t sourceHeight) {
    const DisplayArea& area = info.area;
    const auto zoom = Place(area.zoomIsWindow, area.zoom, info.zoomWindow);
    const auto overview = Place(area.overviewIsWindow, area.overview, info.overviewWindow);
    if (!zoom || !overview)
        return std::nullopt;
    const Rect whole = Inset(*overview, area.overviewMargin);
    const Rect part = Inset(*zoom, area.zoomMargin).Intersected(whole);
    if (part.Empty() || whole.Empty())
        return std::nullopt;
    const int64_t x = (part.left - whole.left) * sourceWidth / whole.Width();
    const int64_t y = (part.top - whole.top) * sourceHeight / whole.Height();
    return Rect{x, y, x + part.Width() * sourceWidth / whole.Width(),
                y + part.Height() * sourceHeight / whole.Height()};
}

std::optional<Rect> OverviewRect(const RenderInfo& info, WindowWatch::Size overviewSize) {
    const DisplayArea& area = info.area;
    if (area.overviewIsWindow != 0)
        return Inset({0, 0, overviewSize.width, overviewSize.height}, area.overviewMargin);
    const auto window = info.window != nullptr ? info.window->ScreenRect() : std::nullopt;
    if (!window)
        return std::nullopt;
    const Rect onScreen{area.overview.rectangle[0], area.overview.rectangle[1], area.overview.rectangle[2],
                        area.overview.rectangle[3]};
    return Inset(onScreen.Moved(-window->left, -window->top), area.overviewMargin);
}

}    // namespace corvane
