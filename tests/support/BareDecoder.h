// Libavcodec alone, with the same settings as the library's decoder: what pictures are compared with.
#pragma once

#include <functional>
#include <memory>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
}

#include "corvane/decoder.h"
#include "decoders/HeaderCheck.h"
#include "support/StreamMaker.h"

namespace corvane::test {

struct AVFrameFreer {
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
using BarePicture = std::unique_ptr<AVFrame, AVFrameFreer>;

inline AVCodecID CodecId(uint32_t streamType) {
    return streamType == CORVANE_STREAM_JPEG    ? AV_CODEC_ID_MJPEG
           : streamType == CORVANE_STREAM_MPEG4 ? AV_CODEC_ID_MPEG4
           : streamType == CORVANE_STREAM_H264  ? AV_CODEC_ID_H264
                                                : AV_CODEC_ID_HEVC;
}

// All pictures of the stream in the order of presentation, those that only an end of stream brings out included.
inline std::vector<BarePicture> BareDecode(uint32_t streamType, const std::vector<EncodedPicture>& stream) {
    AVCodecContext* context = avcodec_alloc_context3(avcodec_find_decoder(CodecId(streamType)));
    context->flags2 = AV_CODEC_FLAG2_FAST | (streamType == CORVANE_STREAM_H264 ? AV_CODEC_FLAG2_SHOW_ALL : 0);
    context->skip_loop_filter = AVDISCARD_NONREF;
    context->thread_count = 1;
    context->log_level_offset = 128;    // silent where it can be
    context->max_pixels = int64_t{kMaxCodedPixels};
    avcodec_open2(context, nullptr, nullptr);
    std::vector<BarePicture> pictures;
    const auto receive = [&] {
        BarePicture picture(av_frame_alloc());
        while (avcodec_receive_frame(context, picture.get()) >= 0) {
            pictures.push_back(std::move(picture));
            picture.reset(av_frame_alloc());
        }
    };
    AVPacket* packet = av_packet_alloc();
    for (const EncodedPicture& encoded : stream) {
        av_new_packet(packet, static_cast<int>(encoded.bytes.size()));
        std::copy(encoded.bytes.begin(), encoded.bytes.end(), packet->data);
        avcodec_send_packet(context, packet);
        av_packet_unref(packet);
        receive();
    }
    avcodec_send_packet(context, nullptr);
    receive();
    av_packet_free(&packet);
    avcodec_free_context(&context);
    return pictures;
}

// True when `rows` rows of `bytes` bytes are equal.
inline bool SameRows(const uint8_t* a, ptrdiff_t aStride, const uint8_t* b, ptrdiff_t b_stride, int bytes, int rows) {
    for (int y = 0; y < rows; ++y)
        if (!std::equal(a + y * aStride, a + y * aStride + bytes, b + y * b_stride))
            return false;
    return true;
}

// Size, luma and both chroma planes, (n + 1) / 2 samples for odd sizes.
inline bool SamePicture(const DecodedFrame& frame, const AVFrame& bare) {
    const int width = bare.width;
    const int height = bare.height;
    if (static_cast<int>(frame.width) != width || static_cast<int>(frame.height) != height)
        return false;
    for (int plane = 0; plane < 3; ++plane) {
        const int bytes = plane == 0 ? width : (width + 1) / 2;
        const int rows = plane == 0 ? height : (height + 1) / 2;
        if (!SameRows(frame.planes[plane], frame.strides[plane], bare.data[plane], bare.linesize[plane], bytes, rows))
            return false;
    }
    return true;
}

}    // namespace corvane::test
