// What a client hears: channels play through SDL's disk driver, which writes a device's samples to a file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>

#include "decoders/AudioDecoderHolder.h"
#include "support/Client.h"

namespace corvane {
namespace {

using test::Eventually;
using test::StatisticsOf;
using Bytes = std::vector<uint8_t>;

// A channel of sound alone that is fed as fast as its device plays.
class Heard {
public:
    explicit Heard(const char* name) : m_file(::testing::TempDir() + name + "." + std::to_string(getpid()) + ".pcm") {
        EXPECT_EQ(Corvane_Initial(&m_instance, nullptr, nullptr, 77, 3, 0, CORVANE_VERSION, 0), Status_Ok);
        EXPECT_EQ(Corvane_CreateChannel(m_instance, &channel, nullptr), Status_Ok);
        EXPECT_EQ(Corvane_SetChannelOption(channel, CORVANE_OPTION_MEDIA_MODE, CORVANE_MEDIA_AUDIO, 0), Status_Ok);
        EXPECT_EQ(Corvane_StartChannel(channel, 0), Status_Ok);
    }
    ~Heard() {
        EXPECT_EQ(Corvane_Release(&m_instance), Status_Ok);
        unlink(m_file.c_str());
    }

    // Feeds one 20 ms frame of A-law and remembers what is to be heard of it; until it has left the ring.
    void Feed(uint32_t rate, uint8_t channels, int mix) {
        Bytes payload(rate / 50 * channels);
        for (uint8_t& byte : payload)
            byte = static_cast<uint8_t>(0x55 ^ (m_seed = m_seed * 1103515245 + 12345) >> 16);
        MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_ALAW, payload, true, m_timeMs += 20);
        header.audioSampleRate = rate;
        header.audioChannels = channels;
        header.audioBlockCount = 1;
        EXPECT_EQ(Corvane_InputEncodedMediaFrame(channel, &header), Status_Ok);
        const MediaFrameImpl frame(header);
        std::vector<int16_t> samples(2 * payload.size());
        auto size = static_cast<uint32_t>(2 * samples.size());
        EXPECT_EQ(m_decoder.Decode(reinterpret_cast<uint8_t*>(samples.data()), &size, frame), 0);
        m_raw.assign(reinterpret_cast<uint8_t*>(samples.data()), reinterpret_cast<uint8_t*>(samples.data()) + size);
        Bytes scaled;
        for (uint32_t i = 0; i < size / 2; ++i) {
            const auto sample = static_cast<uint16_t>(samples[i] * mix / 128);
            scaled.insert(scaled.end(), {static_cast<uint8_t>(sample & 0xFF), static_cast<uint8_t>(sample >> 8)});
        }
        m_wanted.push_back(scaled);
        ++m_fed;
        EXPECT_TRUE(Eventually([&] { return StatisticsOf(channel).soundHeard == m_fed; }));
    }
    void Update(uint32_t mask, uint32_t volume, uint32_t enabled) {
        ChannelUpdate update{};
        update.mask = mask;
        update.volume = volume;
        update.audioEnabled = enabled;
        EXPECT_EQ(Corvane_UpdateChannelSettings(channel, &update), Status_Ok);
    }
    // Counts the raw callbacks, which come before the volume counts.
    void RegisterRaw() {
        const CorvaneRawCallback raw = [](void* context, uint32_t code, void* record) {
            auto& self = *static_cast<Heard*>(context);
            const auto& info = *static_cast<RawAudioInfo*>(record);
            EXPECT_TRUE(code == CORVANE_RAW_SOUND && info.duration == 20 &&
                        info.timeMilliseconds == self.m_timeMs % 1000);
            EXPECT_TRUE(std::equal(self.m_raw.begin(), self.m_raw.end(), info.samples, info.samples + info.size));
            ++self.rawCalls;
        };
        EXPECT_EQ(Corvane_SetChannelOption(channel, CORVANE_OPTION_RAW_CALLBACK, reinterpret_cast<uint64_t>(this),
                                           reinterpret_cast<uint64_t>(raw)),
                  Status_Ok);
    }
    // The next opening writes this channel's file anew.
    void Opens() {
        setenv("SDL_DISKAUDIOFILE", m_file.c_str(), 1);
        m_wanted.clear();
    }
    // Waits until all frames are in the file: after `priming` bytes of silence, and with nothing between them but
    // silence in blocks of 1024 bytes.
    void Check(size_t priming) const {
        std::string fault;
        EXPECT_TRUE(Eventually([&] { return (fault = Fault(priming)).empty(); })) << fault;
    }

