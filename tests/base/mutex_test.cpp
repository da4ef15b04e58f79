#include "base/Mutex.h"

#include "base/Published.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using std::chrono::milliseconds;

// A writer gets the lock against four readers that never pause, and a reader against four such writers; no thread sees
// half of a writer's change.
TEST(SharedMutex, StarvesNobodyAndExcludesWriters) {
    for (const bool busyWriters : {false, true}) {
        SharedMutex mutex;
        int64_t value = 0;    // not atomic: a fault of the lock gives an odd value and a report of a race
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
        std::vector<std::jthread> busy;
        for (int i = 0; i < 4; ++i)
            busy.emplace_back([&] {
                while (!done)
                    turn(busyWriters);
            });
        while (running < 10)    // all threads work
            std::this_thread::yield();
        for (int i = 0; i < 50; ++i)    // hangs here when one side starves the other
            turn(!busyWriters);
        done = true;
        busy.clear();
        EXPECT_EQ(value, 2 * (busyWriters ? running - 50 : 50));
    }
}

TEST(SharedMutex, TimedWriterGivesUpAndLetsQueuedReadersGo) {
    SharedMutex mutex;
    mutex.lock_shared();
    EXPECT_FALSE(static_cast<bool>(TryExclusiveLock(mutex, std::chrono::nanoseconds(0))));
    std::jthread writer([&] { EXPECT_FALSE(static_cast<bool>(TryExclusiveLock(mutex, milliseconds(50)))); });
    std::this_thread::sleep_for(milliseconds(10));
    std::jthread reader([&] { SharedLock lock(mutex); });    // gets the lock before or after the writer
    writer.join();
    reader.join();
    mutex.unlock_shared();
    TryExclusiveLock held(mutex, std::chrono::nanoseconds(0));
    ASSERT_TRUE(static_cast<bool>(held));
    EXPECT_FALSE(static_cast<bool>(TryExclusiveLock(mutex, milliseconds(1))));
}

// Readers see whole values, and never an older one after a newer.
TEST(Published, ValuesAreReadWhole) {
    struct Value {
        uint64_t number;
        uint8_t odd;
        uint64_t again[5];
    };
    Published<Value> published;
    std::atomic<bool> done{false};
    std::vector<std::jthread> readers;
    for (int i = 0; i < 3; ++i)
        readers.emplace_back([&] {
            for (uint64_t last = 0; !done;) {
                const Value value = published.Read();
                EXPECT_EQ(value.odd, value.number % 2);
                for (const uint64_t part : value.again)
                    EXPECT_EQ(part, value.number);
                EXPECT_GE(value.number, last);
                last = value.number;
            }
        });
    for (uint64_t n = 1; n < 200'000; ++n)
        published.Publish({n, static_cast<uint8_t>(n % 2), {n, n, n, n, n}});
    done = true;
}

}    // namespace
}    // namespace corvane
