// Sound. First what channels that play take of memory and threads: resident memory of processes whose channels have
// pictures too, over SDL's disk driver. Then an hour of sound through AudioOut, flat out, beside a loop written by
// hand: the same decoder, and SDL_MixAudioFormat into the device's buffer. Both give the same samples.
//
//   sound_bench [seconds of sound, 3600 unless told]
#include <SDL.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Contest.h"
#include "audio/AudioOut.h"
#include "base/Limits.h"
#include "support/Latch.h"
#include "support/SoundMaker.h"

namespace {

using namespace corvane;

constexpr uint32_t kVolume = 4000;
constexpr int kMix = 102;
constexpr size_t kBatch = 32;    // frames

struct Stream {
    const char* name;
    uint32_t type;
    int rate;
    double frameMs;
    size_t buffer;    // bytes that the device asks for
    std::vector<test::Bytes> blocks;
};

std::vector<Stream> Streams() {
    const test::Samples speech = test::Speech(16000);
    std::vector<test::Bytes> muLaw(speech.size() / 160, test::Bytes(160));
    for (size_t i = 0; i < muLaw.size(); ++i)    // any bytes are sound
        for (size_t k = 0; k < 160; ++k)
            muLaw[i][k] = static_cast<uint8_t>(speech[160 * i + k]);
    return {{"G.711, 8000 Hz", CORVANE_STREAM_MULAW, 8000, 20, 1024, muLaw},
            {"AAC, 16000 Hz", CORVANE_STREAM_AAC, 16000, 64, 2048, test::MakeAac(speech, 16000).blocks}};
}

// ---- Memory ----

enum class Play { NotFed, Off, On };

struct Usage {
    double megabytes = 0, own = 0;    // own: without what comes from files, which other processes share
    int threads = 0;
};

Usage Now() {
    Usage usage;
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:")
            status >> usage.megabytes;
        else if (word == "RssAnon:")
            status >> usage.own;
        else if (word == "Threads:")
            status >> usage.threads;
    }
    usage.megabytes /= 1024;
    usage.own /= 1024;
    return usage;
}

// Of a process of its own, after two seconds.
Usage Channels(const Stream& stream, size_t count, Play play) {
    int ends[2];
    if (pipe(ends) != 0)
        std::abort();
    if (const pid_t child = fork(); child != 0) {
        Usage usage;
        if (read(ends[0], &usage, sizeof usage) != sizeof usage)
            std::abort();
        close(ends[0]);
        close(ends[1]);
        waitpid(child, nullptr, 0);
        return usage;
    }
    void* instance = nullptr;
    Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0);
    std::vector<void*> channels(count);
    for (void*& channel : channels) {
        Corvane_CreateChannel(instance, &channel, nullptr);
        ChannelUpdate update{};
        update.mask = CORVANE_UPDATE_AUDIO;
        update.audioEnabled = play == Play::On;
        Corvane_UpdateChannelSettings(channel, &update);
        Corvane_StartChannel(channel, 0);
    }
    const test::Bytes picture = test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .frames = 1})[0].bytes;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i * stream.frameMs < 2000; ++i) {
        const auto at = std::chrono::milliseconds(static_cast<int>((i + 1) * stream.frameMs));
        const auto time = static_cast<int64_t>(i * stream.frameMs);
        MediaFrameHeader header =
            test::VideoHeader(stream.type, stream.blocks[static_cast<size_t>(i) % stream.blocks.size()], true, time);
        header.audioBlockCount = 1;
        header.audioSampleRate = static_cast<uint32_t>(stream.rate);
        header.audioChannels = 1;
        const MediaFrameHeader still = test::VideoHeader(CORVANE_STREAM_JPEG, picture, true, time);
        for (void* const channel : channels) {
            Corvane_InputEncodedMediaFrame(channel, &still);
            if (play != Play::NotFed)
                Corvane_InputEncodedMediaFrame(channel, &header);
        }
        std::this_thread::sleep_until(start + at);
    }
    const Usage usage = Now();
    if (write(ends[1], &usage, sizeof usage) != sizeof usage)
        std::abort();
    _exit(0);
}

void TellMemory(const Stream& stream) {
    const auto tell = [&](const char* what, const Usage& usage, const Usage& without, double channels) {
        std::printf("%-16s %-22s %5.2f MB, of them %5.2f not from files, %.0f threads\n", stream.name, what,
                    (usage.megabytes - without.megabytes) / channels, (usage.own - without.own) / channels,
                    (usage.threads - without.threads) / channels);
        std::fflush(stdout);
    };
    const Usage off = Channels(stream, 1, Play::Off);
    const Usage on = Channels(stream, 1, Play::On);
    tell("a silent channel", off, Channels(stream, 1, Play::NotFed), 1);
    tell("the first that plays", on, off, 1);
    Usage silent = Channels(stream, 9, Play::Off);    // but for what the first takes for all of them
    silent.megabytes += on.megabytes - off.megabytes;
    silent.own += on.own - off.own;
    silent.threads += on.threads - off.threads;
    tell("each further", Channels(stream, 9, Play::On), silent, 8);
}

// ---- Time ----

using Batch = std::vector<FramePtr>;
using Job = bench::Contest<const Batch*>;

