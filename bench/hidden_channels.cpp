// The cost of channels that are not visible: four of 1280x720 at 25 pictures/s, shown, with unmapped windows, with
// presenting switched off, and paused (started, but nothing is fed), beside as many decoders alone with the same input.
// Processor time of the process only.
extern "C" {
#include <libavcodec/avcodec.h>
}

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <thread>
#include <vector>

#include "corvane/corvane.h"
#include "support/StreamMaker.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace {

using corvane::test::EncodedPicture;

constexpr int kChannels = 4;
constexpr int kPictures = 125;
constexpr int kStepMs = 40;

double ProcessorMs() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) * 1e-3;
    };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

struct State {
    const char* name;
    bool mapped, presents, fed;
};

using Stream = std::vector<EncodedPicture>;

// Processor milliseconds while `feed` gets the pictures at their times.
double Paced(const Stream& stream, const std::function<void(int number, const EncodedPicture&)>& feed) {
    const double before = ProcessorMs();
    const auto start = std::chrono::steady_clock::now();
    for (int number = 0; number < kPictures; ++number) {
        feed(number, stream[static_cast<size_t>(number) % stream.size()]);
        std::this_thread::sleep_until(start + std::chrono::milliseconds((number + 1) * kStepMs));
    }
    return ProcessorMs() - before;
}

// With the flags that the library decodes with.
double DecodeAlone(const Stream& stream) {
    std::vector<AVCodecContext*> contexts(kChannels);
    for (AVCodecContext*& context : contexts) {
        context = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_H264));
        context->flags2 = AV_CODEC_FLAG2_FAST | AV_CODEC_FLAG2_SHOW_ALL;
        context->skip_loop_filter = AVDISCARD_NONREF;
        context->thread_count = 1;
        avcodec_open2(context, nullptr, nullptr);
    }
    AVFrame* frame = av_frame_alloc();
    const double used = Paced(stream, [&](int, const EncodedPicture& picture) {
        for (AVCodecContext* const context : contexts) {
            AVPacket* packet = av_packet_alloc();
            av_new_packet(packet, static_cast<int>(picture.bytes.size()));
            std::copy(picture.bytes.begin(), picture.bytes.end(), packet->data);
            avcodec_send_packet(context, packet);
            while (avcodec_receive_frame(context, frame) >= 0) {
            }
            av_packet_free(&packet);
        }
    });
    av_frame_free(&frame);
    for (AVCodecContext*& context : contexts)
        avcodec_free_context(&context);
    return used;
}

double Play(void* instance, corvane::test::XClient& owner, const State& state, const Stream& stream) {
    std::vector<void*> channels(kChannels);
    for (int i = 0; i < kChannels; ++i) {
        ChannelSettings settings{};
        settings.mask = 0x2000;
        settings.presentEnabled = state.presents ? 1 : 0;
        settings.window = owner.Create({.x = static_cast<int16_t>(i % 2 * 640),
                                        .y = static_cast<int16_t>(i / 2 * 360),
                                        .width = 640,
                                        .height = 360,
                                        .mapped = state.mapped});
        void*& channel = channels[static_cast<size_t>(i)];
        Corvane_CreateChannel(instance, &channel, &settings);
        Corvane_SetChannelOption(channel, 48, 1, 0);
        Corvane_StartChannel(channel, 0);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const double used = Paced(stream, [&](int number, const EncodedPicture& picture) {
        const MediaFrameHeader header =
            corvane::test::VideoHeader(CORVANE_STREAM_H264, picture.bytes, picture.key, 1'000'000 + number * kStepMs);
        for (void* const channel : channels)
            if (state.fed)
                Corvane_InputEncodedMediaFrame(channel, &header);
    });
    for (void*& channel : channels)
        Corvane_DeleteChannel(instance, &channel);
    return used;
}

}    // namespace

int main() {
    corvane::test::XServer server({.width = 1280, .height = 720});
    if (!server.Running())
        return 1;
    corvane::test::XClient owner(server.Display());
    void* instance = nullptr;
    Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0);
    const Stream stream = corvane::test::MakeVideo({.width = 1280, .height = 720, .frames = 50, .gop = 25});
    const State states[] = {{"shown", true, true, true},
                            {"unmapped", false, true, true},
                            {"presenting off", true, false, true},
                            {"paused", true, true, false}};
    std::printf("%d channels, %d pictures each\n", kChannels, kPictures);
    const double alone = DecodeAlone(stream);
    const auto tell = [alone](const char* name, double used) {
        std::printf("%-16s processor %8.1f ms, %5.2f ms a picture, %.3f of decoding alone\n", name, used,
                    used / (kChannels * kPictures), used / alone);
        std::fflush(stdout);
    };
    tell("decoding alone", alone);
    for (const State& state : states)
        tell(state.name, Play(instance, owner, state, stream));
    Corvane_Release(&instance);
    return 0;
}
