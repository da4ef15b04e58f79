// The time until a new channel shows its first picture: from the input of the first key frame (buffer 1 ms, one decoder
// thread, no B-frames) to the picture in memory or on the window, beside opening a decoder and decoding the same frame
// alone. In turn, in one process; the channel may take 2 ms more.
extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

#include "corvane/corvane.h"
#include "support/Latch.h"
#include "support/StreamMaker.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace {

using Time = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

constexpr int kRounds = 60;

double Since(Time::time_point start) {
    return std::chrono::duration<double, std::milli>(Time::now() - start).count();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// The flags that the library decodes with.
double DecodeAlone(const Bytes& bytes) {
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    av_new_packet(packet, static_cast<int>(bytes.size()));
    std::copy(bytes.begin(), bytes.end(), packet->data);
    const auto start = Time::now();
    AVCodecContext* context = avcodec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_H264));
    context->flags2 = AV_CODEC_FLAG2_FAST | AV_CODEC_FLAG2_SHOW_ALL;
    context->skip_loop_filter = AVDISCARD_NONREF;
    context->thread_count = 1;
    if (avcodec_open2(context, nullptr, nullptr) < 0 || avcodec_send_packet(context, packet) < 0 ||
        avcodec_receive_frame(context, frame) < 0)
        std::abort();
    const double time = Since(start);
    avcodec_free_context(&context);
    av_frame_free(&frame);
    av_packet_free(&packet);
    return time;
}

struct Arrival {
    Time::time_point at;
    corvane::test::Gate latch;

    void Note() {
        if (at == Time::time_point())
            at = Time::now();
        latch.Open();
    }
};

// `window`: 0 for a picture in memory.
double ThroughChannel(void* instance, const Bytes& bytes, uint32_t window) {
    Arrival arrival;
    void* channel = nullptr;
    ChannelSettings settings{};
    settings.window = window;
    Corvane_CreateChannel(instance, &channel, &settings);
    if (window == 0)
        Corvane_RegisterRawDataCallback(
            channel, [](void* context, const PseudoFrame*) { static_cast<Arrival*>(context)->Note(); }, &arrival, 4, 0);
    else
        Corvane_RegisterAfterDisplayCallback(
            channel, [](void* context, const AfterDisplayRecord*) { static_cast<Arrival*>(context)->Note(); },
            &arrival);
    Corvane_SetBufferTime(channel, 1);
    Corvane_SetChannelOption(channel, 48, 1, 0);
    Corvane_StartChannel(channel, 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));    // its threads run, and the window is known
    const MediaFrameHeader header = corvane::test::VideoHeader(CORVANE_STREAM_H264, bytes, true, 1'000'000);
    const auto start = Time::now();
    Corvane_InputEncodedMediaFrame(channel, &header);
    arrival.latch.Wait();
    Corvane_DeleteChannel(instance, &channel);
    return std::chrono::duration<double, std::milli>(arrival.at - start).count();
}

void Compare(void* instance, corvane::test::XClient& owner, int width, int height, bool inWindow) {
    const Bytes bytes =
        corvane::test::MakeVideo({.width = width, .height = height, .frames = 1, .gop = 1}).front().bytes;
    const uint32_t window =
        inWindow ? owner.Create({.width = static_cast<uint16_t>(width), .height = static_cast<uint16_t>(height)}) : 0;
    std::vector<double> alone;
    std::vector<double> ours;
    std::vector<double> above;
    for (int round = 0; round < kRounds; ++round) {
        alone.push_back(DecodeAlone(bytes));
        ours.push_back(ThroughChannel(instance, bytes, window));
        above.push_back(ours.back() - alone.back());
    }
    std::printf(
        "%4d x %-4d %-9s decode alone %6.2f ms  first picture %6.2f ms  above it: median %5.2f ms  worst %6.2f ms\n",
        width, height, inWindow ? "window" : "memory", Median(alone), Median(ours), Median(above),
        *std::max_element(above.begin(), above.end()));
    std::fflush(stdout);
}

}    // namespace

int main() {
    corvane::test::XServer server({.width = 1920, .height = 1080});
    if (!server.Running())
        return 1;
    corvane::test::XClient owner(server.Display());
    void* instance = nullptr;
    Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0);
    std::printf("goal: 2 ms above decoding; medians of %d\n", kRounds);
    for (const bool inWindow : {false, true}) {
        Compare(instance, owner, 1280, 720, inWindow);
        Compare(instance, owner, 1920, 1080, inWindow);
    }
    Corvane_Release(&instance);
    return 0;
}
