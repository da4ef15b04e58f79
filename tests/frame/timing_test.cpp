#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <new>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "frame/JitterQueue.h"
#include "frame/PaceClock.h"
#include "support/FailingAllocation.h"

namespace corvane {
namespace {

FramePtr Frame(char letter, int64_t timeMs) {
    MediaFrameHeader record{};
    record.recordSize = 264;
    record.streamType = letter == 'a'   ? CORVANE_STREAM_ALAW
                        : letter == 'm' ? CORVANE_STREAM_METADATA_JSON
                        : letter == 'p' ? CORVANE_STREAM_PLACEHOLDER
                        : letter == 'u' ? 2048
                                        : CORVANE_STREAM_H265;
    record.streamSeconds = static_cast<uint32_t>(timeMs / 1000);
    record.timeMilliseconds = static_cast<uint32_t>(timeMs % 1000);
    record.frameType = letter == 'K' || letter == 'p' ? 0 : 1;
    return std::make_shared<MediaFrameImpl>(record);
}

// One word of a script, and what came of it. Letters of frames (K key video, v video, p key placeholder, a audio, m
// metadata, u unknown) push one of that time.
int64_t Do(JitterQueue& queue, char letter, int64_t number) {
    FramePtr out;
    switch (letter) {
    case '<':
        return queue.Pop(out);
    case 'B':
        return queue.SetBufferTime(static_cast<uint32_t>(number)), 0;
    case '-':
        return queue.SetReverse(true), 0;
    case 'L':
        return static_cast<int64_t>(queue.LevelMs());
    case 'b':
        return queue.IsBuffering();
    case 'C':
        return static_cast<int64_t>(queue.Clear().size());
    case 'R':
        return static_cast<int64_t>(queue.Reset().size());
    case 'S':
        return static_cast<int64_t>(queue.Skip(number).size());
    default:
        return queue.Push(Frame(letter, number));
    }
}

TEST(JitterQueue, Scripts) {
    const struct {
        const char* name;
        const char* script;
    } rows[] = {
        {"steady", "v1700000000000=1 L=1 v1700000000040=1 v1700000000080=1 L=81"},
        {"first frame near zero counts its time", "a500=1 L=500"},
        {"equal times and a second back repeat", "v100000=1 v100040=1 v100040=1 v99040=1 v99080=1 L=161"},
        {"longest step, just too long", "v100000=1 v110999=1 L=11000 a100000=1 a111000=1 <=0 L=10999 <=0 L=2"},
        {"32-bit seconds that wrap", "v4294967295960=1 v0=1 v40=1 L=42"},
        {"reverse", "-1=0 v100000=1 v99960=1 v100000=1 L=81"},
        {"metadata and unknown types take no time", "m100000=1 m100040=1 u100040=1 L=0 C=2"},
        {"no key frame: no limit", "B100=0 v100000=1 v110000=1 v120000=1 K130000=1 v140000=0 p140000=0 R=4"},
        {"video below its limit", "B100=0 K100000=1 v101098=1 v101099=1 v101100=0 a100000=1 m0=1 u0=1"},
        {"audio below its limit", "a200000=1 a210000=1 a212998=1 a212999=1 a213000=0 v0=1 m0=1 u0=1"},
        {"the limit does not wrap", "B4294967295=0 K100000=1 v110000=1 v110001=1 b=1"},
        {"gate", "<=-1 B81=0 K100000=1 v100040=1 b=1 <=-1 v100080=1 b=0 a1=1 v100120=1 <=0 <=1 <=1 <=1 <=1 <=-1"},
        {"run empty, times are forgotten", "v100000=1 <=1 v100040=1 L=1"},
        {"metadata waits for audio and video", "v100000=1 m0=1 m0=1 <=1 <=-1 a100000=1 <=1 <=1 <=1 C=0"},
        {"clear keeps the last times", "B40=0 K100000=1 v100040=1 a100040=1 b=0 C=3 b=1 v100100=1 L=60 S0=0"},
        {"reset does not", "B40=0 K100000=1 v100040=1 b=0 R=2 b=1 v100100=1 L=1"},
        {"skip: less queued than late", "B9000=0 v100000=1 S1=0 K100100=1 S102=0 S101=1 S100=0"},
        {"skip: on to a key frame", "B9000=0 K100000=1 a0=1 v100100=1 K100200=1 v100300=1 p100400=1 S1=3 S300=2"},
        {"skip: all that is queued", "B9000=0 K100000=1 v100100=1 K100200=1 v100300=1 S301=2"},
        {"skip: a key frame in front", "B9000=0 K100000=1 v100100=1 K100200=1 v100300=1 K100400=1 S101=2 S201=2"},
    };
    for (const auto& row : rows) {
        JitterQueue queue;
        std::istringstream words(row.script);
        for (std::string word; words >> word;)
            EXPECT_EQ(Do(queue, word[0], std::atoll(word.c_str() + 1)), std::atoll(word.c_str() + word.find('=') + 1))
                << row.name << ": " << word;
    }
    JitterQueue queue;
    for (int i = 0; i <= 1000; ++i)
        EXPECT_EQ(queue.Push(Frame('m', 0)), i < 1000) << i;
}

TEST(JitterQueue, FailedPushChangesNothing) {
    if (!test::allocation::Works())
        GTEST_SKIP() << "operator new belongs to a sanitizer";
    JitterQueue queue;
    ASSERT_TRUE(queue.Push(Frame('v', 100'000)));
    const FramePtr frame = Frame('K', 100'040);
    test::allocation::FailAt(1);
    EXPECT_THROW(queue.Push(frame), std::bad_alloc);
    test::allocation::Stop();
    EXPECT_EQ(queue.Count() + queue.LevelMs() + queue.KeyFrames(), 2u);
    EXPECT_TRUE(queue.Push(frame));
    EXPECT_EQ(queue.LevelMs(), 41u);    // its time was not taken for the last one
    EXPECT_EQ(Do(queue, '<', 0), 0);
    test::allocation::FailAt(1);    // the place of the frame that left serves the next
    EXPECT_TRUE(queue.Push(frame));
    EXPECT_EQ(test::allocation::Stop(), 0u);
}

// Whatever comes in: order is kept, each frame leaves once, sums agree with what is queued, no step stalls.
TEST(JitterQueue, RandomRuns) {
    for (uint32_t seed = 1; seed <= 40; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&](uint32_t n) { return random() % n; };
        JitterQueue queue;
        std::deque<FramePtr> model;
        int64_t time = 1'000'000'000;
        for (int step = 0; step < 2000; ++step) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
            const uint32_t action = below(100);
            JitterQueue::Entries left(1);
            if (action < 60) {
                const int64_t jumps[] = {40,  40,        40,         0,
                                         -40, 3'600'000, -3'600'000, static_cast<int64_t>(below(20'000))};
                time = std::max<int64_t>(0, time + jumps[below(8)]);
                const FramePtr frame = Frame("Kvvvvvpaaammmu"[below(14)], time);
                if (queue.Push(frame) && frame->Header().streamType != 2048)
                    model.push_back(frame);
                left.clear();
            } else if (action < 94) {
                const bool buffering = queue.IsBuffering();
                const int result = queue.Pop(left.front().frame);
                ASSERT_EQ(result == -1, buffering);
                left.resize(result < 0 ? 0 : 1);
            } else if (action < 97) {
                left = queue.Skip(below(5000));
            } else if (action < 99) {
                queue.SetBufferTime(below(3000));
                left.clear();
            } else {
                left = below(2) == 0 ? queue.Clear() : queue.Reset();
                ASSERT_EQ(left.size(), model.size());
            }
            for (const QueueEntry& entry : left) {
                ASSERT_EQ(entry.frame, model.front());
                model.pop_front();
            }
            uint64_t bytes = 0, keys = 0;
            for (const FramePtr& frame : model) {
                bytes += frame->MemoryBytes();
                keys += frame->IsKeyFrame() ? 1 : 0;
            }
            ASSERT_EQ(queue.Count(), model.size());
            ASSERT_EQ(queue.Bytes(), bytes);
            ASSERT_EQ(queue.KeyFrames(), keys);
            ASSERT_LE(queue.LevelMs(), model.size() * 11'000);
        }
    }
}

// Frames that come in at the given times of the stream and of the clock, and what each is told.
TEST(PaceClock, Rules) {
    struct Step {
        int64_t tMs, nowUs, toldMs;
    };
    const struct {
        const char* name;
        float rate;
        bool reverse;
        std::vector<Step> steps;
    } rows[] = {
        {"at once, then the steps", 1, false, {{20'000, 70'000, 0}, {20'040, 70'000, 40}, {20'140, 110'000, 100}}},
        {"rest below a millisecond", 1, false, {{20'000, 0, 0}, {20'040, 39'001, 0}, {20'080, 80'999, 0}}},
        {"lateness", 1, false, {{20'000, 0, 0}, {20'040, 41'000, -1}, {20'080, 600'000, -520}}},
        {"equal times repeat", 1, false, {{20'000, 0, 0}, {20'040, 0, 40}, {20'040, 40'000, 40}}},
        {"backward step repeats", 1, false, {{20'000, 0, 0}, {20'040, 0, 40}, {19'000, 0, 80}, {19'030, 0, 110}}},
        {"gap repeats", 1, false, {{20'000, 0, 0}, {20'040, 0, 40}, {31'039, 0, 11'039}, {42'039, 0, 22'038}}},
        {"first step is counted from zero", 1, false, {{40, 0, 0}, {40, 0, 40}}},
        {"faster, in single precision", 1.2f, false, {{20'000, 0, 0}, {20'120, 0, 99}, {20'240, 0, 199}}},
        {"reverse", 1, true, {{20'000, 0, 0}, {19'960, 0, 40}, {20'000, 0, 80}}},
        {"no number", NAN, false, {{40, 0, 0}, {80, 0, 0}, {120, 0, 0}}},
    };
    for (const auto& row : rows) {
        PaceClock clock;
        clock.SetReverse(row.reverse);
        for (const auto& [tMs, nowUs, toldMs] : row.steps)
            EXPECT_EQ(clock.Pace(tMs, row.rate, nowUs * 1000), toldMs) << row.name << " " << tMs;
        clock.Unset();
        EXPECT_EQ(clock.Pace(100'000, 1, 77), 0) << row.name;    // starts afresh
        clock.SetReverse(false);
        clock.Pace(100'033, 1.2f, 0);
        EXPECT_EQ(clock.DueNs(), 77 + 27'499'998);    // in single precision; exact would be 27,500,000
    }
}

// Any stamps at all: a worker that sleeps as told shows a picture at least every 11 s and never falls behind by itself.
TEST(PaceClock, RandomStampsAndExtremeRates) {
    for (const float rate : {1.0f, 1e-30f, 0.0f, INFINITY, -1.0f}) {
        std::mt19937_64 random(7);
        PaceClock clock;
        int64_t now = 0;
        for (int i = 0; i < 20'000; ++i) {
            const uint64_t t = i % 5 == 0 ? random() % 5'000'000'000'000 : uint64_t{1'000'000} + i * 40u;
            const int64_t told = clock.Pace(static_cast<int64_t>(t), rate, now);
            ASSERT_GE(told, 0) << rate;
            if (rate == 1) {
                ASSERT_LT(told, 11'000);
                now += told * 1'000'000;
            }
        }
    }
}

}    // namespace
}    // namespace corvane
