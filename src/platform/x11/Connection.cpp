#include "platform/x11/Connection.h"

#include <cstdlib>

#include "base/FailurePoint.h"
#include "platform/x11/AbandonedConnections.h"

namespace corvane {

namespace {

std::atomic<uint32_t> openConnections{0};

std::string DisplayName() {
    const char* name = std::getenv("DISPLAY");
    return name != nullptr ? name : "";
}

}    // namespace

uint32_t Connection::OpenCount() {
    return openConnections.load();
}

// ---- Any thread

Connection::Connection(std::string display) : m_display(std::move(display)), m_loop(*this, m_socket) {}

std::shared_ptr<Connection> Connection::Make() {
    std::string display = DisplayName();
    if (std::shared_ptr<Connection> reclaimed = AbandonedConnections::Instance().Reclaim(display))
        return reclaimed;
    std::shared_ptr<Connection> made(new Connection(std::move(display)));
    made->m_thread = Thread("corvane-x11", nullptr, [made] { made->Run(); });
    return made;
}

bool Connection::Revive() {
    MutexLock lock(m_lock);
    if (m_phase != Phase::Connecting)
        return false;
    m_ending = false;
    return true;
}

void Connection::Close() noexcept {
    bool connecting;
    {
        MutexLock lock(m_lock);
        m_ending = true;
        connecting = m_phase == Phase::Connecting;
        if (!connecting && m_socket.Xcb() != nullptr)
            m_socket.Shutdown();
    }
    Uncount();
    Poke();
    if (connecting) {
        AbandonedConnections::Instance().Add(shared_from_this());
        return;
    }
    m_thread.Join();
    m_socket.Disconnect();
}

void Connection::Join(std::shared_ptr<EventClient> client) {
    {
        MutexLock lock(m_lock);
        if (m_phase != Phase::Lost) {
            m_arrivals.push_back(std::move(client));
            client = nullptr;
        }
    }
    if (client != nullptr)
        client->OnLost();
    else
        Poke();
}

void Connection::Uncount() noexcept {
    if (m_counted.exchange(false))
        --openConnections;
}

// ---- The event thread

void Connection::Run() noexcept {
    if (OpenDisplay()) {
        m_server = AskServer(Xcb());
        m_loop.Run();
    }
    m_finished.store(true, std::memory_order_release);
}

bool Connection::OpenDisplay() {
    int screen = 0;
    const bool tries = !m_display.empty() && !failure::MustFail(failure::Site::PlatformCall);
    xcb_connection_t* xcb = tries ? xcb_connect(m_display.c_str(), &screen) : nullptr;
    const bool refused = xcb == nullptr || xcb_connection_has_error(xcb) != 0;
    {
        MutexLock lock(m_lock);
        if (!refused && !m_ending) {
            m_socket.Take(xcb);
            m_phase = Phase::Open;
            m_counted = true;
            ++openConnections;
            return true;
        }
        m_phase = Phase::Lost;    // under the same lock as the test: Revive must not return a connection that is lost
    }
    if (xcb != nullptr)
        xcb_disconnect(xcb);
    m_loop.Lose();
    return false;
}

std::vector<std::shared_ptr<EventClient>> Connection::TakeArrivals() {
    MutexLock lock(m_lock);
    return std::exchange(m_arrivals, {});
}

std::vector<std::shared_ptr<EventClient>> Connection::TakeArrivalsAndLose() noexcept {
    std::vector<std::shared_ptr<EventClient>> arrivals;
    {
        MutexLock lock(m_lock);
        m_phase = Phase::Lost;
        arrivals.swap(m_arrivals);
    }
    Uncount();
    return arrivals;
}

}    // namespace corvane
