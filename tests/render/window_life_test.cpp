// A manager on real windows: pictures of states, and what happens to windows meanwhile.
#include <cairo.h>
#include <malloc.h>

#include <ctime>
#include <future>
#include <list>

#include "base/Log.h"
#include "base/Sanitized.h"
#include "manager/RenderMgr.h"
#include "picture/BitmapPool.h"
#include "platform/blitter/Blitter.h"
#include "platform/x11/AbandonedConnections.h"
#include "render/DDrawRenderer.h"
#include "render/GDIRenderer.h"
#include "support/Calling.h"
#include "support/Client.h"
#include "support/Mappings.h"
#include "support/PlainPicture.h"
#include "support/RendererHand.h"
#include "support/ScriptedRenderer.h"
#include "support/SteppedClock.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"
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

using TextCall = std::function<void(OsdInfo*)>;

// Remembers the last text call, and marks the pixel (1, 1) with the flags of each.
struct Text {
    std::atomic<uint32_t> calls{0}, size{0}, seconds{0}, clock{0}, counter{0}, flags{0};
    TextCall call = [this](OsdInfo* info) {
        cairo_set_source_rgb(info->deviceContext, info->flags / 255.0, 0, 1);
        cairo_rectangle(info->deviceContext, 1, 1, 1, 1);
        cairo_fill(info->deviceContext);
        size = info->width * 1000 + info->height;
        seconds = info->timeSeconds;
        clock = static_cast<uint32_t>(info->time->tm_hour * 100 + info->time->tm_min);
        counter = info->counter;
        flags = info->flags;    // last: what is waited for
        ++calls;
    };
};

constexpr uint16_t kSide = 64;    // of windows and pictures

// A manager, and what its callbacks have counted.
struct Channel {
    Channel(xcb_window_t window, uint32_t flags) : manager(this, window, flags) {
        manager.SetCallback(&PresentSettings::afterDisplay, test::Calling(onDisplay));
        manager.SetStreamInfo(test::Calling(onInfo));
    }
    // A picture of one grey.
    void Push(uint8_t grey, int64_t timeMs = 40) {
        test::PlainPicture picture(kSide, kSide, grey);
        manager.PresentFrame(FrameAt(timeMs), picture.Picture(), true);
    }
    bool GoesOn(uint8_t grey) {    // with the next picture
        const int before = presents;
        Push(grey);
        return Eventually([&] { return presents > before; });
    }

    // `call` must outlive the channel.
    void SetText(TextCall& call) { manager.SetCallback(&PresentSettings::osd, test::Calling(call)); }

    std::atomic<int> presents{0}, replaced{0};
    std::function<void(const AfterDisplayRecord*)> onDisplay = [this](const AfterDisplayRecord*) { ++presents; };
    std::function<void(uint32_t, uint64_t, uint64_t)> onInfo = [this](uint32_t code, uint64_t, uint64_t) {
        replaced += code == CORVANE_INFO_FALLBACK ? 1 : 0;
    };
    CRenderMgr manager;
};

DisplayArea OverviewIn(xcb_window_t window) {
    return {.overviewIsWindow = 1, .overview = {.window = window}, .overviewEnabled = 1};
}

WindowWatchPtr Viewable(xcb_window_t window) {
    WindowWatchPtr watch = WindowWatch::Open(window, WindowWatch::Purpose::Draw);
    EXPECT_TRUE(Eventually([&] { return watch->Viewable(); }));
    return watch;
}

// One of the two renderers on a window, driven by hand.
struct Passes : test::RendererHand {
    Passes(xcb_window_t window, uint32_t gdiFlag) {
        settings.window = Viewable(window);
        if (gdiFlag == 0)
            renderer = std::make_unique<CDDrawRenderer>(settings);
        else
            renderer = std::make_unique<CGDIRenderer>(clock);
    }
    bool Becomes(Outcome outcome) {
        return Eventually([&] { return Pass(*renderer) == outcome; });
    }

    test::SteppedClock clock;
    std::unique_ptr<IVideoRenderer> renderer;
};

// With the flags of the default and of the plain renderer.
class WindowLife : public testing::TestWithParam<uint32_t> {
protected:
    uint32_t Pixel(xcb_window_t window, int x, int y) {
        const auto pixels = m_client.Read(window, {x, y, x + 1, y + 1});
        return pixels.empty() ? 0xDEADDEAD : pixels[0] & 0xFFFFFF;
    }
    bool Shows(xcb_window_t window, uint32_t pixel, int x = 40, int y = 40) {
        return Eventually([&] { return Pixel(window, x, y) == pixel; });
    }
    static uint32_t Grey(uint8_t level) { return level * 0x010101u; }
    void Resize(const WindowWatchPtr& watch, uint32_t width, uint32_t height) {    // until the watch says so
        m_client.Resize(static_cast<xcb_window_t>(watch->Window()), static_cast<uint16_t>(width),
                        static_cast<uint16_t>(height));
        EXPECT_TRUE(Eventually([&] { return watch->ClientSize() == WindowWatch::Size{width, height}; }));
    }
    xcb_window_t Window(int16_t x = 10, xcb_window_t parent = 0) {
        return m_client.Create({.parent = parent, .x = x, .y = 10, .width = kSide, .height = kSide});
    }

