#include "present/Layout.h"

#include <algorithm>
#include <utility>

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

struct ZoomPlaces {
    Rect whole;    // the place of the whole picture
    Rect part;     // the selected place
};

std::optional<ZoomPlaces> PlacesOf(const PresentSettings& settings) {
    const DisplayArea& area = settings.area;
    const auto zoom = Place(area.zoomIsWindow, area.zoom, settings.zoomWindow);
    const auto overview = Place(area.overviewIsWindow, area.overview, settings.overviewWindow);
    if (!zoom || !overview)
        return std::nullopt;
    return ZoomPlaces{Inset(*overview, area.overviewMargin), Inset(*zoom, area.zoomMargin)};
}

// The even pixel of a picture of `length` for an edge that lies `offset` pixels inside an area of `extent`.
int64_t EvenPixel(int64_t offset, int64_t extent, int64_t length) {
    return (offset * length / extent + 1) & ~int64_t{1};
}

}    // namespace

Rect PictureRect(const PresentSettings& settings, WindowWatch::Size client) {
    if (settings.fullWindow)
        return {0, 0, client.width, client.height};
    return {settings.margin.left, settings.margin.top, int64_t{client.width} - settings.margin.right,
            int64_t{client.height} - settings.margin.bottom};
}

bool UsesBorder(const PresentSettings& settings) {
    return settings.hasBorder && !settings.fullWindow && !settings.noBorder;
}

Bands BandRects(const PresentSettings& settings, bool bordered, int64_t width, int64_t height) {
    const Edges& edges = bordered ? settings.border : settings.margin;
    if (bordered) {
        width += int64_t{edges.left} + edges.right;
        height += int64_t{edges.top} + edges.bottom;
    }
    const int64_t innerBottom = height - edges.bottom;
    const int64_t innerRight = width - edges.right;
    return {Rect{0, 0, width, edges.top}, Rect{0, innerBottom, width, height},
            Rect{0, edges.top, edges.left, innerBottom}, Rect{innerRight, edges.top, width, innerBottom}};
}

std::optional<Rect> ZoomSource(const PresentSettings& settings, uint32_t sourceWidth, uint32_t sourceHeight) {
    const auto places = PlacesOf(settings);
    if (!places)
        return std::nullopt;
    const Rect& whole = places->whole;
    const Rect part = places->part.Intersected(whole);
    if (part.Empty() || whole.Empty())
        return std::nullopt;
    const auto axis = [](int64_t offset, int64_t size, int64_t extent, int64_t length) {
        const int64_t begin = offset * length / extent;
        // A selection of less than a pixel shows that pixel, since an empty part would leave the window unchanged. An
        // odd last pixel, which is not shown, is shown by the pixel before it.
        return std::pair{std::min(begin, std::max<int64_t>(length & ~int64_t{1}, 1) - 1),
                         begin + std::max<int64_t>(size * length / extent, 1)};
    };
    const auto [left, right] = axis(part.left - whole.left, part.Width(), whole.Width(), sourceWidth);
    const auto [top, bottom] = axis(part.top - whole.top, part.Height(), whole.Height(), sourceHeight);
    return Rect{left, top, right, bottom};
}

std::optional<Rect> ZoomCrop(const PresentSettings& settings, uint32_t width, uint32_t height) {
    const auto places = settings.area.zoomEnabled != 0 ? PlacesOf(settings) : std::nullopt;
    if (!places || places->part.Empty() || !places->whole.Contains(places->part) || width < 2 || height < 2)
        return std::nullopt;
    const Rect& whole = places->whole;
    const Rect part = places->part.Moved(-whole.left, -whole.top);
    const int64_t lastColumn = (width & ~1u) - 2;
    const int64_t lastRow = (height & ~1u) - 2;
    const int64_t left = std::clamp<int64_t>(EvenPixel(part.left, whole.Width(), width), 0, lastColumn);
    const int64_t top = std::clamp<int64_t>(EvenPixel(part.top, whole.Height(), height), 0, lastRow);
    return Rect{left, top, std::clamp(EvenPixel(part.right, whole.Width(), width), left + 2, lastColumn + 2),
                std::clamp(EvenPixel(part.bottom, whole.Height(), height), top + 2, lastRow + 2)};
}

std::optional<Rect> OverviewRect(const PresentSettings& settings, WindowWatch::Size overviewSize) {
    const DisplayArea& area = settings.area;
    if (area.overviewIsWindow != 0)
        return Inset({0, 0, overviewSize.width, overviewSize.height}, area.overviewMargin);
    const auto window = settings.window != nullptr ? settings.window->ScreenRect() : std::nullopt;
    if (!window)
        return std::nullopt;
    const Rect onScreen{area.overview.rectangle[0], area.overview.rectangle[1], area.overview.rectangle[2],
                        area.overview.rectangle[3]};
    return Inset(onScreen.Moved(-window->left, -window->top), area.overviewMargin);
}

}    // namespace corvane
