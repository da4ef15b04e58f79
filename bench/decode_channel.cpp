// A decoder channel beside a loop by hand over libavcodec with the flags that the library sets: all pictures of a file
// into one buffer, flat out. Seconds of the processor, in turn, in one process; for decode_channel.sh.
//
//     decode_channel FILE.h264 ROUNDS                  one channel, one thread: I420, and BMP of 32 bits
//     decode_channel FILE.h264 ROUNDS CHANNELS THREADS pictures a second of many channels over those of one; memory of
//     each
#include <time.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "base/PictureLayout.h"
#include "corvane/corvane.h"
#include "kernels/YCbCrToRGB.h"
#include "picture/BmpFile.h"

namespace {

using namespace corvane;

struct Packet {
    std::vector<uint8_t> bytes;
    bool key;
};
using Stream = std::vector<Packet>;

Stream Read(const char* file) {
    AVFormatContext* format = nullptr;
    Stream stream;
    if (avformat_open_input(&format, file, nullptr, nullptr) < 0 || avformat_find_stream_info(format, nullptr) < 0)
        return stream;
    AVPacket* packet = av_packet_alloc();
    for (; av_read_frame(format, packet) >= 0; av_packet_unref(packet))
        stream.push_back({{packet->data, packet->data + packet->size}, (packet->flags & AV_PKT_FLAG_KEY) != 0});
    av_packet_free(&packet);
    avformat_close_input(&format);
    return stream;
}

class Bare {
public:
    explicit Bare(int threads) : m_context(avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_H264))) {
        m_context->flags2 = AV_CODEC_FLAG2_FAST | AV_CODEC_FLAG2_SHOW_ALL;
        m_context->skip_loop_filter = AVDISCARD_NONREF;
        m_context->thread_count = threads;
        avcodec_open2(m_context, nullptr, nullptr);
    }
    ~Bare() {
        av_frame_free(&m_frame);
        av_packet_free(&m_packet);
        avcodec_free_context(&m_context);
    }
    template <typename Show>
    void Decode(const Packet& unit, const Show& show) {
        av_new_packet(m_packet,
                      static_cast<int>(unit.bytes.size()));    // the copy that a program needs for the padding
        std::memcpy(m_packet->data, unit.bytes.data(), unit.bytes.size());
        avcodec_send_packet(m_context, m_packet);
        av_packet_unref(m_packet);
        while (avcodec_receive_frame(m_context, m_frame) >= 0)
            show(*m_frame);
    }

private:
    AVCodecContext* m_context;
    AVFrame* m_frame = av_frame_alloc();
    AVPacket* m_packet = av_packet_alloc();
};

class Channel {
public:
    Channel(void* instance, uint32_t format, size_t bytes) : m_instance(instance), m_memory(bytes) {
        const DecoderChannelSettings settings{nullptr, nullptr, format, 0};
        Corvane_CreateDecoderChannel(instance, &m_channel, &settings);
        Corvane_SetChannelOption(m_channel, CORVANE_OPTION_DECODER_THREADS, 1, 0);
    }
    ~Channel() { Corvane_DeleteDecoderChannel(m_instance, &m_channel); }
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    bool Decode(const Packet& unit) {
        MediaFrameHeader frame{};
        frame.data = unit.bytes.data();
        frame.payloadSize = static_cast<uint32_t>(unit.bytes.size());
        frame.streamType = CORVANE_STREAM_H264;
        frame.frameType = unit.key ? 0 : 1;
        frame.recordSize = sizeof frame;
        DecodedVideoInfo info{};
        info.capacity = static_cast<uint32_t>(m_memory.size());
        info.buffer = m_memory.data();
        uint32_t size = 0;
        Corvane_DecodeVideo(m_channel, &frame, &info, &size);
        return size != 0;
    }

private:
    void* const m_instance;
    std::vector<uint8_t> m_memory;
    void* m_channel = nullptr;
};

