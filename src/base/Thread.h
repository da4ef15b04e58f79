// A thread of the library: named, joined by its owner, never detached.
#pragma once

#include <functional>
#include <thread>

namespace corvane {

class Thread {
public:
    Thread() = default;
    // Starts `body`. Raises std::system_error when no thread can be made. `name` has at most 15 characters and static
    // life. `owner` is the handle that the thread works for. The thread blocks all signals but those of its own faults,
    // so that the host's handlers run on the host's threads.
    Thread(const char* name, const void* owner, std::function<void()> body);
    Thread(Thread&&) noexcept = default;
    Thread& operator=(Thread&&) noexcept = default;

    void Join() { m_thread.join(); }
    bool Running() const { return m_thread.joinable(); }

    // The handle that the calling thread works for; null on a client's thread. A call of an export that comes from a
    // thread with an owner comes from inside a client callback.
    static const void* CurrentOwner() noexcept;

private:
    std::thread m_thread;
};

}    // namespace corvane
