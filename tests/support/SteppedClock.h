// A clock that stands still but for waits, each of which is over at once.
#pragma once

#include <atomic>

#include "platform/Clock.h"

namespace corvane::test {

struct SteppedClock : Clock {
    std::atomic<int64_t> now{0};
    int64_t Now() const override { return now; }
    int64_t Wall() const override { return 1'700'000'000; }
    bool WaitUntil(Condition& condition, MutexLock& lock, int64_t deadline) override {
        condition.WaitOnce(lock, std::chrono::steady_clock::now() + std::chrono::milliseconds(1));
        now = deadline;
        return false;
    }
};

}    // namespace corvane::test
