// The monitors of the server's screens, and their beams. Private to x11/.
#pragma once

#include <xcb/randr.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "base/Mutex.h"
#include "base/Rectangle.h"
#include "platform/x11/WindowWatch.h"

namespace corvane {

class VblankWatch;
class Connection;

class MonitorList {
public:
    // ---- Any thread ----

    // The monitor of the screen `root` that shows most of `rect`, else the nearest one: its index in the list, 0 where
    // there is none; and the monitor, with handle 0 where there is no list.
    uint32_t IndexOf(xcb_window_t root, const Rect& rect) const;
    Monitor Of(xcb_window_t root, const Rect& rect) const;
    // The beam of that monitor. Only once a client of the connection was seen alive. May raise std::bad_alloc.
    std::optional<Beam> BeamOf(Connection& connection, xcb_window_t root, const Rect& rect);

    // ---- The event thread; both may raise std::bad_alloc ----

    void Ask(Connection& connection);
    // True for an event about monitors; the list is then asked for again.
    bool OnEvent(Connection& connection, const xcb_generic_event_t& event);

private:
    struct Screen {
        xcb_window_t root;
        std::vector<Monitor> monitors;
    };
    Monitor OfLocked(xcb_window_t root, const Rect& rect) const REQUIRES(m_lock);
    void Store(xcb_window_t root, const xcb_randr_get_monitors_reply_t& reply);

    mutable Mutex m_lock;    // a leaf
    std::vector<Screen> m_screens GUARDED_BY(m_lock);
    std::shared_ptr<VblankWatch> m_beams GUARDED_BY(m_lock);    // null until a beam is asked for
};

}    // namespace corvane
