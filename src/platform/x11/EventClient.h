// An object that the event thread serves. Private to x11/.
#pragma once

#include <xcb/xcb.h>

#include <atomic>
#include <cstdlib>
#include <memory>

namespace corvane {

class Connection;

// All On... run on the event thread with no lock held; but OnLost of a client that joins a lost connection runs on the
// joining thread. A client that raises an exception is lost, and no other.
class EventClient {
public:
    virtual ~EventClient() = default;

    virtual void OnJoin(Connection& connection) = 0;    // the first call; the connection is open
    // Every event, and every error of a request without an answer.
    virtual void OnEvent(Connection&, const xcb_generic_event_t&) {}
    virtual void OnTurn(Connection&) {}     // all events that had arrived were delivered
    virtual void OnRoom() {}                // after AwaitRoom: the socket is writable
    virtual void OnLeave(Connection&) {}    // after Leave: frees what the server keeps for the client
    virtual void OnLost() noexcept = 0;     // the connection is lost, or memory is short; the last call but for OnLeave

    // The owner needs no more calls. A Poke must follow. Any thread.
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
