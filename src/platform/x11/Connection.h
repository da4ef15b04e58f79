// The process's connection to the X server and its event thread "corvane-x11". Private to x11/.
//
// The event thread opens the connection and sends every request that needs an answer. It waits for the server only
// while it opens the connection (set-up, extensions). Other threads hand over an EventClient and wake the event thread
// (Poke); they never wait for the server here.
//
//   phase        left when
//   Connecting   the server has answered or refused; or Close was called: the thread then ends later
//   Open         the connection is lost, or Close was called
//   Lost         Close
//
// Its parts: ServerSocket sends, EventLoop serves clients, Selections counts the events that were asked for,
// MonitorList keeps the monitors.
#pragma once

#include <xcb/xcb.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/Mutex.h"
#include "base/Thread.h"
#include "platform/x11/EventClient.h"
#include "platform/x11/EventLoop.h"
#include "platform/x11/MonitorList.h"
#include "platform/x11/Selections.h"
#include "platform/x11/ServerInfo.h"
#include "platform/x11/ServerSocket.h"

namespace corvane {

class Connection : public std::enable_shared_from_this<Connection> {
public:
    // Starts to connect to the display that the environment names. Raises std::bad_alloc, and std::system_error where
    // there is no thread or descriptor left.
    static std::shared_ptr<Connection> Make();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // ---- Any thread ----

    // Ends the connection; all clients have left before. Waits for the event thread but never for the server.
    void Close() noexcept;
    bool Lost() const { return m_phase == Phase::Lost; }
    void Join(std::shared_ptr<EventClient> client);    // may raise std::bad_alloc
    void Poke() noexcept { m_socket.Poke(); }
    MonitorList& Monitors() { return m_monitors; }

    // ---- The event thread; other threads once they have seen a client of the connection alive ----

    xcb_connection_t* Xcb() const { return m_socket.Xcb(); }
    ServerSocket& Socket() { return m_socket; }
    const ServerInfo& Server() const { return m_server; }

    // ---- The event thread ----

    // See EventLoop::Ask.
    template <typename Reply, typename Cookie, typename Handler>
    void Ask(Cookie cookie, std::shared_ptr<EventClient> client, Handler handler) {
        m_loop.Ask<Reply>(cookie, std::move(client), std::move(handler));
    }
    Selections& Selected() { return m_selected; }

    static uint32_t OpenCount();

private:
    friend class AbandonedConnections;
    friend class EventLoop;
    enum class Phase { Connecting, Open, Lost };

    explicit Connection(std::string display);
    // Of an abandoned connection: true when it can be used like a new one.
    bool Revive();
    bool Finished() const { return m_finished.load(std::memory_order_acquire); }
    void Run() noexcept;
    bool OpenDisplay();
    void Uncount() noexcept;
    // Called by the event loop.
    bool Ending() const { return m_ending; }
    std::vector<std::shared_ptr<EventClient>> TakeArrivals();
    std::vector<std::shared_ptr<EventClient>> TakeArrivalsAndLose() noexcept;

    // Constant after construction.
    const std::string m_display;

    ServerSocket m_socket;    // opened before the first client is served, closed by Close
    ServerInfo m_server;      // written by the event thread before the first client is served
    MonitorList m_monitors;
    Selections m_selected;    // only on the event thread
    EventLoop m_loop;

    std::atomic<bool> m_counted{false};     // in OpenCount
    std::atomic<bool> m_finished{false};    // the thread is about to end: joining it takes no time

    mutable Mutex m_lock;    // a leaf
    // Both change under m_lock, together with the arrivals. Reading them needs no lock.
    std::atomic<Phase> m_phase{Phase::Connecting};
    std::atomic<bool> m_ending{false};
    std::vector<std::shared_ptr<EventClient>> m_arrivals GUARDED_BY(m_lock);

    // Guarded by the lock of AbandonedConnections, which keeps this object until the thread has ended.
    std::shared_ptr<Connection> m_nextAbandoned;

    Thread m_thread;    // used by the thread that makes the connection, then by Close or AbandonedConnections
};

// Closes the connection when its last user is gone.
struct ConnectionLease {
    explicit ConnectionLease(std::shared_ptr<Connection> made) : connection(std::move(made)) {}
    ~ConnectionLease() { connection->Close(); }
    ConnectionLease(const ConnectionLease&) = delete;
    ConnectionLease& operator=(const ConnectionLease&) = delete;

    const std::shared_ptr<Connection> connection;
};

}    // namespace corvane
