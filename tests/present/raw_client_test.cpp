// The turnstile of the raw callbacks.
#include "present/RawClient.h"

#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <thread>
#include <vector>

#include "base/Thread.h"
#include "support/Latch.h"

namespace corvane {
namespace {

TEST(RawClient, OneAtATimeAndSettersWaitForTheRunningCallOnly) {
    RawClient client;
    std::atomic<int> inside{0}, faults{0}, turns{0};
    std::atomic<bool> ended{false};
    std::vector<std::thread> callers;
    for (int i = 0; i < 2; ++i)
        callers.emplace_back([&] {
            for (;;) {
                const RawClient::Turn turn(client, [&] { return !ended; });
                if (!turn)
                    return;
                faults += ++inside != 1;
                std::this_thread::yield();
                --inside;
                ++turns;
            }
        });
    for (int i = 0; i < 200; ++i)    // beside calls without an end
        client.SetCallback(&RawSettings::first, {});
    EXPECT_TRUE(test::Eventually([&] { return turns > 100; }));
    ended = true;
    client.Wake();
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_EQ(faults, 0);
}

TEST(RawClient, AThreadThatWaitsGivesUpWhenItsReasonEnds) {
    RawClient client;
    std::atomic<bool> wanted{true};
    const auto lookAtSettings = [&] { return client.WantsPictures(); };
    const CorvaneRawCallback call = [](void*, uint32_t, void*) {};
    client.SetCallback(&RawSettings::second, {call, nullptr});
    const struct {
        std::function<bool()> goesOn;
        std::function<void()> end;
    } rows[] = {
        {[&] { return wanted.load(); }, [&] { wanted = false, client.Wake(); }},
        {lookAtSettings, [&] { client.Set(&RawSettings::pictures, false); }},
        {[&] { return static_cast<bool>(client.Settings().Callback()); },
         [&] {
             const Thread::ScopedOwner inCallback(&client);    // the setter does not wait there
             client.SetCallback(&RawSettings::second, {});
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        std::optional<RawClient::Turn> running(std::in_place, client, [] { return true; });
        std::atomic<int> asked{0}, result{-1};
        std::thread waiting([&] {
            const RawClient::Turn turn(client, [&] { return ++asked, row.goesOn(); });
            result = static_cast<bool>(turn);
        });
        EXPECT_TRUE(test::Eventually([&] { return asked == 1; }));
        row.end();
        EXPECT_TRUE(test::Eventually([&] { return result == 0; }));
        running.reset();    // also ends a thread that does not give up
        waiting.join();
        EXPECT_EQ(result, 0);
    }
}

}    // namespace
}    // namespace corvane
