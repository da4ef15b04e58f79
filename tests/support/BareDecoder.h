// Libavcodec alone, with the same settings as the library's decoder: the reference for pictures.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libswscale/swscale.h>
}

#include "corvane/decoder.h"
#include "decoders/HeaderCheck.h"
#include "support/StreamMaker.h"

namespace corvane::test {

struct Freer {
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
using ContextPtr = std::unique_ptr<AVCodecContext, Freer>;
using BarePicture = std::unique_ptr<AVFrame, Freer>;
using PacketPtr = std::unique_ptr<AVPacket, Freer>;

inline AVCodecID CodecId(uint32_t streamType) {
    return streamType == CORVANE_STREAM_JPEG    ? AV_CODEC_ID_MJPEG
           : streamType == CORVANE_STREAM_H263  ? AV_CODEC_ID_H263
           : streamType == CORVANE_STREAM_MPEG4 ? AV_CODEC_ID_MPEG4
           : streamType == CORVANE_STREAM_H264  ? AV_CODEC_ID_H264
                                                : AV_CODEC_ID_HEVC;
}

// All pictures of the stream in the order of presentation, those that only an end of stream brings out included. `pts`
// of each is the index of the unit that it came from; `*beforeEnd` becomes the number of those before the end.
inline std::vector<BarePicture> BareDecode(uint32_t streamType, const std::vector<EncodedPicture>& stream,
                                           uint32_t threads = 1, size_t* beforeEnd = nullptr) {
    const ContextPtr context(avcodec_alloc_context3(avcodec_find_decoder(CodecId(streamType))));
    context->flags2 = AV_CODEC_FLAG2_FAST | (streamType == CORVANE_STREAM_H264 ? AV_CODEC_FLAG2_SHOW_ALL : 0);
    context->skip_loop_filter = AVDISCARD_NONREF;
    context->thread_count = static_cast<int>(threads);
    context->log_level_offset = 128;    // silent where it can be
    context->max_pixels = int64_t{kMaxCodedPixels};
    avcodec_open2(context.get(), nullptr, nullptr);
    std::vector<BarePicture> pictures;
    const auto receive = [&] {
        BarePicture picture(av_frame_alloc());
        while (avcodec_receive_frame(context.get(), picture.get()) >= 0) {
            pictures.push_back(std::move(picture));
            picture.reset(av_frame_alloc());
        }
    };
    const PacketPtr packet(av_packet_alloc());
    for (const EncodedPicture& encoded : stream) {
        if (encoded.bytes.empty())
            continue;    // would end the stream
        av_new_packet(packet.get(), static_cast<int>(encoded.bytes.size()));
        std::copy(encoded.bytes.begin(), encoded.bytes.end(), packet->data);
        packet->pts = &encoded - stream.data();
        avcodec_send_packet(context.get(), packet.get());
        av_packet_unref(packet.get());
        receive();
    }
    if (beforeEnd != nullptr)
        *beforeEnd = pictures.size();
    avcodec_send_packet(context.get(), nullptr);
    receive();
    return pictures;
}

// The same samples in three planes of 4:2:0; full range stays full range.
inline BarePicture To420(const AVFrame& bare) {
    BarePicture out(av_frame_alloc());
    if (bare.format == AV_PIX_FMT_YUV420P || bare.format == AV_PIX_FMT_YUVJ420P) {
        av_frame_ref(out.get(), &bare);
        return out;
    }
    const AVPixelFormat format = bare.format == AV_PIX_FMT_YUVJ422P   ? AV_PIX_FMT_YUV422P
                                 : bare.format == AV_PIX_FMT_YUVJ444P ? AV_PIX_FMT_YUV444P
                                                                      : static_cast<AVPixelFormat>(bare.format);
    out->format = AV_PIX_FMT_YUV420P;
    out->width = bare.width;
    out->height = bare.height;
    av_frame_get_buffer(out.get(), 32);
    SwsContext* scaler = sws_getContext(bare.width, bare.height, format, bare.width, bare.height, AV_PIX_FMT_YUV420P,
                                        SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
    sws_scale(scaler, bare.data, bare.linesize, 0, bare.height, out->data, out->linesize);
    sws_freeContext(scaler);
    return out;
}

// Size, luma and both chroma planes, (n + 1) / 2 samples for odd sizes.
inline bool SamePicture(const DecodedFrame& frame, const AVFrame& bare) {
    const BarePicture wanted = To420(bare);
    if (static_cast<int>(frame.width) != bare.width || static_cast<int>(frame.height) != bare.height)
        return false;
    for (int plane = 0; plane < 3; ++plane)
        for (int y = 0; y < (plane == 0 ? bare.height : (bare.height + 1) / 2); ++y)
            if (std::memcmp(frame.planes[plane] + y * ptrdiff_t{frame.strides[plane]},
                            wanted->data[plane] + y * ptrdiff_t{wanted->linesize[plane]},
                            static_cast<size_t>(plane == 0 ? bare.width : (bare.width + 1) / 2)) != 0)
                return false;
    return true;
}

}    // namespace corvane::test
