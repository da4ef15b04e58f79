// The main loop of a program that plays a file without the library: demuxed, paced by the decoding times, decoded with
// the flags that the library sets.
#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <chrono>
#include <thread>
#include <vector>

namespace corvane::bench {

// Plays `seconds` of the file's video through each of `decoders` decoders and hands every picture to `show`, until that
// returns false. Returns the number of pictures, -1 where the file cannot be played.
template <typename Show>
int PacedDecode(const char* file, int threads, double seconds, int decoders, const Show& show) {
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, file, nullptr, nullptr) < 0 || avformat_find_stream_info(format, nullptr) < 0)
        return -1;
    const int stream = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (stream < 0)
        return -1;
    std::vector<AVCodecContext*> contexts;
    for (int i = 0; i < decoders; ++i) {
        AVCodecContext* context =
            avcodec_alloc_context3(avcodec_find_decoder(format->streams[stream]->codecpar->codec_id));
        avcodec_parameters_to_context(context, format->streams[stream]->codecpar);
        context->workaround_bugs = FF_BUG_AUTODETECT;
        context->flags2 = AV_CODEC_FLAG2_FAST | (context->codec_id == AV_CODEC_ID_H264 ? AV_CODEC_FLAG2_SHOW_ALL : 0);
        context->skip_loop_filter = AVDISCARD_NONREF;
        context->thread_count = threads;
        if (avcodec_open2(context, nullptr, nullptr) < 0)
            return -1;
        contexts.push_back(context);
    }
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    const auto start = std::chrono::steady_clock::now();
    int pictures = 0;
    bool more = true;
    for (; more && av_read_frame(format, packet) >= 0; av_packet_unref(packet)) {
        if (packet->stream_index != stream)
            continue;
        const std::chrono::duration<double> due(static_cast<double>(packet->dts) *
                                                av_q2d(format->streams[stream]->time_base));
        if (due.count() >= seconds)
            break;
        std::this_thread::sleep_until(start + std::chrono::duration_cast<std::chrono::nanoseconds>(due));
        for (AVCodecContext* context : contexts) {
            avcodec_send_packet(context, packet);
            while (more && avcodec_receive_frame(context, frame) >= 0) {
                ++pictures;
                more = show(*frame);
            }
        }
    }
    for (AVCodecContext* context : contexts)
        avcodec_free_context(&context);
    av_frame_free(&frame);
    av_packet_free(&packet);
    avformat_close_input(&format);
    return pictures;
}

}    // namespace corvane::bench
