// What a client hears: channels play through SDL's disk driver, which writes a device's samples to a file.
#include <unistd.h>

#include <fstream>
#include <map>

#include "channels/ChannelLive.h"
#include "support/Client.h"
#include "support/ScriptedSound.h"
#include "support/SoundMaker.h"

namespace corvane::test {
namespace {

// A channel of sound alone that is fed as fast as its device plays.
struct Heard {
    explicit Heard(const char* name) : m_file(testing::TempDir() + name + "." + std::to_string(getpid()) + ".pcm") {
        setenv("SDL_AUDIODRIVER", "disk", 1);
        setenv("SDL_DISKAUDIODELAY", "5", 1);    // ms from buffer to buffer
        Set(CORVANE_OPTION_MEDIA_MODE, CORVANE_MEDIA_AUDIO);
        const CorvanePictureCallback picture = [](void* self, const PseudoFrame* frame) {
            EXPECT_TRUE(frame->flags == CORVANE_OSD_AUDIO_ONLY && frame->data == nullptr && frame->width == 0);
            static_cast<Heard*>(self)->toldSecond = frame->timeSeconds;
        };
        EXPECT_EQ(Corvane_RegisterRawDataCallback(channel, picture, this, 11, 0), Status_Ok);
        const CorvaneRawCallback raw = [](void* context, uint32_t code, void* record) {
            auto& self = *static_cast<Heard*>(context);
            const auto& info = *static_cast<RawAudioInfo*>(record);
            EXPECT_EQ(code, uint32_t{CORVANE_RAW_SOUND});
            const std::lock_guard lock(self.m_mutex);
            const Bytes& decoded = self.m_decoded[info.timeSeconds * int64_t{1000} + info.timeMilliseconds];
            EXPECT_TRUE(std::equal(decoded.begin(), decoded.end(), info.samples, info.samples + info.size));
            ++self.rawCalls;
        };
        Set(CORVANE_OPTION_RAW_CALLBACK, reinterpret_cast<uint64_t>(this), reinterpret_cast<uint64_t>(raw));
        EXPECT_EQ(Corvane_StartChannel(channel, 0), Status_Ok);
    }
    ~Heard() {
        EXPECT_EQ(Corvane_Release(&m_instance), Status_Ok);
        unlink(m_file.c_str());
    }
    void Set(int32_t option, uint64_t value, uint64_t extra = 0) {
        EXPECT_EQ(Corvane_SetChannelOption(channel, option, value, extra), Status_Ok);
    }
    void Update(uint32_t mask, uint32_t value) {
        ChannelUpdate update{};
        update.mask = mask;
        update.audioEnabled = update.volume = value;
        EXPECT_EQ(Corvane_UpdateChannelSettings(channel, &update), Status_Ok);
    }
    // Feeds frames of noise, each until it has left the ring, and remembers what is to be heard of them.
    void FeedNoise(int count, int rate, int mix) {
        for (; count > 0; --count) {
            Bytes payload(static_cast<size_t>(rate / 50));
            std::generate(payload.begin(), payload.end(), std::ref(m_noise));
            const MediaFrameHeader header = SoundHeader(CORVANE_STREAM_ALAW, payload, rate, 1, 1, m_timeMs += 20);
            const MediaFrameImpl frame(header);
            {
                const std::lock_guard lock(m_mutex);
                m_decoded[m_timeMs] = Played(m_decoder, frame);
            }
            m_wanted.push_back(Played(m_decoder, frame, mix));
            const uint64_t before = StatisticsOf(channel).soundHeard;
            EXPECT_EQ(FeedHeader(channel, header), Status_Ok);
            EXPECT_TRUE(Eventually([&] { return StatisticsOf(channel).soundHeard > before; }));
        }
    }
    // The next opening writes this channel's file anew.
    void Opens() {
        setenv("SDL_DISKAUDIOFILE", m_file.c_str(), 1);
        m_wanted.clear();
    }
    // Waits until all frames are in the file: after `priming` bytes of silence, and with nothing between them but
    // silence in blocks of 1024 bytes. SDL may play whole buffers of silence before the first callback.
    void Check(size_t priming) const {
        std::string fault;
        EXPECT_TRUE(Eventually([&] { return (fault = Fault(priming)).empty(); })) << fault;
    }

private:
    std::string Fault(size_t at) const {
        std::ifstream in(m_file, std::ios::binary);
        const Bytes bytes{std::istreambuf_iterator<char>(in), {}};
        const auto isAt = [&](size_t from, const Bytes& what) {
            return bytes.size() - from >= what.size() && std::equal(what.begin(), what.end(), &bytes[from]);
        };
        if (bytes.size() < at || !isAt(0, Bytes(at)))
            return "no silence at the beginning";
        for (const Bytes& frame : m_wanted) {
            while (!isAt(at, frame) && isAt(at, Bytes(1024)))
                at += 1024;
            if (!isAt(at, frame))
                return "no frame at " + std::to_string(at) + " of " + std::to_string(bytes.size());
            at += frame.size();
        }
        return "";
    }

