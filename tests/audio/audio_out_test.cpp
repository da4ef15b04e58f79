// The sound of one channel over a scripted device: which frames are played, to the byte, and what becomes of the
// others.
#include "audio/AudioOut.h"
#include "support/ScriptedSound.h"
#include "support/SoundMaker.h"
#include "support/SteppedClock.h"

namespace corvane {
namespace {

using test::Bytes, test::Eventually, test::operator+;
constexpr int64_t kSecond = 1'000'000'000;
constexpr SoundFormat kPlain{8000, 1};

// 20 ms of sound, or less, that depend on `timeMs`.
FramePtr Frame(int64_t timeMs, SoundFormat format = kPlain, uint32_t type = CORVANE_STREAM_MULAW) {
    Bytes payload(std::min<size_t>(format.rate / 50 * format.channels, 30'720));
    std::iota(payload.begin(), payload.end(), static_cast<uint8_t>(timeMs / 20 * 31));
    return std::make_shared<MediaFrameImpl>(
        test::SoundHeader(type, payload, static_cast<int>(format.rate), static_cast<int>(format.channels), 1, timeMs));
}

Bytes Decoded(const std::vector<FramePtr>& frames, int mix = 128) {
    AudioDecoderHolder decoder;
    Bytes all;
    for (const FramePtr& frame : frames)
        all = all + test::Played(decoder, *frame, mix);
    return all;
}

struct World {
    test::ScriptedSound sound;
    test::SteppedClock clock;
    ChannelCounters counters{clock};
    std::function<void(const std::function<bool()>&)> onHook = [](const auto&) {};
    std::atomic<uint32_t> hooks{0};
    std::unique_ptr<AudioOut> out = Make();

    ~World() {
        out.reset();
        EXPECT_TRUE(DeviceKeeper::Process().WaitIdle(60 * kSecond));
    }
    std::unique_ptr<AudioOut> Make() {
        const auto hook = [this](const MediaFrameImpl&, const uint8_t*, uint32_t bytes, const auto& goesOn) {
            EXPECT_GT(bytes, 0u);
            ++hooks;
            onHook(goesOn);
        };
        return std::make_unique<AudioOut>(counters, clock, hook, sound);
    }
    // Frames of the same time, so that none is too old.
    void Enqueue(int count, bool dropWhenFull = true, const FramePtr& frame = Frame(0)) {
        for (int i = 0; i < count; ++i)
            out->Enqueue(frame, dropWhenFull);
    }
    // The frame opens a device, which plays silence first.
    void Open(size_t priming = 2048, SoundFormat format = kPlain) {
        const int before = sound.openings;
        Enqueue(1, true, Frame(0, format));
        ASSERT_TRUE(Eventually([&] { return sound.openings > before && sound.Format() == format; }));
        EXPECT_EQ(sound.Take(priming), Bytes(priming, 0));
        Hear(Frame(0, format));
    }
    void Hear(const FramePtr& frame) {
        const Bytes wanted = Decoded({frame});
        EXPECT_EQ(sound.Take(wanted.size()), wanted);
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
    } rows[] = {{42, 42, true, 84, 0}, {43, 1, true, 1, 43},    {44, 42, true, 42, 44},  {42, 43, true, 42, 43},
                {44, 1, false, 45, 0}, {85, 86, false, 85, 86}, {44, 85, false, 129, 0}, {87, 171, false, 258, 0}};
    for (const auto& row : rows) {
        World world;
        world.Open();
        for (const int count : {row.first, row.second}) {
            world.Enqueue(count, row.drop);
            (void)world.sound.Take(320 * static_cast<size_t>(count) + 1024);
        }
        EXPECT_TRUE(world.Told().soundHeard == row.heard + 1 && world.hooks == row.heard + 1) << row.first;
        EXPECT_EQ(world.Told().soundLostRing, row.lost) << row.first;
    }
    World world;    // where nobody takes samples, rings end somewhere
    world.Open();
    world.Enqueue(10'000, false);
    EXPECT_EQ(world.Told().soundLostRing, 10'000u - (43 << 6));
}

// Another format, a flush, and off and on: what waits is lost, and the next frame opens a device anew. What cannot be
// played costs itself alone.
TEST(AudioOut, EachOpeningPlaysSilenceThenTheDecodersSamples) {
    World world;
    const std::function<void()> flush = [&] { world.out->Flush(); }, none = [] {}, offAndOn = [&] {
        world.out->Enable(false);
        world.Enqueue(5);
        world.out->Enable(true);
    };
    const struct {
        SoundFormat format;
        size_t priming;
        uint64_t lost;
        const std::function<void()>& act;
    } rows[] = {{kPlain, 2048, 0, none},        {{16000, 1}, 4096, 7, none},       {{44100, 2}, 16'384, 14, none},
                {{48000, 2}, 32'768, 21, none}, {{192'000, 8}, 524'288, 28, none}, {{1000, 1}, 256, 35, none},
                {{1000, 1}, 256, 42, flush},    {{1000, 2}, 512, 49, none},        {{1000, 2}, 512, 61, offAndOn}};
    for (const auto& row : rows) {
        row.act();
        world.Open(row.priming, row.format);
        EXPECT_EQ(world.Told().soundNotPlayed, row.lost);
        EXPECT_EQ(world.sound.Take(1023), Bytes(1023, 0));    // no frame: silence in blocks of 1024 bytes
        world.Enqueue(1, true, Frame(20, row.format));
        EXPECT_EQ(world.sound.Take(1), Bytes(1, 0));
        world.Hear(Frame(20, row.format));
        world.Enqueue(7, true, Frame(0, row.format));
    }
    EXPECT_EQ(world.sound.mostAtOnce, 1);
    (void)world.sound.Take(7 * 80);

    world.Enqueue(1, true, Frame(0, {1000, 2}, CORVANE_STREAM_H264));    // no decoder of sound
    for (const SoundFormat format : {SoundFormat{0, 1}, {999, 1}, {192'001, 1}, {~0u, 1}, {8000, 0}, {8000, 9}})
        world.Enqueue(1, true, Frame(0, format));
    EXPECT_EQ(world.sound.Take(1024), Bytes(1024, 0));
    EXPECT_TRUE(world.hooks == 25 && world.Told().soundLostDecoder == 1 && world.Told().soundHeard == 25);
    EXPECT_TRUE(world.Told().soundNotPlayed == 67 && world.sound.openings == std::ssize(rows));

    world.out->SetFocus(1, 3);
    world.out->SetVolume(4000);    // in pieces of any length, and in one that is larger than all that is there
    std::vector<FramePtr> frames;
    for (int i = 0; i < 30; ++i)
        world.out->Enqueue(frames.emplace_back(Frame(20 * i, {1000, 2})), true);
    Bytes want = Decoded(frames, 102), got;
    for (size_t count = 1; got.size() + count < want.size(); count = count * 3 % 1021)
        got = got + world.sound.Take(count);
    const size_t rest = want.size() - got.size();
    EXPECT_EQ(got + world.sound.Take(65'536), want + Bytes(65'536 - rest, 0));
}

TEST(AudioOut, AnOpeningThatFailedIsTriedAgainAfterAPauseThatDoublesOrAfterAnEvent) {
    World other, world;
    other.Open();
    world.sound.fails = true;
    uint64_t frames = 0;
    const auto lost = [&](const SoundFormat& format) {
        world.Enqueue(1, true, Frame(0, format));
        return world.Told().soundNotPlayed == ++frames;    // none waits for an answer
    };
    const auto tries = [&] {
        const int before = world.sound.openings;
        EXPECT_TRUE(Eventually([&] { return lost(kPlain) && lost(kPlain); }));
        return world.sound.openings - before;
    };
    EXPECT_EQ(tries(), 1);
    for (const int64_t pause : {1, 2, 4, 8, 16, 32, 32})
        for (const int64_t ns : {pause * kSecond - 1, int64_t{1}}) {
            world.clock.now += ns;
            EXPECT_EQ(tries(), ns == 1) << pause;
        }
    const std::function<void()> events[] = {[&] { world.out->Flush(); }, [&] { world.out->Enable(true); },
                                            [&] {
                                                EXPECT_TRUE(Eventually([&] { return lost({16000, 1}); }));
                                            },
                                            [&] {
                                                other.out->Flush();
                                                EXPECT_TRUE(DeviceKeeper::Process().WaitIdle(60 * kSecond));
                                            }};
    for (const auto& event : events) {
        event();
        for (const int wanted : {1, 0, 1, 0}) {    // the pause is the first again
            EXPECT_EQ(tries(), wanted) << &event - events;
            world.clock.now += wanted == 0 ? kSecond : 0;
        }
    }
    world.sound.fails = false;
    world.clock.now += 32 * kSecond;
    world.Open();
}

// A sound server that does not answer: nobody waits for it, and what is left outlives the channel.
TEST(AudioOut, NobodyWaitsForOpeningAndClosing) {
    test::Gate answers, closes;
    World world;
    world.sound.holdsOpening = &answers;
    world.Enqueue(1);
    ASSERT_TRUE(Eventually([&] { return world.sound.opensNow == 1; }));
    for (uint32_t i = 0; i < 10; ++i)    // one opening waits at most, the newest
        world.Enqueue(1, true, Frame(0, {9000 + i, 1}));
    std::vector<FramePtr> frames;
    for (int i = 0; i < 100; ++i)    // only the last 150 ms are kept
        world.out->Enqueue(frames.emplace_back(Frame(20 * i)), true);
    EXPECT_EQ(world.Told().soundNotPlayed, 103u);
    answers.Open();
    ASSERT_TRUE(Eventually([&] { return world.sound.Format() == kPlain && world.sound.openings == 2; }));
    EXPECT_EQ(world.sound.Take(2048), Bytes(2048, 0));
    EXPECT_EQ(world.sound.Take(8 * 320), Decoded({frames.end() - 8, frames.end()}));

    world.sound.holdsClosing = &closes;
    world.Enqueue(3);
    world.out->Flush();
    EXPECT_EQ(world.sound.Take(100'000), Bytes(100'000, 0));    // silent, and nothing is decoded
    world.Enqueue(1);
    world.out = world.Make();
    EXPECT_TRUE(world.hooks == 8 && world.sound.openings == 2 && world.Told().soundNotPlayed == 107);
    closes.Open();
}

TEST(AudioOut, AFlushWaitsForTheHookAndNotInsideIt) {
    World world;
    world.Open();
    test::Gate entered, leaves;
    std::atomic<bool> left{false};
    world.onHook = [&](const auto& goesOn) {
        EXPECT_TRUE(goesOn());
        entered.Open();
        left = leaves.Wait() && !goesOn();
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
    world.onHook = [&](const auto&) {
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
    const Bytes payload(50'000);    // whose decoding takes time
    uint64_t frames = 0;
    World world;
    world.sound.clocked = true;
    for (int life = 0; life < 60; ++life) {
        std::atomic<bool> ends{false};
        std::thread client([&] {
            for (int32_t i = 0; !ends; ++i) {
                world.out->SetVolume(i % 6000);
                world.out->Enable(i % 16 != 0);
                if (i % 128 == 0)
                    world.out->Flush();
                std::this_thread::sleep_for(std::chrono::microseconds(100));
            }
        });
        for (int i = 0; i < 200; ++i, ++frames) {
            std::this_thread::sleep_for(std::chrono::microseconds(i % 8 == 0 ? 100 : 0));
            world.Enqueue(1, i % 2 == 0,
                          std::make_shared<MediaFrameImpl>(test::SoundHeader(
                              CORVANE_STREAM_MULAW, payload, i % 50 == 0 ? 16000 : 8000, 1, 1, 20 * i)));
        }
        ends = true;
        client.join();
        world.out = world.Make();
    }
    const ChannelStatistics told = world.Told();
    EXPECT_EQ(told.soundHeard + told.soundLostRing + told.soundLostDecoder + told.soundNotPlayed, frames);
    EXPECT_TRUE(told.soundHeard == world.hooks && world.sound.mostAtOnce <= 2);
}

}    // namespace
}    // namespace corvane
