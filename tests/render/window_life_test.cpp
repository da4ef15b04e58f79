// A manager on real windows: pictures of states, and what happens to windows meanwhile.
#include <cairo.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include "base/Log.h"
#include "picture/BitmapPool.h"
#include "platform/blitter/Blitter.h"
#include "support/Latch.h"
#include "support/PlainPicture.h"
#include "support/StreamMaker.h"
#include "support/Told.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane {
namespace {

using test::Eventually;

constexpr uint32_t kBlue = 0x00C08040;       // background, 0x00BBGGRR
constexpr uint32_t kBluePixel = 0x4080C0;    // the same as a pixel of the window

FramePtr FrameAt(int64_t timeMs) {
    return test::MakeFrame(CORVANE_STREAM_JPEG, {1}, true, timeMs);
}

// Remembers the last text call, and marks the pixel (1, 1) with its flags and counter.
struct Text {
    std::mutex mutex;
    OsdInfo last{};    // under mutex
    struct tm time {};

    static void Draw(void* context, OsdInfo* info) {
        auto& self = *static_cast<Text*>(context);
        cairo_set_antialias(info->deviceContext, CAIRO_ANTIALIAS_NONE);
        cairo_set_source_rgb(info->deviceContext, info->flags / 255.0, info->counter / 255.0, 1);
        cairo_rectangle(info->deviceContext, 1, 1, 1, 1);
        cairo_fill(info->deviceContext);
        const std::lock_guard lock(self.mutex);
        self.last = *info;
        self.time = *info->time;
    }
    OsdInfo Last() {
        const std::lock_guard lock(mutex);
        return last;
    }
};

// With the flags of the default and of the plain renderer.
class WindowLife : public testing::TestWithParam<uint32_t> {
protected:
    static constexpr uint16_t kSide = 64;    // of windows and pictures

    uint32_t Pixel(xcb_window_t window, int x, int y) {
        const auto pixels = m_client.Read(window, {x, y, x + 1, y + 1});
        return pixels.empty() ? 0xDEADDEAD : pixels[0] & 0xFFFFFF;
    }
    bool Shows(xcb_window_t window, uint32_t pixel, int x = 40, int y = 40) {
        return Eventually([&] { return Pixel(window, x, y) == pixel; });
    }
    // A picture of one grey.
    static void Push(CRenderMgr& manager, int grey, int64_t timeMs = 40) {
        test::PlainPicture picture(kSide, kSide, static_cast<uint8_t>(grey));
        manager.PresentFrame(FrameAt(timeMs), picture.frame, true);
    }
    // One more, which is presented.
    bool Presents(CRenderMgr& manager, int grey) {
        const int before = m_told.presents;
        Push(manager, grey);
        return Eventually([&] { return m_told.presents > before; });
    }
    static uint32_t Grey(int level) { return static_cast<uint32_t>(level) * 0x010101; }
    xcb_window_t Window(int16_t x = 10, xcb_window_t parent = 0) {
        return m_client.Create({.parent = parent, .x = x, .y = 10, .width = kSide, .height = kSide});
    }

