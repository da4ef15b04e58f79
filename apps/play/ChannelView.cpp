#include "ChannelView.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "OsdText.h"

namespace {

constexpr uint32_t kMargin = 8;    // pixels left, right and below; the text lies above
// Pixels of the area that stands for the whole picture while no overview is shown. Any size works; a large one makes
// the selected part exact.
constexpr int32_t kExact = 1 << 14;
constexpr double kMiddle[] = {0.25, 0.75};

// `part`: a quarter of the width and height of `whole`, in its lower right corner, with a gap.
void Corner(const int32_t whole[4], int32_t part[4]) {
    const int32_t width = std::max(4, (whole[2] - whole[0]) / 4);
    const int32_t height = std::max(4, (whole[3] - whole[1]) / 4);
    const int32_t gap = std::max(1, width / 16);
    const int32_t corner[] = {whole[2] - gap - width, whole[3] - gap - height, whole[2] - gap, whole[3] - gap};
    std::ranges::copy(corner, part);
}

// `out`: the rectangle of `part` within `area`; never empty.
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
    m_heard = settings.audioEnabled != 0;
    m_volume = static_cast<int>(settings.volume / 50);
    settings.mask |= CORVANE_SETTINGS_TEXT | CORVANE_SETTINGS_TEXT_CONTEXT;
    settings.window = m_id;
    settings.osd = &ChannelView::OnOsd;
    settings.osdContext = this;
}

// Text is drawn in the margins only: where there is a picture and no margin, none is drawn.
void ChannelView::OnOsd(void* context, OsdInfo* info) {
    constexpr uint32_t kNoPicture =
        CORVANE_OSD_WAITING | CORVANE_OSD_STOPPED | CORVANE_OSD_AUDIO_ONLY | CORVANE_OSD_TIME_ONLY;
    if ((info->flags & kNoPicture) != 0 || static_cast<ChannelView*>(context)->m_margins)
        DrawOsdText(*info);
}

void ChannelView::SetChannel(void* channel) {
    m_channel = channel;
    Corvane_SetChannelOption(m_channel, CORVANE_OPTION_RESIZE_KIND, m_scaling, 0);
    SendMargins();
}

void ChannelView::SetPlace(const Box& place) {
    m_place = place;
    SendMargins();
}

void ChannelView::SetShape(double width, double height) {
    if (width <= 0 || height <= 0 || (width == m_shapeWidth && height == m_shapeHeight))
        return;
    m_shapeWidth = width;
    m_shapeHeight = height;
    SendMargins();
}

// First the margins for the text; then, inside them, the margins that keep the proportions of the picture.
void ChannelView::SendMargins() {
    const uint32_t around = m_margins ? kMargin : 0;
    const uint32_t top = m_margins ? kTextMargin : 0;
    const auto rest = [](uint32_t side, uint32_t used) { return side > used ? side - used : 0; };
    m_picture = {static_cast<int32_t>(around), static_cast<int32_t>(top), std::max(1u, rest(m_place.width, 2 * around)),
                 std::max(1u, rest(m_place.height, top + around))};
    if (!m_fill)
        m_picture = m_picture.Fitted(m_shapeWidth, m_shapeHeight);
    if (m_channel == nullptr)
        return;
    const auto left = static_cast<uint32_t>(m_picture.x);
    const auto above = static_cast<uint32_t>(m_picture.y);
    const uint32_t margins[] = {left, rest(m_place.width, left + m_picture.width), above,
                                rest(m_place.height, above + m_picture.height)};
    for (int32_t i = 0; i < 4; ++i)
        Corvane_SetChannelOption(m_channel, CORVANE_OPTION_MARGIN_LEFT + i, margins[i], 0);
    if (m_overview)
        SendArea();
}

void ChannelView::Moved() {
    if (m_overview)
        SendArea();
}

// ---- Zoom and overview
// -----------------------------------------------------------------------------------------------

double ChannelView::ShareX(int32_t x) const {
    return std::clamp((x - m_place.x - m_picture.x) / static_cast<double>(std::max(1u, m_picture.width)), 0.0, 1.0);
}

