// The process's connection to the X server and its event thread "corvane-x11". Private to x11/.
//
// The thread opens the connection and sends every request that needs an answer; it never waits for one: answers are
// looked up after each turn. Only while it opens the connection does it wait (set-up, extensions). Clients' threads
// hand over an EventClient and poke; nothing that they call here waits for the server.
//
//   phase        left when
//   Connecting   the server has answered or refused; or Close came: the thread then ends by itself later
//   Open         the connection is lost, or Close came
//   Lost         Close
#pragma once

#include <xcb/randr.h>
#include <xcb/xcb.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "base/Mutex.h"
#include "base/Rectangle.h"
#include "base/Thread.h"
#include "platform/Clock.h"
#include "platform/x11/ServerInfo.h"
#include "platform/x11/WindowWatch.h"

namespace corvane {

class BeamWatch;
class Connection;

// Something that the event thread serves. All On... run there with no lock held, except that OnLost of a client that
// joins a lost connection runs on the joining thread. A client that raises an exception is lost alone.
class EventClient {
public:
    virtual ~EventClient() = default;

    virtual void OnJoin(Connection& connection) = 0;    // first of all; the connection is open
    // Every event, and every error of a request that nobody asked an answer for.
    virtual void OnEvent(Connection&, const xcb_generic_event_t&) {}
    virtual void OnTurn(Connection&) {}     // all that had come in has been handed out
    virtual void OnRoom() {}                // after AwaitRoom: the socket is writable
    virtual void OnLeave(Connection&) {}    // after Leave: what the server still keeps for the client is given back
    virtual void OnLost() noexcept = 0;     // the connection is lost, or memory lacked; but for OnLeave, the last call

    // The owner is done; follow it by a Poke. Any thread.
    void Leave() noexcept { m_left.store(true, std::memory_order_release); }
    bool Left() const noexcept { return m_left.load(std::memory_order_acquire); }

private:
    std::atomic<bool> m_left{false};
};

struct FreeReply {
    void operator()(void* reply) const { std::free(reply); }
};
template <typename T>
using ReplyPtr = std::unique_ptr<T, FreeReply>;

class Connection : public std::enable_shared_from_this<Connection> {
public:
    // Starts to connect to the display that the environment names. Raises std::bad_alloc, and std::system_error where
    // no thread or descriptor can be had.
    static std::shared_ptr<Connection> Make();
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    // ---- Any thread ----

    // Ends it, when all clients have left. Waits for the event thread but never for the server.
    void Close() noexcept;
    bool Lost() const;
    void Join(std::shared_ptr<EventClient> client);    // may raise std::bad_alloc
    // Wakes the event thread. Also due after anything else that may have read from the socket, as a flush does: but for
    // the flush of a request that is answered by an event, which comes behind whatever was read and wakes as well.
    void Poke() noexcept;
    // The monitor of the screen `root` that shows most of `rect`, else the nearest; 0 where there is none.
    uint32_t MonitorIndex(xcb_window_t root, const Rect& rect) const;
    Monitor MonitorOf(xcb_window_t root, const Rect& rect) const;    // that one; handle 0 where there is no list
    // Its beam. Only once a client was seen alive. May raise std::bad_alloc.
    std::optional<Beam> BeamOf(xcb_window_t root, const Rect& rect);

    // ---- The event thread; and whoever saw a client of it alive, which is later than the opening ----

    xcb_connection_t* Xcb() const { return m_xcb; }
    const ServerInfo& Server() const { return m_server; }
    // Calls `send`, which sends at most Server().bandBytes of pixels, as soon as the socket has room for that; false,
    // and not called, when it has none until `deadline` (ns of the system's clock): the server stands still, or is
    // slow. A Poke is due after it: what is still buffered then the event thread sends.
    template <typename Send>
    bool SendWithRoom(int64_t deadline, Send send) {
        for (;;) {
            {
                MutexLock lock(m_roomLock);    // nobody else takes the room
                if (HasRoom(0)) {
                    send();
                    // The band may have taken all the room, and others have buffered requests behind it.
                    if (HasRoom(0))
                        xcb_flush(m_xcb);
                    return true;
                }
            }
            const int64_t left = deadline - Clock::System().Now();
            if (left <= 0 || !HasRoom(left))
                return false;
        }
    }
    // Sends what is buffered, if the socket has room. Never waits: while one thread waits to send, no other can even
    // buffer a request. False when it has none, or the connection is lost: with the next turn, for which a Poke is due,
    // the event thread sends it as soon as there is room.
    bool Flush() noexcept;
    // Has OnRoom called, once, when there is room again.
    void AwaitRoom() noexcept {
        m_awaitsRoom.store(true);
        Poke();
    }

