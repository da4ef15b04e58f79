// The socket to the X server: who may send on it and when, and what its reader sleeps on. Private to x11/.
//
// A thread that sends without room waits in xcb until the server has read, and all others wait for that thread. So
// nobody sends without a look for room, and the look and the sending are one step.
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

    // ---- The owner: before anybody sends, and after the last who does ----

    void Take(xcb_connection_t* xcb) noexcept { m_xcb = xcb; }
    void Disconnect() noexcept;

    // ---- Any thread that may send ----

    xcb_connection_t* Xcb() const { return m_xcb; }
    bool Broken() const { return xcb_connection_has_error(m_xcb) != 0; }
    // Ends all waiting on the socket; what was sent before still reaches the server.
    void Shutdown() noexcept;
    // Calls `send`, which sends at most ServerInfo::bandBytes of pixels, as soon as the socket has room for that;
    // false, and not called, when it has none until `deadline` (ns of the system's clock): the server stands still, or
    // is slow. A Poke is due after it: what is still buffered then the event thread sends.
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
    // Has OnRoom of all event clients called, once, when there is room again.
    void AwaitRoom() noexcept;

    // ---- Any thread, at any time ----

    // Wakes the event thread. Also due after anything else that may have read from the socket, as a flush does: but for
    // the flush of a request that is answered by an event, which comes after whatever was read and wakes as well.
    void Poke() noexcept;

    // ---- The event thread ----

    // Sends what is buffered, now or, for want of room, with the next Sleep that finds some.
    void FlushOrAwait() noexcept { m_unflushed = !Flush(); }
    // Until something can be read, somebody pokes, or there is the room that somebody awaits. True in the last case.
    bool Sleep();

private:
    bool HasRoom(int64_t limit) const;    // waits for it, ns

    xcb_connection_t* m_xcb = nullptr;
    const int m_wake;    // an eventfd
    bool m_unflushed = false;
    std::atomic<bool> m_awaitsRoom{false};
    Mutex m_roomLock;    // from the look for room to the end of the sending; a leaf
};

}    // namespace corvane
