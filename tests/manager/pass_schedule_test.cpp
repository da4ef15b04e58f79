#include "manager/PassSchedule.h"
#include "support/Testing.h"

namespace corvane {
namespace {

constexpr int64_t kTick = PassSchedule::kTick;

std::string Text(const PassSchedule::Due& due) {
    std::string text;
    text += due.end ? "end " : "";
    text += due.tidy ? "tidy " : "";
    text += due.room ? "room " : "";
    text += due.draw ? "draw " : "";
    return text + std::to_string(static_cast<int>(due.state));
}

const auto nothing = [](PassSchedule&, int64_t = 0) {};
const auto posted = [](PassSchedule& s, int64_t = 0) { s.OnPosted(); };
const auto redraw = [](PassSchedule& s, int64_t = 0) { s.OnRedraw(); };

// Each row follows the one before: an event, what is due then, and how long the render thread may sleep after it.
TEST(PassSchedule, WhatIsDueAfterEachEvent) {
    using S = PassSchedule;
    S schedule;
    using enum RenderState;
    const struct {
        const char* name;
        void (*event)(S&, int64_t now);
        int64_t passes;     // ns since the row before
        const char* due;    // null: nothing
        int64_t sleep = S::kNever;
    } rows[] = {
        {"the beginning", nothing, 0, "draw 2"},
        {"time alone", nothing, 9 * kTick, nullptr},
        {"a wait", [](S& s, int64_t) { s.OnState(Waiting); }, 0, "draw 3", kTick},
        {"less than a tick", nothing, kTick - 1, nullptr, 1},
        {"a tick of it", nothing, 1, "draw 3", kTick},
        {"a redraw begins the tick anew", redraw, kTick / 2, "draw 3", kTick},
        {"room does not", [](S& s, int64_t) { s.OnSinkRoom(); }, kTick / 2, "room 3", kTick / 2},
        {"a picture", posted, 0, "draw 5"},
        {"something given up", [](S& s, int64_t) { s.OnGivenUp(); }, 0, "tidy 5"},
        {"two events at once", [](S& s, int64_t) { s.OnSinkRoom(), s.OnSinkReady(); }, 0, "room draw 5"},
        {"spare memory", [](S& s, int64_t now) { s.SetSpare(false, now), s.SetSpare(true, now); }, 0, nullptr, kTick},
        {"a look at it", nothing, kTick, "5"},
        {"sound alone", [](S& s, int64_t) { s.OnState(AudioOnly); }, 0, "draw 1"},
        {"given up then: the state is drawn", [](S& s, int64_t) { s.OnGivenUp(); }, 0, "tidy draw 1"},
        {"the end", [](S& s, int64_t) { s.OnEnd(); }, 0, "end 1"},
    };
    int64_t now = 0;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        now += row.passes;
        row.event(schedule, now);
        ASSERT_EQ(schedule.IsDue(now), row.due != nullptr);
        if (row.due != nullptr)
            EXPECT_EQ(Text(schedule.Take(now)), row.due);
        if (schedule.State() == Playing)
            (void)schedule.BeginPass(false, true, false, true, true);
        EXPECT_EQ(schedule.WakeAt(), row.sleep == S::kNever ? row.sleep : now + row.sleep);
    }
    PassSchedule counted;
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(counted.TakeWaitCounter(), static_cast<uint32_t>(i % 10));
    counted.OnState(Waiting);
    EXPECT_EQ(counted.TakeWaitCounter(), 0u);
    counted.OnState(Waiting);
    EXPECT_EQ(counted.TakeWaitCounter(), 1u) << "the same wait";
}

// What a pass is asked for until it could do so. The tests of the manager see what the flags come to.
TEST(PassSchedule, FlagsCountUntilTheyAreDone) {
    WindowSinks sinks(nullptr, Clock::System());
    const PresentSettings settings;
    PassSchedule schedule;
    const auto flagsOf = [&](bool redrawn) {
        Pass pass{.settings = settings,
                  .sinks = sinks,
                  .mailbox = nullptr,
                  .flags = schedule.BeginPass(true, true, false, true, true).value()};
        pass.redrawn = redrawn;
        schedule.EndPass(pass);
        return pass.flags;
    };
    schedule.OnPosted();
    EXPECT_TRUE(flagsOf(false).redraw) << "the first picture";
    EXPECT_TRUE(flagsOf(true).redraw) << "the sink was busy";
    EXPECT_FALSE(flagsOf(true).redraw);
    schedule.OnInformation();
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(flagsOf(true).fresh) << "the stream's codes have not told it";
    EXPECT_TRUE(schedule.TakeUnsent() && !schedule.TakeUnsent());
    EXPECT_TRUE(flagsOf(true).fresh);
    EXPECT_FALSE(flagsOf(true).fresh);
    // A picture that was posted and taken back is no reason to draw the one before again.
    schedule.OnPosted();
    EXPECT_TRUE(schedule.Take(0).draw);
    EXPECT_FALSE(schedule.BeginPass(false, true, false, true, true));
    schedule.OnPosted();
    schedule.OnSinkReady();
    EXPECT_TRUE(schedule.BeginPass(false, true, false, true, true));
    EXPECT_FALSE(schedule.IsDue(0));
}

}    // namespace
}    // namespace corvane
