#include "platform/x11/Selections.h"

namespace corvane {

void Selections::SendMask(xcb_connection_t* xcb, xcb_window_t window, const Users& users) {
    uint32_t mask = 0;
    if (users.all > 0)
        mask |= XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    if (users.exposures > 0)
        mask |= XCB_EVENT_MASK_EXPOSURE;
    xcb_change_window_attributes(xcb, window, XCB_CW_EVENT_MASK, &mask);
}

void Selections::Add(xcb_connection_t* xcb, xcb_window_t window, bool exposure) {
    Users& users = m_selected[window];
    ++users.all;
    users.exposures += exposure ? 1 : 0;
    if (users.all == 1 || (exposure && users.exposures == 1))
        SendMask(xcb, window, users);
}

void Selections::Remove(xcb_connection_t* xcb, xcb_window_t window, bool exposure) {
    const auto found = m_selected.find(window);
    if (found == m_selected.end())
        return;
    Users& users = found->second;
    --users.all;
    users.exposures -= exposure ? 1 : 0;
    if (users.all == 0 || (exposure && users.exposures == 0))
        SendMask(xcb, window, users);
    if (users.all == 0)
        m_selected.erase(found);
}

}    // namespace corvane
