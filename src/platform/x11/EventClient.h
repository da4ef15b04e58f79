// What the event thread serves. Private to x11/.
#pragma once

#include <xcb/xcb.h>

#include <atomic>
#include <cstdlib>
#include <memory>

namespace corvane {

class Connection;

// All On... run on the event thread with no lock held, except that OnLost of a client that joins a lost connection runs
// on the joining thread. A client that raises an exception is lost alone.
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

}    // namespace corvane
