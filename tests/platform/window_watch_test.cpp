#include "base/FailurePoint.h"
#include "platform/WatchFixture.h"
#include "platform/x11/WatchState.h"
#include "support/Mappings.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

using WindowWatches = OnServer;

// A window with a border of 2 at (10, 20) in a parent at (30, 40), itself in a grandparent at (100, 50).
struct Family {
    explicit Family(XClient& c) : client(c) {
        grandparent = client.Create({.x = 100, .y = 50, .width = 300, .height = 300});
        parent = client.Create({.parent = grandparent, .x = 30, .y = 40, .width = 200, .height = 200});
        window = client.Create({.parent = parent, .x = 10, .y = 20, .width = 100, .height = 80, .border = 2});
        watch = OpenAlive(window);
    }
    XClient& client;
    xcb_window_t grandparent, parent, window;
    WindowWatchPtr watch;    // of the window
};

TEST_F(WindowWatches, Happenings) {
    const auto adopted = [](const Family& f) {
        const xcb_window_t other = f.client.Create({.x = 5, .y = 5, .width = 200, .height = 200});
        f.client.Reparent(f.window, other, 1, 1);
        EXPECT_TRUE(Eventually([&] { return f.watch->ScreenRect() == Rect{6, 6, 110, 90}; }));
        f.client.Unmap(other);
        f.client.Move(other, 50, 60);
    };
    const struct {
        const char* name;
        std::function<void(const Family&)> happens;
        int64_t left, top;    // of the outside after it; -1: the watch is dead
        Size inside;
        bool viewable;
    } rows[] = {
        {"resized", [](auto& f) { f.client.Resize(f.window, 60, 50); }, 140, 110, {60, 50}, true},
        {"parent moved", [](auto& f) { f.client.Move(f.parent, 31, 42); }, 141, 112, {100, 80}, true},
        {"grandparent moved", [](auto& f) { f.client.Move(f.grandparent, 0, 0); }, 40, 60, {100, 80}, true},
        {"grandparent unmapped", [](auto& f) { f.client.Unmap(f.grandparent); }, 140, 110, {100, 80}, false},
        {"parent reparented, moved",
         [](auto& f) { f.client.Reparent(f.parent, 0, 0, 0), f.client.Move(f.parent, 7, 9); },
         17,
         29,
         {100, 80},
         true},
        {"reparented, the new parent unmapped and moved", adopted, 51, 61, {100, 80}, false},
        {"grandparent destroyed", [](auto& f) { f.client.Destroy(f.grandparent); }, -1, -1, {}, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Family family(client);
        const WindowWatchPtr& watch = family.watch;
        const auto is = [&](bool alive, int64_t left, int64_t top, Size size, bool viewable) {
            const Rect outer{left, top, left + size.width + 4, top + size.height + 4};
            return Eventually([&] {
                return (watch->GetLife() == Life::Alive) == alive && watch->ClientSize() == size &&
                       watch->Viewable() == viewable &&
                       watch->ScreenRect() == (alive ? std::optional(outer) : std::nullopt);
            });
        };
        ASSERT_TRUE(is(true, 140, 110, {100, 80}, true));
        const Hearing hearing(watch);
        row.happens(family);
        EXPECT_TRUE(is(row.left >= 0, row.left, row.top, row.inside, row.viewable));
        EXPECT_TRUE(Eventually([&] { return hearing.changes > 0; }));
    }
}

TEST_F(WindowWatches, PurposeDecidesOnTheBackground) {
    const xcb_window_t window = client.Create({.background = 0xABCDEF});
    const auto afterExposure = [&] {
        client.Fill(window, {0, 0, 10, 10}, 1);
        client.Expose(window);
        return client.Read(window, {0, 0, 1, 1}).at(0) & 0xFFFFFF;
    };
    const WindowWatchPtr look = OpenAlive(window);
    EXPECT_EQ(afterExposure(), 0xABCDEFu);
    EXPECT_EQ(WindowWatch::Open(window, Purpose::Draw), look);    // the same watch, with more to do
    EXPECT_TRUE(Eventually([&] { return afterExposure() == 1; }));
}

TEST_F(WindowWatches, SharesOneWatchAndSelectionWithAncestors) {
    Family family(client);
    auto parent = std::make_optional<Hearing>(OpenAlive(family.parent));
    // The end of the child's watch must leave the parent's events alone, and the other way round.
    family.watch = nullptr;
    client.Expose(family.parent);
    EXPECT_TRUE(Eventually([&] { return parent->changes > 0; }));
    family.watch = OpenAlive(family.window);
    parent.reset();
    client.Move(family.parent, 0, 0);
    EXPECT_TRUE(Eventually([&] { return family.watch->ScreenRect() == Rect{110, 70, 214, 154}; }));
    EXPECT_EQ(OpenConnections(), 1u);
    family.watch = nullptr;
    EXPECT_EQ(OpenConnections(), 0u);
}

TEST_F(WindowWatches, Monitors) {
    const std::vector<Rect> monitors{{0, 0, 320, 240}, {320, 0, 640, 480}, {0, 240, 320, 480}};
    const struct {
        int16_t x, y;    // of a window of 100x80
        uint32_t monitor;
    } rows[] = {{400, 10, 1},  {10, 10, 0},  {280, 10, 1}, {260, 10, 0}, {700, 600, 1},  {-300, -300, 0},
                {260, 190, 1}, {10, 300, 2}, {10, 210, 2}, {10, 190, 0}, {-300, 470, 2}, {-300, 5, 0}};
    const xcb_window_t window = client.Create({.x = 400, .y = 10});
    const WindowWatchPtr watch = OpenAlive(window);
    EXPECT_EQ(watch->MonitorIndex(), 0u);
    client.SetMonitors(monitors);
    for (const auto& row : rows) {
        client.Move(window, row.x, row.y);
        EXPECT_TRUE(Eventually([&] { return watch->MonitorIndex() == row.monitor; })) << row.x << " " << row.y;
    }
}

TEST(WindowWatch, WhatIsNoWindowIsDead) {
    EXPECT_EQ(WindowWatch::Open(0, Purpose::Look), nullptr);
    const auto dies = [](uintptr_t window) {
        const WindowWatchPtr watch = WindowWatch::Open(window, Purpose::Draw);
        return Eventually([&] { return watch->GetLife() == Life::Dead; }) && watch->ClientSize() == Size() &&
               !watch->Viewable() && !watch->ScreenRect() && watch->MonitorIndex() == 0;
    };
    testing::internal::CaptureStderr();
    unsetenv("DISPLAY");
    EXPECT_TRUE(dies(1));
    setenv("DISPLAY", ":4711", 1);
    EXPECT_TRUE(dies(1));
    EXPECT_EQ(OpenConnections(), 0u);

    XServer server;
    XClient client(server.Display());
    const xcb_window_t window = client.Create(), gone = client.Create(), next = client.Create();
    client.Destroy(gone);
    for (uint64_t n = 1; n <= 3; ++n) {    // the eventfd, the thread, the connecting
        failure::Arm(~0u, n, true);
        EXPECT_TRUE(dies(window)) << n;
        failure::Disarm();
    }
    const WindowWatchPtr alive = OpenAlive(window);
    for (const uintptr_t id : {uintptr_t{gone}, uintptr_t{12345678}, uintptr_t{1} << 40 | window, ~uintptr_t{0}})
        EXPECT_TRUE(dies(id)) << id;
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    // A dead watch is never shared, even while somebody holds it.
    const WindowWatchPtr first = OpenAlive(next);
    client.Destroy(next);
    ASSERT_TRUE(Eventually([&] { return first->GetLife() == Life::Dead; }));
    EXPECT_NE(WindowWatch::Open(next, Purpose::Look), first);
}

TEST(WindowWatch, AServerThatDiesIsToldAndTheNextServerIsTried) {
    WindowWatchPtr watches[2];    // the one of the first server is still held
    for (WindowWatchPtr& watch : watches) {
        XServer server;
        XClient client(server.Display());
        watch = OpenAlive(client.Create(), Purpose::Draw);
        std::atomic<bool> told{false};
        const Hearing hearing(watch, [&] { told = told || watch->GetLife() == Life::Dead; });
        server.Kill();
        EXPECT_TRUE(Eventually([&] { return told && OpenConnections() == 0; }));
    }
}

// A call that waited for a server that answers nothing would wait for ever. One thread goes on connecting, whatever is
// opened and let go of meanwhile; a connection that stands ends.
TEST(WindowWatch, NothingWaitsForAServerThatStandsStill) {
    for (const bool connected : {false, true}) {
        SCOPED_TRACE(connected);
        XServer server;
        XClient client(server.Display());
        const xcb_window_t window = client.Create(), second = client.Create();
        WindowWatchPtr before = connected ? OpenAlive(window, Purpose::Draw) : nullptr;
        const size_t threads = Entries("/proc/self/task");
        server.Stop();
        Gate done;
        const std::jthread caller([&] {
            for (int i = 0; i < 20; ++i)
                (void)WindowWatch::Open(second, Purpose::Draw);
            before = nullptr;
            done.Open();
        });
        EXPECT_TRUE(done.Wait());
        EXPECT_EQ(OpenConnections(), 0u);
        EXPECT_TRUE(Eventually([&] { return Entries("/proc/self/task") <= threads + 2; }));
        std::this_thread::sleep_for(std::chrono::seconds(connected ? 0 : 5));
        server.Continue();
        const WindowWatchPtr after = OpenAlive(window, Purpose::Draw);
        EXPECT_TRUE(Eventually([&] { return client.ForeignClients() == 1; }));
    }
}

// No listener may be called, or be in a call, once it is removed.
TEST_F(WindowWatches, ListenersComeAndGoUnderFire) {
    const xcb_window_t window = client.Create();
    const WindowWatchPtr watch = OpenAlive(window);
    std::vector<std::jthread> threads;
    for (int t = 0; t < 3; ++t)
        threads.emplace_back([&](const std::stop_token& stop) {
            while (!stop.stop_requested()) {
                std::atomic<bool> added{true};
                auto hearing = std::make_unique<Hearing>(watch, [&] {
                    std::this_thread::yield();
                    EXPECT_TRUE(added);
                });
                std::this_thread::yield();
                hearing = nullptr;
                added = false;
                std::this_thread::yield();
            }
        });
    for (int i = 0; i < 300; ++i)
        client.Expose(window);
}

// 60 Hz; 1000 lines of 1125 are seen, in this refresh as in those before and after.
TEST(Beam, LinesOfARefresh) {
    constexpr Beam kBeam{1000, 1125, 1'125'000, 50'000'000};
    for (const int64_t refresh : {0, 1, -1, 86'400})
        for (int64_t line = 0; line < 1125; ++line)
            for (const int64_t ns : {0, 999})
                ASSERT_EQ(kBeam.LineAt(50'000'000 + 1'125'000 * refresh + 1000 * line + ns),
                          line < 1000 ? line : Beam::kBlank)
                    << refresh << ": " << line;
}

TEST(Beam, IsBelievedWhereModeAndRefreshesAgree) {
    constexpr int64_t kStart = 7'000'000'000'000, kSecond = 1'000'000'000;
    const struct {
        const char* name;
        uint64_t clock = 148'500'000;    // Hz, of 2200 x 1125
        uint64_t count = 60;             // of the second refresh, a second after the first
        int64_t late = 0;                // ns
        bool told = false;
    } rows[] = {{.name = "agree", .told = true},
                {.name = "the monitor's own clock", .late = 4'000'000, .told = true},
                {.name = "another rate", .clock = 185'625'000},
                {.name = "a little off", .late = 6'000'000},
                {.name = "made up", .clock = 0},
                {.name = "refreshes do not go on", .count = 0},
                {.name = "refreshes go back", .count = static_cast<uint64_t>(-60)},
                {.name = "another clock", .late = 2 * kSecond}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        BeamMeasure measure;
        measure.SetMode(row.clock, 2200, 1080, 1125);
        EXPECT_EQ(measure.Real(), row.clock != 0);
        measure.Add(1000, kStart, kStart + 1);
        EXPECT_EQ(measure.Measured().period, 0) << "one refresh";
        measure.Add(1000 + row.count, kStart + kSecond + row.late, kStart + kSecond + 1);
        const Beam& beam = measure.Measured();
        EXPECT_EQ(beam.period, row.told ? (kSecond + row.late) / 60 : 0);
        if (row.told)
            EXPECT_EQ(beam.LineAt(beam.start), 0);
        measure.SetMode(row.clock, 2200, 1080, 1125);
        EXPECT_EQ(measure.Measured().period != 0, row.told) << "the same mode";
        measure.SetMode(row.clock, 2200, 1080, 1124);
        EXPECT_EQ(measure.Measured().period, 0) << "another";
    }
}

// A client of the event thread; what it does there is the test's.
struct Guest final : EventClient {
    void OnJoin(Connection& connection) override {
        atJoin(connection);
        joined = true;
    }
    void OnTurn(Connection&) override { atTurn(); }
    void OnRoom() override { ++rooms; }
    void OnLost() noexcept override {}
    std::function<void(Connection&)> atJoin = [](Connection&) {};
    std::function<void()> atTurn = [] {};
    std::atomic<bool> joined{false};
    std::atomic<int> rooms{0};
};

struct EventThread : OnServer {
    EventThread() {
        std::ranges::generate(guests, [] { return std::make_shared<Guest>(); });
    }
    void Join(const std::shared_ptr<Guest>& guest) {
        connection->Join(guest);
        ASSERT_TRUE(Eventually([&] { return guest->joined.load(); }));
    }
    void LetsGoOfAll() {
        for (const auto& guest : guests)
            guest->Leave();
        connection->Poke();
        const auto free = [](const auto& guest) { return guest.use_count() == 1; };
        EXPECT_TRUE(Eventually([&] { return std::ranges::all_of(guests, free); }));
    }
    std::array<std::shared_ptr<Guest>, 5> guests;
    const xcb_window_t window = client.Create({.width = 50, .height = 50});
    const WindowWatchPtr watch = OpenAlive(window);    // whoever saw it alive may send
    const std::shared_ptr<Connection> connection = ConnectionOf(watch);
};

// The event thread serves while the server stands still and the socket is full: neither its own requests nor those
// behind a band are waited for. Whoever joined before it awaits room is told of it, be it a moment before.
TEST_F(EventThread, AFullSocketHoldsNobodyUp) {
    Guest& late = *guests[0];
    guests[1]->atJoin = [&](Connection& c) {
        c.Join(guests[0]);    // when those who came were let in already
        c.Socket().AwaitRoom();
    };
    Join(guests[1]);
    EXPECT_TRUE(Eventually([&] { return late.rooms == 1; }));
    connection->Socket().AwaitRoom();    // wakes by itself
    EXPECT_TRUE(Eventually([&] { return late.rooms == 2; }));

    server.Stop();
    xcb_connection_t* const xcb = connection->Xcb();
    const std::vector<uint8_t> bytes(connection->Server().bandBytes);
    std::atomic<bool> full{false};
    std::jthread sender([&] {
        const auto band = [&] {    // one large request, as pixels are
            xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, window, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8,
                                static_cast<uint32_t>(bytes.size()), bytes.data());
            for (int i = 0; i < 100; ++i)    // of others
                xcb_no_operation(xcb);
        };
        while (connection->Socket().SendWithRoom(Clock::System().Now(), band)) {
        }
        full = true;
    });
    EXPECT_TRUE(Eventually([&] { return full.load(); }));
    std::atomic<int> answers{0};
    for (size_t i = 2; i < guests.size(); ++i) {
        guests[i]->atJoin = [&](Connection& c) {
            c.Ask<xcb_get_input_focus_reply_t>(xcb_get_input_focus(xcb), nullptr,
                                               [&](ReplyPtr<xcb_get_input_focus_reply_t>) { ++answers; });
        };
        Join(guests[i]);
    }
    EXPECT_EQ(late.rooms, 2);
    server.Continue();
    EXPECT_TRUE(Eventually([&] { return answers == 3; })) << "sent once there is room, and nobody pokes";
    LetsGoOfAll();
}

// A window gets another size while the answer about the one before is under way: that answer is no news.
TEST_F(EventThread, AnOldAnswerIsNoNews) {
    std::atomic<int> looks{0};
    guests[1]->atTurn = [&] { ++looks; };
    Join(guests[1]);
    std::this_thread::sleep_for(std::chrono::milliseconds(50));    // until nothing is asked any more
    EXPECT_LT(looks, 100) << "nobody spins";
    Gate held, go;
    std::atomic<uint32_t> seen{0};
    int turns = 0;
    guests[0]->atTurn = [&] {
        const uint32_t width = watch->ClientSize().width;
        if (turns == 0 && width != 60)
            return;
        if (turns++ == 0) {
            held.Open();    // the question is buffered
            go.Wait();
        } else if (turns == 2) {
            seen = width;
        }
    };
    Join(guests[0]);
    client.Resize(window, 60, 60);
    ASSERT_TRUE(held.Wait());
    ASSERT_TRUE(connection->Socket().Flush());
    for (int i = 0; i < 20; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(1)))
        client.Sync();    // the server has answered
    client.Resize(window, 70, 70);
    xcb_no_operation(connection->Xcb());
    ASSERT_TRUE(connection->Socket().Flush());    // and has read what came: the event is taken before the answer
    go.Open();
    EXPECT_TRUE(Eventually([&] { return seen != 0; }));
    EXPECT_EQ(seen, 70u);
    LetsGoOfAll();
}

// The server's vertical blanks come 60 times a second, whatever the mode says.
TEST_F(EventThread, BeamOfAServer) {
    const auto told = [&] { return watch->GetBeam().has_value(); };
    const auto staysUntold = [&] {
        bool seen = false;
        for (int i = 0; i < 25; ++i, std::this_thread::sleep_for(std::chrono::milliseconds(100)))
            seen |= told();
        return !seen;
    };
    EXPECT_TRUE(staysUntold()) << "its own mode has no timings";
    ASSERT_TRUE(client.SetMode(60 * 1000 * 600, 1000, 600));
    ASSERT_TRUE(Eventually(told));
    const Beam beam = *watch->GetBeam();
    EXPECT_EQ(beam.visible * 1000 + beam.total, 480'600u);
    EXPECT_NEAR(static_cast<double>(beam.period), 1e9 / 60, 1e9 / 60 / 200);
    client.Composite(true);
    EXPECT_TRUE(Eventually([&] { return !told(); }));
    client.Composite(false);
    ASSERT_TRUE(client.SetMode(75 * 1000 * 600, 1000, 600));
    EXPECT_TRUE(staysUntold()) << "made up";
}

}    // namespace
}    // namespace corvane::test
