#include "platform/x11/ServerSocket.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <system_error>
#include <utility>

#include "base/FailurePoint.h"

namespace corvane {

namespace {

int MakeWake() {
    const int wake = failure::MustFail(failure::Site::PlatformCall) ? -1 : eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0)
        throw std::system_error(std::make_error_code(std::errc::too_many_files_open));
    return wake;
}

}    // namespace

ServerSocket::ServerSocket() : m_wake(MakeWake()) {}

ServerSocket::~ServerSocket() {
    close(m_wake);
}

void ServerSocket::Disconnect() noexcept {
    xcb_disconnect(std::exchange(m_xcb, nullptr));
}

void ServerSocket::Shutdown() noexcept {
    shutdown(xcb_get_file_descriptor(m_xcb), SHUT_RDWR);
}

bool ServerSocket::Flush() noexcept {
    MutexLock lock(m_roomLock);
    return HasRoom(0) && xcb_flush(m_xcb) > 0;
}

void ServerSocket::AwaitRoom() noexcept {
    m_awaitsRoom.store(true);
    Poke();
}

void ServerSocket::Poke() noexcept {
    const uint64_t one = 1;
    (void)!write(m_wake, &one, sizeof one);    // fails only when the counter is full, which wakes as well
}

bool ServerSocket::Sleep() {
    const short room = m_awaitsRoom.load() || m_unflushed ? POLLOUT : 0;
    pollfd sources[] = {{xcb_get_file_descriptor(m_xcb), static_cast<short>(POLLIN | room), 0}, {m_wake, POLLIN, 0}};
    poll(sources, 2, -1);
    uint64_t pokes;
    if (sources[1].revents != 0)
        (void)!read(m_wake, &pokes, sizeof pokes);    // before the thread looks for work: a later Poke wakes it again
    if ((sources[0].revents & room) == 0)
        return false;
    m_awaitsRoom.store(false);    // a request after this point is for a later turn
    return true;
}

bool ServerSocket::HasRoom(int64_t limit) const {
    constexpr int64_t kMillisecond = 1'000'000;
    pollfd socket{xcb_get_file_descriptor(m_xcb), POLLOUT, 0};
    const auto milliseconds = static_cast<int>((limit + kMillisecond - 1) / kMillisecond);
    return poll(&socket, 1, milliseconds) > 0;    // true for an error too: sending to a lost server never blocks
}

}    // namespace corvane