    void* channel = nullptr;
    std::atomic<int> rawCalls{0};

private:
    std::string Fault(size_t priming) const {
        std::ifstream in(m_file, std::ios::binary);
        const Bytes bytes{std::istreambuf_iterator<char>(in), {}};
        const auto first = std::find_if(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte != 0; });
        auto at = static_cast<size_t>(first - bytes.begin()) & ~size_t{1};
        // SDL may play whole buffers of silence before the first callback.
        if (at < priming || (at - priming) % 1024 != 0)
            return "sound begins at " + std::to_string(at);
        for (const Bytes& frame : m_wanted) {
            const auto left = [&] { return bytes.size() - at; };
            const auto is = [&](const Bytes& what) {
                return left() >= what.size() && std::equal(what.begin(), what.end(), &bytes[at]);
            };
            while (!is(frame) && is(Bytes(1024)))
                at += 1024;
            if (!is(frame))
                return "no frame at " + std::to_string(at) + " of " + std::to_string(bytes.size());
            at += frame.size();
        }
        return "";
    }

    const std::string m_file;
    void* m_instance = nullptr;
    AudioDecoderHolder m_decoder;
    std::vector<Bytes> m_wanted;
    Bytes m_raw;    // samples of the frame that was fed last
    uint64_t m_fed = 0;
    int64_t m_timeMs = 0;
    uint32_t m_seed = 1;
};

TEST(Heard, SilenceThenEverySampleAtItsVolumeAfterEachOpening) {
    setenv("SDL_AUDIODRIVER", "disk", 1);
    Heard one("one");
    one.Opens();
    const std::pair<uint32_t, int> volumes[] = {{5000, 128}, {4999, 127}, {40, 1},          {39, 0},    {2500, 64},
                                                {0, 0},      {7000, 128}, {0xFFFFFFFFu, 0}, {5000, 128}};
    for (const auto& [volume, mix] : volumes) {
        one.Update(CORVANE_UPDATE_VOLUME, volume, 0);
        for (int i = 0; i < 3; ++i)
            one.Feed(8000, 1, mix);
        one.Check(2048);
    }
    Heard two("two");    // beside the first, at its own volume
    two.Opens();
    two.Update(CORVANE_UPDATE_VOLUME, 1250, 0);
    for (int i = 0; i < 5; ++i) {
        two.Feed(16000, 1, 32);
        one.Feed(8000, 1, 128);
    }
    one.Check(2048);
    two.Check(4096);
    const struct {
        const char* name;
        std::function<void()> act;
        uint32_t rate;
        uint8_t channels;
        size_t priming;
    } rows[] = {{"16000 Hz", [] {}, 16000, 1, 4096},
                {"8000 Hz", [] {}, 8000, 1, 2048},
                {"stereo", [] {}, 8000, 2, 4096},
                {"mono", [] {}, 8000, 1, 2048},
                {"restart",
                 [&] {
                     EXPECT_EQ(Corvane_StopChannel(one.channel), Status_Ok);
                     EXPECT_EQ(Corvane_StartChannel(one.channel, 0), Status_Ok);
                 },
                 8000, 1, 2048},
                {"off and on",
                 [&] {
                     one.Update(CORVANE_UPDATE_AUDIO, 0, 0);
                     one.Update(CORVANE_UPDATE_AUDIO, 0, 1);
                 },
                 8000, 1, 2048}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        row.act();
        one.Opens();
        for (int i = 0; i < 5; ++i)
            one.Feed(row.rate, row.channels, 128);
        one.Check(row.priming);
    }
    EXPECT_EQ(StatisticsOf(one.channel).soundHeard, StatisticsOf(one.channel).soundFrames);
    one.RegisterRaw();
    one.Update(CORVANE_UPDATE_VOLUME, 100, 0);
    int wanted = 0;
    for (const bool on : {true, false, true}) {
        EXPECT_EQ(Corvane_StopChannel(one.channel), Status_Ok);    // no call is under way now
        EXPECT_EQ(Corvane_SetChannelOption(one.channel, CORVANE_OPTION_RAW_SOUND, on, 0), Status_Ok);
        EXPECT_EQ(Corvane_StartChannel(one.channel, 0), Status_Ok);
        for (int i = 0; i < 3; ++i) {
            one.Feed(8000, 1, 2);
            wanted += on;
            EXPECT_TRUE(Eventually([&] { return one.rawCalls >= wanted; }));
        }
    }
    EXPECT_EQ(Corvane_StopChannel(one.channel), Status_Ok);
    EXPECT_EQ(one.rawCalls, 6);
}

}    // namespace
}    // namespace corvane