    test::XServer m_server;
    test::XClient m_client{m_server.Display()};
};

// Text is drawn when its time has changed, when its place has, and when a redraw is asked for; the plain renderer draws
// it with the bands around the picture, whose place counts too, whatever the policy says of times. Each row follows the
// one before.
TEST_P(WindowLife, OutcomesTextAndBandsFollowTimesAndPlaces) {
    using enum Outcome;
    constexpr uint32_t kPicture = 0x646464;
    const xcb_window_t window = Window();
    Passes passes(window, GetParam());
    PresentSettings& info = passes.settings;
    info.overviewWindow = Viewable(Window(200));
    info.area.overviewIsWindow = 1;
    EXPECT_EQ(passes.Pass(*passes.renderer), NotDue) << "no picture yet";
    std::vector<OsdInfo> texts;
    TextCall keep = [&](OsdInfo* text) { texts.push_back(*text); };
    info.background = kBlue;
    info.osdPolicy = 2 | 1;    // the wall clock stands still, and does not count to the default renderer
    info.osd = test::Calling(keep);
    passes.flags.textFresh = true;
    const bool isPlain = GetParam() != 0;
    uint32_t side = 32;    // of the picture
    const WindowWatchPtr watch = info.window;
    const struct {
        const char* name;
        std::function<void()> change;
        int x;    // the place on row 32 that was picture before
        bool band;
        int plain, standard;    // texts
    } rows[] = {
        {"no time", [&] { passes.shown.frame = FrameAt(0); }, 2, false, 0, 1},
        {"a second", [&] { passes.shown.frame = FrameAt(5000); }, 2, false, 1, 1},
        {"another second", [&] { passes.shown.frame = FrameAt(6000); }, 2, false, 1, 1},
        {"one that does not count", [&] { passes.shown.frame = FrameAt(7000), info.osdPolicy = 1; }, 2, false, 0, 0},
        {"a margin", [&] { info.margin.left = 10; }, 5, true, 1, 0},
        {"a wider margin", [&] { info.margin.left = 20; }, 15, true, 1, 0},
        {"full window", [&] { info.fullWindow = true; }, 15, false, 0, 0},
        {"full window off", [&] { info.fullWindow = false; }, 15, true, 1, 1},
        {"a larger window", [&] { Resize(watch, 70, 64); }, 15, true, 1, 1},
        {"a border", [&] { info.border.left = 4, info.hasBorder = true; }, 3, true, 1, 0},
        {"another border", [&] { info.border = {.left = 32}; }, 24, isPlain, 1, 0},
        {"a smaller picture within it",
         [&] { info.border = {.left = 4, .right = 28, .top = 1, .bottom = 2}, side = 8; }, 24, isPlain, 1, 0},
        {"a wider border behind it", [&] { info.border.right = 52; }, 60, isPlain, 1, 0},
        {"border off", [&] { info.noBorder = true; }, 15, true, 1, 0},
        {"border on", [&] { info.noBorder = false; }, 24, isPlain, 1, 0},
        {"a redraw, with a border", [&] { passes.flags.redraw = true; }, 24, isPlain, 1, 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.change();
        for (const int texted : {isPlain ? row.plain : row.standard, 0}) {    // once
            texts.clear();
            const uint32_t mark = passes.flags.textFresh ? CORVANE_OSD_FRESH : 0;    // until there is a text
            passes.Fill(*passes.renderer, side, 0x64);
            EXPECT_TRUE(passes.Becomes(Put));
            ASSERT_EQ(texts.size(), static_cast<size_t>(texted));
            const bool around = info.hasBorder && !(isPlain && info.noBorder);
            const WindowWatch::Size size{side + info.border.left + info.border.right,
                                         side + info.border.top + info.border.bottom};
            for (const OsdInfo& text : texts) {
                EXPECT_EQ((WindowWatch::Size{text.width, text.height}), around ? size : watch->ClientSize());
                EXPECT_EQ(text.flags, mark | (around ? CORVANE_OSD_BORDER : 0));
            }
            EXPECT_TRUE(Shows(window, !row.band ? kPicture : isPlain ? kBluePixel : 0, row.x, 32));
        }
    }
    const std::pair<std::function<void()>, Outcome> others[] = {
        {[&] { m_server.Stop(); }, Busy},
        {[&] { m_server.Continue(); }, Put},
        {[&] { info.presentEnabled = false; }, NotDue},
        {[&] { info.presentEnabled = true, m_client.Unmap(window); }, NothingToDrawOn},
        {[&] { info.area.overviewEnabled = 1; }, Put},
        {[&] { info.area.overviewEnabled = 0, m_client.Map(window); }, Put},
        {[&] { info.window = nullptr, info.hasBorder = false, texts.clear(); }, NothingToDrawOn},
    };
    for (const auto& [change, outcome] : others) {
        change();
        EXPECT_TRUE(passes.Becomes(outcome)) << &outcome - &others[0].second;
    }
    // The default renderer's surfaces in memory are as large as the picture.
    EXPECT_TRUE(isPlain ? texts.empty() : texts.size() == 1 && texts[0].width == side && texts[0].height == side);
    info.window = watch;
    m_client.Destroy(window);
    EXPECT_TRUE(passes.Becomes(NothingToDrawOn));
}

TEST_P(WindowLife, States) {
    constexpr uint32_t kWallClock = 1'700'000'000;    // and later
    const xcb_window_t window = Window();
    Text text;
    Channel channel(window, GetParam());
    CRenderMgr& manager = channel.manager;
    manager.SetBackground(kBlue);
    channel.SetText(text.call);
    manager.RequestRedraw();
    const auto frame = FrameAt(90'061'007);
    const struct {
        const char* name;
        std::function<void()> enter;
        uint32_t flags, seconds;
    } rows[] = {
        {"stopped", [] {}, CORVANE_OSD_STOPPED | CORVANE_OSD_FRESH, 0},
        {"audio only", [&] { manager.InputAudio(frame, true, true); }, CORVANE_OSD_AUDIO_ONLY, 90'061},
        {"time only", [&] { manager.ShowTimeOnly(frame); }, CORVANE_OSD_TIME_ONLY, kWallClock},
        {"reset", [&] { manager.ResetToStopped(); }, CORVANE_OSD_STOPPED | CORVANE_OSD_FRESH, 0},
        {"waiting", [&] { manager.Stop(true); }, CORVANE_OSD_WAITING, kWallClock},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.enter();
        EXPECT_TRUE(Shows(window, row.flags << 16 | 0xFF, 1, 1));
        EXPECT_TRUE(Shows(window, kBluePixel));
        ASSERT_TRUE(Eventually([&] { return text.flags == row.flags; }));
        EXPECT_EQ(text.size, kSide * 1001u);
        EXPECT_EQ(std::min<uint32_t>(text.seconds, kWallClock), row.seconds);
        if (row.seconds == 90'061)
            EXPECT_EQ(text.clock, 101u);
    }
    EXPECT_TRUE(Eventually([&] { return text.counter == 2; })) << "the steps of a wait";
    channel.Push(90);
    EXPECT_TRUE(Shows(window, Grey(90)));

    uint32_t colors[] = {0xFF0000, 0x0000FF};
    cairo_surface_t* const logo = cairo_image_surface_create_for_data(reinterpret_cast<uint8_t*>(colors),
                                                                      CAIRO_FORMAT_RGB24, 2, 1, sizeof colors);
    manager.ResetToStopped();
    EXPECT_EQ(manager.SetLogoBitmap(logo), Status::Ok);
    EXPECT_TRUE(Shows(window, colors[0], 2, 32) && Shows(window, colors[1], 61, 32));
    EXPECT_EQ(manager.SetLogoBitmap(nullptr), Status::Ok);
    EXPECT_TRUE(Shows(window, kBluePixel));
    cairo_surface_destroy(logo);
}

// What happens to the window of a playing channel, with an overview in another; afterwards the picture is right where
// it can be seen.
TEST_P(WindowLife, WhatHappensToAWindow) {
    m_client.SetMonitors({{0, 0, 320, 480}, {320, 0, 640, 480}});
    const xcb_window_t frame = m_client.Create({.x = 5, .y = 5, .width = 200, .height = 200});
    const xcb_window_t window = Window(20, frame);
    const xcb_window_t other = Window(240);    // on the same monitor
    const xcb_window_t second = m_client.Create({.x = 500, .y = 10, .width = 100, .height = 70});
    Channel channel(window, GetParam());
    CRenderMgr& manager = channel.manager;
    manager.SetMargin(&Edges::top, 10);
    EXPECT_EQ(manager.SetDisplayArea(OverviewIn(second), 1 | 32), Status::Ok);
    channel.Push(100);
    EXPECT_TRUE(Shows(window, Grey(100)) && Shows(second, Grey(100)));

    {    // another channel on it; the one that stays is told of all that follows
        Channel beside(window, GetParam());
        EXPECT_TRUE(Eventually([&] {    // the picture of its state may still be on its way
            beside.Push(90);
            return Pixel(window, 40, 40) == Grey(90);
        }));
        EXPECT_EQ(OpenConnections(), 1u);
    }
    m_client.Fill(window, {0, 0, kSide, kSide}, 0x123456);    // somebody paints over it, and says so
    m_client.Expose(window);
    EXPECT_TRUE(Shows(window, Grey(100)) && Shows(window, 0, 40, 5));
    // Beyond the limits of pictures, by itself and with the default renderer's room for the overview below it.
    const WindowWatchPtr watch = Viewable(window);
    for (const uint32_t height : {20000u, 16200u}) {
        Resize(watch, 200, height);
        EXPECT_TRUE(channel.GoesOn(102) && channel.GoesOn(103));
    }
    m_client.Resize(window, 60, 170);
    EXPECT_TRUE(Shows(window, Grey(103), 59, 169)) << "the old picture at the new size";
    channel.Push(105);    // beside an upright window too the overview is whole, and the window's own
    EXPECT_TRUE(Shows(second, Grey(105), 99, 69) && Shows(second, Grey(105), 0, 0) &&
                Shows(window, Grey(105), 59, 169));
    const xcb_window_t cover = m_client.Create({.x = 0, .y = 0, .width = 400, .height = 300, .background = 0x777777});
    EXPECT_TRUE(channel.GoesOn(110));
    m_client.Destroy(cover);
    EXPECT_TRUE(Shows(window, Grey(110)));

    m_client.Unmap(frame);
    for (const uint8_t grey : {119, 120})
        EXPECT_TRUE(channel.GoesOn(grey) && Shows(second, Grey(grey))) << "not viewable, but the overview is";
    m_client.Map(frame);
    EXPECT_TRUE(Shows(window, Grey(120)));
    m_client.Reparent(window, 0, 250, 250);
    EXPECT_TRUE(channel.GoesOn(125) && Shows(window, Grey(125)));
    m_client.Destroy(window);
    EXPECT_TRUE(channel.GoesOn(130) && channel.GoesOn(131)) << "for good";
    manager.SetWindow(other);
    EXPECT_TRUE(Shows(other, Grey(131))) << "without another picture";
    manager.SetWindow(0);
    EXPECT_TRUE(channel.GoesOn(132));
    EXPECT_EQ(Pixel(other, 40, 40), Grey(131));
    manager.SetWindow(other);
    EXPECT_TRUE(Shows(other, Grey(132)));
    for (const int16_t x : {400, 20}) {
        m_client.Move(other, x, 30);
        EXPECT_TRUE(Eventually([&] {    // another monitor costs a picture
            channel.Push(static_cast<uint8_t>(100 + x / 10));
            return Pixel(other, 40, 40) == Grey(static_cast<uint8_t>(100 + x / 10));
        }));
    }
    manager.SetWindow(12345678);    // never a window
    EXPECT_TRUE(channel.GoesOn(133));
    EXPECT_EQ(channel.replaced, 0);
}

// A window that is its own overview is one image, drawn and put once: nobody sees the zoomed part without the whole. An
// odd last column has no colour: the default renderer leaves it out. The plain renderer gets it unwritten.
TEST_P(WindowLife, ItsOwnOverviewAndAnOddLastColumn) {
    for (const bool overview : {true, false}) {
        const xcb_window_t window = Window();
        const uint32_t width = overview ? kSide : kSide + 1, bright = overview ? kSide / 2 : kSide;
        test::PlainPicture picture(width, kSide, 50);
        for (uint32_t i = 0; i < width * kSide; ++i)
            picture.frame.planes[0][i] = i % width < bright ? 50 : 200;
        Channel channel(window, GetParam());
        DisplayArea area = OverviewIn(window);
        area.zoomEnabled = 1;
        area.zoom = {{10, 10, 42, 74}};    // the left half
        (void)Viewable(window);
        EXPECT_EQ(channel.manager.SetDisplayArea(area, overview ? 1 | 4 | 16 | 32 : 0), Status::Ok);
        channel.manager.PresentFrame(FrameAt(40), picture.Picture(), true);
        EXPECT_TRUE(Shows(window, Grey(50), 20));
        EXPECT_TRUE(overview ? Shows(window, Grey(200), 60) : GetParam() != 0 || Shows(window, Grey(50), kSide - 1));
        for (int i = 0; overview && i < 100; ++i) {
            channel.manager.PresentFrame(FrameAt(40 * i), picture.Picture(), true);
            EXPECT_EQ(Pixel(window, 60, 40), Grey(200));
        }
    }
}

// What nobody sees is neither converted nor put; neither is a picture that stays.
TEST_P(WindowLife, HiddenAndPausedChannelsConvertNothing) {
    const xcb_window_t window = Window();
    const WindowWatchPtr watch = Viewable(window);
    test::PlainPicture large(400, 300, 120);     // outlives its last reference
    const int kept = GetParam() == 0 ? 1 : 0;    // by reference
    Channel channel(window, GetParam());
    channel.Push(100);
    ASSERT_TRUE(Shows(window, Grey(100)));
    m_client.Unmap(window);
    uint64_t before = 0;
    const auto converts = [&] {
        before = Blitter::Conversions();
        EXPECT_TRUE(channel.GoesOn(120));
        return Blitter::Conversions() != before;
    };
    ASSERT_TRUE(Eventually([&] { return !watch->Viewable(); }));
    for (int i = 0; i < 2; ++i)    // the pass that runs, and what it counts, may be of before
        (void)converts();
    for (int i = 0; i < 20; ++i)
        EXPECT_FALSE(converts());
    std::this_thread::sleep_for(std::chrono::milliseconds(1200));    // paused: two ticks of the render thread
    EXPECT_EQ(Blitter::Conversions(), before);
    // Nor is it made smaller for the window: to the default renderer it stays the decoder's, seen or not.
    large.Share();
    channel.manager.PresentFrame(FrameAt(40), large.Picture(), true);
    EXPECT_EQ(large.references, kept);
    EXPECT_EQ(Blitter::Conversions(), before);
    m_client.Map(window);
    EXPECT_TRUE(Shows(window, Grey(120)));
    EXPECT_EQ(Blitter::Conversions() > before, kept != 0);
    channel.manager.PresentFrame(FrameAt(80), large.Picture(), true);
    EXPECT_TRUE(Eventually([&] { return large.references == kept; })) << "the last one only";
}

// What a window that has become smaller needs no more goes back without pictures, in any state; so does the picture of
// a state when pictures come.
TEST_P(WindowLife, MemoryGoesBack) {
    const xcb_window_t windows[] = {Window(), Window(20)};
    Channel stopped(windows[0], GetParam()), playing(windows[1], GetParam());
    stopped.manager.SetBackground(kBlue);
    playing.manager.SetBackground(kBlue);
    for (const xcb_window_t window : windows) {
        m_client.Resize(window, 600, 400);
        m_client.Raise(window);
        EXPECT_TRUE(Shows(window, kBluePixel, 599, 399));
    }
    const auto allocated = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    const size_t before = allocated();
    playing.Push(100);
    EXPECT_TRUE(Shows(windows[1], Grey(100), 599, 399));
    if (!kSanitized)
        EXPECT_LT(allocated() + 800'000, before);
    for (const xcb_window_t window : windows)
        m_client.Resize(window, kSide, kSide);
    constexpr size_t kLeft = 2 * (4 * kSide * kSide + 2 * 4096);
    EXPECT_TRUE(Eventually([] { return test::MappedBytes("memfd:corvane", true) <= kLeft; }));
}

// The plain renderer never converts a picture at more than twice the window's size; the default one gets all of it.
TEST_P(WindowLife, TargetSizeFollowsTheWindow) {
    PictureSize seen;
    test::CallingFilter filter([&](QMRX::Filter::FilterArgs* args) {
        seen = {args->width, args->height};
        return 0;
    });
    constexpr PictureSize kAll{200, 152};
    const struct {
        uint16_t width, height;
        bool turned, zoomed;
        PictureSize size;    // of the plain one's target for all of it
    } rows[] = {{99, 75, false, false, {100, 76}}, {101, 75, false, false, kAll}, {100, 77, false, false, kAll},
                {1, 1, false, false, kAll},        {60, 41, true, false, kAll},   {60, 41, false, true, kAll}};
    for (const auto& row : rows) {
        const xcb_window_t window = m_client.Create({.width = row.width, .height = row.height});
        const WindowWatchPtr watch = Viewable(window);
        Channel channel(window, GetParam());
        EXPECT_EQ(channel.manager.InsertFilter(&filter), Status::Ok);
        if (row.turned)
            (void)channel.manager.EnableRotateFilter(90);
        (void)channel.manager.SetDisplayArea({.zoomEnabled = row.zoomed}, CORVANE_AREA_ZOOM_ENABLED);
        const test::PlainPicture picture(kAll.width, kAll.height);
        channel.manager.PresentFrame(FrameAt(40), picture.Picture(), true);
        EXPECT_EQ(seen, GetParam() == 0 ? kAll : row.size) << &row - rows;
    }
}

TEST_P(WindowLife, ServerGoneUnderPlayingChannels) {
    std::list<Channel> channels;
    const auto sum = [&](std::atomic<int> Channel::*count) {
        return std::accumulate(channels.begin(), channels.end(), 0,
                               [&](int before, const Channel& channel) { return before + channel.*count; });
    };
    for (int i = 0; i < 4; ++i)
        EXPECT_TRUE(channels.emplace_back(Window(), GetParam()).GoesOn(100));
    static std::atomic<int> lines;
    lines = 0;
    log::hook = [](int, const char*, int, const char*, const void*) { ++lines; };
    m_server.Kill();
    const int before = sum(&Channel::presents);
    const std::clock_t used = std::clock();
    for (int i = 0; i < 50; ++i)
        for (Channel& channel : channels)
            channel.Push(static_cast<uint8_t>(i), 40 * i);
    EXPECT_TRUE(Eventually([&] { return sum(&Channel::presents) >= before + 100; }));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_LT(std::clock() - used, CLOCKS_PER_SEC / 4) << "nobody spins";
    EXPECT_TRUE(Eventually([&] {    // told with a picture, and known a moment after the death
        for (Channel& channel : channels)
            channel.Push(100);
        return sum(&Channel::replaced) == (GetParam() == 0 ? 4 : 0);
    })) << "the plain one, once a channel";
    channels.front().manager.SetWindow(4711);
    channels.clear();
    log::hook = nullptr;
    EXPECT_LE(lines, 4) << "one a channel at most";
}

// The window gets another size in the middle of a pass, whose picture is made and not put, so many times, or as long as
// the test feeds. Each picture is shown, and at the end the window shows the newest at its newest size.
TEST_P(WindowLife, NewsBetweenTwoStepsOfAPass) {
    constexpr int kAlways = 1 << 20;
    const xcb_window_t window = Window();
    const WindowWatchPtr watch = Viewable(window);
    test::XClient hand(m_server.Display());    // of the render thread
    std::atomic<int> left{0};
    uint16_t side = kSide;
    Channel channel(window, GetParam());
    TextCall disturb = [&](OsdInfo*) {
        if (left-- <= 0)
            return;
        side = static_cast<uint16_t>(side == 90 ? 70 : side + 1);
        hand.Resize(window, side, side);
        EXPECT_TRUE(Eventually([&] { return watch->ClientSize() == WindowWatch::Size{side, side}; }));
        channel.manager.RequestRedraw();    // which the watch does a moment later
    };
    channel.manager.SetOsdPolicy(CORVANE_TEXT_ALWAYS);
    channel.manager.SetMargin(&Edges::top, 1);    // where the plain renderer's text goes
    channel.SetText(disturb);
    channel.Push(90, 1000);
    ASSERT_TRUE(Shows(window, Grey(90)));
    for (const int times : {1, 2, 3, kAlways}) {
        SCOPED_TRACE(times);
        left = times;
        for (uint8_t grey = 100; grey < 110; ++grey) {
            channel.Push(grey, 1000);
            EXPECT_TRUE(Shows(window, Grey(grey)));
        }
        left = 0;
        EXPECT_TRUE(Eventually([&] {
            const int last = static_cast<int>(watch->ClientSize().width) - 1;
            return Pixel(window, last, last) == Grey(109);
        }));
    }
    channel.manager.End();
}

// While the server stands still, every call and the end of a channel return; when it goes on, the last picture is
// shown, and text is not asked for once more. The window is larger than what a socket holds.
TEST_P(WindowLife, ServerStandsStill) {
    const std::vector<std::string> arguments[] = {{}, {"-extension", "MIT-SHM"}};    // the second: pictures in bands
    for (const auto& each : arguments) {
        SCOPED_TRACE(each.size());
        test::XServer server({.arguments = each});
        test::XClient client(server.Display());
        const xcb_window_t window = client.Create({.width = 640, .height = 480});
        const auto shows = [&](uint8_t grey) {
            return Eventually([&] { return (client.Read(window, {600, 400, 601, 401})[0] & 0xFFFFFF) == Grey(grey); });
        };
        Text text;
        auto channel = std::make_unique<Channel>(window, GetParam());
        CRenderMgr& manager = channel->manager;
        channel->SetText(text.call);
        manager.SetOsdPolicy(2);    // by the frame's second
        channel->Push(100, 1000);
        ASSERT_TRUE(shows(100));
        const auto pause = [](int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); };
        for (uint32_t before = 0; before != text.calls; pause(50))
            before = text.calls;    // until no more text comes
        const auto inTime = [&](const std::function<void()>& calls) {
            server.Stop();
            const auto done = std::async(std::launch::async, calls);
            const bool back = done.wait_for(std::chrono::seconds(5)) == std::future_status::ready;
            pause(100);    // the last pass has given up
            server.Continue();
            return back;
        };
        const uint32_t calls = text.calls;
        EXPECT_TRUE(inTime([&] {
            for (int i = 1; i <= 3; ++i)
                channel->Push(static_cast<uint8_t>(100 + i), 1000 + i);
        }));
        EXPECT_TRUE(shows(103));
        EXPECT_EQ(text.calls, calls);
        EXPECT_TRUE(inTime([&] {
            channel->Push(110, 2000);
            manager.SetMargin(&Edges::top, 10);
            EXPECT_EQ(manager.SetLogoBitmap(nullptr), Status::Ok);
            manager.SetCallback(&PresentSettings::afterDisplay, {});
            manager.SetWindow(window + 1);
            channel->Push(112, 2002);
            manager.SetWindow(window);
            manager.SetPictureCallback({}, PF_BGRA32);
            channel = nullptr;
        }));
    }
}

// Windows that go while pictures are on their way to them. A child process each round: what is left must also let the
// process end in peace.
TEST_P(WindowLife, TenThousandWindowsDestroyed) {
    const auto child = [&] {
        test::XClient client(m_server.Display());
        Channel channels[] = {Channel(0, GetParam()), Channel(0, GetParam() | CORVANE_FLAG_GDI_COMPOSE)};
        for (int i = 0; i < 1250; ++i) {
            const xcb_window_t windows[2] = {client.Create(), client.Create()};
            for (int m = 0; m < 2; ++m) {
                channels[m].manager.SetWindow(windows[m]);
                channels[m].Push(100, i);
            }
            for (const xcb_window_t window : windows)
                client.Destroy(window);
        }
        std::exit(0);
    };
    for (int round = 0; round < 4; ++round)
        EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
}

// Alone, where each life opens and closes the connection, mostly before it stands; and beside a watch of an ancestor,
// which keeps it open.
TEST_P(WindowLife, CyclesLeaveNothingInProcessAndServer) {
    const xcb_window_t frame = m_client.Create({.width = 200, .height = 200});
    const xcb_window_t window = Window(10, frame);
    using Counts = std::array<size_t, 4>;
    const auto counts = [&] {
        (void)AbandonedConnections::Instance()
            .Reap();    // one that was closed while it connected keeps a descriptor until then
        return Counts{test::Entries("/proc/self/fd"), test::Entries("/proc/self/task"), m_client.ForeignResources(),
                      m_client.ForeignClients()};
    };
    for (const bool keeps : {false, true}) {
        const WindowWatchPtr keeper = WindowWatch::Open(keeps ? frame : 0, WindowWatch::Purpose::Look);
        ASSERT_TRUE(Eventually([&] { return !keeps || keeper->GetLife() == WindowWatch::Life::Alive; }));
        const size_t resources = m_client.ForeignResources();
        Counts settled{};
        for (int i = 0; i <= (keeps ? 300 : 1000); ++i) {
            {
                Channel channel(window, GetParam() | ((i & 1) != 0 ? CORVANE_FLAG_GDI_COMPOSE : 0));
                const auto grey = static_cast<uint8_t>(i % 200 + 20);
                channel.Push(grey);
                if (i % 50 == 0)
                    ASSERT_TRUE(Shows(window, Grey(grey)));
            }
            if (i == 50)    // what ends by itself has ended
                ASSERT_TRUE(Eventually([&] {
                    const Counts before = std::exchange(settled, counts());
                    std::this_thread::sleep_for(std::chrono::milliseconds(100));
                    return settled == before && settled[3] == (keeps ? 1 : 0);
                }));
        }
        EXPECT_TRUE(Eventually([&] { return counts() == settled && settled[2] == resources; }))
            << keeps << ", descriptors, threads, resources, clients: " << testing::PrintToString(counts());
    }
}

// Text is drawn once a second; between two refreshes nothing may touch it, whatever the picture does.
TEST_P(WindowLife, BandsDoNotFlicker) {
    uint32_t texts = 0;
    TextCall paint = [&](OsdInfo* info) {
        ++texts;
        cairo_set_source_rgb(info->deviceContext, texts * 37 % 256 / 255.0, texts * 91 % 256 / 255.0,
                             (info->flags & CORVANE_OSD_STOPPED) == 0);    // blue: a picture was put
        cairo_paint(info->deviceContext);
    };
    for (const uint32_t flags : {0u, uint32_t{CORVANE_FLAG_GDI_COMPOSE}}) {
        const xcb_window_t window = m_client.Create({.x = 10, .y = 10, .width = 160, .height = 120});
        Channel channel(window, GetParam() | flags);
        CRenderMgr& manager = channel.manager;
        channel.SetText(paint);
        manager.SetMargin(&Edges::top, 20);
        manager.SetMargin(&Edges::left, 15);
        channel.Push(1, 1000);
        EXPECT_TRUE(Eventually([&] { return (Pixel(window, 50, 5) & 0xFF) == 0xFF; }));
        for (int i = 0; i < 200; ++i) {
            SCOPED_TRACE(i);
            channel.Push(static_cast<uint8_t>(i), 1000 + i % 30);    // a grab sees the window before, while or after
            Raster shown;
            ASSERT_TRUE(Ok(manager.GrabWindow(shown)));
            const auto at = [&](int x, int y) {
                return *reinterpret_cast<const uint32_t*>(shown.View().At(x, y)) & 0xFFFFFF;
            };
            int others = (at(0, 0) & 0xFF) != 0xFF;
            for (int y = 0; y < 120; ++y)
                for (int x = 0; x < (y < 20 ? 160 : 15); ++x)
                    others += at(x, y) != at(0, 0);
            EXPECT_EQ(others, 0);
        }
    }
}

// Redraws, windows, settings and callbacks change at random while pictures replace each other in the mailbox. Every
// picture is counted, nothing stays lent, and what comes after is shown as the last settings say.
TEST_P(WindowLife, ChangesAtRandomBesidePicturesThatReplaceEachOther) {
    const xcb_window_t windows[] = {Window(), Window(100), 0};
    test::PlainPicture large(120, 90, 100), small(40, 30, 120), own(kSide, kSide, 140);    // they outlive references
    large.Share();
    small.Share();
    constexpr uint64_t kPictures = 1500;
    {
        Channel channel(windows[0], GetParam());
        CRenderMgr& manager = channel.manager;
        std::atomic<bool> done{false};
        std::thread worker([&] {
            std::mt19937 random(1);
            const test::PlainPicture* const pictures[] = {&large, &small, &own};
            for (uint64_t i = 0; i < kPictures; ++i) {
                manager.PresentFrame(FrameAt(static_cast<int64_t>(40 * i)), pictures[random() % 3]->Picture(),
                                     random() % 4 == 0);
                if (random() % 8 == 0)
                    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 4));
            }
            done = true;
        });
        std::thread host([&] {
            std::mt19937 random(2);
            test::XClient client(m_server.Display());
            while (!done) {
                const xcb_window_t window = windows[random() % 2];
                const auto side = static_cast<uint16_t>(1 + random() % 150);
                const std::function<void()> changes[] = {
                    [&] { client.Resize(window, side, kSide); }, [&] { client.Expose(window); },
                    [&] { client.Move(window, static_cast<int16_t>(side), 0); },
                    [&] { random() % 2 == 0 ? client.Unmap(window) : client.Map(window); }};
                changes[random() % std::size(changes)]();
            }
        });
        std::mt19937 random(3);
        TextCall text = [](OsdInfo*) {};
        std::function<void(const PseudoFrame*)> nothing = [](const PseudoFrame*) {};
        while (!done) {
            const auto value = static_cast<uint32_t>(random() % 8);
            DisplayArea area = OverviewIn(windows[value / 4]);
            area.overviewEnabled = area.zoomEnabled = value % 2;
            area.zoom = {{0, 0, 20, 20}};
            Raster grabbed;
            const std::function<void()> changes[] = {
                [&] { manager.SetWindow(windows[value % 3]); },
                [&] { manager.RequestRedraw(); },
                [&] { EXPECT_EQ(manager.SetDisplayArea(area, 1 | 4 | 16 | 32), Status::Ok); },
                [&] { manager.SetMargin(&Edges::top, value); },
                [&] { manager.SetFullWindow(value % 2 != 0); },
                [&] { value % 2 != 0 ? channel.SetText(text) : manager.SetCallback(&PresentSettings::osd, {}); },
                [&] { manager.SetPresentEnabled(value != 0); },
                [&] { manager.SetDeinterlace(value % 2 != 0); },
                [&] { manager.SetSignalledColours(value % 2 != 0); },
                [&] { value % 2 != 0 ? (void)manager.EnableRotateFilter(30) : manager.DisableRotateFilter(); },
                [&] { value == 0 ? manager.Stop(true) : manager.ShowTimeOnly(FrameAt(40)); },
                [&] { (void)manager.GrabWindow(grabbed); },
            };
            changes[random() % std::size(changes)]();
        }
        worker.join();
        host.join();
        manager.DisableRotateFilter();
        manager.SetPresentEnabled(true);
        manager.SetMargin(&Edges::top, 0);
        EXPECT_EQ(manager.SetDisplayArea(DisplayArea{}, 16 | 32), Status::Ok);
        m_client.Map(windows[0]);
        m_client.Resize(windows[0], kSide, kSide);
        m_client.Move(windows[0], 10, 10);
        m_client.Unmap(windows[1]);
        manager.SetWindow(windows[0]);
        uint64_t pictures = kPictures;
        EXPECT_TRUE(Eventually([&] {    // another monitor may have cost a picture
            channel.Push(77, 1'000'000);
            ++pictures;
            return Pixel(windows[0], 40, 40) == Grey(77);
        }));
        manager.SetPictureCallback(test::Calling(nothing), PF_I420);    // the other renderer's buffers go
        EXPECT_TRUE(channel.GoesOn(78));
        manager.End();
        ChannelStatistics counted{.recordSize = sizeof counted};
        manager.Counters().Fill(counted);
        counted.framesTaken = counted.picturesDecoded = pictures + 1;    // the manager counts neither
        test::ExpectSums(counted);
        EXPECT_GT(std::min(counted.picturesReplaced, counted.picturesPut), 0u);
    }
    EXPECT_EQ(large.references + small.references, 0);
}

INSTANTIATE_TEST_SUITE_P(Renderers, WindowLife, testing::Values(0u, uint32_t{CORVANE_FLAG_GDI}),
                         [](const auto& flags) { return flags.param == 0 ? "Default" : "Plain"; });

}    // namespace
}    // namespace corvane
