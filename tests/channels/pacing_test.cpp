// The times at which the worker of a channel decodes each frame, in simulated time: against a model of queue and
// pacing.

#include <deque>

#include "base/Sanitized.h"
#include "support/BitWriter.h"
#include "support/Calling.h"
#include "support/Client.h"
#include "support/ScriptedRenderer.h"
#include "support/SimulatedChannel.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using test::Arrival;
using test::Eventually;
using Log = std::vector<std::pair<int64_t, int64_t>>;    // number of the frame, ns

constexpr int64_t kNsPerMs = 1'000'000;

// One run of video, written from the rules: frames [begin, end) of `all`; the clock stands at `now`.
struct Model {
    struct Entry {
        int64_t number, durationMs;
        bool key;
    };
    const std::vector<Arrival>& all;
    size_t next, end;
    uint32_t bufferMs;
    int64_t now;
    std::deque<Entry> queue{};
    int64_t sum = 0, keys = 0, peak = 0, lastStamp = 0, lastDuration = 1, refused = 0;

    // Up to and with `deadline`; at most `most` frames.
    bool Arrive(int64_t deadline, size_t most) {
        size_t count = 0;
        for (; count < most && next < end && all[next].atNs <= deadline; ++next, ++count) {
            const Arrival& frame = all[next];
            now = std::max(now, frame.atNs);
            if (sum >= bufferMs + 1000 && keys > 0) {
                ++refused;
                continue;
            }
            const int64_t step = frame.stampMs - lastStamp;
            lastDuration = step < 1 || step >= 11'000 ? lastDuration : step;
            lastStamp = frame.stampMs;
            queue.push_back({static_cast<int64_t>(next), lastDuration, frame.key});
            sum += lastDuration;
            keys += frame.key;
            peak = std::max(peak, sum);
        }
        return count > 0;
    }
    void Wait(int64_t deadline) {
        while (Arrive(deadline, 1)) {
        }
        now = std::max(now, deadline);
    }
    Entry Take() {
        const Entry front = queue.front();
        queue.pop_front();
        sum -= front.durationMs;
        keys -= front.key;
        return front;
    }
    Log Run() {
        Log log;
        int64_t due = -1, paceStamp = 0, paceStep = 0, late = 0, over = 0;
        bool keyCame = false;
        for (;;) {
            if (late < -499) {
                const int64_t target = sum + late;
                if (keys > 0 && target >= 0) {
                    while (keys > 1 && sum > target)
                        Take();
                    while (!queue.front().key)
                        Take();
                }
                late = 0;
                continue;
            }
            if (peak < bufferMs || queue.empty()) {
                due = -1;
                if (next == end)
                    return log;
                Arrive(INT64_MAX, 1);
                continue;
            }
            const Entry entry = Take();
            if (sum == 0) {
                peak = lastStamp = 0;
                lastDuration = 1;
            }
            over = sum <= bufferMs ? 0 : over + 1;
            const Arrival& frame = all[static_cast<size_t>(entry.number)];
            keyCame |= frame.key;
            if (!keyCame)
                continue;
            log.emplace_back(entry.number, now);
            const int64_t ready = now + frame.decodingNs;
            (void)Arrive(ready, all.size());
            now = std::max(now, ready);
            if (frame.hidden)
                continue;
            const int64_t step = frame.stampMs - paceStamp;
            paceStep = step < 1 || step >= 11'000 ? paceStep : step;
            paceStamp = frame.stampMs;
            late = 0;
            if (due < 0) {
                due = now;
                continue;
            }
            due += static_cast<int64_t>(static_cast<float>(paceStep) / (over >= 16 ? 1.2f : 1.0f) * 1'000'000.0f);
            late = (due - now) / kNsPerMs;
            if (late > 0)
                Wait(now + late * kNsPerMs);
        }
    }
};

