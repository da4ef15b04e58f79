// A thread of the library: named, joined by its owner, never detached.
#pragma once

#include <functional>
#include <thread>

namespace corvane {

class Thread {
public:
    Thread() = default;
    // Starts `body`. Raises std::system_error when no thread can be made. `name` has at most 15 characters. The thread
    // blocks all signals but those of its own faults, so that the host's handlers run on the host's threads.
    Thread(const char* name, std::function<void()> body);
    Thread(Thread&&) noexcept = default;
    Thread& operator=(Thread&&) noexcept = default;

    void Join() { m_thread.join(); }
    bool Running() const { return m_thread.joinable(); }
    bool IsCurrent() const { return m_thread.get_id() == std::this_thread::get_id(); }

private:
    std::thread m_thread;
};

}    // namespace corvane