    // ---- The event thread ----

    // Hands the answer to `handler`, null for an error; not at all when `client` has left or is lost meanwhile.
    template <typename Reply, typename Cookie, typename Handler>
    void Ask(Cookie cookie, std::shared_ptr<EventClient> client, Handler handler) {
        try {
            m_asked.push_back({cookie.sequence, std::move(client),
                               [handler](void* reply) { handler(ReplyPtr<Reply>(static_cast<Reply*>(reply))); }});
        } catch (...) {
            xcb_discard_reply(m_xcb, cookie.sequence);
            throw;
        }
    }
    // Selects structure events, and exposures where asked, for one more user of the window; Unselect takes that back.
    // Forget: the window is gone, and its id may come again.
    void Select(xcb_window_t window, bool exposure);
    void Unselect(xcb_window_t window, bool exposure);
    void Forget(xcb_window_t window) { m_selected.erase(window); }

    static uint32_t OpenCount();
    // Joins what was closed while it connected, as far as it has ended since; true when some has not.
    static bool ReapAbandoned() noexcept;

private:
    enum class Phase { Connecting, Open, Lost };
    struct Asked {
        unsigned sequence;
        std::shared_ptr<EventClient> client;    // null: the connection itself
        std::function<void(void* reply)> handler;
    };
    struct Selection {
        uint32_t users = 0;
        uint32_t exposures = 0;    // of these, how many want exposures too
    };
    struct Screen {
        xcb_window_t root;
        std::vector<Monitor> monitors;
    };

    Connection();
    static std::shared_ptr<Connection> ReapOrAdopt(const char* display);
    bool Revive();
    void Run() noexcept;
    bool OpenDisplay();
    void Serve();
    void Admit();
    void Release();
    void Drain();
    void Dispatch(const xcb_generic_event_t& event);
    bool TakeEvents(xcb_generic_event_t* first);
    bool TakeReplies();
    void Sleep();
    bool HasRoom(int64_t limit) const;    // ns
    void Lose() noexcept;
    void Uncount() noexcept;
    void SendMask(xcb_window_t window, const Selection& selection);
    void AskMonitors();
    static uint32_t NearestMonitor(const std::vector<Monitor>& monitors, const Rect& rect);
    void StoreMonitors(xcb_window_t root, const xcb_randr_get_monitors_reply_t* reply);
    template <typename Call>
    static void Guarded(EventClient* client, Call call) noexcept;

    // Constant after construction.
    const std::string m_display;

    // Written by the event thread before the first client is served; m_xcb is freed by Close.
    xcb_connection_t* m_xcb = nullptr;
    ServerInfo m_server;

    // Only on the event thread.
    std::vector<std::shared_ptr<EventClient>> m_clients;
    std::deque<Asked> m_asked;    // in the order of the requests, which is that of the answers
    std::unordered_map<xcb_window_t, Selection> m_selected;

    std::atomic<bool> m_awaitsRoom{false};
    bool m_unflushed = false;               // for want of room; on the event thread
    Mutex m_roomLock;                       // from the look for room to the end of the sending; a leaf
    std::atomic<bool> m_counted{false};     // in OpenCount
    std::atomic<bool> m_finished{false};    // the thread is about to end: joining it takes no time

    mutable Mutex m_lock;    // a leaf
    Phase m_phase GUARDED_BY(m_lock) = Phase::Connecting;
    bool m_ending GUARDED_BY(m_lock) = false;
    std::vector<std::shared_ptr<EventClient>> m_arrivals GUARDED_BY(m_lock);
    std::vector<Screen> m_screens GUARDED_BY(m_lock);
    std::shared_ptr<BeamWatch> m_beams GUARDED_BY(m_lock);    // from the first question for a beam on

    // Of connections that were closed while their thread waited for the server: kept until it has ended. Under the
    // lock of that list.
    std::shared_ptr<Connection> m_nextAbandoned;

    // An eventfd, constant after construction. Last: no member that finds no memory may leave it open.
    const int m_wake;

    Thread m_thread;    // of whoever made the connection, then of Close or ReapOrAdopt
};

// Closes the connection when the last that needs it is gone.
struct ConnectionLease {
    explicit ConnectionLease(std::shared_ptr<Connection> made) : connection(std::move(made)) {}
    ~ConnectionLease() { connection->Close(); }
    ConnectionLease(const ConnectionLease&) = delete;
    ConnectionLease& operator=(const ConnectionLease&) = delete;

    const std::shared_ptr<Connection> connection;
};

}    // namespace corvane
