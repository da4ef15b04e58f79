#include "platform/x11/EventLoop.h"

#include <cstdlib>

#include "platform/x11/Connection.h"

namespace corvane {

void EventLoop::Run() {
    Guarded(nullptr, [this] { m_connection.Monitors().Ask(m_connection); });
    while (!m_connection.Ending()) {
        Admit();
        Release();
        Drain();
        if (m_socket.Broken()) {
            Lose();
            break;
        }
        if (m_socket.Sleep())
            TellOfRoom();
    }
    m_asked.clear();
    m_clients.clear();
}

void EventLoop::Lose() noexcept {
    std::vector<std::shared_ptr<EventClient>> arrivals = m_connection.TakeArrivalsAndLose();
    for (const auto* clients : {&m_clients, &arrivals})
        for (const std::shared_ptr<EventClient>& client : *clients)
            if (!client->Left())
                client->OnLost();
}

template <typename Call>
void EventLoop::Guarded(EventClient* client, Call call) noexcept {
    try {
        call();
    } catch (const std::exception&) {    // no memory: this client is lost, and no other
        if (client == nullptr)
            return;
        client->OnLost();
        client->Leave();
    }
}

void EventLoop::Admit() {
    for (std::shared_ptr<EventClient>& client : m_connection.TakeArrivals()) {
        Guarded(client.get(), [&] {
            m_clients.push_back(client);
            client->OnJoin(m_connection);
        });
    }
}

void EventLoop::Release() {
    std::erase_if(m_clients, [&](const std::shared_ptr<EventClient>& client) {
        if (!client->Left())
            return false;
        Guarded(client.get(), [&] { client->OnLeave(m_connection); });
        return true;
    });
}

void EventLoop::TellOfRoom() {
    Admit();    // the client that asked may have joined after the last Admit
    for (const std::shared_ptr<EventClient>& client : m_clients)
        if (!client->Left())
            Guarded(client.get(), [&] { client->OnRoom(); });
}

// Reads once, since later input wakes the thread again. Then delivers and sends until xcb's queues are empty: sending
// and looking for an answer may read, too, and an event in a queue would not wake a thread that sleeps on the socket.
void EventLoop::Drain() {
    TakeEvents(xcb_poll_for_event(m_socket.Xcb()));
    const auto takeMore = [this] { return TakeEvents(xcb_poll_for_queued_event(m_socket.Xcb())) || TakeReplies(); };
    do {
        while (takeMore()) {
        }
        for (const std::shared_ptr<EventClient>& client : m_clients)
            Guarded(client.get(), [&] { client->OnTurn(m_connection); });
        m_socket.FlushOrAwait();
    } while (takeMore());
}

// Delivers `first` and all events that are queued after it; false when `first` is null.
bool EventLoop::TakeEvents(xcb_generic_event_t* first) {
    for (ReplyPtr<xcb_generic_event_t> event{first}; event; event.reset(xcb_poll_for_queued_event(m_socket.Xcb()))) {
        Admit();    // the event may answer a request that a client sent right after it joined
        Dispatch(*event);
    }
    return first != nullptr;
}

void EventLoop::Dispatch(const xcb_generic_event_t& event) {
    bool taken = false;
    Guarded(nullptr, [&] { taken = m_connection.Monitors().OnEvent(m_connection, event); });
    if (taken)
        return;
    for (const std::shared_ptr<EventClient>& client : m_clients)
        if (!client->Left())
            Guarded(client.get(), [&] { client->OnEvent(m_connection, event); });
    if ((event.response_type & 0x7F) == XCB_DESTROY_NOTIFY)
        m_connection.Selected().Forget(reinterpret_cast<const xcb_destroy_notify_event_t&>(event).window);
}

bool EventLoop::TakeReplies() {
    bool progress = false;
    void* reply = nullptr;
    xcb_generic_error_t* error = nullptr;
    while (!m_asked.empty() && xcb_poll_for_reply(m_socket.Xcb(), m_asked.front().sequence, &reply, &error) != 0) {
        ReplyPtr<void> owned(reply);
        std::free(std::exchange(error, nullptr));
        if (m_socket.Broken())
            return false;    // not an event of a window
        const Asked asked = std::move(m_asked.front());
        m_asked.pop_front();
        progress = true;
        if (asked.client == nullptr || !asked.client->Left())
            Guarded(asked.client.get(), [&] { asked.handler(owned.release()); });
    }
    return progress;
}

}    // namespace corvane