double ProcessorSeconds() {
    timespec now{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double Median(std::vector<double> values) {
    std::ranges::nth_element(values, values.begin() + static_cast<ptrdiff_t>(values.size() / 2));
    return values[values.size() / 2];
}

// Both in turn; the first pass of each warms up.
void Compare(const char* name, int rounds, const std::function<void()>& ours, const std::function<void()>& bare) {
    std::vector<double> times[2];
    std::vector<double> ratios;
    for (int round = -1; round < rounds; ++round) {
        double taken[2];
        for (const int which : {round & 1, 1 - (round & 1)}) {
            const double start = ProcessorSeconds();
            (which == 0 ? ours : bare)();
            taken[which] = ProcessorSeconds() - start;
        }
        if (round < 0)
            continue;
        times[0].push_back(taken[0]);
        times[1].push_back(taken[1]);
        ratios.push_back(taken[0] / taken[1]);
    }
    std::printf("%-6s channel %.3f s, by hand %.3f s, ratio %.3f\n", name, Median(times[0]), Median(times[1]),
                Median(ratios));
}

void CopyPlanes(const AVFrame& frame, uint8_t* to) {
    for (int plane = 0; plane < 3; ++plane) {
        const int shift = plane == 0 ? 0 : 1;
        const auto width = static_cast<uint32_t>(frame.width >> shift);
        const auto height = static_cast<uint32_t>(frame.height >> shift);
        for (uint32_t row = 0; row < height; ++row, to += width)
            std::memcpy(to, frame.data[plane] + row * static_cast<size_t>(frame.linesize[plane]), width);
    }
}

void ConvertToBmp(const AVFrame& frame, uint8_t* to) {
    const PictureSize size{static_cast<uint32_t>(frame.width), static_cast<uint32_t>(frame.height)};
    WriteBmpHeader(PF_BGRA32_FLIP, size.width, size.height, 4 * size.width * size.height, to);
    ConstPictureView from{.size = size, .format = PF_I420};
    for (int plane = 0; plane < 3; ++plane) {
        from.plane[plane] = frame.data[plane];
        from.stride[plane] = frame.linesize[plane];
    }
    (void)kernels::YCbCrToRGB(from, LayOut(to + 54, 4 * size.width, size, PF_BGRA32_FLIP));
}

// Bytes of this process that are resident and no file's.
double ResidentMiB() {
    FILE* const file = std::fopen("/proc/self/smaps_rollup", "r");
    char line[256];
    double kilobytes = 0;
    while (file != nullptr && std::fgets(line, sizeof line, file) != nullptr)
        if (std::sscanf(line, "Anonymous: %lf", &kilobytes) == 1)
            break;
    if (file != nullptr)
        std::fclose(file);
    return kilobytes / 1024;
}

// Pictures a second of so many channels, shared out to the threads.
double Rate(void* instance, const Stream& stream, size_t channels, size_t threads, size_t bytes) {
    std::atomic<uint64_t> pictures{0};
    const auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> workers;
    for (size_t thread = 0; thread < threads; ++thread)
        workers.emplace_back([&, thread] {
            std::vector<std::unique_ptr<Channel>> own;
            for (size_t i = thread; i < channels; i += threads)
                own.push_back(std::make_unique<Channel>(instance, CORVANE_PICTURE_I420, bytes));
            for (const Packet& unit : stream)
                for (const auto& channel : own)
                    pictures += channel->Decode(unit) ? 1 : 0;
        });
    for (std::thread& worker : workers)
        worker.join();
    return static_cast<double>(pictures) /
           std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void Many(void* instance, const Stream& stream, int rounds, size_t channels, size_t threads, size_t bytes) {
    std::vector<double> ratios;
    for (int round = 0; round < rounds; ++round) {
        const double one = Rate(instance, stream, 1, 1, bytes);
        ratios.push_back(Rate(instance, stream, channels, threads, bytes) / one);
    }
    // What a channel holds beyond a bare decoder, each fed with the first pictures.
    const size_t fed = std::min<size_t>(stream.size(), 30);
    std::vector<std::unique_ptr<Bare>> bare;
    const double before = ResidentMiB();
    for (size_t i = 0; i < channels; ++i)
        for (bare.push_back(std::make_unique<Bare>(1)); const Packet& unit : std::span(stream).first(fed))
            bare.back()->Decode(unit, [](const AVFrame&) {});
    const double alone = ResidentMiB() - before;
    std::vector<std::unique_ptr<Channel>> own;
    const double middle = ResidentMiB();
    for (size_t i = 0; i < channels; ++i)
        for (own.push_back(std::make_unique<Channel>(instance, CORVANE_PICTURE_I420, bytes));
             const Packet& unit : std::span(stream).first(fed))
            own.back()->Decode(unit);
    const double ours = ResidentMiB() - middle;
    const auto count = static_cast<double>(channels);
    std::printf("%zu channels in %zu threads: %.2f times the pictures of one; MiB each: %.2f, decoder alone %.2f\n",
                channels, threads, Median(ratios), (ours - count * static_cast<double>(bytes) / (1 << 20)) / count,
                alone / count);
}

}    // namespace

int main(int argc, char** argv) {
    const Stream stream = argc >= 3 ? Read(argv[1]) : Stream();
    const int rounds = argc >= 3 ? std::max(1, std::atoi(argv[2])) : 0;
    if (stream.empty()) {
        std::fprintf(stderr, "decode_channel FILE.h264 ROUNDS [CHANNELS THREADS]\n");
        return 2;
    }
    AVFrame* first = nullptr;
    Bare(1).Decode(stream[0], [&](const AVFrame& frame) { first = av_frame_clone(&frame); });
    const auto pixels = static_cast<size_t>(first->width) * static_cast<size_t>(first->height);
    av_frame_free(&first);
    void* instance = nullptr;
    Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, CORVANE_FLAG_DECODE_ONLY);
    if (argc >= 5) {
        Many(instance, stream, rounds, static_cast<size_t>(std::atoi(argv[3])), static_cast<size_t>(std::atoi(argv[4])),
             pixels * 3 / 2);
    } else {
        std::vector<uint8_t> memory(4 * pixels + 54);
        const auto ours = [&](uint32_t format) {
            Channel channel(instance, format, memory.size());
            for (const Packet& unit : stream)
                channel.Decode(unit);
        };
        const auto bare = [&](void (*show)(const AVFrame&, uint8_t*)) {
            Bare decoder(1);
            for (const Packet& unit : stream)
                decoder.Decode(unit, [&](const AVFrame& frame) { show(frame, memory.data()); });
        };
        Compare(
            "I420", rounds, [&] { ours(CORVANE_PICTURE_I420); }, [&] { bare(&CopyPlanes); });
        Compare(
            "BMP32", rounds, [&] { ours(CORVANE_PICTURE_BMP_BGRA32); }, [&] { bare(&ConvertToBmp); });
    }
    Corvane_Release(&instance);
    return 0;
}
