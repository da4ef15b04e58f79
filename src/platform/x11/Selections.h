// Counts the users of each window whose events the connection has selected. Private to x11/. Event thread.
#pragma once

#include <xcb/xcb.h>

#include <cstdint>
#include <unordered_map>

namespace corvane {

class Selections {
public:
    // Adds a user of the window and selects structure events, and exposures where wanted; Remove undoes that. May raise
    // std::bad_alloc.
    void Add(xcb_connection_t* xcb, xcb_window_t window, bool exposure);
    void Remove(xcb_connection_t* xcb, xcb_window_t window, bool exposure);
    // The window was destroyed; the server may give its id to another one.
    void Forget(xcb_window_t window) { m_selected.erase(window); }

private:
    struct Users {
        uint32_t all = 0;
        uint32_t exposures = 0;    // users that want exposures too
    };
    static void SendMask(xcb_connection_t* xcb, xcb_window_t window, const Users& users);

    std::unordered_map<xcb_window_t, Users> m_selected;
};

}    // namespace corvane
