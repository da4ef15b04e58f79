// What the tests of watches, sinks and grabs share: a server with a client, watches of its windows, and their news.
#pragma once

#include "platform/x11/WindowWatch.h"
#include "support/Testing.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane::test {

using Life = WindowWatch::Life;
using Purpose = WindowWatch::Purpose;
using Size = WindowWatch::Size;

// A watch of a window of the running server, once its window is known.
inline WindowWatchPtr OpenAlive(uintptr_t window, Purpose purpose = Purpose::Look) {
    WindowWatchPtr watch = WindowWatch::Open(window, purpose);
    EXPECT_TRUE(Eventually([&] { return watch->GetLife() == Life::Alive; }));
    return watch;
}

// Counts the news of a watch as long as it lives, and calls `atChange` on the event thread.
struct Hearing final : WindowWatch::Listener {
    explicit Hearing(
        WindowWatchPtr watched, std::function<void()> call = [] {})
        : watch(std::move(watched)), atChange(std::move(call)) {
        watch->AddListener(this);
    }
    ~Hearing() { watch->RemoveListener(this); }
    void OnWindowChange() noexcept override {
        atChange();
        ++changes;
    }
    void OnSinkReady() noexcept override { ++ready; }
    void OnSinkRoom() noexcept override { room = true; }

    const WindowWatchPtr watch;
    const std::function<void()> atChange;
    std::atomic<int> changes{0}, ready{0};
    std::atomic<bool> room{false};
};

// The pixel that a server of this depth shows for one of ours; as the formats define it.
inline uint32_t Shown(uint8_t depth, uint32_t bgrx) {
    const uint32_t r = bgrx >> 16 & 255, g = bgrx >> 8 & 255, b = bgrx & 255;
    if (depth == 16)
        return r / 8 << 11 | g / 4 << 5 | b / 8;
    if (depth == 30)
        return (r * 4 + r / 64) << 20 | (g * 4 + g / 64) << 10 | (b * 4 + b / 64);
    return bgrx & 0xFFFFFF;
}

struct OnServer : testing::Test {
    explicit OnServer(const XServer::Options& options = {}) : server(options) {}
    XServer server;
    XClient client{server.Display()};
};

}    // namespace corvane::test
