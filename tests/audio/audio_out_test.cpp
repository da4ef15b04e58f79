// The sound of one channel over a scripted device: which frames are played, to the byte, and what becomes of the
// others.
#include <gtest/gtest.h>

#include <functional>
#include <numeric>
#include <thread>

#include "audio/AudioOut.h"
#include "support/ScriptedSound.h"
#include "support/SteppedClock.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::Eventually;
using Bytes = std::vector<uint8_t>;
constexpr int64_t kSecond = 1'000'000'000;
constexpr uint32_t kVideo = CORVANE_STREAM_H264;    // no decoder of sound

// 20 ms of G.711 that depend on `timeMs`, in one channel of 8000 Hz unless `format` says otherwise.
FramePtr Frame(int64_t timeMs, SoundFormat format = {8000, 1}, uint32_t type = CORVANE_STREAM_MULAW) {
    Bytes payload(size_t{format.rate} / 50 * format.channels);
    std::iota(payload.begin(), payload.end(), static_cast<uint8_t>(timeMs / 20 * 31));
    MediaFrameHeader header = test::VideoHeader(type, payload, true, timeMs);
    header.audioSampleRate = format.rate;
    header.audioChannels = static_cast<uint8_t>(format.channels);
    header.audioBlockCount = 1;
    return std::make_shared<MediaFrameImpl>(header);
}

