#include <sched.h>
#include <signal.h>

#include "base/FailurePoint.h"
#include "base/Log.h"
#include "platform/WatchFixture.h"
#include "platform/x11/WindowSink.h"
#include "support/Mappings.h"
#include "support/SteppedClock.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

using State = WindowSink::State;

enum class Way { Descriptor, Segment, Bands };

constexpr const char* kWords[] = {"memfd:corvane", "SYSV"};    // of the mappings that shared memory makes

class SinkConformance : public OnServer, public testing::WithParamInterface<std::tuple<Way, uint8_t>> {
protected:
    static XServer::Options Options() {
        const auto [way, depth] = GetParam();
        XServer::Options options{.depth = depth == 32 ? 24 : depth};
        if (way == Way::Bands)
            options.arguments = {"-extension", "MIT-SHM"};
        return options;
    }
    SinkConformance() : OnServer(Options()) {
        // Third after the eventfd and the connecting comes the first memory by descriptor.
        if (m_way == Way::Segment)
            failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), 3, false);
        Open();
        failure::Disarm();
    }
    void Open() {
        m_window = client.Create({.depth = m_depth});
        m_watch = OpenAlive(m_window, Purpose::Draw);
        m_sink = WindowSink::Make(m_watch, this, m_clock);
    }

    bool Becomes(State state) {
        return Eventually([&] { return m_sink->Prepare() == state; });
    }
    void ResizeTo(Size size) {
        client.Resize(m_window, static_cast<uint16_t>(size.width), static_cast<uint16_t>(size.height));
        ASSERT_TRUE(Eventually([&] { return m_sink->Prepare() == State::Ready && m_sink->Size() == size; }));
    }
    // A picture that no two places or runs share; kept to compare with.
    void Draw(uint32_t seed) {
        const auto writing = m_sink->Write();
        const PictureView& image = writing.Image();
        m_pixels.resize(size_t{image.size.width} * image.size.height);
        std::ranges::generate(m_pixels, [random = std::minstd_rand(seed)]() mutable { return random() | 0xFF000000u; });
        for (uint32_t y = 0; y < image.size.height; ++y)
            std::memcpy(image.Row(y), &m_pixels[size_t{y} * image.size.width], size_t{4} * image.size.width);
    }
    std::vector<uint32_t> Expected(const Rect& rect) const {
        std::vector<uint32_t> expected;
        for (int64_t y = rect.top; y < rect.bottom; ++y)
            for (int64_t x = rect.left; x < rect.right; ++x)
                expected.push_back(Shown(m_depth, m_pixels[static_cast<size_t>(y * m_sink->Size().width + x)]));
        return expected;
    }
    std::vector<uint32_t> OnWindow(const Rect& rect) {
        std::vector<uint32_t> pixels = client.Read(m_window, rect);
        for (uint32_t& pixel : pixels)
            pixel &= m_depth == 30 ? 0x3FFFFFFFu : 0xFFFFFFu;
        return pixels;
    }

    // A put that is not busy any more is on the window; bands get there on their own time.
    void PutShows(const std::vector<Rect>& parts, const std::vector<Rect>& shown) {
        m_sink->Put(parts);
        ASSERT_TRUE(Becomes(State::Ready));
        for (const Rect& rect : shown) {
            const auto shows = [&, expected = Expected(rect)] { return OnWindow(rect) == expected; };
            EXPECT_TRUE(m_way == Way::Bands ? Eventually(shows) : shows());
        }
    }

    const Way m_way = std::get<0>(GetParam());
    const uint8_t m_depth = std::get<1>(GetParam());
    xcb_window_t m_window = 0;
    WindowWatchPtr m_watch;
    SteppedClock m_clock;
    std::unique_ptr<WindowSink> m_sink;
    std::vector<uint32_t> m_pixels;
};

