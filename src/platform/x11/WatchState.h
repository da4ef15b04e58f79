// The state of a watch, and how it is kept up to date. Private to x11/.
//
// A window gets no event when an ancestor moves or is unmapped, so all ancestors up to the root are watched as well.
// Any event of this chain leads to a refresh, which asks for attributes, geometry and place again; one refresh at a
// time.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "base/Mutex.h"
#include "base/Published.h"
#include "platform/x11/Connection.h"
#include "platform/x11/ListenerList.h"
#include "platform/x11/WindowWatch.h"

namespace corvane {

struct WindowFacts {
    WindowWatch::Life life = WindowWatch::Life::Unknown;
    bool viewable = false;
    WindowWatch::Size size;       // inside, pixels
    std::optional<Rect> outer;    // with the border, root coordinates
    xcb_window_t root = 0;
    uint8_t depth = 0;
    PixelLayout layout = PixelLayout::Unsupported;

    bool operator==(const WindowFacts&) const = default;
};

class WatchState final : public EventClient, public std::enable_shared_from_this<WatchState> {
public:
    WatchState(xcb_window_t window, bool draw) : m_window(window), m_draw(draw) {}

    xcb_window_t Window() const { return m_window; }
    WindowFacts Facts() const { return m_facts.Read(); }
    ListenerList& Listeners() { return m_listeners; }
    void WantDraw() { m_draw.store(true); }         // takes effect with the next turn
    void TellSinkReady() { m_tellReady = true; }    // event thread; takes effect at the end of this turn
    void TellSinkRoom() { m_tellRoom = true; }

    void OnJoin(Connection& connection) override;
    void OnEvent(Connection& connection, const xcb_generic_event_t& event) override;
    void OnTurn(Connection& connection) override;
    void OnLeave(Connection& connection) override;
    void OnLost() noexcept override;

private:
    bool IsOnChain(xcb_window_t window) const;
    void OnStructure(Connection& connection, uint8_t code, xcb_window_t window);
    void OnResize(const xcb_configure_notify_event_t& event);
    void Refresh(Connection& connection);
    void OnRefreshed(Connection& connection);
    void Walk(Connection& connection);
    void Climb(Connection& connection, xcb_window_t from);
    void DropChain(Connection& connection);
    void Die(Connection& connection);
    void Publish(const WindowFacts& facts);

    const xcb_window_t m_window;
    std::atomic<bool> m_draw;
    ListenerList m_listeners;    // brings its own lock

    Mutex m_lock;                      // taken by threads that publish; a leaf
    Published<WindowFacts> m_facts;    // written under m_lock

    // Only on the event thread.
    std::vector<xcb_window_t> m_chain;    // ancestors from the parent up, without the root
    uint32_t m_walk = 0;       // number of the latest walk up the chain: answers of earlier walks do not count
    bool m_drawing = false;    // the background was set to None
    bool m_tell = false;
    bool m_tellReady = false;
    bool m_tellRoom = false;
    bool m_selected = false;
    bool m_asking = false;      // a refresh waits for answers
    bool m_askAgain = false;    // another refresh must follow
    WindowFacts m_answered;     // the answers of that refresh so far
    xcb_visualid_t m_visual = 0;
    uint16_t m_border = 0;
};

// The state of a watch that Open made; null for any other. The connection that serves it, which lasts as long as the
// watch; null where there is none.
std::shared_ptr<WatchState> StateOf(const WindowWatchPtr& watch);
std::shared_ptr<Connection> ConnectionOf(const WindowWatchPtr& watch);

}    // namespace corvane