    const std::string m_file;
    void* m_instance = NewInstance();
    AudioDecoderHolder m_decoder;
    std::vector<Bytes> m_wanted;
    int64_t m_timeMs = 0;    // of the frame that was fed last
    std::mutex m_mutex;
    std::map<int64_t, Bytes> m_decoded;    // by the time of the frame
    std::independent_bits_engine<std::minstd_rand, 8, unsigned> m_noise;

public:
    void* channel = NewChannel(m_instance);
    std::atomic<int> rawCalls{0};
    std::atomic<uint32_t> toldSecond{~0u};    // by the picture callback
};

TEST(Heard, SilenceThenEverySampleAtItsVolumeAfterEachOpening) {
    Heard one("one"), two("two");
    one.Opens();
    const std::pair<uint32_t, int> volumes[] = {{5000, 128}, {4999, 127}, {40, 1},  {39, 0},    {2500, 64},
                                                {0, 0},      {7000, 128}, {~0u, 0}, {5000, 128}};
    for (const auto& [volume, mix] : volumes) {
        one.Update(CORVANE_UPDATE_VOLUME, volume);
        one.FeedNoise(3, 8000, mix);
        one.Check(2048);
    }
    two.Opens();    // beside the first, at its own volume
    two.Update(CORVANE_UPDATE_VOLUME, 1250);
    for (int i = 0; i < 50; ++i) {
        two.FeedNoise(1, 16000, 32);
        one.FeedNoise(1, 8000, 128);
    }
    one.Check(2048);
    two.Check(4096);
    EXPECT_TRUE(Eventually([&] { return one.toldSecond == 1; })) << "of the second that it plays";

    const int raw = one.rawCalls;
    for (const int added : {3, 0, 3}) {    // a restart, with raw sound on and off; then off and on
        const int before = one.rawCalls;
        EXPECT_EQ(Corvane_StopChannel(one.channel), Status_Ok);
        one.Set(CORVANE_OPTION_RAW_SOUND, added != 0 ? 1 : 0);
        EXPECT_EQ(Corvane_StartChannel(one.channel, 0), Status_Ok);
        one.Opens();
        one.FeedNoise(3, 8000, 128);
        one.Check(2048);
        EXPECT_TRUE(Eventually([&] { return one.rawCalls == before + added; }));
        one.Update(CORVANE_UPDATE_AUDIO, 0);
        one.Update(CORVANE_UPDATE_AUDIO, 1);
        one.Opens();
        one.FeedNoise(1, 8000, 128);
        one.Check(2048);
    }
    EXPECT_EQ(Corvane_StopChannel(one.channel), Status_Ok);
    EXPECT_EQ(one.rawCalls, raw + 8);
    EXPECT_EQ(StatisticsOf(one.channel).soundHeard, StatisticsOf(one.channel).soundFrames);
}

// Stop and delete return while a sound server still hangs.
TEST(Heard, NoEndOfAChannelWaitsForASoundServer) {
    const Bytes payload(160);
    for (const auto hangs : {&ScriptedSound::holdsOpening, &ScriptedSound::holdsClosing}) {
        ScriptedSound sound;
        Gate answers;
        sound.*hangs = &answers;
        {
            CChannelLive channel(0, 0, Clock::System(), BuiltRenderers(), sound);
            EXPECT_EQ(channel.Start(false), Status::Ok);
            EXPECT_EQ(channel.Input(SoundHeader(CORVANE_STREAM_MULAW, payload, 8000)), Status::Ok);
            ASSERT_TRUE(Eventually([&] { return sound.opensNow + sound.openNow == 1; }));
            EXPECT_EQ(channel.Stop(), Status::Ok);
            channel.End();
        }
        EXPECT_EQ(sound.opensNow + sound.openNow, 1);
        answers.Open();
        EXPECT_TRUE(DeviceKeeper::Process().WaitIdle(60'000'000'000) && sound.openings == 1);
    }
}

}    // namespace
}    // namespace corvane::test
