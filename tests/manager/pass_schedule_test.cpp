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

// What a pass is asked for, and what is left of it when it could not do so. Letters: what it is like (A text is asked
// for always, P it presents, C there is a text callback), what it is asked for and what it does (R a redraw, F fresh
// information, T the text that tells it).
TEST(PassSchedule, FlagsCountUntilTheyAreDone) {
    WindowSinks sinks(nullptr, Clock::System());
    const PresentSettings settings;
    PassSchedule schedule;
    const struct {
        const char* name;
        void (*event)(PassSchedule&, int64_t);
        std::string like, asked, does;
    } rows[] = {
        {"the first picture", posted, "PC", "R", "R"},
        {"the next", posted, "PC", "", "R"},
        {"a redraw, while the sink is busy", redraw, "PC", "R", ""},
        {"so once more", nothing, "PC", "R", "R"},
        {"text with every pass, from the next one on", nothing, "APC", "", "R"},
        {"which is this", nothing, "APC", "R", "R"},
        {"and the last one", nothing, "PC", "R", "R"},
        {"not any more", nothing, "PC", "", "R"},
        {"information that is not told yet", [](PassSchedule& s, int64_t) { s.OnInformation(); }, "PC", "F", "RT"},
        {"and not yet", nothing, "PC", "F", "R"},
        {"told, but nothing is presented",
         [](PassSchedule& s, int64_t) { EXPECT_TRUE(s.TakeUnsent() && !s.TakeUnsent()); }, "C", "F", "R"},
        {"presented, without a text", nothing, "PC", "FT", "R"},
        {"a later text", nothing, "PC", "T", "RT"},
        {"is the only one", nothing, "PC", "", "RT"},
        {"without a text callback nothing is kept",
         [](PassSchedule& s, int64_t) { s.OnInformation(), (void)s.TakeUnsent(); }, "P", "F", "R"},
        {"for one that comes later", nothing, "PC", "", "RT"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.event(schedule, 0);
        const auto is = [](const std::string& letters, char letter) { return letters.find(letter) != letters.npos; };
        const auto begun = schedule.BeginPass(true, true, is(row.like, 'A'), is(row.like, 'P'), is(row.like, 'C'));
        ASSERT_TRUE(begun);
        EXPECT_EQ(std::string(begun->redraw, 'R') + std::string(begun->fresh, 'F') + std::string(begun->textFresh, 'T'),
                  row.asked);
        Pass pass{.settings = settings, .sinks = sinks, .mailbox = nullptr, .flags = *begun};
        pass.redrawn = is(row.does, 'R');
        pass.textTold = is(row.does, 'T');
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
