// Sound behind picture: channels with buffers of 1, 200 and 1000 ms play a stream that flashes and beeps once a second,
// on the real clock, over a device that asks for 64 ms of sound every 64 ms. A flash is when the picture callback gets
// it; a beep is at its place in what the device got, from the clock of its first callback on. What is played first puts
// the beep 128 ms behind the flash, and at most one device buffer and the time of one picture more.
//
// Both raw callbacks are set: the longest callback of a device, and what is allocated in it beyond what the decoder
// allocates when it is called by hand.
//
//   lip_sync [seconds, 120 unless told]
#include <malloc.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "channels/ChannelLive.h"
#include "support/StreamMaker.h"

// Counts what the calling thread allocates.
static thread_local uint64_t* counted = nullptr;
static void Count() {
    if (counted != nullptr)
        ++*counted;
}
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* block, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) {
    return Count(), __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    return Count(), __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) {
    return Count(), __libc_realloc(block, size);
}
void* memalign(size_t alignment, size_t size) {
    return Count(), __libc_memalign(alignment, size);
}
void* Aligned(size_t alignment, size_t size) __asm__("aligned_alloc");
void* Aligned(size_t alignment, size_t size) {
    return memalign(alignment, size);
}
int PosixAligned(void** block, size_t alignment, size_t size) __asm__("posix_memalign");
int PosixAligned(void** block, size_t alignment, size_t size) {
    *block = memalign(alignment, size);
    return *block != nullptr ? 0 : 12;
}
}

namespace {

using namespace corvane;
using Time = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

constexpr uint32_t kRate = 8000;
constexpr size_t kBuffer = 512;    // samples
constexpr std::chrono::milliseconds kBufferTime{64};
constexpr int kPriming = 128;    // ms

double Ms(Time::duration span) {
    return std::chrono::duration<double, std::milli>(span).count();
}

// Flashes and beeps of one channel, in order, and what its device's callbacks took.
struct Log {
    std::mutex mutex;
    std::vector<Time::time_point> flashes, beeps;
    double longestMs = 0;
    uint64_t allocated = 0, frames = 0;    // in the callbacks after the first second
    std::atomic<uint64_t> heard{0};        // raw sound
    std::atomic<uint64_t> pictures{0};     // raw pictures
};

class System final : public SoundSystem {
public:
    explicit System(Log& log) : m_log(log) {}
    std::unique_ptr<SoundDevice> Open(const SoundFormat&, SoundSource& source) override {
        return std::make_unique<Device>(m_log, source);
    }

private:
    struct Device final : SoundDevice {
        Device(Log& log, SoundSource& source) : thread([this, &log, &source] { Play(log, source); }) {}
        ~Device() override {
            ends = true;
            thread.join();
        }
        void Play(Log& log, SoundSource& source) const {
            std::array<int16_t, kBuffer> samples;
            const auto first = Time::now();
            int silent = 0;
            for (int number = 0; !ends; ++number) {
                std::this_thread::sleep_until(first + number * kBufferTime);
                uint64_t allocated = 0;
                const uint64_t heard = log.heard;
                const auto start = Time::now();
                counted = &allocated;
                source.Fill(reinterpret_cast<uint8_t*>(samples.data()), sizeof samples);
                counted = nullptr;
                const double took = Ms(Time::now() - start);
                const std::lock_guard lock(log.mutex);
                log.longestMs = std::max(log.longestMs, took);
                if (number > 16) {
                    log.allocated += allocated;
                    log.frames += log.heard - heard;
                }
                for (size_t i = 0; i < kBuffer; ++i) {
                    if (samples[i] != 0 && silent > static_cast<int>(kRate) / 4)
                        log.beeps.push_back(first + number * kBufferTime + std::chrono::microseconds(125 * i));
                    silent = samples[i] == 0 ? silent + 1 : 0;
                }
            }
        }
        std::atomic<bool> ends{false};
        std::thread thread;
    };
    Log& m_log;
};

class Channel {
public:
    explicit Channel(uint32_t bufferMs)
        : buffer(bufferMs), m_channel(0, 0, Clock::System(), BuiltRenderers(), m_system) {
        m_channel.SetBufferTime(bufferMs);
        m_channel.Render().SetPictureCallback({&OnPicture, &log}, PF_I420);
        const CorvaneRawCallback raw = [](void* context, uint32_t code, void*) {
            auto& told = *static_cast<Log*>(context);
            ++(code == CORVANE_RAW_SOUND ? told.heard : told.pictures);
        };
        (void)m_channel.SetOption(CORVANE_OPTION_RAW_FORMAT, CORVANE_PICTURE_I420, 0);
        (void)m_channel.SetOption(CORVANE_OPTION_RAW_CALLBACK, reinterpret_cast<uint64_t>(&log),
                                  reinterpret_cast<uint64_t>(raw));
        if (m_channel.Start(false) != Status::Ok)
            std::abort();
    }
    void End() { m_channel.End(); }
    void Feed(const MediaFrameHeader& header) {
        if (const Status status = m_channel.Input(header); status != Status::Ok)
            std::printf("buffer %u ms: a frame was refused with status %u\n", buffer, static_cast<uint32_t>(status));
    }
    // Of the beeps behind their flashes.
    void Tell(double decodersAllocations) {
        const std::lock_guard lock(log.mutex);
        ChannelStatistics told{};
        told.recordSize = sizeof told;
        m_channel.GetStatistics(told);
        const size_t count = std::min(log.flashes.size(), log.beeps.size());
        if (count < 4) {
            std::printf("buffer %u ms: %zu flashes, %zu beeps\n", buffer, log.flashes.size(), log.beeps.size());
            return;
        }
        std::vector<double> behind;
        for (size_t i = 0; i < count; ++i)
            behind.push_back(Ms(log.beeps[i] - log.flashes[i]));
        const auto mean = [](const double* from, size_t number) {
            double sum = 0;
            for (size_t i = 0; i < number; ++i)
                sum += from[i];
            return sum / static_cast<double>(number);
        };
        const size_t part = std::min<size_t>(10, count / 2);
        const auto [least, most] = std::minmax_element(behind.begin(), behind.end());
        std::printf(
            "buffer %4u ms: %zu flashes, %zu beeps; behind: mean %.1f ms, %.1f to %.1f (%d to %d), drift %.1f ms; "
            "frames heard %llu, lost %llu\n",
            buffer, log.flashes.size(), log.beeps.size(), mean(behind.data(), count), *least, *most, kPriming,
            kPriming + 64 + 40, mean(behind.data() + count - part, part) - mean(behind.data(), part),
            static_cast<unsigned long long>(told.soundHeard),
            static_cast<unsigned long long>(told.soundLostRing + told.soundLostDecoder + told.soundNotPlayed));
        std::printf(
            "    longest callback %.4f of a device buffer; %llu raw pictures; allocations in callbacks %llu, "
            "the decoder's own for as many frames %.0f\n",
            log.longestMs / 64, static_cast<unsigned long long>(log.pictures.load()),
            static_cast<unsigned long long>(log.allocated), decodersAllocations * log.frames);
    }

