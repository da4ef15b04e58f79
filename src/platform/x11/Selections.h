// Which events of which windows the connection has selected, and for how many. Private to x11/. Event thread.
#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <unordered_map>

namespace corvane {

class Selections {
public:
    // Selects structure events, and exposures where asked, for one more user of the window; Remove takes that back. May
    // raise std::bad_alloc.
    void Add(xcb_connection_t* xcb, xcb_window_t window, bool exposure);
    void Remove(xcb_connection_t* xcb, xcb_window_t window, bool exposure);
    // The window is gone, and its id may come again.
    void Forget(xcb_window_t window) { m_selected.erase(window); }

private:
    struct Users {
        uint32_t all = 0;
        uint32_t exposures = 0;    // of these, how many want exposures too
    };
    static void SendMask(xcb_connection_t* xcb, xcb_window_t window, const Users& users);

    std::unordered_map<xcb_window_t, Users> m_selected;
};

}    // namespace corvane
