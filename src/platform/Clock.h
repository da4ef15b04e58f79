// The time that all waits go by. Tests replace it by a clock that they set.
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

    // Waits on `condition` until a notification, until `deadline` (ns of Now), or less, since a wait may end without a
    // reason: the caller loops on its predicate. `lock` holds the mutex of the condition. False after the deadline.
    virtual bool WaitUntil(Condition& condition, MutexLock& lock, int64_t deadline) = 0;

    // Sleeps until `deadline`.
    void SleepUntil(int64_t deadline);

    // The machine's clock.
    static Clock& System();
};

// A limited wait for another thread of the library. It takes real time where a test simulates the clock, too: the other
// thread does not go by that clock.
class ThreadWait {
public:
    explicit ThreadWait(int64_t limitNs)
        : m_deadline(std::chrono::steady_clock::now() + std::chrono::nanoseconds(limitNs)) {}

    // Waits on `condition` until a notification, until the limit, or less. False after the limit.
    bool On(Condition& condition, MutexLock& lock) { return condition.WaitOnce(lock, m_deadline); }

private:
    const std::chrono::steady_clock::time_point m_deadline;
};

}    // namespace corvane
