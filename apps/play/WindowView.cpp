#include "WindowView.h"

#include <algorithm>
#include <filesystem>

#include "OsdText.h"

namespace {

constexpr uint32_t kMargin = 8;         // pixels at the other sides
constexpr uint32_t kEscape = 0xff1b;    // keysym

// The middle half, or the right lower quarter with a gap.
void Middle(const int32_t whole[4], int32_t part[4]) {
    const int32_t width = whole[2] - whole[0];
    const int32_t height = whole[3] - whole[1];
    const int32_t middle[] = {whole[0] + width / 4, whole[1] + height / 4, whole[2] - width / 4, whole[3] - height / 4};
    std::ranges::copy(middle, part);
}

void Corner(const int32_t whole[4], int32_t part[4]) {
    const int32_t width = std::max(4, (whole[2] - whole[0]) / 4);
    const int32_t height = std::max(4, (whole[3] - whole[1]) / 4);
    const int32_t gap = std::max(1, width / 16);
    const int32_t corner[] = {whole[2] - gap - width, whole[3] - gap - height, whole[2] - gap, whole[3] - gap};
    std::ranges::copy(corner, part);
}

}    // namespace

std::unique_ptr<WindowView> WindowView::Open(const Options& options, uint32_t width, uint32_t height,
                                             std::string& error) {
    std::unique_ptr<WindowView> view(new WindowView);
    if (options.window != 0) {
        view->m_window = Window::Follow(options.window, error);
    } else {
        const std::string name = std::filesystem::path(options.input).filename().string();
        view->m_window =
            Window::Open(name.empty() ? options.input : name, std::max(1u, options.width ? options.width : width),
                         std::max(1u, options.height ? options.height : height), error);
    }
    return view->m_window ? std::move(view) : nullptr;
}

void WindowView::Prepare(ChannelSettings& settings) {
    constexpr uint32_t kOsdAndContext = 0x0002 | 0x0008;
    settings.mask |= kOsdAndContext;
    settings.window = m_window->Id();
    settings.osd = &WindowView::OnOsd;
    settings.osdContext = this;
}

// Text beside a picture stands in its margin, and there is none over the picture.
void WindowView::OnOsd(void* context, OsdInfo* info) {
    constexpr uint32_t kNoPicture =
        CORVANE_OSD_WAITING | CORVANE_OSD_STOPPED | CORVANE_OSD_AUDIO_ONLY | CORVANE_OSD_TIME_ONLY;
    if ((info->flags & kNoPicture) != 0 || static_cast<WindowView*>(context)->m_margins)
        DrawOsdText(*info);
}

WindowView::State WindowView::Attend() {
    bool moved = false;
    while (m_state == State::Playing || m_state == State::Paused) {
        const Window::Event event = m_window->Next();
        if (event == Window::Event::None)
            break;
        if (event == Window::Event::Key)
            Press(m_window->LastKey());
        else if (event == Window::Event::Changed)
            moved = true;
        else
            m_state = event == Window::Event::Closed ? State::Ended : State::Lost;
    }
    if (moved && (m_zoom || m_overview))
        SendArea();
    return m_state;
}

void WindowView::Press(uint32_t key) {
    switch (key) {
    case ' ':
        m_state = m_state == State::Paused ? State::Playing : State::Paused;
        break;
    case 's':
        m_screenshotWanted = true;
        break;
    case 'f':
        m_window->ToggleFullScreen();
        break;
    case 'm':
        ToggleMargins();
        break;
    case 'z':
        m_zoom = !m_zoom;
        SendArea();
        break;
    case 'o':
        m_overview = !m_overview;
        SendArea();
        break;
    case 'q':
    case kEscape:
        m_state = State::Ended;
        break;
    default:
        break;
    }
}

void WindowView::ToggleMargins() {
    m_margins = !m_margins;
    for (const int32_t side : {7, 8, 10})
        Corvane_SetChannelOption(m_channel, side, m_margins ? kMargin : 0, 0);
    Corvane_SetChannelOption(m_channel, 9, m_margins ? kTextMargin : 0, 0);
}

// The overview area stands for the whole picture, the zoom area for the part of it that the window shows: without an
// overview of its own the window is the area. Screen pixels, so sent again when the window moves.
void WindowView::SendArea() {
    constexpr uint32_t kAreasAndSwitches = 1 | 4 | 16 | 32;
    int32_t x = 0;
    int32_t y = 0;
    m_window->ScreenPlace(x, y);
    const int32_t window[] = {x, y, x + static_cast<int32_t>(m_window->Width()),
                              y + static_cast<int32_t>(m_window->Height())};
    DisplayArea area{};
    if (m_overview)
        Corner(window, area.overview.rectangle);
    else
        std::ranges::copy(window, area.overview.rectangle);
    Middle(area.overview.rectangle, area.zoom.rectangle);
    area.zoomEnabled = m_zoom ? 1 : 0;
    area.overviewEnabled = m_overview ? 1 : 0;
    Corvane_SetChannelOption(m_channel, 11, reinterpret_cast<uint64_t>(&area), kAreasAndSwitches);
}
