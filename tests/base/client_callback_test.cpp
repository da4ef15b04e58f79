#include "base/ClientCallback.h"
#include "base/Thread.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using test::Eventually;
using Note = void (*)(void*, int);

// A setter stores first, then waits for the calls that run, and for none that begins later. On a thread that works for
// a channel it does not wait.
TEST(GatedCallback, SetterWaitsForTheCallThatRuns) {
    for (const bool inCallback : {false, true}) {
        SCOPED_TRACE(inCallback);
        int first = 0;
        int second = 0;
        const Note add = [](void* sum, int value) { *static_cast<int*>(sum) += value; };
        GatedCallback<Note> gated;
        gated.Set({add, &first});
        std::atomic<bool> returned{false};
        auto running = std::make_unique<GatedCallback<Note>::Use>(gated);
        std::thread setter([&] {
            std::optional<Thread::ScopedOwner> owner;
            if (inCallback)
                owner.emplace(&gated);
            gated.Set({add, &second});
            returned = true;
        });
        EXPECT_TRUE(Eventually([&] { return GatedCallback<Note>::Use(gated).Callback().context == &second; }));
        auto later = std::make_unique<GatedCallback<Note>::Use>(gated);
        if (inCallback)
            EXPECT_TRUE(Eventually([&] { return returned.load(); }));
        else
            std::this_thread::sleep_for(std::chrono::milliseconds(20));    // time for a setter that does not wait
        EXPECT_EQ(returned, inCallback);
        running->Callback()(1);    // still the first, also after the setter stored
        running.reset();
        EXPECT_TRUE(Eventually([&] { return returned.load(); })) << "a call that began later is not waited for";
        later->Callback()(2);
        later.reset();
        setter.join();
        EXPECT_TRUE(first == 1 && second == 2);
        gated.Set({});
        EXPECT_FALSE(GatedCallback<Note>::Use(gated).Callback());
    }
}

}    // namespace
}    // namespace corvane
