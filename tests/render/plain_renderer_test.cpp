// The plain renderer on a real window, driven by hand, at one moment of the wall clock.
#include <cairo.h>
#include <gtest/gtest.h>

#include <functional>

#include "render/GDIRenderer.h"
#include "support/Latch.h"
#include "support/StreamMaker.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane {
namespace {

using test::Eventually;

class StandingClock final : public Clock {
public:
    int64_t Now() const override { return System().Now(); }
    int64_t Wall() const override { return 1'700'000'000; }
    bool WaitUntil(Condition& condition, MutexLock& lock, int64_t deadline) override {
        return System().WaitUntil(condition, lock, deadline);
    }
};

// Bands and text are drawn anew when the place of the picture changes, whatever the policy says of times; and when a
// redraw is asked for. Each row follows the one before.
TEST(PlainRenderer, ChangesOfPlacesDrawBandsAnew) {
    constexpr uint32_t kSide = 64, kBand = 0x4080C0, kPicture = 0x646464;
    test::XServer server;
    test::XClient client(server.Display());
    const xcb_window_t window = client.Create({.width = kSide, .height = kSide});
    StandingClock clock;
    CGDIRenderer renderer(clock);
    WindowSinks sinks(&client);
    int texts = 0;
    RenderInfo info;
    info.window = WindowWatch::Open(window, WindowWatch::Purpose::Draw);
    info.sinks = &sinks;
    info.background = 0x00C08040;
    info.osdPolicy = 0;
    info.osd = [](void* calls, OsdInfo*) { ++*static_cast<int*>(calls); };
    info.osdContext = &texts;
    ASSERT_TRUE(Eventually([&] { return info.window->Viewable(); }));
    uint32_t side = 32;    // of the picture
    const FramePtr frame = test::MakeFrame(CORVANE_STREAM_JPEG, {1}, true, 5000);
    const auto pass = [&] {
        uint8_t* buffer = nullptr;
        uint32_t stride = 0, format = 0;
        EXPECT_EQ(renderer.GetBuffer(side, side, &buffer, &stride, &format), 0);
        std::fill_n(buffer, size_t{stride} * side, uint8_t{0x64});
        renderer.Commit();
        renderer.Prepare(info);
        renderer.Latch(info);
        return renderer.Present(&frame, &info);
    };
    const auto picture = [&](int texted) {    // the next one on the window
        const int before = texts;
        EXPECT_TRUE(Eventually([&] { return pass() == Outcome::Put; }));
        EXPECT_EQ(texts - before, texted);
    };
    const struct {
        const char* name;
        std::function<void()> change;
        int x;    // the place on row 32 that was picture before
        uint32_t pixel;
        int texts;
    } rows[] = {
        {"a first picture", [] {}, 2, kPicture, 1},
        {"a margin", [&] { info.margin.left = 10; }, 5, kBand, 1},
        {"a wider margin", [&] { info.margin.left = 20; }, 15, kBand, 1},
        {"full window", [&] { info.fullWindow = true; }, 15, kPicture, 0},
        {"full window off", [&] { info.fullWindow = false; }, 15, kBand, 1},
        {"a border",
         [&] {
             info.hasBorder = true;
             info.border = {.left = 4};
         },
         3, kBand, 1},
        {"another border", [&] { info.border = {.left = 32}; }, 24, kBand, 1},
        {"a smaller picture within it", [&] { info.border = {.left = 4, .right = 28}, side = 8; }, 24, kBand, 1},
        {"a wider border behind it", [&] { info.border.right = 52; }, 60, kBand, 1},
        {"border off", [&] { info.noBorder = true; }, 15, kBand, 1},
        {"border on", [&] { info.noBorder = false; }, 24, kBand, 1},
        {"a redraw, with a border", [&] { info.forceRedraw = true; }, 24, kBand, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.change();
        picture(row.texts);
        info.forceRedraw = false;
        EXPECT_TRUE(Eventually([&] {
            return (client.Read(window, {row.x, 32, row.x + 1, 33})[0] & 0xFFFFFF) == row.pixel;
        }));
        picture(0);    // once
    }
}

}    // namespace
}    // namespace corvane
