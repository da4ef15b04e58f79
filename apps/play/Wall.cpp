#include "Wall.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <numbers>
#include <utility>

namespace {

using Kind = Window::Event::Kind;

constexpr uint32_t kEscape = 0xff1b;    // keysyms
constexpr uint32_t kReturn = 0xff0d;
constexpr uint32_t kGap = 2;                // pixels between channels
constexpr int32_t kSmallestDrag = 8;        // pixels; less is a click
constexpr uint32_t kDoubleClickMs = 400;    // at most between two clicks
constexpr double kNotch = 1.25;             // of the wheel

uint32_t Columns(size_t count) {
    return static_cast<uint32_t>(std::ceil(std::sqrt(static_cast<double>(count))));
}

// The cells share the window out to the last pixel.
Box Cell(size_t index, size_t count, uint32_t width, uint32_t height) {
    const uint32_t columns = Columns(count);
    const auto rows = static_cast<uint32_t>((count + columns - 1) / columns);
    const auto edge = [](uint32_t at, uint32_t of, uint32_t length) {
        return static_cast<uint32_t>(uint64_t{length} * at / of);
    };
    const auto column = static_cast<uint32_t>(index % columns);
    const auto row = static_cast<uint32_t>(index / columns);
    const uint32_t x = edge(column, columns, width);
    const uint32_t y = edge(row, rows, height);
    const uint32_t right = edge(column + 1, columns, width) - (column + 1 < columns ? kGap : 0);
    const uint32_t bottom = edge(row + 1, rows, height) - (row + 1 < rows ? kGap : 0);
    return {static_cast<int32_t>(x), static_cast<int32_t>(y), std::max(x + 1, right) - x, std::max(y + 1, bottom) - y};
}

// The sides of the smallest upright rectangle around the picture when it is turned; at least 1.
std::pair<uint32_t, uint32_t> Turned(uint32_t width, uint32_t height, double degrees) {
    const double angle = degrees * std::numbers::pi / 180;
    const auto side = [angle](uint32_t along, uint32_t across) {
        return std::max(1u, static_cast<uint32_t>(
                                std::lround(along * std::abs(std::cos(angle)) + across * std::abs(std::sin(angle)))));
    };
    return {side(width, height), side(height, width)};
}

}    // namespace

std::unique_ptr<Wall> Wall::Open(const Options& options, uint32_t streamWidth, uint32_t streamHeight,
                                 double pixelAspect, std::string& error) {
    std::unique_ptr<Wall> wall(new Wall);
    const auto wide = static_cast<uint32_t>(std::lround(streamWidth * pixelAspect));
    const auto [width, height] = Turned(wide, streamHeight, options.rotate);
    const uint32_t columns = Columns(options.wall);
    const uint32_t rows = (options.wall + columns - 1) / columns;
    if (options.window != 0) {
        wall->m_window = Window::Follow(options.window, error);
    } else {
        const std::string name = std::filesystem::path(options.input).filename().string();
        wall->m_window =
            Window::Open(name.empty() ? options.input : name, options.width ? options.width : width * columns,
                         options.height ? options.height : height * rows, error);
    }
    if (!wall->m_window)
        return nullptr;
    const Window& window = *wall->m_window;
    for (uint32_t i = 0; i < options.wall; ++i)
        wall->m_views.push_back(std::make_unique<ChannelView>(
            window, options.wall == 1 ? window.Id() : window.MakeChild(window.Id(), 0), options.fill));
    for (const auto& view : wall->m_views)
        view->SetShape(width, height);
    wall->LayOut();
    return wall;
}

void Wall::LayOut() {
    const Box all{0, 0, m_window->Width(), m_window->Height()};
    if (m_views.size() == 1)
        return m_views[0]->SetPlace(all);    // the window itself
    for (size_t i = 0; i < m_views.size(); ++i) {
        const Box cell = m_alone == i ? all : Cell(i, m_views.size(), all.width, all.height);
        ChannelView& view = *m_views[i];
        view.SetPlace(view.Fills() ? cell : cell.Fitted(view.ShapeWidth(), view.ShapeHeight()));
        m_window->PlaceChild(m_views[i]->Id(), m_views[i]->Place());
        m_window->ShowChild(m_views[i]->Id(), m_alone == SIZE_MAX || m_alone == i);
    }
    MarkKeys();
}

// The frame lies in the gaps, and on the picture where that touches the edge of the window.
void Wall::MarkKeys() {
    if (m_views.size() == 1)
        return;
    if (m_alone != SIZE_MAX)
        return m_mark.Hide(*m_window);
    constexpr auto kThick = static_cast<int32_t>(kGap);
    const Box& place = m_views[m_keys]->Place();
    const int32_t left = std::max(0, place.x - kThick);
    const int32_t top = std::max(0, place.y - kThick);
    const auto end = [](int32_t from, uint32_t length, uint32_t most) {
        return std::min(from + static_cast<int32_t>(length) + kThick, static_cast<int32_t>(most));
    };
    m_mark.Show(*m_window, m_window->Id(),
                {left, top, static_cast<uint32_t>(end(place.x, place.width, m_window->Width()) - left),
                 static_cast<uint32_t>(end(place.y, place.height, m_window->Height()) - top)});
}

void Wall::KeysGoTo(size_t index) {
    if (index == m_keys)
        return;
    m_keys = index;
    MarkKeys();
}

