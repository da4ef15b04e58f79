#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>

#include "platform/sink/WindowGrab.h"
#include "support/Latch.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane {
namespace {

using test::Eventually;
using test::XClient;
using test::XServer;
using Life = WindowWatch::Life;

constexpr uint32_t kShown = 0x218284;    // on the window, RGB; exact in every depth
constexpr uint32_t kShown16 = 4 << 11 | 0x20 << 5 | 0x10;
constexpr uint32_t kShown30 = 0x84 << 20 | 0x20A << 10 | 0x212;
constexpr uint32_t kLast = 0x102010;    // in the last picture
constexpr uint32_t kCover = 0xFF0000;

uint32_t At(const Raster& raster, int64_t x, int64_t y) {
    uint32_t pixel;
    std::memcpy(&pixel, raster.View().data + y * raster.View().step + 4 * x, 4);
    return pixel;
}

// A window of 100x80 at (10, 10) in a parent of 200x200 at (100, 100).
struct Scene {
    XClient& client;
    xcb_window_t parent, window;
};

TEST(WindowGrab, ShowsTheWindowWhereItCanBeSeenAndTheLastPictureElsewhere) {
    const struct {
        const char* name;
        std::function<void(const Scene&)> happens;
        const char* corners;    // top left and right, bottom left and right; "": the grab fails
        bool hasLast = true;
    } rows[] = {
        {"uncovered", [](const Scene&) {}, "SSSS"},
        {"a child shows", [](const Scene& s) { s.client.Create({.parent = s.window, .background = kCover}); }, "CCCC"},
        {"right half covered by a sibling of the parent",
         [](const Scene& s) { s.client.Create({.x = 160, .y = 0, .width = 400, .height = 400, .background = kCover}); },
         "SLSL"},
        {"bottom covered by a sibling's border",
         [](const Scene& s) {
             s.client.Create({.parent = s.parent, .x = -10, .y = 60, .width = 210, .height = 1, .border = 20});
         },
         "SSLL"},
        {"left half covered, without a last picture",
         [](const Scene& s) { s.client.Create({.width = 160, .height = 400, .background = kCover}); }, "-S-S", false},
        {"above, but unmapped, or for input only, or below",
         [](const Scene& s) {
             s.client.Create({.width = 400, .height = 400, .background = kCover});
             s.client.Raise(s.parent);
             s.client.Create({.width = 400, .height = 400, .mapped = false});
             s.client.Create({.width = 400, .height = 400, .inputOnly = true});
             s.client.Fill(s.window, {0, 0, 100, 80}, kShown);
         },
         "SSSS"},
        {"left and top off the screen", [](const Scene& s) { s.client.Move(s.parent, -50, -50); }, "LLLS"},
        {"cut by the parent", [](const Scene& s) { s.client.Resize(s.parent, 60, 200); }, "SLSL"},
        {"wholly off the screen", [](const Scene& s) { s.client.Move(s.parent, 900, 900); }, "LLLL"},
        {"unmapped", [](const Scene& s) { s.client.Unmap(s.parent); }, "LLLL"},
        {"unmapped, no last picture", [](const Scene& s) { s.client.Unmap(s.parent); }, "", false},
        {"dead", [](const Scene& s) { s.client.Destroy(s.parent); }, ""},
    };
    XServer server;
    Raster last;
    ASSERT_TRUE(last.Resize(120, 90));
    Fill(last.View(), last.View().Bounds(), kLast);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        XClient client(server.Display());    // takes the windows with it
        Scene scene{client, client.Create({.x = 100, .y = 100, .width = 200, .height = 200}), 0};
        scene.window = client.Create({.parent = scene.parent, .x = 10, .y = 10, .background = kShown});
        const WindowWatchPtr watch = WindowWatch::Open(scene.window, WindowWatch::Purpose::Look);
        ASSERT_TRUE(Eventually([&] { return watch->Viewable(); }));
        row.happens(scene);
        Raster out;
        const Status status = GrabWindow(watch, row.hasLast ? last.View() : RasterView(), test::kHang, out);
        std::string corners;
        for (int i = 0; Ok(status) && i < 4; ++i) {
            const uint32_t pixel = At(out, i % 2 * 99, i / 2 * 79);
            corners += pixel == kShown ? 'S' : pixel == kLast ? 'L' : pixel == kCover ? 'C' : pixel == 0 ? '-' : '?';
        }
        EXPECT_EQ(corners, row.corners);
        if (Ok(status))
            EXPECT_EQ(out.View().Bounds(), (Rect{0, 0, 100, 80}));
    }
}

TEST(WindowGrab, DepthsAndBands) {
    const struct {
        uint8_t root, depth;
        uint32_t pixel;
    } rows[] = {{16, 16, kShown16}, {24, 24, kShown}, {30, 30, kShown30}, {24, 32, kShown | 0x80000000u}};
    for (const auto& row : rows) {
        SCOPED_TRACE(int{row.depth});
        XServer server({.width = 2101, .height = 1300, .depth = row.root});    // more than one reply of 8 MB
        XClient client(server.Display());
        const xcb_window_t window =
            client.Create({.width = 2101, .height = 1300, .depth = row.depth, .background = row.pixel});
        ASSERT_NE(window, 0u);
        const WindowWatchPtr watch = WindowWatch::Open(window, WindowWatch::Purpose::Look);
        ASSERT_TRUE(Eventually([&] { return watch->Viewable(); }));
        client.Fill(window, {0, 1290, 2101, 1300}, 0);
        Raster out;
        ASSERT_TRUE(Ok(GrabWindow(watch, {}, test::kHang, out)));
        EXPECT_EQ(At(out, 0, 0), kShown);
        EXPECT_EQ(At(out, 2100, 1289), At(out, 0, 0));
        EXPECT_EQ(At(out, 2100, 1290), 0u);
    }
}

TEST(WindowGrab, FailsWithinTheLimitWhenTheServerStandsStillOrDies) {
    XServer server;
    XClient client(server.Display());
    const WindowWatchPtr watch = WindowWatch::Open(client.Create(), WindowWatch::Purpose::Look);
    ASSERT_TRUE(Eventually([&] { return watch->Viewable(); }));
    Raster out;
    server.Stop();
    EXPECT_FALSE(Ok(GrabWindow(watch, {}, std::chrono::milliseconds(50), out)));
    server.Continue();
    EXPECT_TRUE(Ok(GrabWindow(watch, {}, test::kHang, out)));
    server.Kill();
    EXPECT_FALSE(Ok(GrabWindow(watch, {}, test::kHang, out)));
    EXPECT_FALSE(Ok(GrabWindow(nullptr, {}, test::kHang, out)));
}

}    // namespace
}    // namespace corvane
