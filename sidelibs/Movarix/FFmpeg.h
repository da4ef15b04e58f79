// Owners of what libavformat and libavcodec allocate.
#pragma once

#include <memory>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswscale/swscale.h>
}

namespace movarix {

struct Freer {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVCodecParserContext* parser) const { av_parser_close(parser); }
    void operator()(AVFormatContext* context) const { avformat_free_context(context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(SwsContext* scaler) const { sws_freeContext(scaler); }
    void operator()(AVIOContext* context) const {
        av_freep(&context->buffer);
        avio_context_free(&context);
    }
};
using CodecPtr = std::unique_ptr<AVCodecContext, Freer>;
using ParserPtr = std::unique_ptr<AVCodecParserContext, Freer>;
using FormatPtr = std::unique_ptr<AVFormatContext, Freer>;
using FramePtr = std::unique_ptr<AVFrame, Freer>;
using PacketPtr = std::unique_ptr<AVPacket, Freer>;
using ScalerPtr = std::unique_ptr<SwsContext, Freer>;
using IoPtr = std::unique_ptr<AVIOContext, Freer>;

// What an allocating function returned. Raises std::bad_alloc for null.
template <typename Pointer, typename Raw>
Pointer Made(Raw* raw) {
    if (raw == nullptr)
        throw std::bad_alloc();
    return Pointer(raw);
}

inline constexpr int kSilent = 128;    // log_level_offset: the library prints nothing

}    // namespace movarix
