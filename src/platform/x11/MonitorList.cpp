#include "platform/x11/MonitorList.h"

#include <algorithm>
#include <utility>

#include "platform/x11/Connection.h"
#include "platform/x11/VblankWatch.h"

namespace corvane {

namespace {

int64_t Gap(int64_t fromA, int64_t toA, int64_t fromB, int64_t toB) {
    return std::max<int64_t>({0, fromB - toA, fromA - toB});
}

uint32_t Nearest(const std::vector<Monitor>& monitors, const Rect& rect) {
    uint32_t best = 0;
    int64_t bestOverlap = -1;
    int64_t bestGap = 0;
    for (size_t i = 0; i < monitors.size(); ++i) {
        const Rect& monitor = monitors[i].place;
        const Rect both = rect.Intersected(monitor);
        const int64_t overlap = both.Empty() ? 0 : both.Width() * both.Height();
        const int64_t x = Gap(rect.left, rect.right, monitor.left, monitor.right);
        const int64_t y = Gap(rect.top, rect.bottom, monitor.top, monitor.bottom);
        const int64_t gap = x * x + y * y;
        if (overlap > bestOverlap || (overlap == bestOverlap && gap < bestGap)) {
            best = static_cast<uint32_t>(i);
            bestOverlap = overlap;
            bestGap = gap;
        }
    }
    return best;
}

}    // namespace

uint32_t MonitorList::IndexOf(xcb_window_t root, const Rect& rect) const {
    MutexLock lock(m_lock);
    for (const Screen& screen : m_screens)
        if (screen.root == root)
            return Nearest(screen.monitors, rect);
    return 0;
}

Monitor MonitorList::Of(xcb_window_t root, const Rect& rect) const {
    MutexLock lock(m_lock);
    return OfLocked(root, rect);
}

Monitor MonitorList::OfLocked(xcb_window_t root, const Rect& rect) const {
    for (const Screen& screen : m_screens)
        if (screen.root == root && !screen.monitors.empty())
            return screen.monitors[Nearest(screen.monitors, rect)];
    return {};
}

std::optional<Beam> MonitorList::BeamOf(Connection& connection, xcb_window_t root, const Rect& rect) {
    if (connection.Server().presentOpcode == 0 || connection.Server().randrFirstEvent == 0 || connection.Lost())
        return std::nullopt;
    std::shared_ptr<VblankWatch> beams;
    bool fresh;
    Monitor monitor;
    {
        MutexLock lock(m_lock);
        fresh = m_beams == nullptr;
        if (fresh)
            m_beams = std::make_shared<VblankWatch>();
        beams = m_beams;
        monitor = OfLocked(root, rect);
    }
    if (fresh)
        connection.Join(beams);
    bool stale = false;
    const std::optional<Beam> beam = beams->Of(root, monitor.place, &stale);
    if (stale)
        connection.Socket().Poke();
    return beam;
}

void MonitorList::Ask(Connection& connection) {
    if (connection.Server().randrFirstEvent == 0)
        return;
    for (xcb_screen_iterator_t screen = xcb_setup_roots_iterator(xcb_get_setup(connection.Xcb())); screen.rem > 0;
         xcb_screen_next(&screen))
        connection.Ask<xcb_randr_get_monitors_reply_t>(
            xcb_randr_get_monitors(connection.Xcb(), screen.data->root, 1), nullptr,
            [this, root = screen.data->root](const ReplyPtr<xcb_randr_get_monitors_reply_t>& reply) {
                if (reply != nullptr)
                    Store(root, *reply);
            });
}

bool MonitorList::OnEvent(Connection& connection, const xcb_generic_event_t& event) {
    const uint8_t code = event.response_type & 0x7F;
    const uint8_t first = connection.Server().randrFirstEvent;
    if (first == 0 || (code != first + XCB_RANDR_SCREEN_CHANGE_NOTIFY && code != first + XCB_RANDR_NOTIFY))
        return false;
    std::shared_ptr<VblankWatch> beams;
    {
        MutexLock lock(m_lock);
        beams = m_beams;
    }
    if (beams != nullptr)
        beams->OnModesChanged();
    Ask(connection);
    return true;
}

void MonitorList::Store(xcb_window_t root, const xcb_randr_get_monitors_reply_t& reply) {
    Screen screen{root, {}};
    for (xcb_randr_monitor_info_iterator_t i = xcb_randr_get_monitors_monitors_iterator(&reply); i.rem > 0;
         xcb_randr_monitor_info_next(&i)) {
        const xcb_randr_monitor_info_t& info = *i.data;
        // The name is unique on a screen; the index changes whenever another monitor comes or goes.
        screen.monitors.push_back(
            {uint64_t{root} << 32 | info.name, {info.x, info.y, info.x + info.width, info.y + info.height}});
    }
    MutexLock lock(m_lock);
    for (Screen& known : m_screens) {
        if (known.root == root) {
            known = std::move(screen);
            return;
        }
    }
    m_screens.push_back(std::move(screen));
}

}    // namespace corvane
