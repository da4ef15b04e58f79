#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "frame/JitterQueue.h"
#include "frame/StreamType.h"
#include "support/FailingAllocation.h"

namespace corvane {
namespace {

constexpr uint32_t kAudio = CORVANE_STREAM_ALAW;
constexpr uint32_t kVideo = CORVANE_STREAM_H265;
constexpr uint32_t kMetadata = CORVANE_STREAM_METADATA_JSON;

FramePtr Frame(uint32_t type, int64_t time_ms, bool key = false) {
    MediaFrameHeader record{};
    record.recordSize = 264;
    record.streamType = type;
    record.streamSeconds = static_cast<uint32_t>(time_ms / 1000);
    record.timeMilliseconds = static_cast<uint32_t>(time_ms % 1000);
    record.frameType = key ? 0 : 1;
    return std::make_shared<MediaFrameImpl>(record);
}

int Pop(JitterQueue& queue) {
    FramePtr frame;
    return queue.Pop(frame);
}

// Levels after pushes of one class at the given times: the sum of the durations that the queue gave them.
TEST(JitterQueue, Durations) {
    const struct {
        const char* name;
        uint32_t type;
        bool reverse;
        std::vector<int64_t> times;
        uint64_t level;
    } rows[] = {
        {"first frame", kVideo, false, {1'700'000'000'000}, 1},
        {"steady", kVideo, false, {1'000'000, 1'000'040, 1'000'080}, 81},
        {"first frame near zero counts its time", kAudio, false, {500}, 500},
        {"equal times repeat the last step", kVideo, false, {100'000, 100'040, 100'040, 100'040}, 121},
        {"a second back repeats", kAudio, false, {100'000, 100'040, 99'040, 99'080}, 121},
        {"an hour on repeats", kVideo, false, {100'000, 100'040, 3'700'040, 3'700'100}, 141},
        {"an hour back repeats", kVideo, false, {9'000'000, 9'000'040, 5'400'040, 5'400'080}, 121},
        {"longest step", kVideo, false, {100'000, 110'999}, 11'000},
        {"just too long", kVideo, false, {100'000, 111'000}, 2},
        {"single frame stamped far off", kVideo, false, {100'000, 100'040, 90'000'000, 100'080, 100'120}, 161},
        {"milliseconds that wrap each second", kVideo, false, {900, 940, 980, 20, 60}, 1060},
        {"32-bit seconds that wrap", kVideo, false, {4'294'967'295'960, 0, 40}, 42},
        {"falling times in reverse", kVideo, true, {100'000, 99'960, 99'920}, 81},
        {"rising times in reverse repeat", kVideo, true, {100'000, 99'960, 100'000}, 81},
        {"placeholders are video", CORVANE_STREAM_PLACEHOLDER, false, {100'000, 100'040}, 41},
        {"metadata takes no time", kMetadata, false, {100'000, 100'040}, 0},
        {"unknown types are ignored", 0xFF00, false, {100'000, 100'040}, 0},
    };
    for (const auto& row : rows) {
        JitterQueue queue;
        queue.SetReverse(row.reverse);
        for (const int64_t time : row.times)
            EXPECT_TRUE(queue.Push(Frame(row.type, time))) << row.name;
        EXPECT_EQ(queue.LevelMs(), row.level) << row.name;
        EXPECT_EQ(queue.Count(), row.type == 0xFF00 ? 0 : row.times.size()) << row.name;
    }
}

TEST(JitterQueue, Refusals) {
    JitterQueue queue;
    queue.SetBufferTime(100);    // limit 1100
    int64_t time = 1'000'000;
    for (int i = 0; i < 200; ++i)    // no key frame: no limit
        EXPECT_TRUE(queue.Push(Frame(kVideo, time += 100)));
    EXPECT_TRUE(queue.Push(Frame(kVideo, time += 100, true)));
    EXPECT_FALSE(queue.Push(Frame(kVideo, time += 100)));
    EXPECT_FALSE(queue.Push(Frame(CORVANE_STREAM_PLACEHOLDER, time, true)));

    EXPECT_EQ(queue.Reset().size(), 201u);
    time = 1'000'000;
    EXPECT_TRUE(queue.Push(Frame(kVideo, time, true)));    // 1 ms
    EXPECT_TRUE(queue.Push(Frame(kVideo, time += 1098)));
    EXPECT_TRUE(queue.Push(Frame(kVideo, time += 1)));     // taken at 1099
    EXPECT_FALSE(queue.Push(Frame(kVideo, time += 1)));    // refused at 1100
    EXPECT_TRUE(queue.Push(Frame(kAudio, 2'000'000)));     // the classes do not count together
    EXPECT_TRUE(queue.Push(Frame(kAudio, 2'010'000)));
    EXPECT_TRUE(queue.Push(Frame(kAudio, 2'012'998)));
    EXPECT_TRUE(queue.Push(Frame(kAudio, 2'012'999)));    // taken at 12,999
    EXPECT_FALSE(queue.Push(Frame(kAudio, 2'013'000)));
    for (int i = 0; i < 1000; ++i)
        EXPECT_TRUE(queue.Push(Frame(kMetadata, time)));
    EXPECT_FALSE(queue.Push(Frame(kMetadata, time)));
    EXPECT_TRUE(queue.Push(Frame(2048, time)));    // ignored is not refused

    queue.SetBufferTime(UINT32_MAX);    // the limit does not wrap
    EXPECT_TRUE(queue.Push(Frame(kVideo, time += 1)));
    EXPECT_TRUE(queue.IsBuffering());
}

TEST(JitterQueue, GateAndPops) {
    JitterQueue queue;
    EXPECT_EQ(Pop(queue), -1);
    queue.SetBufferTime(500);
    int64_t time = 1'000'000;
    for (int i = 1; i <= 14; ++i) {
        EXPECT_TRUE(queue.IsBuffering()) << i;    // until 1 + 13 x 40 = 521 ms are queued
        EXPECT_EQ(Pop(queue), -1);
        ASSERT_TRUE(queue.Push(Frame(kVideo, time += 40, i == 1)));
    }
    EXPECT_FALSE(queue.IsBuffering());
    EXPECT_EQ(Pop(queue), 0);    // 520 ms left
    EXPECT_EQ(queue.KeyFrames(), 0u);
    for (int i = 0; i < 13; ++i)
        EXPECT_EQ(Pop(queue), 1) << i;    // frames leave to the last
    EXPECT_TRUE(queue.IsBuffering());
    EXPECT_EQ(Pop(queue), -1);

    // Run empty, all times are forgotten: this frame would otherwise count 40 ms.
    ASSERT_TRUE(queue.Push(Frame(kVideo, time += 40)));
    EXPECT_EQ(queue.LevelMs(), 1u);

    // Metadata leaves in its turn, and waits when audio and video have run out.
    queue.SetBufferTime(0);    // as 1
    ASSERT_TRUE(queue.Push(Frame(kMetadata, time)));
    EXPECT_EQ(Pop(queue), 1);
    EXPECT_EQ(Pop(queue), -1);
    ASSERT_TRUE(queue.Push(Frame(kAudio, time)));
    FramePtr frame;
    EXPECT_EQ(queue.Pop(frame), 1);
    EXPECT_EQ(frame->Header().streamType, kMetadata);
    EXPECT_EQ(queue.Pop(frame), 1);
    EXPECT_EQ(frame->Header().streamType, kAudio);
    EXPECT_EQ(queue.Bytes(), 0u);
}

TEST(JitterQueue, ClearKeepsTheLastTimesAndResetDoesNot) {
    for (const bool reset : {false, true}) {
        JitterQueue queue;
        queue.SetBufferTime(40);
        for (const uint32_t type : {kVideo, kAudio}) {
            ASSERT_TRUE(queue.Push(Frame(type, 100'000, true)));
            ASSERT_TRUE(queue.Push(Frame(type, 100'040, true)));
        }
        EXPECT_FALSE(queue.IsBuffering());
        EXPECT_EQ((reset ? queue.Reset() : queue.Clear()).size(), 4u);
        EXPECT_TRUE(queue.IsBuffering());
        EXPECT_EQ(queue.KeyFrames(), 0u);
        EXPECT_EQ(queue.Bytes(), 0u);
        ASSERT_TRUE(queue.Push(Frame(kVideo, 100'100)));
        EXPECT_EQ(queue.LevelMs(), reset ? 1u : 60u);
    }
}

// Each letter is one queued frame, 100 ms apart in its class: K key frame, v video, p key placeholder, a audio, m
// metadata.
TEST(JitterQueue, Skips) {
    const struct {
        const char* queued;
        int64_t late_ms;
        const char* left;
    } rows[] = {
        {"vvvvvvvvvv", 300, "vvvvvvvvvv"},    // no key frame
        {"Kvvvv", 700, "Kvvvv"},              // less queued than late
        {"Kvvvv", 401, "Kvvvv"},              // 401 queued; the only key frame stays
        {"vvKvv", 200, "Kvv"},                // one key frame: on to it
        {"KvvvKvvvKvvv", 500, "Kvvv"},        // 5 frames and on to the next
        {"KvvvKvvvKvvv", 301, "KvvvKvvv"},    // 1 + 3 x 100 dropped, and a key frame stands in front
        {"KvvvKvvvKvvv", 302, "Kvvv"},        // the last key frame stays
        {"KvvvKvvvKvvv", 1, "KvvvKvvv"},      // the first 1 ms, and on to the next key frame
        {"KavmvaKavv", 300, "Kavv"},          // other classes go with it
        {"aaaaaaaaKv", 500, "Kv"},            // one key frame: audio in front of it too
        {"vvvvppvv", 500, "pvv"},             // placeholders are skipped to
        {"KvvKvv", 501, "Kvv"},               // all that is queued
        {"KvvvK", 10'000, "KvvvK"},
    };
    for (const auto& row : rows) {
        JitterQueue queue;
        int64_t video_ms = 1'000'000, audio_ms = 1'000'000;
        std::vector<FramePtr> frames;
        std::string letters = row.queued;
        for (const char letter : letters) {
            const uint32_t type = letter == 'a'   ? kAudio
                                  : letter == 'm' ? kMetadata
                                  : letter == 'p' ? uint32_t{CORVANE_STREAM_PLACEHOLDER}
                                                  : kVideo;
            const int64_t time = letter == 'a' ? audio_ms += 100 : letter == 'm' ? 0 : video_ms += 100;
            frames.push_back(Frame(type, time, letter == 'K' || letter == 'p'));
            queue.SetBufferTime(100'000);
            ASSERT_TRUE(queue.Push(frames.back()));
        }
        const auto dropped = queue.Skip(row.late_ms);
        std::string left;
        EXPECT_EQ(dropped.size() + queue.Count(), letters.size());
        size_t at = 0;
        for (const QueueEntry& entry : dropped)
            EXPECT_EQ(entry.frame, frames[at++]);
        for (; at < frames.size(); ++at)
            left.push_back(letters[at]);
        EXPECT_EQ(left, row.left) << row.queued << " " << row.late_ms;
    }
}

TEST(JitterQueue, FailedPushChangesNothing) {
    if (!test::allocation::Works())
        GTEST_SKIP() << "operator new belongs to a sanitizer";
    JitterQueue queue;
    ASSERT_TRUE(queue.Push(Frame(kVideo, 100'000)));
    const FramePtr frame = Frame(kVideo, 100'040, true);
    const uint64_t bytes = queue.Bytes();
    test::allocation::FailAt(1);
    EXPECT_THROW(queue.Push(frame), std::bad_alloc);
    test::allocation::Stop();
    EXPECT_EQ(queue.Count(), 1u);
    EXPECT_EQ(queue.LevelMs(), 1u);
    EXPECT_EQ(queue.KeyFrames(), 0u);
    EXPECT_EQ(queue.Bytes(), bytes);
    EXPECT_TRUE(queue.Push(frame));
    EXPECT_EQ(queue.LevelMs(), 41u);    // its time was not taken for the last one
    EXPECT_EQ(Pop(queue), 0);
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
            if (action < 60) {
                const int64_t jumps[] = {40,  40,        40,         0,
                                         -40, 3'600'000, -3'600'000, static_cast<int64_t>(below(20'000))};
                time = std::max<int64_t>(0, time + jumps[below(8)]);
                const uint32_t types[] = {kVideo, kVideo, kAudio, kMetadata, CORVANE_STREAM_PLACEHOLDER};
                const FramePtr frame = Frame(types[below(5)], time, below(12) == 0);
                if (queue.Push(frame))
                    model.push_back(frame);
            } else if (action < 94) {
                FramePtr frame;
                const bool buffering = queue.IsBuffering();
                const int result = queue.Pop(frame);
                ASSERT_EQ(result == -1, buffering);
                if (result >= 0) {
                    ASSERT_EQ(frame, model.front());
                    model.pop_front();
                }
            } else if (action < 97) {
                const auto dropped = queue.Skip(below(5000));
                for (const QueueEntry& entry : dropped) {
                    ASSERT_EQ(entry.frame, model.front());
                    model.pop_front();
                }
                ASSERT_TRUE(dropped.empty() || model.front()->IsKeyFrame());
            } else if (action < 99) {
                queue.SetBufferTime(below(3000));
            } else {
                ASSERT_EQ((below(2) == 0 ? queue.Clear() : queue.Reset()).size(), model.size());
                model.clear();
            }
            ASSERT_EQ(queue.Count(), model.size());
            uint64_t bytes = 0;
            uint32_t keys = 0;
            bool timed = false;
            for (const FramePtr& frame : model) {
                const StreamClass kind = ClassOf(frame->Header().streamType);
                bytes += frame->MemoryBytes();
                keys += (kind == StreamClass::Video || kind == StreamClass::Placeholder) && frame->IsKeyFrame();
                timed |= kind != StreamClass::Metadata;
            }
            ASSERT_EQ(queue.Bytes(), bytes);
            ASSERT_EQ(queue.KeyFrames(), keys);
            ASSERT_EQ(queue.LevelMs() > 0, timed);
            ASSERT_LT(queue.LevelMs(), model.size() * 11'000 + 1);
        }
    }
}

}    // namespace
}    // namespace corvane
