// What the player is measured against: the same file, demuxed, paced and decoded with the same flags and threads, and
// nothing done with the pictures. decode_only FILE THREADS SECONDS [DECODERS]
extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>
#include <vector>

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "decode_only FILE THREADS SECONDS [DECODERS]\n");
        return 2;
    }
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, argv[1], nullptr, nullptr) < 0 || avformat_find_stream_info(format, nullptr) < 0)
        return 1;
    const int stream = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    const int count = argc > 4 ? std::atoi(argv[4]) : 1;
    std::vector<AVCodecContext*> contexts;
    for (int i = 0; i < count; ++i) {
        AVCodecContext* context =
            avcodec_alloc_context3(avcodec_find_decoder(format->streams[stream]->codecpar->codec_id));
        avcodec_parameters_to_context(context, format->streams[stream]->codecpar);
        context->workaround_bugs = FF_BUG_AUTODETECT;
        context->flags2 = AV_CODEC_FLAG2_FAST | (context->codec_id == AV_CODEC_ID_H264 ? AV_CODEC_FLAG2_SHOW_ALL : 0);
        context->skip_loop_filter = AVDISCARD_NONREF;
        context->thread_count = std::atoi(argv[2]);
        if (avcodec_open2(context, nullptr, nullptr) < 0)
            return 1;
        contexts.push_back(context);
    }
    AVPacket* packet = av_packet_alloc();
    AVFrame* frame = av_frame_alloc();
    const auto start = std::chrono::steady_clock::now();
    const double limit = std::atof(argv[3]);
    int pictures = 0;
    while (av_read_frame(format, packet) >= 0) {
        if (packet->stream_index == stream) {
            const double due = static_cast<double>(packet->dts) * av_q2d(format->streams[stream]->time_base);
            if (due >= limit)
                break;
            std::this_thread::sleep_until(
                start + std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::duration<double>(due)));
            for (AVCodecContext* context : contexts) {
                avcodec_send_packet(context, packet);
                while (avcodec_receive_frame(context, frame) >= 0)
                    ++pictures;
            }
        }
        av_packet_unref(packet);
    }
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    std::printf("%d %.3f %.1f\n", pictures, seconds(usage.ru_utime) + seconds(usage.ru_stime),
                static_cast<double>(usage.ru_maxrss) / 1024);
    for (AVCodecContext* context : contexts)
        avcodec_free_context(&context);
    av_frame_free(&frame);
    av_packet_free(&packet);
    avformat_close_input(&format);
    return 0;
}
