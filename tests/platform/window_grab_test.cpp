#include "platform/WatchFixture.h"
#include "platform/x11/WindowGrab.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

constexpr uint32_t kShown = 0x218284;    // on the window, RGB; exact in every depth
constexpr uint32_t kLast = 0x102010;     // in the last picture
constexpr uint32_t kCover = 0xFF0000;

uint32_t At(const Raster& raster, int64_t x, int64_t y) {
    uint32_t pixel;
    std::memcpy(&pixel, raster.View().At(x, y), 4);
    return pixel;
}

// A window of 100x80 at (10, 10) in a parent of 200x200 at (100, 100).
struct Scene {
    XClient& client;
    xcb_window_t parent, window;
};

using WindowGrabs = OnServer;

TEST_F(WindowGrabs, ShowsTheWindowWhereItCanBeSeenAndTheLastPictureElsewhere) {
    const auto covered = [](XClient::Options options) {
        options.background = kCover;
        return [=](const Scene& s) { s.client.Create(options); };
    };
    const struct {
        const char* name;
        std::function<void(const Scene&)> happens;
        const char* corners;    // top left and right, bottom left and right; "": the grab fails
        bool hasLast = true;
    } rows[] = {
        {"uncovered", [](const Scene&) {}, "SSSS"},
        {"a child shows", [](auto& s) { s.client.Create({.parent = s.window, .background = kCover}); }, "CCCC"},
        {"right half covered by a sibling of the parent", covered({.x = 160, .width = 400, .height = 400}), "SLSL"},
        {"bottom covered by a sibling's border",
         [](auto& s) {
             s.client.Create({.parent = s.parent, .x = -10, .y = 60, .width = 210, .height = 1, .border = 20});
         },
         "SSLL"},
        {"left half covered, without a last picture", covered({.width = 160, .height = 400}), "-S-S", false},
        {"above, but unmapped, or for input only, or below",
         [](const Scene& s) {
             s.client.Create({.width = 400, .height = 400, .background = kCover});
             s.client.Raise(s.parent);
             s.client.Create({.width = 400, .height = 400, .mapped = false});
             s.client.Create({.width = 400, .height = 400, .inputOnly = true});
             s.client.Fill(s.window, {0, 0, 100, 80}, kShown);
         },
         "SSSS"},
        {"left and top off the screen", [](auto& s) { s.client.Move(s.parent, -50, -50); }, "LLLS"},
        {"cut by the parent", [](auto& s) { s.client.Resize(s.parent, 60, 200); }, "SLSL"},
        {"wholly off the screen", [](auto& s) { s.client.Move(s.parent, 900, 900); }, "LLLL"},
        {"unmapped", [](auto& s) { s.client.Unmap(s.parent); }, "LLLL"},
        {"unmapped, no last picture", [](auto& s) { s.client.Unmap(s.parent); }, "", false},
        {"dead", [](auto& s) { s.client.Destroy(s.parent); }, ""},
    };
    Raster last;
    ASSERT_TRUE(last.Resize(120, 90));
    Fill(last.View(), last.View().Bounds(), kLast);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        XClient owner(server.Display());    // takes the windows with it
        Scene scene{owner, owner.Create({.x = 100, .y = 100, .width = 200, .height = 200}), 0};
        scene.window = owner.Create({.parent = scene.parent, .x = 10, .y = 10, .background = kShown});
        const WindowWatchPtr watch = OpenAlive(scene.window);
        row.happens(scene);
        Raster out;
        const Status status = GrabWindow(watch, row.hasLast ? last.View() : PictureView(), kHang, out);
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
    for (const uint8_t depth : {16, 24, 30, 32}) {
        SCOPED_TRACE(int{depth});
        // More than one reply of 8 MB.
        const XServer server({.width = 2101, .height = 1300, .depth = depth == 32 ? 24 : depth});
        XClient client(server.Display());
        const uint32_t pixel = Shown(depth, kShown) | (depth == 32 ? 0x80000000u : 0);
        const xcb_window_t window = client.Create({.width = 2101, .height = 1300, .depth = depth, .background = pixel});
        const WindowWatchPtr watch = OpenAlive(window);
        client.Fill(window, {0, 1290, 2101, 1300}, 0);
        Raster out;
        ASSERT_TRUE(Ok(GrabWindow(watch, {}, kHang, out)));
        EXPECT_EQ(At(out, 0, 0), kShown);
        EXPECT_EQ(At(out, 2100, 1289), At(out, 0, 0));
        EXPECT_EQ(At(out, 2100, 1290), 0u);
    }
}

TEST_F(WindowGrabs, FailsWithinTheLimitWhenTheServerStandsStillOrDies) {
    const WindowWatchPtr watch = OpenAlive(client.Create());
    Raster out;
    server.Stop();
    EXPECT_FALSE(Ok(GrabWindow(watch, {}, std::chrono::milliseconds(50), out)));
    server.Continue();
    EXPECT_TRUE(Ok(GrabWindow(watch, {}, kHang, out)));
    server.Kill();
    EXPECT_FALSE(Ok(GrabWindow(watch, {}, kHang, out)));
    EXPECT_FALSE(Ok(GrabWindow(nullptr, {}, kHang, out)));
}

}    // namespace
}    // namespace corvane::test
