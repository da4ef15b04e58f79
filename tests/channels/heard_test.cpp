// What a client hears: channels play through SDL's disk driver, which writes a device's samples to a file.
#include <unistd.h>

#include <cmath>
#include <fstream>
#include <map>
#include <numeric>

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
    // Feeds a frame and remembers what is to be heard of it; until it has left the ring.
    void Feed(uint32_t type, const Bytes& payload, int rate, int channels, int mix) {
        MediaFrameHeader header = SoundHeader(type, payload, rate, channels, 1, m_timeMs += 20);
        header.detail.audio.audioBitRate = 32000;
        Bytes heard = Played(m_decoder, MediaFrameImpl(header));
        {
            const std::lock_guard lock(m_mutex);
            m_decoded[m_timeMs] = heard;
        }
        for (int16_t& sample : std::span(reinterpret_cast<int16_t*>(heard.data()), heard.size() / 2))
            sample = static_cast<int16_t>(sample * mix / 128);
        m_wanted.push_back(heard);
        const ChannelStatistics before = StatisticsOf(channel);
        EXPECT_EQ(FeedHeader(channel, header), Status_Ok);
        EXPECT_TRUE(Eventually([&] { return StatisticsOf(channel).soundHeard > before.soundHeard; }));
    }
    void FeedNoise(int count, int rate, int mix) {
        for (int i = 0; i < count; ++i)
            Feed(CORVANE_STREAM_ALAW, Noise(static_cast<size_t>(rate / 50)), rate, 1, mix);
    }
    Bytes Noise(size_t size) {
        Bytes bytes(size);
        std::generate(bytes.begin(), bytes.end(), std::ref(m_noise));
        return bytes;
    }
    // The next opening writes this channel's file anew.
    void Opens() {
        setenv("SDL_DISKAUDIOFILE", m_file.c_str(), 1);
        m_wanted.clear();
    }
    // Waits until all frames are in the file: after `priming` bytes of silence, and with nothing between them but
    // silence in blocks of 1024 bytes. SDL may play whole buffers of silence before the first callback. What the file
    // has of them.
    Samples Check(size_t priming) const {
        std::string fault;
        Samples played;
        EXPECT_TRUE(Eventually([&] { return (fault = Fault(priming, played)).empty(); })) << fault;
        return played;
    }

private:
    std::string Fault(size_t at, Samples& played) const {
        played.clear();
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
            const auto* const samples = reinterpret_cast<const int16_t*>(&bytes[at]);
            played.insert(played.end(), samples, samples + frame.size() / 2);
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

// Level in dB of full scale and frequency in Hz of a tenth of a second.
std::pair<double, double> Listen(std::span<const int16_t> samples, int rate) {
    double power = 1, crossings = 0, first = 0, last = 0;
    for (size_t i = 1; i < samples.size(); ++i) {
        const double before = samples[i - 1], now = samples[i];
        power += now * now;
        if (before >= 0 || now < 0)
            continue;
        last = static_cast<double>(i) - now / (now - before);
        first = crossings++ == 0 ? last : first;
    }
    return {10 * std::log10(power / static_cast<double>(samples.size()) / 1073741824),
            crossings < 2 ? 0 : (crossings - 1) * rate / (last - first)};
}

// Each tenth of a second of `played` is as loud as the same of `sent`, and from `sweepAt` on has its frequency. A codec
// delays by less than 100 ms, and all of a stream alike.
void CheckByEar(const Samples& sent, const Samples& played, int rate, size_t sweepAt) {
    const auto step = static_cast<size_t>(rate / 10);
    ASSERT_GE(played.size(), sent.size() / 2 + step);
    std::pair<double, size_t> delay{-1, 0};
    for (size_t late = 0; late < step; ++late)
        delay = std::max(delay, {std::inner_product(sent.begin(), sent.begin() + std::ssize(sent) / 2,
                                                    played.begin() + static_cast<ptrdiff_t>(late), 0.0),
                                 late});
    size_t heard = 0;
    for (size_t at = 0; at + delay.second + step <= std::min(sent.size(), played.size()); at += step) {
        const auto [level, hertz] = Listen({&sent[at], step}, rate);
        const auto [playedLevel, playedHertz] = Listen({&played[at + delay.second], step}, rate);
        heard += level > -38;
        EXPECT_TRUE(level < -38 || std::abs(playedLevel - level) < 3) << at << ": " << level << ", " << playedLevel;
        EXPECT_TRUE(at < sweepAt || std::abs(playedHertz - hertz) < hertz / 50)
            << at << ": " << hertz << ", " << playedHertz;
    }
    EXPECT_GT(heard, 15u);
}

TEST(Heard, EachCodecAsItsDecoderGivesIt) {
    Heard heard("codec");
    Samples sound = Speech(8000), wide = Speech(16000);
    for (auto& [samples, rate] : {std::pair{&sound, 8000}, {&wide, 16000}}) {
        samples->resize(static_cast<size_t>(rate));    // a second of it, and one of a sweep
        const Samples sweep = Sweep(rate, 1, 300, 3000);
        samples->insert(samples->end(), sweep.begin(), sweep.end());
    }
    std::vector<Bytes> g726;
    const Bytes bytes = EncodeG726(sound, 4, false);
    for (auto at = bytes.begin(); bytes.end() - at >= 80; at += 80)
        g726.emplace_back(at, at + 80);
    const struct {
        uint32_t type;
        std::vector<Bytes> blocks;
        int rate, channels;
        size_t priming;
        const Samples* sent = nullptr;
    } rows[] = {{CORVANE_STREAM_AAC, MakeAac(wide, 16000).blocks, 16000, 1, 4096, &wide},
                {CORVANE_STREAM_G726, g726, 8000, 1, 2048, &sound},
                {CORVANE_STREAM_MULAW, {heard.Noise(320), heard.Noise(320)}, 8000, 2, 4096},
                {CORVANE_STREAM_G7221, G7221Vectors("speech60").blocks, 16000, 1, 4096},
                {CORVANE_STREAM_G729A, MakeG729(sound).blocks, 8000, 1, 2048, &sound}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.type);
        heard.Opens();
        for (const Bytes& block : row.blocks)
            heard.Feed(row.type, block, row.rate, row.channels, 128);
        const Samples played = heard.Check(row.priming);
        if (row.sent != nullptr)
            CheckByEar(*row.sent, played, row.rate, row.sent->size() / 2);
    }
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
