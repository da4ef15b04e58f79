#include <cmath>
#include <map>
#include <sstream>

#include "frame/JitterQueue.h"
#include "frame/PaceClock.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

FramePtr Frame(char letter, int64_t timeMs) {
    const uint32_t type = letter == 'a'   ? CORVANE_STREAM_ALAW
                          : letter == 'm' ? CORVANE_STREAM_METADATA_JSON
                          : letter == 'p' ? CORVANE_STREAM_PLACEHOLDER
                          : letter == 'u' ? 2048
                                          : CORVANE_STREAM_H265;
    return MakeFrame(type, {}, letter != 'v' && letter != 'm', timeMs);    // audio says that it is a key frame as well
}

// One word of a script, and its result. Letters of frames (K key video, v video, p key placeholder, a audio, m
// metadata, u unknown) push one of that time.
int64_t Do(JitterQueue& queue, char letter, int64_t number) {
    const std::map<char, std::function<int64_t()>> calls = {
        {'<', [&, out = FramePtr()]() mutable { return queue.Pop(out); }},
        {'B', [&] { return queue.SetBufferTime(static_cast<uint32_t>(number)), 0; }},
        {'-', [&] { return queue.SetReverse(true), 0; }},
        {'L', [&] { return static_cast<int64_t>(queue.LevelMs()); }},
        {'b', [&] { return queue.IsBuffering(); }},
        {'C', [&] { return static_cast<int64_t>(queue.Clear().size()); }},
        {'R', [&] { return static_cast<int64_t>(queue.Reset().size()); }},
        {'S', [&] { return static_cast<int64_t>(queue.Skip(number).size()); }},
    };
    const auto call = calls.find(letter);
    return call != calls.end() ? call->second() : queue.Push(Frame(letter, number));
}

TEST(JitterQueue, Scripts) {
    const struct {
        const char* name;
        const char* script;
    } rows[] = {
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
        for (FramePtr out; queue.Count() > 0 && queue.Pop(out) >= 0;) {
        }
        EXPECT_TRUE(queue.Count() > 0 || queue.Bytes() + queue.KeyFrames() == 0) << row.name;
    }
    JitterQueue queue;
    for (int i = 0; i <= 1000; ++i)
        EXPECT_EQ(queue.Push(Frame('m', 0)), i < 1000) << i;
    EXPECT_EQ(queue.Clear().size(), 1000u);
    EXPECT_TRUE(queue.Push(Frame('m', 0)));
}

// Frames at the given times of the stream and of the clock, and the result for each.
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

}    // namespace
}    // namespace corvane::test