    test::XServer m_server;
    test::XClient m_client{m_server.Display()};
    test::Told m_told;
};

TEST_P(WindowLife, States) {
    const xcb_window_t window = Window();
    Text text;
    CRenderMgr manager(&text, window, GetParam());
    manager.SetBackground(kBlue);
    manager.SetOsd(&Text::Draw, &text);
    manager.RequestRedraw();
    const auto frame = FrameAt(90'061'007);
    const struct {
        const char* name;
        std::function<void()> enter;
        uint32_t flags;
        bool wallTime;
    } rows[] = {
        {"stopped", [] {}, CORVANE_OSD_STOPPED | CORVANE_OSD_FRESH, false},
        {"waiting", [&] { manager.Stop(true); }, CORVANE_OSD_WAITING, true},
        {"audio only", [&] { manager.InputAudio(frame, true, true); }, CORVANE_OSD_AUDIO_ONLY, false},
        {"time only", [&] { manager.ShowTimeOnly(frame); }, CORVANE_OSD_TIME_ONLY, true},
        {"reset", [&] { manager.ResetToStopped(); }, CORVANE_OSD_STOPPED | CORVANE_OSD_FRESH, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.enter();
        EXPECT_TRUE(Shows(window, row.flags << 16 | 0xFF, 1, 1) ||
                    row.flags == CORVANE_OSD_WAITING);    // whose counter moves
        EXPECT_TRUE(Shows(window, kBluePixel));
        OsdInfo info{};
        ASSERT_TRUE(Eventually([&] { return (info = text.Last()).flags == row.flags; }));
        EXPECT_EQ(std::pair(info.width, info.height), std::pair(uint32_t{kSide}, uint32_t{kSide}));
        EXPECT_EQ(info.timeSeconds >= 1'700'000'000, row.wallTime);
        if (row.flags == CORVANE_OSD_AUDIO_ONLY) {
            EXPECT_EQ(std::tuple(info.timeSeconds, info.timeMilliseconds, info.timeZone), std::tuple(90'061u, 7u, 48));
            EXPECT_EQ(text.time.tm_hour * 10000 + text.time.tm_min * 100 + text.time.tm_sec, 10101);
        }
    }
    manager.Stop(true);
    for (uint32_t counter : {3u, 4u})    // steps without anybody's doing
        EXPECT_TRUE(Eventually([&] { return text.Last().counter == counter; }));
    Push(manager, 90);
    EXPECT_TRUE(Shows(window, Grey(90)));
}

TEST_P(WindowLife, LogoWhileStopped) {
    const xcb_window_t window = Window();
    cairo_surface_t* const surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 2, 1);
    auto* const pixels = reinterpret_cast<uint32_t*>(cairo_image_surface_get_data(surface));
    pixels[0] = 0xFF0000;
    pixels[1] = 0x0000FF;
    cairo_surface_mark_dirty(surface);
    {
        CRenderMgr first(this, window, GetParam());
        CRenderMgr second(this, 0, 0);
        EXPECT_EQ(first.SetLogoBitmap(surface), Status::Ok);
        EXPECT_EQ(second.SetLogoBitmap(surface), Status::Ok);
        EXPECT_EQ(BitmapPool::Count(), 1u) << "shared";
        EXPECT_EQ(first.SetLogoFile("/no/such/file"), Status::Failed);
        EXPECT_TRUE(Shows(window, 0xFF0000, 2, 32));
        EXPECT_TRUE(Shows(window, 0x0000FF, 61, 32));
        EXPECT_EQ(first.SetLogoBitmap(nullptr), Status::Ok);
        EXPECT_TRUE(Shows(window, 0));
    }
    EXPECT_EQ(BitmapPool::Count(), 0u);
    cairo_surface_destroy(surface);
}

// Each row happens to the window of a playing channel; afterwards the picture is right where it can be seen.
TEST_P(WindowLife, WhatHappensToAWindow) {
    const xcb_window_t frame = m_client.Create({.x = 5, .y = 5, .width = 200, .height = 200});
    const xcb_window_t window = Window(20, frame);
    const xcb_window_t other = Window(300);
    CRenderMgr manager(this, window, GetParam());
    m_told.By(manager);
    Push(manager, 100);
    ASSERT_TRUE(Shows(window, Grey(100)));
    m_client.Fill(window, {0, 0, kSide, kSide}, 0x123456);    // somebody paints over it, and says so
    m_client.Expose(window);
    EXPECT_TRUE(Shows(window, Grey(100)));
    m_client.Resize(window, 90, 80);
    EXPECT_TRUE(Shows(window, Grey(100), 85, 75)) << "the old picture at the new size";
    const xcb_window_t cover = m_client.Create({.x = 0, .y = 0, .width = 400, .height = 300, .background = 0x777777});
    EXPECT_TRUE(Presents(manager, 110));
    m_client.Destroy(cover);
    EXPECT_TRUE(Shows(window, Grey(110)));

    m_client.Unmap(frame);
    EXPECT_TRUE(Presents(manager, 120)) << "not viewable";
    m_client.Map(frame);
    EXPECT_TRUE(Shows(window, Grey(120)));
    m_client.Reparent(window, 0, 250, 250);
    EXPECT_TRUE(Presents(manager, 125));
    EXPECT_TRUE(Shows(window, Grey(125)));

    m_client.Destroy(window);
    EXPECT_TRUE(Presents(manager, 130));
    EXPECT_TRUE(Presents(manager, 131)) << "for good";
    manager.SetWindow(other);
    EXPECT_TRUE(Shows(other, Grey(131))) << "without another picture";
    manager.SetWindow(0);
    EXPECT_TRUE(Presents(manager, 132));
    EXPECT_EQ(Pixel(other, 40, 40), Grey(131));
    manager.SetWindow(other);
    EXPECT_TRUE(Shows(other, Grey(132)));
    manager.SetWindow(12345678);    // never a window
    EXPECT_TRUE(Presents(manager, 133));
}

// What nobody sees is neither converted nor put; neither is a picture that stays.
TEST_P(WindowLife, HiddenAndPausedChannelsConvertNothing) {
    const xcb_window_t window = Window();
    CRenderMgr manager(this, window, GetParam());
    m_told.By(manager);
    Push(manager, 100);
    ASSERT_TRUE(Shows(window, Grey(100)));
    m_client.Unmap(window);
    ASSERT_TRUE(Eventually([&] {    // the news has come: a picture is presented, and converted no more
        const uint64_t before = Blitter::Conversions();
        return Presents(manager, 110) && Blitter::Conversions() == before;
    }));
    const uint64_t before = Blitter::Conversions();
    for (int i = 0; i < 20; ++i)
        ASSERT_TRUE(Presents(manager, 120));
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));    // paused: two ticks of the render thread
    EXPECT_EQ(Blitter::Conversions(), before);
    // Nor is it made smaller for the window, which it would be where it is seen: it stays the decoder's.
    test::PlainPicture large(400, 300, 120);
    large.Share();
    manager.PresentFrame(FrameAt(40), large.frame, true);
    EXPECT_EQ(large.references, GetParam() == 0 ? 1 : 0);
    EXPECT_EQ(Blitter::Conversions(), before);
    m_client.Map(window);
    EXPECT_TRUE(Shows(window, Grey(120)));
    EXPECT_EQ(Blitter::Conversions() > before, GetParam() == 0);
    manager.PresentFrame(FrameAt(80), large.frame, true);
    EXPECT_EQ(large.references, 0);
}

// Dragged to another monitor: surfaces are made anew, the picture comes with the next frame.
TEST_P(WindowLife, DraggedToAnotherMonitor) {
    m_client.SetMonitors({{0, 0, 320, 480}, {320, 0, 640, 480}});
    const xcb_window_t window = Window();
    CRenderMgr manager(this, window, GetParam());
    Push(manager, 100);
    ASSERT_TRUE(Shows(window, Grey(100)));
    for (const int16_t x : {400, 20, 330}) {
        m_client.Move(window, x, 30);
        EXPECT_TRUE(Eventually([&] {
            Push(manager, 100 + x / 10);
            return Pixel(window, 40, 40) == Grey(100 + x / 10);
        }));
    }
}

// Whoever put last is seen; both are told of what happens to the window.
TEST_P(WindowLife, TwoChannelsOnOneWindow) {
    const xcb_window_t window = Window();
    std::unique_ptr<CRenderMgr> managers[] = {std::make_unique<CRenderMgr>(this, window, GetParam()),
                                              std::make_unique<CRenderMgr>(this, window, GetParam())};
    for (int i = 0; i < 6; ++i)
        ASSERT_TRUE(Eventually([&] {    // the other's picture of its state may still be on its way
            Push(*managers[i % 2], 60 + 10 * i);
            return Pixel(window, 40, 40) == Grey(60 + 10 * i);
        }));
    EXPECT_EQ(OpenConnections(), 1u);
    managers[1].reset();
    m_client.Resize(window, 90, 80);
    EXPECT_TRUE(Shows(window, Grey(100), 85, 75)) << "the one that stays, unasked";
}

// A picture is never converted at more than twice the window's size.
TEST_P(WindowLife, TargetSizeFollowsTheWindow) {
    struct Sized final : QMRX::Filter::IFilter {
        std::atomic<uint32_t> width{0}, height{0};
        int32_t Process(QMRX::Filter::FilterArgs* args) override {
            width = args->width;
            height = args->height;
            return 1;
        }
    };
    const struct {
        uint16_t width, height;
        void (*change)(CRenderMgr&);
        bool half;    // the target is the window's size, rounded up to even
    } rows[] = {
        {100, 75, nullptr, true},
        {99, 75, nullptr, true},
        {101, 75, nullptr, false},
        {100, 77, nullptr, false},
        {60, 90, nullptr, false},
        {1, 1, nullptr, false},
        {60, 41, [](CRenderMgr& m) { (void)m.EnableRotateFilter(1); }, false},
        {60, 41,
         [](CRenderMgr& m) {
             (void)m.SetDisplayArea({0, 0, {}, {}, 0, 0, {}, {}, 1, 0}, 16);
         },
         false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.width) + "x" + std::to_string(row.height));
        const xcb_window_t window = m_client.Create({.width = row.width, .height = row.height});
        CRenderMgr manager(this, window, GetParam());
        if (row.change != nullptr)
            row.change(manager);
        Sized filter;
        ASSERT_EQ(manager.InsertFilter(&filter), Status::Ok);
        const uint32_t width = row.half ? (row.width + 1u) & ~1u : 200u;
        const uint32_t height = row.half ? (row.height + 1u) & ~1u : 152u;
        test::PlainPicture picture(200, 152);
        EXPECT_TRUE(Eventually([&] {    // the window must have become known
            manager.PresentFrame(FrameAt(40), picture.frame, true);
            return filter.width == width && filter.height == height;
        }));
        manager.RemoveFilter(&filter);
    }
}

TEST_P(WindowLife, ServerGoneUnderPlayingChannels) {
    std::vector<std::unique_ptr<CRenderMgr>> managers;
    for (int16_t i = 0; i < 4; ++i) {
        managers.push_back(std::make_unique<CRenderMgr>(this, Window(static_cast<int16_t>(10 + 70 * i)), GetParam()));
        m_told.By(*managers.back());
        Push(*managers.back(), 100);
    }
    ASSERT_TRUE(Eventually([&] { return m_told.presents >= 4; }));
    static std::atomic<int> lines;
    lines = 0;
    log::hook = [](int, const char*, int, const char*, const void*) { ++lines; };
    m_server.Kill();
    const int before = m_told.presents;
    const std::clock_t used = std::clock();
    for (int i = 0; i < 50; ++i)
        for (const auto& manager : managers)
            Push(*manager, i, 40 * i);
    EXPECT_TRUE(Eventually([&] { return m_told.presents >= before + 100; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_LT(std::clock() - used, CLOCKS_PER_SEC / 4) << "nobody spins";
    EXPECT_EQ(m_told.replaced, GetParam() == 0 ? 4 : 0) << "the plain one, once a channel";
    managers.front()->SetWindow(4711);
    managers.clear();
    log::hook = nullptr;
    EXPECT_LE(lines, 4) << "one a channel at most";
}

// A rectangle of the overview lies on the screen: it stays there when a parent takes the window elsewhere.
TEST_P(WindowLife, ParentMovesUnderAnOverview) {
    const xcb_window_t frame = m_client.Create({.x = 100, .y = 100, .width = 200, .height = 200});
    const xcb_window_t inner = m_client.Create({.parent = frame, .x = 20, .y = 20, .width = 150, .height = 150});
    const xcb_window_t window = Window(5, inner);
    CRenderMgr manager(this, window, GetParam());
    for (uint32_t Edges::*edge : {&Edges::left, &Edges::right, &Edges::top, &Edges::bottom})
        manager.SetMargin(edge, 30);    // a picture of 4x4 in the middle, the overview beside it
    const DisplayArea area{0, 0, {{130, 135, 138, 143}}, {}, 0, 0, {}, {}, 0, 1};    // on the window: 5..13 x 5..13
    ASSERT_EQ(manager.SetDisplayArea(area, 33), Status::Ok);
    Push(manager, 100);
    EXPECT_TRUE(Shows(window, Grey(100), 9, 9));
    EXPECT_EQ(Pixel(window, 20, 9), 0u);
    m_client.Move(frame, 89, 100);
    EXPECT_TRUE(Shows(window, Grey(100), 20, 9));
    EXPECT_TRUE(Shows(window, 0, 9, 9)) << "the margin is drawn anew";
}

size_t Entries(const char* folder) {
    const std::filesystem::directory_iterator entries(folder);
    return static_cast<size_t>(std::distance(begin(entries), end(entries)));
}

// Windows that go while pictures are on their way to them. A child process each round: what is left must also let the
// process end in peace.
TEST_P(WindowLife, TenThousandWindowsDestroyed) {
    for (int round = 0; round < 4; ++round) {
        const pid_t child = fork();
        if (child == 0) {
            test::XClient client(m_server.Display());
            CRenderMgr managers[2] = {CRenderMgr(this, 0, GetParam()),
                                      CRenderMgr(this, 0, GetParam() | CORVANE_FLAG_GDI_COMPOSE)};
            test::PlainPicture picture(kSide, kSide);
            for (int i = 0; i < 1250; ++i) {
                xcb_window_t windows[2];
                for (int m = 0; m < 2; ++m) {
                    windows[m] = client.Create({.width = kSide, .height = kSide});
                    managers[m].SetWindow(windows[m]);
                    managers[m].PresentFrame(FrameAt(i), picture.frame, true);
                }
                for (const xcb_window_t window : windows)
                    client.Destroy(window);
            }
            std::exit(0);
        }
        int status = -1;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
}

TEST_P(WindowLife, CyclesLeaveNothingInProcessAndServer) {
    const xcb_window_t window = Window();
    size_t descriptors = 0, threads = 0;
    uint32_t resources = 0;
    for (int i = 0; i <= 1000; ++i) {
        {
            CRenderMgr manager(this, window, GetParam() | ((i & 1) != 0 ? CORVANE_FLAG_GDI_COMPOSE : 0));
            Push(manager, i % 200 + 20);
            if (i % 50 == 0)
                ASSERT_TRUE(Shows(window, Grey(i % 200 + 20)));
        }
        if (i != 50 && i != 1000)
            continue;
        ASSERT_TRUE(Eventually([&] { return m_client.ForeignClients() == 0; }));
        if (i == 50) {
            EXPECT_TRUE(Eventually([&, last = size_t{0}]() mutable {    // what ends by itself has ended
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                return std::exchange(last, Entries("/proc/self/fd")) == last;
            }));
            descriptors = Entries("/proc/self/fd");
            threads = Entries("/proc/self/task");
            resources = m_client.ForeignResources();
        }
        EXPECT_EQ(Entries("/proc/self/fd"), descriptors);
        EXPECT_TRUE(Eventually([&] { return Entries("/proc/self/task") == threads; }));
        EXPECT_EQ(m_client.ForeignResources(), resources);
    }
}

// Text is drawn once a second; between two refreshes nothing may touch it, whatever the picture does.
TEST_P(WindowLife, BandsDoNotFlicker) {
    const xcb_window_t window = m_client.Create({.x = 10, .y = 10, .width = 160, .height = 120});
    std::atomic<uint32_t> calls{0};
    const auto draw = [](void* count, OsdInfo* info) {
        const uint32_t call = ++*static_cast<std::atomic<uint32_t>*>(count);
        cairo_set_source_rgb(info->deviceContext, call * 37 % 256 / 255.0, call * 91 % 256 / 255.0, 1);
        cairo_paint(info->deviceContext);
    };
    for (const uint32_t flags : {0u, uint32_t{CORVANE_FLAG_GDI_COMPOSE}}) {
        CRenderMgr manager(this, window, GetParam() | flags);
        manager.SetOsd(draw, &calls);
        manager.SetMargin(&Edges::top, 20);
        manager.SetMargin(&Edges::left, 15);
        std::atomic<bool> more{true};
        std::thread worker([&] {
            for (int64_t i = 0; more; ++i)
                Push(manager, static_cast<int>(i % 250), 1000 + i % 30);
        });
        EXPECT_TRUE(Eventually([&] { return (Pixel(window, 50, 5) & 0xFF) == 0xFF; }));
        for (int i = 0; i < 200; ++i) {
            Raster shown;
            const bool grabbed = Ok(manager.GrabWindow(shown));
            EXPECT_TRUE(grabbed) << "grab " << i;
            if (!grabbed)
                break;
            const auto at = [&](int x, int y) {
                uint32_t pixel;
                std::memcpy(&pixel, shown.View().data + y * shown.View().step + 4 * x, 4);
                return pixel & 0xFFFFFF;
            };
            int others = 0;
            for (int y = 0; y < 120; ++y)
                for (int x = 0; x < (y < 20 ? 160 : 15); ++x)
                    others += at(x, y) != at(0, 0);
            EXPECT_EQ(others, 0) << "grab " << i;
            EXPECT_EQ(at(0, 0) & 0xFF, 0xFFu);
        }
        more = false;
        worker.join();
    }
}

INSTANTIATE_TEST_SUITE_P(Renderers, WindowLife, testing::Values(0u, uint32_t{CORVANE_FLAG_GDI}),
                         [](const auto& flags) { return flags.param == 0 ? "Default" : "Plain"; });

}    // namespace
}    // namespace corvane