Wall::State Wall::Attend() {
    bool moved = false;
    while (m_state == State::Playing || m_state == State::Paused) {
        const Window::Event event = m_window->Next();
        if (event.kind == Kind::None)
            break;
        if (event.kind == Kind::Key || event.kind == Kind::Motion)
            KeysGoTo(Under(event.x, event.y));
        if (event.kind == Kind::Key)
            Press(event.key, m_keys);
        else if (event.kind == Kind::Press)
            PressButton(event);
        else if (event.kind == Kind::Motion)
            Drag(event);
        else if (event.kind == Kind::Release)
            Release(event);
        else if (event.kind == Kind::Changed)
            moved = true;
        else
            m_state = event.kind == Kind::Closed ? State::Ended : State::Lost;
    }
    if (moved) {
        LayOut();
        for (const auto& view : m_views)
            view->Moved();
    }
    return m_state;
}

// The view at that place; outside of all, the one that is shown alone or the one that the keys went to last.
size_t Wall::Under(int32_t x, int32_t y) const {
    const size_t fallback = m_alone == SIZE_MAX ? m_keys : m_alone;
    for (size_t i = 0; i < m_views.size() && m_alone == SIZE_MAX; ++i)
        if (m_views[i]->Place().Has(x, y))
            return i;
    return fallback;
}

void Wall::Say(size_t index, const std::string& what) {
    if (!what.empty())
        m_notice = m_views.size() == 1 ? what : "channel " + std::to_string(index + 1) + ": " + what;
}

// ---- Keys ----------------------------------------------------------------------------------------------------------

void Wall::Press(uint32_t key, size_t index) {
    static constexpr struct {
        uint32_t key;
        std::string (ChannelView::*does)();
    } kSwitches[] = {{'m', &ChannelView::ToggleMargins},
                     {'z', &ChannelView::ToggleMiddle},
                     {'o', &ChannelView::ToggleOverview},
                     {'b', &ChannelView::ZoomBack},
                     {'d', &ChannelView::ToggleDeinterlace},
                     {'k', &ChannelView::NextScaling},
                     {'0', &ChannelView::ToggleSound},
                     {'+', &ChannelView::Louder},
                     {'=', &ChannelView::Louder},    // the key of + without shift
                     {'-', &ChannelView::Softer},
                     {'p', &ChannelView::ToggleFill}};
    for (const auto& entry : kSwitches)
        if (entry.key == key) {
            Say(index, (m_views[index].get()->*entry.does)());
            if (key == 'p')
                LayOut();
            return;
        }
    switch (key) {
    case ' ':
        m_state = m_state == State::Paused ? State::Playing : State::Paused;
        m_notice = m_state == State::Paused ? "paused" : "playing";
        break;
    case 's':
        m_stillWanted = m_views[index].get();
        break;
    case 'w':
        m_screenshotWanted = true;
        break;
    case 'f':
        m_window->ToggleFullScreen();
        break;
    case kReturn:
        ToggleAlone(index);
        break;
    case 'q':
    case kEscape:
        m_state = State::Ended;
        break;
    default:
        break;
    }
}

void Wall::ToggleAlone(size_t index) {
    if (m_views.size() == 1)
        return;
    m_alone = m_alone == SIZE_MAX ? index : SIZE_MAX;
    LayOut();
    for (const auto& view : m_views)
        view->Moved();
    Say(index, m_alone == SIZE_MAX ? "among all" : "alone");
}

// ---- The mouse -----------------------------------------------------------------------------------------------------

void Wall::PressButton(const Window::Event& event) {
    const size_t index = Under(event.x, event.y);
    ChannelView& view = *m_views[index];
    switch (event.button) {
    case 1:
        m_dragged = index;
        m_down = event;
        break;
    case 3:
        Say(index, view.ZoomBack());
        break;
    case 4:
        Say(index, view.ZoomAt(event.x, event.y, kNotch));
        break;
    case 5:
        Say(index, view.ZoomAt(event.x, event.y, 1 / kNotch));
        break;
    default:
        break;
    }
}

void Wall::Drag(const Window::Event& event) {
    if (m_dragged == SIZE_MAX)
        return;
    const ChannelView& view = *m_views[m_dragged];
    const Box& place = view.Place();
    const auto inside = [](int32_t at, int32_t low, uint32_t length) {
        return std::clamp(at - low, 0, static_cast<int32_t>(length));
    };
    const int32_t x[] = {inside(m_down.x, place.x, place.width), inside(event.x, place.x, place.width)};
    const int32_t y[] = {inside(m_down.y, place.y, place.height), inside(event.y, place.y, place.height)};
    const Box box{std::min(x[0], x[1]), std::min(y[0], y[1]), static_cast<uint32_t>(std::abs(x[1] - x[0])),
                  static_cast<uint32_t>(std::abs(y[1] - y[0]))};
    if (box.width >= kSmallestDrag && box.height >= kSmallestDrag)
        m_band.Show(*m_window, view.Id(), box);
    else
        m_band.Hide(*m_window);
}

void Wall::Release(const Window::Event& event) {
    if (event.button != 1 || m_dragged == SIZE_MAX)
        return;
    m_band.Hide(*m_window);
    const size_t index = std::exchange(m_dragged, SIZE_MAX);
    const auto near = [](const Window::Event& a, const Window::Event& b) {
        return std::abs(a.x - b.x) < kSmallestDrag && std::abs(a.y - b.y) < kSmallestDrag;
    };
    if (std::abs(event.x - m_down.x) >= kSmallestDrag && std::abs(event.y - m_down.y) >= kSmallestDrag) {
        Say(index, m_views[index]->Zoom(m_down.x, m_down.y, event.x, event.y));
    } else if (m_clicked.kind == Kind::Release && near(m_clicked, event) &&
               event.timeMs - m_clicked.timeMs <= kDoubleClickMs) {
        m_clicked = {};
        Say(index, m_views[index]->ZoomReset());
    } else {
        m_clicked = event;
    }
}
