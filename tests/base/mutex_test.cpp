#include "base/Mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace corvane {
namespace {

using std::chrono::milliseconds;

// A writer gets its turn against four readers that never pause, and a reader against four such writers; nobody sees
// what a writer does.
TEST(SharedMutex, StarvesNobodyAndExcludesWriters) {
    for (const bool busyWriters : {false, true}) {
        SharedMutex mutex;
        int64_t value = 0;    // plain on purpose: a hole in the lock is an odd value and a race report
        std::atomic<bool> done{false};
        std::atomic<int> running{0};
        const auto turn = [&](bool write) {
            const auto hold = [&] {
                ++running;
                std::this_thread::sleep_for(milliseconds(1));
            };
            if (write) {
                ExclusiveLock lock(mutex);
                ++value;
                hold();
                ++value;
            } else {
                SharedLock lock(mutex);
                EXPECT_EQ(value % 2, 0);
                hold();
            }
        };
        std::vector<std::thread> busy;
        for (int i = 0; i < 4; ++i)
            busy.emplace_back([&] {
                while (!done)
                    turn(busyWriters);
            });
        while (running < 10)    // all are at it
            std::this_thread::yield();
        for (int i = 0; i < 50; ++i)    // hangs here when one side starves the other
            turn(!busyWriters);
        done = true;
        for (std::thread& thread : busy)
            thread.join();
        EXPECT_EQ(value, 2 * (busyWriters ? running - 50 : 50));
    }
}

TEST(SharedMutex, TimedWriterGivesUpAndLetsQueuedReadersGo) {
    SharedMutex mutex;
    mutex.lock_shared();
    EXPECT_FALSE(static_cast<bool>(TryExclusiveLock(mutex, std::chrono::nanoseconds(0))));
    std::thread writer([&] { EXPECT_FALSE(static_cast<bool>(TryExclusiveLock(mutex, milliseconds(50)))); });
    std::this_thread::sleep_for(milliseconds(10));
    std::thread reader([&] { SharedLock lock(mutex); });    // queues behind the writer, or comes before it
    writer.join();
    reader.join();
    mutex.unlock_shared();
    TryExclusiveLock held(mutex, std::chrono::nanoseconds(0));
    ASSERT_TRUE(static_cast<bool>(held));
    EXPECT_FALSE(static_cast<bool>(TryExclusiveLock(mutex, milliseconds(1))));
}

}    // namespace
}    // namespace corvane
