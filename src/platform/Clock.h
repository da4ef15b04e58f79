// Time for everything that waits. Tests drive a clock of their own.
#pragma once

#include <chrono>
#include <cstdint>

#include "base/Mutex.h"

namespace corvane {

class Clock {
public:
    virtual ~Clock() = default;

    // Monotonic nanoseconds.
    virtual int64_t Now() const = 0;

    // Wall clock in seconds since 1970 UTC.
    virtual int64_t Wall() const = 0;

    // Waits on `condition`, which goes with the mutex held by `lock`, until it is notified, `deadline` (of Now) has
    // passed, or for no reason. The caller loops on its predicate. False when the deadline has passed.
    virtual bool WaitUntil(Condition& condition, MutexLock& lock, int64_t deadline) = 0;

    // Waits until `deadline` and for nothing else.
    void SleepUntil(int64_t deadline);

    // The machine's clock.
    static Clock& System();
};

// A wait for another thread of the library, with a limit. It takes real time also where a clock is simulated: what it
// waits for does not go by that clock.
class ThreadWait {
public:
    explicit ThreadWait(int64_t limitNs)
        : m_deadline(std::chrono::steady_clock::now() + std::chrono::nanoseconds(limitNs)) {}

    // Waits until `condition` is notified, for no reason, or until the limit. False when that has passed.
    bool On(Condition& condition, MutexLock& lock) { return condition.WaitOnce(lock, m_deadline); }

private:
    const std::chrono::steady_clock::time_point m_deadline;
};

}    // namespace corvane
