// Waiting in tests: for a condition that another thread makes true, never for a span of time.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace corvane::test {

// Far above anything that a loaded machine needs: reached only when something hangs.
inline constexpr std::chrono::seconds kHang{60};

// True as soon as `condition` holds; false after kHang.
template <typename Condition>
bool Eventually(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + kHang;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A gate that one thread opens and others wait at.
class Gate {
public:
    void Open() {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }
    bool Wait(std::chrono::seconds limit = kHang) {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, limit, [this] { return m_open; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_open = false;
};

}    // namespace corvane::test
