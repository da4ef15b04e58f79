// The socket to the X server: the rules for sending, and what the event thread sleeps on. Private to x11/.
//
// A thread that sends while the socket has no room waits inside xcb until the server has read, and all other threads
// wait for that thread. So a thread sends only after it has seen room, and no other thread can take the room in
// between.
#pragma once

#include <xcb/xcb.h>

#include <atomic>
#include <cstdint>

#include "base/Mutex.h"
#include "platform/Clock.h"

namespace corvane {

class ServerSocket {
public:
    // Raises std::system_error where no descriptor can be had.
    ServerSocket();
    ~ServerSocket();
    ServerSocket(const ServerSocket&) = delete;
    ServerSocket& operator=(const ServerSocket&) = delete;

    // ---- The owner: before the first and after the last sending ----

    void Take(xcb_connection_t* xcb) noexcept { m_xcb = xcb; }
    void Disconnect() noexcept;

    // ---- Any thread that may send ----

    xcb_connection_t* Xcb() const { return m_xcb; }
    bool Broken() const { return xcb_connection_has_error(m_xcb) != 0; }
    // Ends all waits on the socket; what was sent before still reaches the server.
    void Shutdown() noexcept;
    // Calls `send`, which sends at most ServerInfo::bandBytes of pixels, as soon as the socket has room. False, without
    // a call, when there is none before `deadline` (ns of the system's clock): the server hangs or is slow. A Poke must
    // follow, since the event thread sends what is left in the buffer.
    template <typename Send>
    bool SendWithRoom(int64_t deadline, Send send) {
        for (;;) {
            {
                MutexLock lock(m_roomLock);    // no other thread takes the room
                if (HasRoom(0)) {
                    send();
                    // The band may have taken all the room, and other threads have buffered requests after it.
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
    // Sends what is buffered if the socket has room. Never waits: while a thread waits to send, no other thread can
    // buffer a request. False when there is no room, or the connection is lost. Then a Poke must follow, and the event
    // thread sends as soon as there is room.
    bool Flush() noexcept;
    // Requests one call of OnRoom of all event clients, when there is room again.
    void AwaitRoom() noexcept;

    // ---- Any thread, at any time ----

    // Wakes the event thread. Must also follow whatever may have read from the socket, as a flush does: events that xcb
    // has queued do not wake the thread. Not needed after the flush of a request that an event answers.
    void Poke() noexcept;

    // ---- The event thread ----

    // Sends what is buffered now, or in the next Sleep that finds room.
    void FlushOrAwait() noexcept { m_unflushed = !Flush(); }
    // Sleeps until there is something to read, a Poke, or room that a client awaits. True for room.
    bool Sleep();

private:
    bool HasRoom(int64_t limit) const;    // waits at most `limit` ns

    xcb_connection_t* m_xcb = nullptr;
    const int m_wake;    // an eventfd
    bool m_unflushed = false;
    std::atomic<bool> m_awaitsRoom{false};
    Mutex m_roomLock;    // from the look for room to the end of the sending; a leaf
};

}    // namespace corvane
