#include <gtest/gtest.h>

#include <string>

#include "manager/PassSchedule.h"

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

// Each row follows the one before: an event, what is due then, and how long the render thread may sleep after it.
TEST(PassSchedule, WhatIsDueAfterEachEvent) {
    PassSchedule schedule;
    using enum RenderState;
    const struct {
        const char* name;
        void (*event)(PassSchedule&, int64_t now);
        int64_t passes;     // ns since the row before
        const char* due;    // null: nothing
        int64_t sleep;
    } rows[] = {
        {"the beginning", [](PassSchedule&, int64_t) {}, 0, "draw 2", PassSchedule::kNever},
        {"time alone", [](PassSchedule&, int64_t) {}, 9 * kTick, nullptr, PassSchedule::kNever},
        {"a wait", [](PassSchedule& s, int64_t) { s.OnState(Waiting); }, 0, "draw 3", kTick},
        {"less than a tick", [](PassSchedule&, int64_t) {}, kTick - 1, nullptr, 1},
        {"a tick of it", [](PassSchedule&, int64_t) {}, 1, "draw 3", kTick},
        {"a redraw begins the tick anew", [](PassSchedule& s, int64_t) { s.OnRedraw(); }, kTick / 2, "draw 3", kTick},
        {"room does not", [](PassSchedule& s, int64_t) { s.OnSinkRoom(); }, kTick / 2, "room 3", kTick / 2},
        {"a picture", [](PassSchedule& s, int64_t) { s.OnPosted(); }, 0, "draw 5", PassSchedule::kNever},
        {"something given up", [](PassSchedule& s, int64_t) { s.OnGivenUp(); }, 0, "tidy 5", PassSchedule::kNever},
        {"two events at once", [](PassSchedule& s, int64_t) { s.OnSinkRoom(), s.OnSinkReady(); }, 0, "room draw 5",
         PassSchedule::kNever},
        {"spare memory", [](PassSchedule& s, int64_t now) { s.SetSpare(false, now), s.SetSpare(true, now); }, 0,
         nullptr, kTick},
        {"a look at it", [](PassSchedule&, int64_t) {}, kTick, "5", PassSchedule::kNever},
        {"sound alone", [](PassSchedule& s, int64_t) { s.OnState(AudioOnly); }, 0, "draw 1", PassSchedule::kNever},
        {"given up then: the state is drawn", [](PassSchedule& s, int64_t) { s.OnGivenUp(); }, 0, "tidy draw 1",
         PassSchedule::kNever},
        {"the end", [](PassSchedule& s, int64_t) { s.OnEnd(); }, 0, "end 1", PassSchedule::kNever},
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
        EXPECT_EQ(schedule.WakeAt(), row.sleep == PassSchedule::kNever ? row.sleep : now + row.sleep);
    }
    PassSchedule counted;
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(counted.TakeWaitCounter(), static_cast<uint32_t>(i % 10));
    counted.OnState(Waiting);
    EXPECT_EQ(counted.TakeWaitCounter(), 0u);
    counted.OnState(Waiting);
    EXPECT_EQ(counted.TakeWaitCounter(), 1u) << "the same wait";
}

// What a pass is asked for, and what is left of it when it could not do so.
TEST(PassSchedule, FlagsCountUntilTheyAreDone) {
    WindowSinks sinks(nullptr, Clock::System());
    const PresentSettings settings;
    PassSchedule schedule;
    const struct {
        const char* name;
        void (*event)(PassSchedule&);
        bool always, reports, hasText;    // of the pass
        bool redraw, fresh, textFresh;    // expected
        bool redrawn, textTold;           // what it does
    } rows[] = {
        {"the first picture", [](PassSchedule& s) { s.OnPosted(); }, false, true, true, true, false, false, true,
         false},
        {"the next", [](PassSchedule& s) { s.OnPosted(); }, false, true, true, false, false, false, true, false},
        {"a redraw, while the sink is busy", [](PassSchedule& s) { s.OnRedraw(); }, false, true, true, true, false,
         false, false, false},
        {"so once more", [](PassSchedule&) {}, false, true, true, true, false, false, true, false},
        {"text with every pass, from the next one on", [](PassSchedule&) {}, true, true, true, false, false, false,
         true, false},
        {"which is this", [](PassSchedule&) {}, true, true, true, true, false, false, true, false},
        {"and the last one", [](PassSchedule&) {}, false, true, true, true, false, false, true, false},
        {"not any more", [](PassSchedule&) {}, false, true, true, false, false, false, true, false},
        {"information that the stream's codes have not told", [](PassSchedule& s) { s.OnInformation(); }, false, true,
         true, false, true, false, true, true},
        {"and not yet", [](PassSchedule&) {}, false, true, true, false, true, false, true, false},
        {"told, but nothing is presented", [](PassSchedule& s) { EXPECT_TRUE(s.TakeUnsent() && !s.TakeUnsent()); },
         false, false, true, false, true, false, true, false},
        {"presented, without a text", [](PassSchedule&) {}, false, true, true, false, true, true, true, false},
        {"a later text", [](PassSchedule&) {}, false, true, true, false, false, true, true, true},
        {"is the only one", [](PassSchedule&) {}, false, true, true, false, false, false, true, true},
        {"without a text callback nothing is kept", [](PassSchedule& s) { s.OnInformation(), (void)s.TakeUnsent(); },
         false, true, false, false, true, false, true, false},
        {"for one that comes later", [](PassSchedule&) {}, false, true, true, false, false, false, true, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.event(schedule);
        const auto begun = schedule.BeginPass(true, true, row.always, row.reports, row.hasText);
        ASSERT_TRUE(begun);
        Pass pass{.settings = settings, .sinks = sinks, .mailbox = nullptr, .flags = *begun};
        EXPECT_EQ(pass.flags.redraw, row.redraw);
        EXPECT_EQ(pass.flags.fresh, row.fresh);
        EXPECT_EQ(pass.flags.textFresh, row.textFresh);
        pass.redrawn = row.redrawn;
        pass.textTold = row.textTold;
        EXPECT_FALSE(schedule.IsDue(0)) << "what happened before the pass began is not drawn twice";
        schedule.EndPass(pass);
    }
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
