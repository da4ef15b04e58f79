#include "platform/x11/WatchState.h"

#include <algorithm>
#include <utility>

namespace corvane {

using Life = WindowWatch::Life;

namespace {
template <typename Event>
xcb_window_t WindowOf(const xcb_generic_event_t& event) {
    return reinterpret_cast<const Event&>(event).window;
}
}    // namespace

void WatchState::OnJoin(Connection& connection) {
    m_selected = true;
    connection.Selected().Add(connection.Xcb(), m_window, true);
    Walk(connection);
    Refresh(connection);
}

void WatchState::OnTurn(Connection& connection) {
    if (m_selected && !m_drawing && m_draw.load()) {
        m_drawing = true;
        const uint32_t none = XCB_BACK_PIXMAP_NONE;
        xcb_change_window_attributes(connection.Xcb(), m_window, XCB_CW_BACK_PIXMAP, &none);
    }
    if (std::exchange(m_tellRoom, false))
        m_listeners.Tell(&WindowWatch::Listener::OnSinkRoom);
    const bool ready = std::exchange(m_tellReady, false);
    if (std::exchange(m_tell, false))
        m_listeners.Tell(&WindowWatch::Listener::OnWindowChange);
    else if (ready)
        m_listeners.Tell(&WindowWatch::Listener::OnSinkReady);
}

void WatchState::OnLeave(Connection& connection) {
    DropChain(connection);
    if (m_selected)
        connection.Selected().Remove(connection.Xcb(), m_window, true);
    m_selected = false;
}

void WatchState::OnLost() noexcept {
    {
        MutexLock lock(m_lock);
        if (Facts().life == Life::Dead)
            return;
        WindowFacts dead;
        dead.life = Life::Dead;
        m_facts.Publish(dead);
    }
    m_listeners.Tell(&WindowWatch::Listener::OnWindowChange);
}

void WatchState::Publish(const WindowFacts& facts) {
    MutexLock lock(m_lock);
    if (Facts() == facts)
        return;
    m_facts.Publish(facts);
    m_tell = true;
}

void WatchState::Die(Connection& connection) {
    if (!m_selected)
        return;
    DropChain(connection);
    // Before anybody can see that the window is dead and open its successor under the same id.
    connection.Selected().Forget(m_window);
    m_selected = false;
    WindowFacts dead;
    dead.life = Life::Dead;
    Publish(dead);
}

// ---- Events

bool WatchState::IsOnChain(xcb_window_t window) const {
    return std::find(m_chain.begin(), m_chain.end(), window) != m_chain.end();
}

void WatchState::OnEvent(Connection& connection, const xcb_generic_event_t& event) {
    if (!m_selected)
        return;
    const uint8_t code = event.response_type & 0x7F;
    switch (code) {
    case XCB_EXPOSE: {
        const auto& expose = reinterpret_cast<const xcb_expose_event_t&>(event);
        m_tell |= expose.window == m_window && expose.count == 0;
        break;
    }
    case XCB_CONFIGURE_NOTIFY:
        // What a window manager sends by hand has root coordinates, and says nothing that a refresh does not tell.
        if ((event.response_type & 0x80) == 0)
            OnResize(reinterpret_cast<const xcb_configure_notify_event_t&>(event));
        OnStructure(connection, code, WindowOf<xcb_configure_notify_event_t>(event));
        break;
    case XCB_MAP_NOTIFY:
        OnStructure(connection, code, WindowOf<xcb_map_notify_event_t>(event));
        break;
    case XCB_UNMAP_NOTIFY:
        OnStructure(connection, code, WindowOf<xcb_unmap_notify_event_t>(event));
        break;
    case XCB_GRAVITY_NOTIFY:
        OnStructure(connection, code, WindowOf<xcb_gravity_notify_event_t>(event));
        break;
    case XCB_REPARENT_NOTIFY:
        OnStructure(connection, code, WindowOf<xcb_reparent_notify_event_t>(event));
        break;
    case XCB_DESTROY_NOTIFY:
        OnStructure(connection, code, WindowOf<xcb_destroy_notify_event_t>(event));
        break;
    default:
        break;
    }
}

void WatchState::OnStructure(Connection& connection, uint8_t code, xcb_window_t window) {
    const bool own = window == m_window;
    if (!own && !IsOnChain(window))
        return;
    if (code == XCB_DESTROY_NOTIFY) {
        if (own)
            Die(connection);
        else
            std::erase(m_chain, window);
        return;
    }
    if (code == XCB_REPARENT_NOTIFY)
        Walk(connection);
    if (code == XCB_UNMAP_NOTIFY && own) {
        WindowFacts facts = Facts();
        facts.viewable = false;
        Publish(facts);
    }
    m_tell |= code == XCB_MAP_NOTIFY && own;
    Refresh(connection);
}

// The size counts at once; the place on the screen takes a refresh.
void WatchState::OnResize(const xcb_configure_notify_event_t& event) {
    WindowFacts facts = Facts();
    if (event.window != m_window || facts.life != Life::Alive)
        return;
    facts.size = {event.width, event.height};
    Publish(facts);
}

// ---- Questions

void WatchState::Refresh(Connection& connection) {
    if (m_asking) {
        m_askAgain = true;
        return;
    }
    m_asking = true;
    m_answered = {};
    xcb_connection_t* xcb = connection.Xcb();
    connection.Ask<xcb_get_window_attributes_reply_t>(
        xcb_get_window_attributes(xcb, m_window), shared_from_this(),
        [this, &connection](ReplyPtr<xcb_get_window_attributes_reply_t> reply) {
            if (reply == nullptr) {
                Die(connection);
                return;
            }
            m_answered.viewable = reply->map_state == XCB_MAP_STATE_VIEWABLE;
            m_visual = reply->visual;
        });
    connection.Ask<xcb_get_geometry_reply_t>(xcb_get_geometry(xcb, m_window), shared_from_this(),
                                             [this, &connection](ReplyPtr<xcb_get_geometry_reply_t> reply) {
                                                 if (reply == nullptr) {
                                                     Die(connection);
                                                     return;
                                                 }
                                                 m_answered.size = {reply->width, reply->height};
                                                 m_answered.depth = reply->depth;
                                                 m_answered.root = reply->root;
                                                 m_border = reply->border_width;
                                             });
    // Which screen the window is on comes with an answer that is still under way: every root is asked, and one of them
    // is on the same screen.
    for (xcb_screen_iterator_t i = xcb_setup_roots_iterator(xcb_get_setup(xcb)); i.rem > 0; xcb_screen_next(&i)) {
        const bool last = i.rem == 1;
        connection.Ask<xcb_translate_coordinates_reply_t>(
            xcb_translate_coordinates(xcb, m_window, i.data->root, 0, 0), shared_from_this(),
            [this, &connection, last](ReplyPtr<xcb_translate_coordinates_reply_t> reply) {
                if (reply == nullptr) {
                    Die(connection);
                    return;
                }
                if (reply->same_screen) {
                    const int64_t left = int64_t{reply->dst_x} - m_border;
                    const int64_t top = int64_t{reply->dst_y} - m_border;
                    m_answered.outer = Rect{left, top, left + m_answered.size.width + 2 * int64_t{m_border},
                                            top + m_answered.size.height + 2 * int64_t{m_border}};
                }
                if (last)
                    OnRefreshed(connection);
            });
    }
}

void WatchState::OnRefreshed(Connection& connection) {
    m_asking = false;
    if (!m_selected)
        return;
    const WindowFacts before = Facts();
    WindowFacts facts = m_answered;
    facts.life = Life::Alive;
    facts.layout = LayoutOf(connection.Xcb(), facts.depth, m_visual);
    if (m_askAgain && before.life == Life::Alive)
        facts.size = before.size;    // an event may have told a newer one
    Publish(facts);
    if (std::exchange(m_askAgain, false))
        Refresh(connection);
}

void WatchState::Walk(Connection& connection) {
    ++m_walk;
    DropChain(connection);
    Climb(connection, m_window);
}

void WatchState::Climb(Connection& connection, xcb_window_t from) {
    connection.Ask<xcb_query_tree_reply_t>(
        xcb_query_tree(connection.Xcb(), from), shared_from_this(),
        [this, &connection, from, walk = m_walk](ReplyPtr<xcb_query_tree_reply_t> reply) {
            if (walk != m_walk || !m_selected)
                return;
            if (reply == nullptr) {
                if (from == m_window)
                    Die(connection);
                return;    // an ancestor that is gone took the window with it or let go of it: an event tells
            }
            if (reply->parent == XCB_NONE || reply->parent == reply->root) {
                Refresh(connection);    // for what happened before the chain was watched
                return;
            }
            m_chain.push_back(reply->parent);
            connection.Selected().Add(connection.Xcb(), reply->parent, false);
            Climb(connection, reply->parent);
        });
}

void WatchState::DropChain(Connection& connection) {
    for (const xcb_window_t ancestor : m_chain)
        connection.Selected().Remove(connection.Xcb(), ancestor, false);
    m_chain.clear();
}

}    // namespace corvane
