// The loop of the event thread while the connection is open: it delivers events and answers, admits and releases
// clients, and sends. Private to x11/.
//
// The loop never waits for an answer: it looks for answers after each turn.
#pragma once

#include <xcb/xcb.h>
#include <xcb/xcbext.h>

#include <deque>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "platform/x11/EventClient.h"
#include "platform/x11/ServerSocket.h"

namespace corvane {

class EventLoop {
public:
    EventLoop(Connection& connection, ServerSocket& socket) : m_connection(connection), m_socket(socket) {}

    // Serves until the connection is lost or its owner ends it.
    void Run();
    // Serves no client any more: all are lost, also those that arrive meanwhile.
    void Lose() noexcept;

    // Calls `handler` with the answer, or with null for an error; never when `client` has left or is lost before the
    // answer arrives. A null client never leaves. Event thread; may raise std::bad_alloc.
    template <typename Reply, typename Cookie, typename Handler>
    void Ask(Cookie cookie, std::shared_ptr<EventClient> client, Handler handler) {
        try {
            m_asked.push_back({cookie.sequence, std::move(client),
                               [handler](void* reply) { handler(ReplyPtr<Reply>(static_cast<Reply*>(reply))); }});
        } catch (...) {
            xcb_discard_reply(m_socket.Xcb(), cookie.sequence);
            throw;
        }
    }

private:
    struct Asked {
        unsigned sequence;
        std::shared_ptr<EventClient> client;
        std::function<void(void* reply)> handler;
    };

    void Admit();
    void Release();
    void Drain();
    bool TakeEvents(xcb_generic_event_t* first);
    bool TakeReplies();
    void Dispatch(const xcb_generic_event_t& event);
    void TellOfRoom();
    template <typename Call>
    static void Guarded(EventClient* client, Call call) noexcept;

    Connection& m_connection;
    ServerSocket& m_socket;

    // Only on the event thread.
    std::vector<std::shared_ptr<EventClient>> m_clients;
    std::deque<Asked> m_asked;    // in the order of the requests; answers arrive in the same order
};

}    // namespace corvane