// A device that stands still until it is asked.
struct Device final : SoundSystem {
    struct Open final : SoundDevice {};
    std::unique_ptr<SoundDevice> Open(const SoundFormat&, SoundSource& from) override {
        source = &from;
        return std::make_unique<struct Open>();
    }
    std::atomic<SoundSource*> source{nullptr};
};

class Ours {
public:
    Ours(const Stream& stream, const FramePtr& first) : m_stream(stream), m_out(MakeOut()), m_buffer(stream.buffer) {
        m_out->SetVolume(kVolume);
        m_out->Enqueue(first, true);
        if (!test::Eventually([&] { return m_device.source != nullptr; }))
            std::abort();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        while (Told().soundHeard == 0)
            m_device.source.load()->Fill(m_buffer.data(), 2);
        m_device.source.load()->Fill(m_buffer.data(), FrameBytes(stream) - 2);
    }
    static size_t FrameBytes(const Stream& stream) { return static_cast<size_t>(stream.rate * stream.frameMs / 500); }
    void Run(const Batch& batch, test::Bytes* heard) {
        for (const FramePtr& frame : batch)
            m_out->Enqueue(frame, true);
        for (size_t done = 0; done < batch.size() * FrameBytes(m_stream); done += m_buffer.size()) {
            m_device.source.load()->Fill(m_buffer.data(), m_buffer.size());
            if (heard != nullptr)
                heard->insert(heard->end(), m_buffer.begin(), m_buffer.end());
        }
    }
    ChannelStatistics Told() const {
        ChannelStatistics told{};
        m_counters.Fill(told);
        return told;
    }

private:
    std::unique_ptr<AudioOut> MakeOut() {
        return std::make_unique<AudioOut>(
            m_counters, Clock::System(),
            [](const MediaFrameImpl&, const uint8_t*, uint32_t, const std::function<bool()>&) {}, m_device);
    }

    const Stream& m_stream;
    Device m_device;
    ChannelCounters m_counters{Clock::System()};
    std::unique_ptr<AudioOut> m_out;
    test::Bytes m_buffer;
};

class ByHand {
public:
    explicit ByHand(const Stream& stream) : m_samples(limits::kSoundBytes), m_buffer(stream.buffer) {}
    void Run(const Batch& batch, test::Bytes* heard) {
        size_t filled = 0;
        for (const FramePtr& frame : batch) {
            auto size = static_cast<uint32_t>(m_samples.size());
            if (m_decoder.Decode(m_samples.data(), &size, *frame) < 0)
                std::abort();
            for (uint32_t at = 0; at < size;) {
                const uint32_t count = std::min(size - at, static_cast<uint32_t>(m_buffer.size() - filled));
                std::memset(m_buffer.data() + filled, 0, count);
                SDL_MixAudioFormat(m_buffer.data() + filled, m_samples.data() + at, AUDIO_S16LSB, count, kMix);
                at += count;
                filled = (filled + count) % m_buffer.size();
                if (filled == 0 && heard != nullptr)
                    heard->insert(heard->end(), m_buffer.begin(), m_buffer.end());
            }
        }
    }

private:
    AudioDecoderHolder m_decoder;
    test::Bytes m_samples, m_buffer;
};

void TellTime(const Stream& stream, double seconds) {
    std::vector<Batch> batches;
    std::vector<const Batch*> ring;
    for (size_t i = 0; i + kBatch <= stream.blocks.size(); i += kBatch) {
        batches.emplace_back();
        for (size_t k = i; k < i + kBatch; ++k)
            batches.back().push_back(
                std::make_shared<MediaFrameImpl>(test::SoundHeader(stream.type, stream.blocks[k], stream.rate)));
    }
    for (const Batch& batch : batches)
        ring.push_back(&batch);
    {
        Ours ours(stream, batches[0][0]);
        ByHand hand(stream);
        hand.Run({batches[0][0]}, nullptr);    // as ours did
        test::Bytes one, other;
        for (const Batch& batch : batches) {
            ours.Run(batch, &one);
            hand.Run(batch, &other);
        }
        if (one != other)
            std::printf("%s: the samples differ\n", stream.name);
    }
    Ours ours(stream, batches[0][0]);
    ByHand hand(stream);
    const int rounds = static_cast<int>(seconds * 1000 / stream.frameMs / kBatch);
    const Job job{stream.name,
                  "1.10",
                  [&](const Batch* batch) { ours.Run(*batch, nullptr); },
                  {{"by hand", [&](const Batch* batch) { hand.Run(*batch, nullptr); }}}};
    const bench::Figures told = Measure(job, ring, rounds);
    if (ours.Told().soundLostRing + ours.Told().soundLostDecoder + ours.Told().soundNotPlayed != 0)
        std::printf("%s: frames were lost\n", stream.name);
    std::printf("%-16s ours / by hand: median %.3f, minima %.3f, %.2f us a frame, goal 1.10\n", stream.name,
                told.medianRatio, told.minimumRatio, told.oursMs * 1000 / kBatch);
}

}    // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 3600;
    if (seconds < 10) {
        std::fprintf(stderr, "usage: sound_bench [seconds of sound, at least 10]\n");
        return 2;
    }
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", "/dev/null", 1);
    SDL_LogSetOutputFunction([](void*, int, SDL_LogPriority, const char*) {}, nullptr);
    const std::vector<Stream> streams = Streams();
    for (const Stream& stream : streams)
        TellMemory(stream);
    for (const Stream& stream : streams)
        TellTime(stream, seconds);
    return 0;
}