// The samples of frames as their decoder gives them, at `mix` of 128.
Bytes Decoded(const std::vector<FramePtr>& frames, int mix = 128) {
    AudioDecoderHolder decoder;
    Bytes all;
    for (const FramePtr& frame : frames) {
        std::vector<int16_t> samples(100'000);
        auto size = static_cast<uint32_t>(2 * samples.size());
        EXPECT_EQ(decoder.Decode(reinterpret_cast<uint8_t*>(samples.data()), &size, *frame), 0);
        for (uint32_t i = 0; i < size / 2; ++i) {
            const auto scaled = static_cast<uint16_t>(samples[i] * mix / 128);
            all.insert(all.end(), {static_cast<uint8_t>(scaled & 0xFF), static_cast<uint8_t>(scaled >> 8)});
        }
    }
    return all;
}

struct World {
    test::ScriptedSound sound;
    test::SteppedClock clock;
    ChannelCounters counters{clock};
    std::function<void()> onHook = [] {};
    std::atomic<uint32_t> hooks{0};
    std::unique_ptr<AudioOut> out = Make();

    ~World() {
        out.reset();
        EXPECT_TRUE(DeviceKeeper::Process().WaitIdle(60 * kSecond));
    }
    std::unique_ptr<AudioOut> Make() {
        return std::make_unique<AudioOut>(
            counters, clock,
            [this](const MediaFrameImpl&, const uint8_t*, uint32_t bytes, const std::function<bool()>& goesOn) {
                EXPECT_TRUE(goesOn());
                EXPECT_GT(bytes, 0u);
                ++hooks;
                onHook();
            },
            sound);
    }
    // Frames of the same time, so that none is too old.
    void Enqueue(int count, bool dropWhenFull = true, const FramePtr& frame = Frame(0)) {
        for (int i = 0; i < count; ++i)
            out->Enqueue(frame, dropWhenFull);
    }
    // The first frame opens the device, and `priming` bytes of silence are played.
    void Open(size_t priming = 2048, SoundFormat format = {8000, 1}) {
        out->Enqueue(Frame(0, format), true);
        ASSERT_TRUE(Eventually([&] { return sound.Format() == format; }));
        EXPECT_EQ(sound.Take(priming), Bytes(priming, 0));
        EXPECT_EQ(sound.Take(Decoded({Frame(0, format)}).size()), Decoded({Frame(0, format)}));
    }
    ChannelStatistics Told() const {
        ChannelStatistics told{};
        counters.Fill(told);
        return told;
    }
};

TEST(AudioOut, RingsAreExchangedWholeAndAFullBatchIsLost) {
    const struct {
        int first, second;    // frames before two exchanges
        bool drop;
        uint64_t heard, lost;
    } rows[] = {{42, 42, true, 84, 0},   {43, 1, true, 1, 43},    {44, 42, true, 42, 44},
                {42, 43, true, 42, 43},  {44, 1, false, 45, 0},   {86, 1, false, 1, 86},
                {85, 86, false, 85, 86}, {44, 85, false, 129, 0}, {87, 171, false, 258, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.first << " " << row.second << " " << row.drop);
        World world;
        world.Open();
        for (const int count : {row.first, row.second}) {
            world.Enqueue(count, row.drop);
            (void)world.sound.Take(320 * static_cast<size_t>(count) + 1024);
        }
        EXPECT_EQ(world.Told().soundHeard, row.heard + 1);
        EXPECT_EQ(world.Told().soundLostRing, row.lost);
        EXPECT_EQ(world.hooks, row.heard + 1);
    }
    World world;    // where nobody takes samples, rings end somewhere
    world.Open();
    world.Enqueue(10'000, false);
    EXPECT_EQ(world.Told().soundLostRing, 10'000u - (43 << 6));
}

TEST(AudioOut, PlaysSilenceThenTheDecodersSamplesAtTheVolume) {
    const struct {
        SoundFormat format;
        size_t priming;
    } formats[] = {{{8000, 1}, 2048},    {{16000, 1}, 4096}, {{44100, 2}, 16'384},
                   {{48000, 2}, 32'768}, {{1000, 1}, 256},   {{192'000, 8}, 524'288}};
    for (const auto& row : formats) {
        World world;
        world.Open(row.priming, row.format);
        EXPECT_EQ(world.sound.Take(1023), Bytes(1023, 0));    // no frame: silence in blocks of 1024 bytes
        world.out->Enqueue(Frame(20, row.format), true);
        EXPECT_EQ(world.sound.Take(1), Bytes(1, 0));
        const Bytes want = Decoded({Frame(20, row.format)});
        EXPECT_EQ(world.sound.Take(want.size()), want);
    }
    const std::pair<uint32_t, int> volumes[] = {{5000, 128}, {4999, 127}, {40, 1},          {39, 0},
                                                {0, 0},      {7000, 128}, {0xFFFFFFFFu, 0}, {2500, 64}};
    World world;
    world.Open();
    for (const auto& [volume, mix] : volumes) {
        world.out->SetVolume(static_cast<int32_t>(volume));
        world.out->Enqueue(Frame(20), true);
        const Bytes want = Decoded({Frame(20)}, mix);
        EXPECT_EQ(world.sound.Take(want.size()), want) << volume;
    }
    world.out->SetVolume(4000);    // in pieces of any length, and in one that is larger than all that is there
    std::vector<FramePtr> frames;
    for (int i = 0; i < 30; ++i) {
        frames.push_back(Frame(20 * i));
        world.out->Enqueue(frames.back(), true);
    }
    const Bytes want = Decoded(frames, 102);
    Bytes got;
    for (size_t count = 1; got.size() + count < want.size(); count = count * 3 % 1021) {
        const Bytes piece = world.sound.Take(count);
        got.insert(got.end(), piece.begin(), piece.end());
    }
    const Bytes rest = world.sound.Take(65'536);
    got.insert(got.end(), rest.begin(), rest.end());
    got.resize(want.size());
    EXPECT_EQ(got, want);
}

TEST(AudioOut, WhatCannotBePlayedCostsItselfAlone) {
    World world;
    world.Open();
    world.out->Enqueue(Frame(0, {8000, 1}, kVideo), true);
    world.out->Enqueue(Frame(20), true);
    EXPECT_EQ(world.sound.Take(1024), Bytes(1024, 0));
    EXPECT_EQ(world.sound.Take(320), Decoded({Frame(20)}));
    EXPECT_TRUE(world.hooks == 2 && world.Told().soundLostDecoder == 1 && world.Told().soundHeard == 2);
    MediaFrameHeader header = Frame(0)->Header();
    uint64_t refused = 0;
    for (const auto& [rate, channels] : std::initializer_list<std::pair<uint32_t, uint8_t>>{
             {0, 1}, {1, 1}, {999, 1}, {192'001, 1}, {0xFFFFFFFFu, 1}, {8000, 0}, {8000, 9}, {8000, 255}}) {
        header.audioSampleRate = rate;
        header.audioChannels = channels;
        world.out->Enqueue(std::make_shared<MediaFrameImpl>(header), true);
        EXPECT_EQ(world.Told().soundNotPlayed, ++refused) << rate << " " << int{channels};
    }
    world.out->Enqueue(Frame(40), true);    // the device is as it was
    EXPECT_EQ(world.sound.Take(320), Decoded({Frame(40)}));
    EXPECT_EQ(world.sound.openings, 1);
}

// What waits when the device goes is lost; the next frame opens another, which begins with its silence.
TEST(AudioOut, AnotherFormatFlushAndEnableCloseAndTheNextFrameOpens) {
    World world;
    world.Open();
    world.out->SetFocus(1, 3);
    const std::function<void()> acts[] = {[&] {
                                              world.Open(4096, {16000, 1});
                                          },
                                          [&] {
                                              world.Open(4096, {8000, 2});
                                          },
                                          [&] { world.out->Flush(); },
                                          [&] {
                                              world.out->Enable(false);
                                              world.Enqueue(5);
                                              world.out->Enable(true);
                                          }};
    uint64_t lost = 0;
    int openings = 1;
    for (const auto& act : acts) {
        world.Enqueue(7);    // in 8000, 1
        act();
        EXPECT_TRUE(
            Eventually([&] { return world.sound.Format() == SoundFormat{} || world.sound.openings > openings; }));
        world.Open();
        lost += 7 + (&act == &acts[3] ? 5 : 0);
        EXPECT_EQ(world.Told().soundNotPlayed, lost);
        openings = world.sound.openings;
    }
    EXPECT_EQ(openings, 7);
    EXPECT_EQ(world.sound.mostAtOnce, 1);
}

TEST(AudioOut, AnOpeningThatFailedIsTriedAgainAfterAPauseThatDoublesOrAfterAnEvent) {
    World other;
    other.Open();
    World world;
    world.sound.fails = true;
    uint64_t frames = 0;
    const auto enqueue = [&](const SoundFormat& format) {
        world.out->Enqueue(Frame(0, format), true);
        return world.Told().soundNotPlayed == ++frames;    // none waits for an answer
    };
    const auto tries = [&] {
        const int before = world.sound.openings;
        EXPECT_TRUE(Eventually([&] { return enqueue({8000, 1}) && enqueue({8000, 1}); }));
        return world.sound.openings - before;
    };
    EXPECT_EQ(tries(), 1);
    for (const int64_t pause : {1, 2, 4, 8, 16, 32, 32}) {
        world.clock.now += pause * kSecond - 1;
        EXPECT_EQ(tries(), 0) << pause;
        world.clock.now += 1;
        EXPECT_EQ(tries(), 1) << pause;
    }
    const std::function<void()> events[] = {
        [&] { world.out->Flush(); }, [&] { world.out->Enable(true); },
        [&] {
            EXPECT_TRUE(Eventually([&] { return enqueue({16000, 1}); }));
        },
        [&] {
            other.out->Flush();
            EXPECT_TRUE(Eventually([&] { return DeviceKeeper::Process().Closed() > 0 && other.sound.openNow == 0; }));
            EXPECT_TRUE(DeviceKeeper::Process().WaitIdle(60 * kSecond));
        }};
    for (const auto& event : events) {
        event();
        EXPECT_EQ(tries(), 1) << &event - events;
        EXPECT_EQ(tries(), 0);
        world.clock.now += kSecond;    // the pause is the first again
        EXPECT_EQ(tries(), 1);
        world.clock.now += kSecond;
        EXPECT_EQ(tries(), 0);
    }
    world.sound.fails = false;
    world.clock.now += 32 * kSecond;
    world.Open();
}

// A sound server that does not answer: nobody waits for it, and what is left outlives the channel.
TEST(AudioOut, NobodyWaitsForOpeningAndClosing) {
    for (const bool ends : {false, true}) {
        test::Gate answers;
        World world;
        world.sound.holdsOpening = &answers;
        world.out->Enqueue(Frame(0), true);
        ASSERT_TRUE(Eventually([&] { return world.sound.opensNow == 1; }));
        for (int i = 0; i < 10; ++i)    // one opening waits at most, the newest
            world.out->Enqueue(Frame(0, {9000 + 10 * static_cast<uint32_t>(i), 1}), true);
        std::vector<FramePtr> frames;
        for (int i = 0; i < 100; ++i) {    // only the last 150 ms are kept
            frames.push_back(Frame(20 * i));
            world.out->Enqueue(frames.back(), true);
        }
        EXPECT_EQ(world.Told().soundNotPlayed, 103u);
        world.out->SetVolume(100);
        world.out->SetVolume(5000);
        if (ends)
            world.out = world.Make();
        answers.Open();
        if (ends) {
            EXPECT_TRUE(DeviceKeeper::Process().WaitIdle(60 * kSecond));
            EXPECT_TRUE(world.sound.openings == 1 && world.Told().soundNotPlayed == 111 && world.hooks == 0);
            continue;
        }
        ASSERT_TRUE(Eventually([&] {
            return world.sound.Format() == SoundFormat{8000, 1} && world.sound.openings == 2;
        }));
        EXPECT_EQ(world.sound.Take(2048), Bytes(2048, 0));
        EXPECT_EQ(world.sound.Take(8 * 320), Decoded({frames.end() - 8, frames.end()}));

        test::Gate closes;
        world.sound.holdsClosing = &closes;
        world.Enqueue(3);
        world.out->Flush();
        EXPECT_EQ(world.sound.Take(100'000), Bytes(100'000, 0));    // silent, and nothing is decoded
        world.out->Enqueue(Frame(0), true);
        EXPECT_EQ(world.sound.openings, 2);
        world.out = world.Make();
        EXPECT_EQ(world.hooks, 8u);
        closes.Open();
    }
}

TEST(AudioOut, AFlushWaitsForTheHookAndNotInsideIt) {
    World world;
    world.Open();
    test::Gate entered;
    test::Gate leaves;
    std::atomic<bool> left{false};
    world.onHook = [&] {
        entered.Open();
        (void)leaves.Wait();
        left = true;
    };
    world.Enqueue(1);
    std::thread device([&] { (void)world.sound.Take(320); });
    ASSERT_TRUE(entered.Wait());
    world.out->Enable(false);    // the voice goes at once; its hook still runs
    std::thread opens([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        leaves.Open();
    });
    world.out->Flush();
    EXPECT_TRUE(left);
    device.join();
    opens.join();
    world.out->Enable(true);
    world.onHook = [&] {
        world.out->Enable(false);
        world.out->Flush();
        world.out->Enable(true);
        throw std::runtime_error("from the client");
    };
    for (const uint32_t called : {2u, 3u}) {
        EXPECT_EQ(world.hooks, called);
        EXPECT_TRUE(Eventually([&] { return world.sound.openNow == 0; }));
        world.Enqueue(1);
        ASSERT_TRUE(Eventually([&] { return world.sound.openNow == 1; }));
        (void)world.sound.Take(2048 + 320);
    }
}

// Whatever the threads do at the same time, every frame ends once.
TEST(AudioOut, EveryFrameIsCountedOnceWhileAllIsTornDown) {
    uint64_t frames = 0;
    World world;
    world.sound.clocked = true;
    for (int life = 0; life < 40; ++life) {
        std::atomic<bool> ends{false};
        std::thread client([&] {
            for (uint32_t i = 0; !ends; ++i) {
                world.out->SetVolume(static_cast<int32_t>(i % 6000));
                world.out->Enable(i % 16 != 0);
                if (i % 128 == 0)
                    world.out->Flush();
                std::this_thread::yield();
            }
        });
        for (int i = 0; i < 200; ++i, ++frames)
            world.out->Enqueue(Frame(20 * i, {i % 50 == 0 ? 16000u : 8000u, 1}), i % 2 == 0);
        ends = true;
        client.join();
        world.out = world.Make();
    }
    const ChannelStatistics told = world.Told();
    EXPECT_EQ(told.soundHeard + told.soundLostRing + told.soundLostDecoder + told.soundNotPlayed, frames);
    EXPECT_EQ(told.soundHeard, world.hooks);
    EXPECT_EQ(world.sound.mostAtOnce <= 2, true);
}

}    // namespace
}    // namespace corvane