// Stamps that jump, stand still, fall and wrap, bursts, stalls and slow decoding; cameras whose clock is too slow or
// too fast; a channel that has run for months; and a restart in the middle.
TEST(Pacing, EveryFrameIsDecodedWhenTheRulesSay) {
    int64_t skipped = 0, refused = 0, fast = 0;
    for (uint32_t seed = 0; seed < 60; ++seed) {
        std::mt19937 random(seed);
        const auto oneIn = [&](uint32_t count) { return random() % count == 0; };
        const auto cost = [&] {    // half of them near the bound where late frames are dropped
            return static_cast<int64_t>(oneIn(2) ? 537 + random() % 5 : random() % 2000) * kNsPerMs;
        };
        const uint32_t trouble = seed % 4 == 0 ? 1'000'000 : 12;    // a quarter is as a good camera sends it
        const uint32_t bufferMs = std::array{1u, 40u, 300u, 1000u}[seed / 4 % 4];
        std::vector<Arrival> arrivals;
        const int64_t months = seed % 2 == 0 ? 0 : 10'000'000'000;    // ms
        int64_t stamp = 1000 + months, arrival = months;
        for (int i = 0; i < 400; ++i) {
            const int64_t steps[] = {0, 1, -700, 10'999, 11'000, 40'000, -stamp, 250};
            stamp = std::max<int64_t>(stamp + (oneIn(trouble) ? steps[random() % 8] : 40), 0);
            arrival += oneIn(trouble) ? static_cast<int64_t>(random() % 1500) : oneIn(3) ? 0 : seed % 3 == 1 ? 45 : 58;
            arrivals.push_back({.atNs = arrival * kNsPerMs + static_cast<int64_t>(random() % kNsPerMs),
                                .stampMs = stamp,
                                .key = oneIn(10) || i % 200 == 0,
                                .hidden = oneIn(20),
                                .decodingNs = oneIn(trouble * 2) ? cost() : 0});
            if (i > 0)
                arrivals.back().atNs = std::max(arrivals.back().atNs, arrivals[static_cast<size_t>(i) - 1].atNs);
        }
        test::SimulatedChannel simulation(arrivals);
        Log log;
        simulation.onDecoded = [&](int64_t number, int64_t now) { log.emplace_back(number, now); };
        simulation.channel.SetBufferTime(bufferMs);
        for (const size_t end : {size_t{200}, arrivals.size()}) {
            log.clear();
            const int64_t before = simulation.refused;
            Model model{arrivals, end - 200, end, bufferMs, simulation.Now()};
            simulation.Play(end);
            const Log expected = model.Run();
            ASSERT_EQ(log, expected) << "seed " << seed << ", from " << end - 200;
            ASSERT_EQ(simulation.refused - before, model.refused);
            test::ExpectSums(simulation.Told());
            EXPECT_EQ(simulation.Told().framesRefusedFull, static_cast<uint64_t>(simulation.refused));
            refused += model.refused;
            skipped += 200 - static_cast<int64_t>(log.size());
            fast += bufferMs > 1 ? 1 : 0;
        }
    }
    EXPECT_TRUE(skipped > 0 && refused > 0 && fast > 0) << "all of it happened";
}

constexpr int64_t kHours = kSanitized ? 1 : 24;    // a sanitizer is slow
constexpr int64_t kStepMs = 500;                   // by the camera's clock; a key frame every five seconds
constexpr int64_t kPictures = kHours * 3'600'000 / kStepMs;
constexpr int64_t kJitterMs = 15;

// A camera with a clock of its own. Pictures come in order, each up to 15 ms late. A thousandth too fast the queue
// grows until the worker catches up, where it holds enough that no late picture lets it run out; as much too slow it
// runs out and fills again. No picture is lost, or late for more than what a queue holds that has been over its buffer
// time for 16 pictures. A restart at noon costs what waits and what comes before the next key frame, and changes
// nothing for the others.
TEST(ClockDrift, QueueAndAgeStayBoundedForADay) {
    const struct {
        double rate;
        uint32_t bufferMs;
    } rows[] = {{0.999, 1}, {0.999, 2000}, {1.001, 500}, {1.001, 2000}};
    for (const auto& [rate, bufferMs] : rows) {
        SCOPED_TRACE(testing::Message() << rate << ", buffer " << bufferMs);
        std::vector<Arrival> arrivals;
        for (int64_t number = 0; number < kPictures; ++number) {
            const uint64_t mixed = (static_cast<uint64_t>(number) + 1) * 6364136223846793005u;
            const auto arrival = static_cast<int64_t>(kStepMs / rate * static_cast<double>(number) * kNsPerMs) +
                                 static_cast<int64_t>(mixed >> 33) % (kJitterMs * kNsPerMs);
            arrivals.push_back({.atNs = arrival, .stampMs = number * kStepMs, .key = number % 10 == 0});
        }
        test::SimulatedChannel simulation(arrivals);
        int64_t decoded = 0, oldest = 0, bunched = 0, before = 0;    // bunched: directly after the one before
        simulation.onDecoded = [&](int64_t number, int64_t now) {
            ++decoded;
            oldest = std::max(oldest, now - arrivals[static_cast<size_t>(number)].atNs);
            bunched += now - std::exchange(before, now) < kStepMs * kNsPerMs / 2 ? 1 : 0;
        };
        simulation.channel.SetBufferTime(bufferMs);
        for (const int64_t end : {kPictures / 2, kPictures})
            simulation.Play(static_cast<size_t>(end));
        EXPECT_EQ(simulation.refused, 0);
        EXPECT_GE(decoded, kPictures - 2 * 5 - 10);
        // A buffer of one step holds a picture back until the next is there.
        EXPECT_LT(bunched, decoded / (bufferMs == kStepMs ? 1 : 100));
        EXPECT_LE(oldest / kNsPerMs, int64_t{bufferMs} + kStepMs + kJitterMs + 16 * kStepMs / 1000);
    }
}

// Eight pictures at the eight places of the temporal pattern, of which each mode from 2 to 8 leaves one out more.
TEST(Pacing, DisplayModesThinTemporalLayers) {
    using test::BitWriter;
    using test::operator+;
    std::vector<Arrival> arrivals;
    for (uint32_t i = 0; i < 16; ++i) {
        const bool key = i % 8 == 0;
        BitWriter sps, pps, slice;
        // Order counts of 4 bits, 3 reference frames, gaps allowed, one macroblock.
        sps.U(8, 66).U(16, 0).Ue(0).Ue(0).Ue(0).Ue(0).Ue(3).U(1, 1).Ue(0).Ue(0).U(1, 1).U(3, 0);
        pps.Ue(0).Ue(0).U(2, 0).Ue(0).Ue(0).Ue(0).U(3, 0).Se(0).Se(0).Se(0).U(3, 0);
        slice.Ue(0).Ue(7).Ue(0).U(4, 0);
        slice.U(key ? 1 : 0, 1).U(4, i % 8).U(2, 0);
        arrivals.push_back({.atNs = i * 40 * kNsPerMs, .stampMs = 40 * i, .key = key});
        arrivals.back().payload = key ? sps.Unit({0x67}) + pps.Unit({0x68}) + slice.Unit({0x65}) : slice.Unit({0x61});
    }
    for (uint32_t mode = 0; mode <= 8; ++mode) {
        test::SimulatedChannel simulation(arrivals);
        simulation.channel.SetDisplayMode(mode);
        simulation.Play(arrivals.size());
        const uint64_t decoded = 2 * (mode == 0 ? 8 : mode == 1 ? 1 : 9 - mode);
        EXPECT_EQ(simulation.Told().picturesDecoded, decoded) << mode;
        EXPECT_EQ(simulation.Told().framesThinned, 16 - decoded) << mode;
    }
}

// The worker paces sound alone; beside video it passes sound on at once.
TEST(Pacing, SoundIsPacedOnlyInAudioOnlyMode) {
    for (const uint32_t mode : {2u, 3u}) {
        std::vector<Arrival> arrivals;
        for (int i = 0; i < 50; ++i)
            arrivals.push_back({.stampMs = 20 * i, .type = CORVANE_STREAM_MULAW});    // all at once
        test::SimulatedChannel simulation(arrivals);
        simulation.channel.SetBufferTime(900);    // and never over it
        ASSERT_EQ(simulation.channel.SetOption(13, mode, 0), Status::Ok);
        int64_t lastAt = 0, frames = 0;
        simulation.onWait = [&] {
            if (std::exchange(frames, static_cast<int64_t>(simulation.Told().soundFrames)) != frames)
                lastAt = simulation.Now();
        };
        simulation.Play(arrivals.size());
        EXPECT_EQ(frames, 50);
        EXPECT_EQ(lastAt / kNsPerMs, mode == 2 ? 48 * 20 : 0);    // when the sleep for the last but one ends
    }
}

// When the worker is late, with the queue over its buffer time for 16 frames, a picture that was not taken is replaced.
// If the worker waited for each, the test would not end in time.
TEST(Pacing, ABusyManagerIsNotWaitedForWhenTheQueueIsOver) {
    std::vector<Arrival> arrivals;
    for (int i = 0; i < 300; ++i)    // all at once; without a key frame in it a queue takes any length
        arrivals.push_back({.stampMs = 40 * i, .key = i == 0});
    static std::atomic<bool> held{false};
    static test::RendererScript script;
    script.present = [](const FinishedPicture&, Pass&) {
        while (held)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return Outcome::Put;
    };
    const RendererMaker makers[] = {{"DirectDraw", [](uint32_t) { return true; },
                                     [](const PresentSettings&, Clock& clock) -> RendererPtr {
                                         EXPECT_NE(&clock, &Clock::System());
                                         return std::make_shared<test::ScriptedRenderer>(script);
                                     }}};
    test::SimulatedChannel simulation(arrivals, makers);
    simulation.onDecoded = [](int64_t number, int64_t) { held = held || number == 20; };
    simulation.Play(arrivals.size());
    simulation.channel.Render().Stop(true);    // the last picture is not taken any more
    held = false;
    ChannelStatistics told{};
    EXPECT_TRUE(Eventually([&] {
        told = simulation.Told();
        return told.picturesDecoded == told.picturesLost + told.picturesReplaced + told.picturesTaken;
    }));
    EXPECT_TRUE(told.picturesDecoded == 300 && told.picturesReplaced >= 270) << told.picturesReplaced;
}

// The kind of decoder is reported once a run. A stream that pauses shows its last picture once, however often the
// render thread looks.
TEST(Pacing, KindOnceAndNoPictureTwice) {
    std::vector<Arrival> arrivals;
    for (int i = 0; i < 100; ++i)
        arrivals.push_back({.atNs = i * 40 * kNsPerMs, .stampMs = 40 * i});
    std::atomic<uint64_t> kinds{0}, pictures{0};
    std::function<void(uint32_t, uint64_t, uint64_t)> info = [&](uint32_t code, uint64_t kind, uint64_t) {
        kinds += code == 13 ? 1 : 0;
        EXPECT_TRUE(code != 13 || kind == test::SimulatedChannel::kKind);
    };
    std::function<void(const PseudoFrame*)> shown = [&](const PseudoFrame*) { ++pictures; };
    test::SimulatedChannel simulation(arrivals);
    CRenderMgr& render = simulation.channel.Render();
    render.SetStreamInfo(test::Calling(info));
    render.SetPictureCallback(test::Calling(shown), PF_I420);
    simulation.channel.SetBufferTime(400);
    simulation.Play(50);
    simulation.Play(100);
    EXPECT_EQ(kinds, 2u);
    ChannelStatistics counters{};
    EXPECT_TRUE(Eventually([&] {    // the last one was on its way at the stop
        counters = simulation.Told();
        return counters.picturesDecoded == counters.picturesReplaced + counters.picturesHandedOver;
    }));
    std::this_thread::sleep_for(std::chrono::milliseconds(30));    // ticks of the render thread
    EXPECT_TRUE(pictures == counters.picturesTaken && counters.picturesHandedOver == counters.picturesTaken);
    render.RequestRedraw();    // handed out once more, and the same picture
    EXPECT_TRUE(Eventually([&] { return pictures == counters.picturesTaken + 1; }));
    counters = simulation.Told();
    test::ExpectSums(counters);
    // What the buffer held them back; less at the end of each run, and on a busy machine those of before are replaced.
    EXPECT_TRUE(counters.age95 >= 300 && counters.ageMean >= 100 && counters.age95 >= counters.ageMean)
        << counters.ageMean << " and " << counters.age95;
}

}    // namespace
}    // namespace corvane
