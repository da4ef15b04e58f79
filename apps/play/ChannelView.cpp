#include "ChannelView.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "OsdText.h"

namespace {

constexpr uint32_t kMargin = 8;    // pixels at the other sides
// Without an overview of its own the area that stands for the whole picture may be any: large, so that the part is
// exact.
constexpr int32_t kExact = 1 << 14;
constexpr double kMiddle[] = {0.25, 0.75};

// The right lower quarter with a gap.
void Corner(const int32_t whole[4], int32_t part[4]) {
    const int32_t width = std::max(4, (whole[2] - whole[0]) / 4);
    const int32_t height = std::max(4, (whole[3] - whole[1]) / 4);
    const int32_t gap = std::max(1, width / 16);
    const int32_t corner[] = {whole[2] - gap - width, whole[3] - gap - height, whole[2] - gap, whole[3] - gap};
    std::ranges::copy(corner, part);
}

// The part in the area, never empty.
void PartOf(const int32_t area[4], const ZoomView::Part& part, int32_t out[4]) {
    const auto along = [](int32_t low, int32_t high, double share) {
        return low + static_cast<int32_t>(std::lround((high - low) * share));
    };
    out[0] = std::min(along(area[0], area[2], part.left), area[2] - 1);
    out[1] = std::min(along(area[1], area[3], part.top), area[3] - 1);
    out[2] = std::max(along(area[0], area[2], part.right), out[0] + 1);
    out[3] = std::max(along(area[1], area[3], part.bottom), out[1] + 1);
}

}    // namespace

void ChannelView::Prepare(ChannelSettings& settings) {
    constexpr uint32_t kOsdAndContext = 0x0002 | 0x0008;
    settings.mask |= kOsdAndContext;
    settings.window = m_id;
    settings.osd = &ChannelView::OnOsd;
    settings.osdContext = this;
}

// Text beside a picture stands in its margin, and there is none over the picture.
void ChannelView::OnOsd(void* context, OsdInfo* info) {
    constexpr uint32_t kNoPicture =
        CORVANE_OSD_WAITING | CORVANE_OSD_STOPPED | CORVANE_OSD_AUDIO_ONLY | CORVANE_OSD_TIME_ONLY;
    if ((info->flags & kNoPicture) != 0 || static_cast<ChannelView*>(context)->m_margins)
        DrawOsdText(*info);
}

void ChannelView::Moved() {
    if (m_overview)
        SendArea();
}

// ---- Zoom and overview
// -----------------------------------------------------------------------------------------------

double ChannelView::ShareX(int32_t x) const {
    const int32_t margin = m_margins ? kMargin : 0;
    const double width = std::max(1, static_cast<int32_t>(m_place.width) - 2 * margin);
    return std::clamp((x - m_place.x - margin) / width, 0.0, 1.0);
}

double ChannelView::ShareY(int32_t y) const {
    const int32_t top = m_margins ? kTextMargin : 0;
    const double height = std::max(1, static_cast<int32_t>(m_place.height) - top - (m_margins ? int32_t{kMargin} : 0));
    return std::clamp((y - m_place.y - top) / height, 0.0, 1.0);
}

std::string ChannelView::Zoomed(bool changed) {
    if (!changed)
        return {};
    SendArea();
    char text[32];
    const auto tenths = static_cast<unsigned>(std::lround(m_zoom.Factor() * 10));
    std::snprintf(text, sizeof(text), "zoom %u.%u", tenths / 10, tenths % 10);
    return m_zoom.Whole() ? "whole picture" : text;
}

std::string ChannelView::Zoom(int32_t x1, int32_t y1, int32_t x2, int32_t y2) {
    return Zoomed(m_zoom.To(ShareX(x1), ShareY(y1), ShareX(x2), ShareY(y2)));
}

std::string ChannelView::ZoomAt(int32_t x, int32_t y, double factor) {
    return Zoomed(m_zoom.At(ShareX(x), ShareY(y), factor));
}

std::string ChannelView::ZoomBack() {
    return Zoomed(m_zoom.Back());
}

std::string ChannelView::ZoomReset() {
    return Zoomed(m_zoom.Reset());
}

std::string ChannelView::ToggleMiddle() {
    return Zoomed(m_zoom.Whole() ? m_zoom.To(kMiddle[0], kMiddle[0], kMiddle[1], kMiddle[1]) : m_zoom.Reset());
}

std::string ChannelView::ToggleOverview() {
    m_overview = !m_overview;
    SendArea();
    return m_overview ? "overview on" : "overview off";
}

// An overview lies at its place on the screen, so the area is sent again when the window moves.
void ChannelView::SendArea() {
    constexpr uint32_t kAreasAndSwitches = 1 | 4 | 16 | 32;
    DisplayArea area{};
    if (m_overview) {
        int32_t x = 0;
        int32_t y = 0;
        m_window.ScreenPlace(x, y);
        const int32_t left = x + m_place.x;
        const int32_t top = y + m_place.y;
        const int32_t window[] = {left, top, left + static_cast<int32_t>(m_place.width),
                                  top + static_cast<int32_t>(m_place.height)};
        Corner(window, area.overview.rectangle);
    } else {
        area.overview.rectangle[2] = area.overview.rectangle[3] = kExact;
    }
    PartOf(area.overview.rectangle, m_zoom.Shown(), area.zoom.rectangle);
    area.zoomEnabled = m_zoom.Whole() ? 0 : 1;
    area.overviewEnabled = m_overview ? 1 : 0;
    Corvane_SetChannelOption(m_channel, 11, reinterpret_cast<uint64_t>(&area), kAreasAndSwitches);
}

// ---- Switches of the channel
// -------------------------------------------------------------------------------------------

std::string ChannelView::ToggleMargins() {
    m_margins = !m_margins;
    for (const int32_t side : {7, 8, 10})
        Corvane_SetChannelOption(m_channel, side, m_margins ? kMargin : 0, 0);
    Corvane_SetChannelOption(m_channel, 9, m_margins ? kTextMargin : 0, 0);
    return m_margins ? "margins on" : "margins off";
}

std::string ChannelView::ToggleDeinterlace() {
    m_deinterlace = !m_deinterlace;
    Corvane_SetChannelOption(m_channel, 35, m_deinterlace ? 1 : 0, 0);
    return m_deinterlace ? "deinterlacing on" : "deinterlacing off";
}

std::string ChannelView::NextScaling() {
    static constexpr const char* kNames[] = {"nearest pixel", "bilinear", "bicubic", "Lanczos"};
    m_scaling = (m_scaling + 1) % 4;
    Corvane_SetChannelOption(m_channel, 57, m_scaling, 0);
    return std::string("scaling ") + kNames[m_scaling];
}