// A window that changes its size: an eighth more than is needed where memory is too small, the same memory where it is
// not, and what is too much goes back a second after the last change.
TEST_P(SinkConformance, PixelsPutArePixelsReadAtAnySize) {
    const size_t bytes = m_depth == 16 ? 2 : 4;
    const auto pages = [&](size_t pixels) { return (pixels * bytes + 64 + 4095) / 4096; };
    const auto expectMapped = [&](size_t pixels, bool resident) {    // memory of bands cannot be told from other memory
        for (const Way way : {Way::Descriptor, Way::Segment})
            EXPECT_EQ(MappedBytes(kWords[static_cast<int>(way)], resident) / 4096, m_way == way ? pages(pixels) : 0);
    };
    const struct {
        uint16_t width, height;
        size_t pixels;    // of the memory
    } rows[] = {
        {100, 80, 128 * 80},           {1, 1, 128 * 80},           {100, 100, 128 * 100 * 9 / 8},
        {100, 112, 128 * 100 * 9 / 8}, {33, 7, 128 * 100 * 9 / 8}, {320, 400, 320 * 400 * 9 / 8},
        {320, 440, 320 * 400 * 9 / 8},    // more than one band
        {100, 80, 320 * 400 * 9 / 8},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        const Rect all{0, 0, row.width, row.height};
        ResizeTo({row.width, row.height});
        EXPECT_TRUE(m_sink->Fresh());
        expectMapped(row.pixels, false);
        Raster copy;
        EXPECT_FALSE(m_sink->Copy(copy)) << "nothing was drawn yet";
        Draw(row.width);
        PutShows({{-5, -5, 1 << 20, 1 << 20}, {900, 900, 910, 910}}, {all});
        EXPECT_FALSE(m_sink->Fresh());
        ASSERT_TRUE(m_sink->Copy(copy));
        EXPECT_EQ(std::memcmp(copy.View().plane[0], m_pixels.data(), size_t{row.width} * 4), 0);
        const std::vector<uint32_t> before = Expected(all);
        if (row.width < 33)
            continue;
        Draw(row.width + 1u);
        const std::vector<Rect> parts{{3, 2, 10, 5}, {20, 1, 33, 7}};
        PutShows(parts, parts);    // and nothing else changes
        EXPECT_EQ(OnWindow({0, 0, 1, 1})[0], before[0]);
    }
    ResizeTo({100, 79});
    Draw(1);
    m_clock.now += 999'999'999;
    EXPECT_TRUE(m_sink->Trim()) << "not before";
    ++m_clock.now;
    EXPECT_FALSE(m_sink->Trim());
    expectMapped(128 * 79, true);
    PutShows({{0, 0, 100, 79}}, {{0, 0, 100, 79}});    // what is left is as it was

    // Changes that wait for nothing, and sinks beside it that come and go, leave nothing.
    const auto held = [&] { return std::array{Entries("/proc/self/fd"), size_t{client.ForeignResources()}}; };
    const auto before = held();
    for (uint32_t i = 0; i <= 200; ++i) {
        ResizeTo({i == 200 ? 100 : 50 + i % 7 * 20, 60});
        Draw(i);
        m_sink->Put(std::array{Rect{0, 0, 200, 60}});
        if (i % 4 == 0) {
            const auto other = WindowSink::Make(m_watch, nullptr);
            ASSERT_EQ(other->Prepare(), State::Ready);
            other->Put(std::array{Rect{0, 0, 60, 60}});
        }
    }
    ASSERT_TRUE(Becomes(State::Ready));
    EXPECT_TRUE(Eventually([&] { return held() == before; }));
    expectMapped(192 * 60 * 9 / 8, false);
}

TEST_P(SinkConformance, BusyUntilTheServerHasReadAndThenTold) {
    const Rect all{0, 0, 640, 480};    // in 24 bits more than a socket holds
    ResizeTo({640, 480});
    auto hearing = std::make_unique<Hearing>(m_watch);
    for (uint32_t round = 1; round <= 2; ++round) {
        Draw(round);
        const std::vector<uint32_t> expected = Expected(all);
        server.Stop();
        m_sink->Put(std::array{all});
        for (int i = 0; i < 3 && round > 1; ++i)
            EXPECT_EQ(m_sink->Prepare(), State::Busy);
        const int changes = hearing->changes;
        const int news = changes + hearing->ready;
        server.Continue();
        bool wanted = false;
        EXPECT_TRUE(Eventually([&] {
            wanted |= hearing->room.exchange(false) && m_sink->Resume();
            return OnWindow(all) == expected && (round == 1 || wanted || hearing->changes + hearing->ready > news);
        }));
        EXPECT_EQ(wanted, round > 1 && m_way == Way::Bands) << "nobody wanted to draw, or is told by the news";
        ASSERT_TRUE(Becomes(State::Ready));
        if (round == 2)    // before, the resizing may be told still
            EXPECT_EQ(hearing->changes, changes) << "nothing of the window is lost";
    }
    hearing = nullptr;
    // Destroyed with a put pending: neither waited for nor harmful. What is sent in bands ends where it was.
    Draw(3);
    server.Stop();
    m_sink->Put(std::array{all});
    const Rect end{0, m_way == Way::Bands ? 0 : 479, 640, m_way == Way::Bands ? 1 : 480};
    const std::vector<uint32_t> expected = Expected(end);
    m_sink = nullptr;
    server.Continue();
    EXPECT_TRUE(Eventually([&] { return OnWindow(end) == expected; }));
    EXPECT_EQ(MappedBytes(kWords[0], false) + MappedBytes(kWords[1], false), 0u);
}

TEST_P(SinkConformance, WindowOrServerGoneWithAPutPending) {
    ASSERT_TRUE(Becomes(State::Ready));
    // The server takes the destruction before the put: an error comes, and no completion.
    xcb_grab_server(client.Xcb());
    client.Sync();
    m_sink->Put(std::array{Rect{0, 0, 50, 50}, Rect{0, 0, 100, 80}});
    client.Destroy(m_window);
    xcb_ungrab_server(client.Xcb());
    client.Sync();
    EXPECT_TRUE(Becomes(State::Absent));
    EXPECT_EQ(m_sink->Size(), Size());
    Raster copy;
    EXPECT_FALSE(m_sink->Copy(copy));
    EXPECT_EQ(OpenConnections(), 1u);

    Open();
    ASSERT_TRUE(Becomes(State::Ready));
    const size_t descriptors = Entries("/proc/self/fd");
    server.Kill();
    m_sink->Put(std::array{Rect{0, 0, 100, 80}});
    EXPECT_TRUE(Becomes(State::Absent));
    m_sink->Put(std::array{Rect{0, 0, 100, 80}});
    EXPECT_EQ(Entries("/proc/self/fd"), descriptors);
    EXPECT_EQ(OpenConnections(), 0u);
}