    const uint32_t buffer;
    Log log;

private:
    static void OnPicture(void* context, const PseudoFrame* frame) {
        const auto now = Time::now();
        auto& told = *static_cast<Log*>(context);
        if (test::ReadStamp(frame->data, (frame->width + 63) & ~63u) == 1) {
            const std::lock_guard lock(told.mutex);
            told.flashes.push_back(now);
        }
    }

    System m_system{log};
    CChannelLive m_channel;
};

MediaFrameHeader Sound(const Bytes& payload, int64_t timeMs) {
    MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_MULAW, payload, true, timeMs);
    header.audioBlockCount = 1;
    header.audioSampleRate = kRate;
    header.audioChannels = 1;
    return header;
}

}    // namespace

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 120;
    if (seconds < 10) {
        std::fprintf(stderr, "usage: lip_sync [seconds, at least 10]\n");
        return 2;
    }
    const auto pictures =
        test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .width = 640, .height = 360, .frames = 2, .gop = 1});
    const Bytes silence(160, 0xFF), beep(160, 0x10);

    AudioDecoderHolder decoder;
    std::vector<uint8_t> samples(4000);
    uint64_t byHand = 0;
    for (int i = 0; i < 200; ++i) {
        const MediaFrameImpl frame(Sound(beep, 0));
        auto size = static_cast<uint32_t>(samples.size());
        counted = i < 100 ? nullptr : &byHand;
        (void)decoder.Decode(samples.data(), &size, frame);
        counted = nullptr;
    }

    std::vector<std::unique_ptr<Channel>> channels;
    for (const uint32_t buffer : {1u, 200u, 1000u})
        channels.push_back(std::make_unique<Channel>(buffer));
    const auto start = Time::now();
    for (int i = 0; i < 25 * seconds; ++i) {
        std::this_thread::sleep_until(start + i * std::chrono::milliseconds(40));
        const bool flash = i % 25 == 12;
        const int64_t time = 100'000 + 40 * i;
        for (const auto& channel : channels) {
            channel->Feed(test::VideoHeader(CORVANE_STREAM_JPEG, pictures[flash ? 1 : 0].bytes, true, time));
            channel->Feed(Sound(flash ? beep : silence, time));
            channel->Feed(Sound(flash ? beep : silence, time + 20));
        }
    }
    for (const auto& channel : channels)
        channel->Tell(static_cast<double>(byHand) / 100);
    for (const auto& channel : channels)
        channel->End();
    // The devices, which write into the logs, close later than their channels end.
    return DeviceKeeper::Process().WaitIdle(10'000'000'000) ? 0 : 1;
}
