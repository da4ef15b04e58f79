#include "platform/Clock.h"

namespace corvane {

namespace {

class SystemClock final : public Clock {
public:
    int64_t Now() const override {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }

    int64_t Wall() const override {
        return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    }

    bool WaitUntil(Condition& condition, MutexLock& lock, int64_t deadline) override {
        return condition.WaitOnce(lock, std::chrono::steady_clock::time_point(std::chrono::nanoseconds(deadline)));
    }
};

}    // namespace

void Clock::SleepUntil(int64_t deadline) {
    Mutex mutex;
    Condition never;
    MutexLock lock(mutex);
    while (WaitUntil(never, lock, deadline)) {
    }
}

Clock& Clock::System() {
    static SystemClock clock;
    return clock;
}

}    // namespace corvane