std::string NameOf(const testing::TestParamInfo<std::tuple<Way, uint8_t>>& row) {
    const char* const ways[] = {"Descriptor", "Segment", "Bands"};
    return ways[static_cast<int>(std::get<0>(row.param))] + std::to_string(std::get<1>(row.param));
}
INSTANTIATE_TEST_SUITE_P(Ways, SinkConformance,
                         testing::Combine(testing::Values(Way::Descriptor, Way::Segment, Way::Bands),
                                          testing::Values(uint8_t{16}, uint8_t{24}, uint8_t{30}, uint8_t{32})),
                         NameOf);

using WindowSinks = OnServer;

TEST_F(WindowSinks, HiddenAbsentAndUnsupported) {
    static std::atomic<int> lines;
    log::hook = [](int level, const char*, int, const char* format, const void*) {
        lines += level == 3 && std::string(format) == "[%p] window visual not supported";
    };
    const struct {
        XClient::Options options;
        State state;
        int lines;
    } rows[] = {
        {{.mapped = false}, State::Hidden, 0},
        {{.inputOnly = true}, State::Absent, 1},
        {{.width = 20000}, State::TooLarge, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        lines = 0;
        const auto sink = WindowSink::Make(OpenAlive(client.Create(row.options), Purpose::Draw), &server);
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(sink->Prepare(), row.state);
        EXPECT_EQ(lines, row.lines);
        EXPECT_EQ(sink->Size() == Size(), row.state != State::Hidden);
        sink->Put(std::array{Rect{0, 0, 10, 10}});    // ignored
        Raster copy;
        EXPECT_FALSE(sink->Copy(copy));
    }
    log::hook = nullptr;
    EXPECT_EQ(WindowSink::Make(nullptr, nullptr)->Prepare(), State::Absent);
}

void PutGrey(WindowSink& sink, uint32_t grey) {
    Fill(sink.Write().Image(), {0, 0, 100, 80}, grey * 0x010101);
    sink.Put(std::array{Rect{0, 0, 100, 80}});
}
bool Shows(XClient& client, xcb_window_t window, uint32_t grey) {
    return (client.Read(window, {9, 9, 10, 10})[0] & 0xFF) == grey;
}

// Every platform call of making an image fails in turn: the next way is taken, and the picture still comes.
TEST_F(WindowSinks, FailingCallsAreGotAround) {
    const xcb_window_t window = client.Create();
    const WindowWatchPtr watch = OpenAlive(window, Purpose::Draw);
    const size_t descriptors = Entries("/proc/self/fd");
    for (const bool forGood : {false, true})
        for (uint64_t n = 1; n <= 3; ++n) {
            const auto sink = WindowSink::Make(watch, nullptr);
            failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), n, forGood);
            EXPECT_EQ(sink->Prepare(), State::Ready);
            failure::Disarm();
            const auto grey = static_cast<uint32_t>(n + 10 * forGood);
            PutGrey(*sink, grey);
            EXPECT_TRUE(Eventually([&] { return Shows(client, window, grey); }));
        }
    EXPECT_EQ(Entries("/proc/self/fd"), descriptors);
}

// A thread in an IPC world of its own makes segments that the server cannot attach; memory by descriptor it can.
TEST_F(WindowSinks, InAnIpcWorldOfItsOwn) {
    const struct {
        bool noDescriptors;      // so that the connection settles on less
        bool connectsOutside;    // the connection finds that segments work, and the sink that they do not
    } rows[] = {{false, false}, {true, false}, {true, true}};
    bool refused = false;
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        const xcb_window_t window = client.Create();
        WindowWatchPtr watch;
        const auto open = [&, fails = row.noDescriptors ? 3 : 0] {
            failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), fails, false);
            watch = OpenAlive(window, Purpose::Draw);
            failure::Disarm();
        };
        if (row.connectsOutside)
            open();
        std::thread([&] {
            sigset_t pipe;
            sigfillset(&pipe);
            pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
            if (unshare(CLONE_NEWIPC) != 0) {
                refused = true;
                return;
            }
            if (!row.connectsOutside)
                open();
            const auto sink = WindowSink::Make(watch, nullptr);
            EXPECT_TRUE(Eventually([&] {
                if (sink->Prepare() == State::Ready)
                    PutGrey(*sink, 99);
                return Shows(client, window, 99);
            }));
            EXPECT_EQ(MappedBytes("SYSV", false), 0u);
            EXPECT_EQ(MappedBytes("memfd:corvane", false) == 0, row.noDescriptors);
        }).join();
    }
    if (refused)
        GTEST_SKIP() << "not allowed to make an IPC world";
}

}    // namespace
}    // namespace corvane::test