double ChannelView::ShareY(int32_t y) const {
    return std::clamp((y - m_place.y - m_picture.y) / static_cast<double>(std::max(1u, m_picture.height)), 0.0, 1.0);
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

// The rectangle of an overview is in screen coordinates, so the area is sent again after the window has moved.
void ChannelView::SendArea() {
    constexpr uint32_t kAreasAndSwitches =
        CORVANE_AREA_OVERVIEW | CORVANE_AREA_ZOOM | CORVANE_AREA_ZOOM_ENABLED | CORVANE_AREA_OVERVIEW_ENABLED;
    DisplayArea area{};
    if (m_overview) {
        int32_t x = 0;
        int32_t y = 0;
        m_window.ScreenPlace(x, y);
        const int32_t left = x + m_place.x + m_picture.x;
        const int32_t top = y + m_place.y + m_picture.y;
        const int32_t picture[] = {left, top, left + static_cast<int32_t>(m_picture.width),
                                   top + static_cast<int32_t>(m_picture.height)};
        Corner(picture, area.overview.rectangle);
        const int32_t* const place = area.overview.rectangle;
        ShowFrames({place[0] - x - m_place.x, place[1] - y - m_place.y, static_cast<uint32_t>(place[2] - place[0]),
                    static_cast<uint32_t>(place[3] - place[1])});
    } else {
        area.overview.rectangle[2] = area.overview.rectangle[3] = kExact;
        m_overviewFrame.Hide(m_window);
        m_partFrame.Hide(m_window);
    }
    PartOf(area.overview.rectangle, m_zoom.Shown(), area.zoom.rectangle);
    area.zoomEnabled = m_zoom.Whole() ? 0 : 1;
    area.overviewEnabled = m_overview ? 1 : 0;
    Corvane_SetChannelOption(m_channel, CORVANE_OPTION_DISPLAY_AREA, reinterpret_cast<uint64_t>(&area),
                             kAreasAndSwitches);
}

// `overview`: its rectangle in the channel's window. One frame lies around it, the frame of the selected part inside.
void ChannelView::ShowFrames(const Box& overview) {
    constexpr int32_t kThick = 2;
    m_overviewFrame.Show(
        m_window, m_id,
        {overview.x - kThick, overview.y - kThick, overview.width + 2 * kThick, overview.height + 2 * kThick});
    if (m_zoom.Whole())
        return m_partFrame.Hide(m_window);
    const ZoomView::Part part = m_zoom.Shown();
    const auto along = [](double share, uint32_t length) { return static_cast<int32_t>(std::lround(share * length)); };
    const int32_t left = along(part.left, overview.width);
    const int32_t top = along(part.top, overview.height);
    m_partFrame.Show(m_window, m_id,
                     {overview.x + left, overview.y + top,
                      static_cast<uint32_t>(std::max(2 * kThick, along(part.right, overview.width) - left)),
                      static_cast<uint32_t>(std::max(2 * kThick, along(part.bottom, overview.height) - top))});
}

// ---- Switches of the channel
// -------------------------------------------------------------------------------------------

std::string ChannelView::ToggleMargins() {
    m_margins = !m_margins;
    SendMargins();
    return m_margins ? "margins on" : "margins off";
}

std::string ChannelView::ToggleFill() {
    m_fill = !m_fill;
    SendMargins();
    return m_fill ? "picture fills its place" : "picture keeps its proportions";
}

std::string ChannelView::ToggleDeinterlace() {
    m_deinterlace = !m_deinterlace;
    Corvane_SetChannelOption(m_channel, CORVANE_OPTION_SMOOTHING, m_deinterlace ? 1 : 0, 0);
    return m_deinterlace ? "deinterlacing on" : "deinterlacing off";
}

std::string ChannelView::ToggleSound() {
    m_heard = !m_heard;
    return SendSound();
}

std::string ChannelView::ChangeVolume(int percent) {
    m_volume = std::clamp(m_volume + percent, 0, 100);
    m_heard = true;
    return SendSound();
}

std::string ChannelView::SendSound() {
    ChannelUpdate update{};
    update.mask = CORVANE_UPDATE_AUDIO | CORVANE_UPDATE_VOLUME;
    update.audioEnabled = m_heard ? 1 : 0;
    update.volume = static_cast<uint32_t>(m_volume) * 50;
    Corvane_UpdateChannelSettings(m_channel, &update);
    return m_heard ? "volume " + std::to_string(m_volume) : "sound off";
}

std::string ChannelView::NextScaling() {
    static constexpr const char* kNames[] = {"nearest pixel", "bilinear", "bicubic", "Lanczos"};
    m_scaling = (m_scaling + 1) % (CORVANE_RESIZE_LANCZOS + 1);
    Corvane_SetChannelOption(m_channel, CORVANE_OPTION_RESIZE_KIND, m_scaling, 0);
    return std::string("scaling ") + kNames[m_scaling];
}
