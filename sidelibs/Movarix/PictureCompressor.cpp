#include "PictureCompressor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>

extern "C" {
#include <libavutil/imgutils.h>
#include <libavutil/opt.h>
}

#include "Writer.h"

namespace movarix {

namespace {

constexpr uint32_t kMaxSide = 16384;
constexpr uint64_t kMaxPixels = 1 << 26;

struct RawFormat {
    uint32_t format;
    AVPixelFormat pixels;
};
constexpr RawFormat kRawFormats[] = {
    {CORVANE_PICTURE_YUY2, AV_PIX_FMT_YUYV422},    {CORVANE_PICTURE_RGB565, AV_PIX_FMT_RGB565LE},
    {CORVANE_PICTURE_BGR24, AV_PIX_FMT_BGR24},     {CORVANE_PICTURE_BGRA32, AV_PIX_FMT_BGR0},
    {CORVANE_PICTURE_RGB555, AV_PIX_FMT_RGB555LE}, {CORVANE_PICTURE_I420, AV_PIX_FMT_YUV420P},
    {CORVANE_PICTURE_BGR565, AV_PIX_FMT_BGR565LE}, {CORVANE_PICTURE_RGB24, AV_PIX_FMT_RGB24},
    {CORVANE_PICTURE_RGBA32, AV_PIX_FMT_RGB0},     {CORVANE_PICTURE_BGR555, AV_PIX_FMT_BGR555LE},
    {CORVANE_PICTURE_YV12, AV_PIX_FMT_YUV420P},    {CORVANE_PICTURE_UYVY, AV_PIX_FMT_UYVY422},
    {CORVANE_PICTURE_NV12, AV_PIX_FMT_NV12},
};

const RawFormat* Find(uint32_t format) {
    const auto* const found = std::find_if(std::begin(kRawFormats), std::end(kRawFormats),
                                           [&](const RawFormat& raw) { return raw.format == format; });
    return found == std::end(kRawFormats) ? nullptr : found;
}

// Bytes of a picture without padding, as raw pictures lie in memory.
uint64_t PackedBytes(AVPixelFormat pixels, uint64_t width, uint64_t height) {
    if (pixels == AV_PIX_FMT_YUV420P || pixels == AV_PIX_FMT_NV12)
        return (width * height * 3 + 1) / 2;
    return width * height *
           (pixels == AV_PIX_FMT_BGR24 || pixels == AV_PIX_FMT_RGB24 ? 3
            : pixels == AV_PIX_FMT_BGR0 || pixels == AV_PIX_FMT_RGB0 ? 4
                                                                     : 2);
}

uint32_t CheckPicture(const RawPictureInfo& picture) {
    const RawFormat* const raw = Find(picture.format);
    if (raw == nullptr)
        return Status_UnsupportedMedia;
    if (picture.pixels == nullptr || picture.width < 2 || picture.height < 2 || picture.width > kMaxSide ||
        picture.height > kMaxSide || uint64_t{picture.width} * picture.height > kMaxPixels ||
        picture.size < picture.prefix ||
        picture.size - picture.prefix < PackedBytes(raw->pixels, picture.width, picture.height))
        return Status_InvalidArgument;
    return Status_Ok;
}

FramePtr NewFrame(AVPixelFormat pixels, int width, int height) {
    auto frame = Made<FramePtr>(av_frame_alloc());
    frame->format = pixels;
    frame->width = width;
    frame->height = height;
    if (av_frame_get_buffer(frame.get(), 0) < 0)
        throw std::bad_alloc();
    return frame;
}

// The rows of `picture` in a frame of even size, whose rows the scaler may read beyond their ends.
FramePtr CopyRows(const RawPictureInfo& picture, const RawFormat& raw) {
    const int width = static_cast<int>(picture.width & ~1u), height = static_cast<int>(picture.height & ~1u);
    FramePtr frame = NewFrame(raw.pixels, width, height);
    const uint8_t* from = picture.pixels;
    const auto copy = [&](int plane, size_t rowBytes, size_t used, uint32_t rows, uint32_t usedRows) {
        for (uint32_t row = 0; row < rows; ++row, from += rowBytes)
            if (row < usedRows)
                std::memcpy(frame->data[plane] + ptrdiff_t{frame->linesize[plane]} * static_cast<int>(row), from, used);
    };
    const auto usedRows = static_cast<uint32_t>(height), usedPixels = static_cast<uint32_t>(width);
    const uint32_t half = picture.height / 2;
    if (raw.pixels == AV_PIX_FMT_YUV420P) {
        const bool vFirst = raw.format == CORVANE_PICTURE_YV12;
        copy(0, picture.width, usedPixels, picture.height, usedRows);
        copy(vFirst ? 2 : 1, picture.width / 2, usedPixels / 2, half, half);
        copy(vFirst ? 1 : 2, picture.width / 2, usedPixels / 2, half, half);
    } else if (raw.pixels == AV_PIX_FMT_NV12) {
        copy(0, picture.width, usedPixels, picture.height, usedRows);
        copy(1, picture.width, usedPixels, half, half);
    } else {
        const size_t pixel = PackedBytes(raw.pixels, 1, 1);
        copy(0, picture.width * pixel, usedPixels * pixel, picture.height, usedRows);
    }
    return frame;
}

const AVCodec* EncoderOf(uint32_t type) {
    return type == CORVANE_STREAM_H264   ? avcodec_find_encoder_by_name("libx264")
           : type == CORVANE_STREAM_JPEG ? avcodec_find_encoder(AV_CODEC_ID_MJPEG)
                                         : avcodec_find_encoder(AV_CODEC_ID_MPEG4);
}

}    // namespace

uint32_t PictureCompressor::Check(uint32_t type) {
    return type == 0 || EncoderOf(type) != nullptr ? Status_Ok : Status_NotSupported;
}

// Raw pictures in RGB are made with full-range BT.601 by libcorvane; so they become again what they were made of.
FramePtr PictureCompressor::Convert(const RawPictureInfo& picture) {
    const RawFormat& raw = *Find(picture.format);
    FramePtr from = CopyRows(picture, raw);
    if (raw.pixels == AV_PIX_FMT_YUV420P)
        return from;
    if (m_scaler == nullptr || m_scalerFormat != picture.format || m_codec == nullptr) {
        m_scaler = Made<ScalerPtr>(sws_getContext(from->width, from->height, raw.pixels, from->width, from->height,
                                                  AV_PIX_FMT_YUV420P, SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr,
                                                  nullptr));
        const int* const bt601 = sws_getCoefficients(SWS_CS_ITU601);
        sws_setColorspaceDetails(m_scaler.get(), bt601, 1, bt601, 1, 0, 1 << 16, 1 << 16);
        m_scalerFormat = picture.format;
    }
    FramePtr to = NewFrame(AV_PIX_FMT_YUV420P, from->width, from->height);
    sws_scale(m_scaler.get(), from->data, from->linesize, 0, from->height, to->data, to->linesize);
    return to;
}

uint32_t PictureCompressor::Open(int width, int height, int64_t stepMs) {
    const AVCodec* const encoder = EncoderOf(m_settings.type);
    if (encoder == nullptr)
        return Status_NotSupported;
    const int perSecond =
        static_cast<int>(std::clamp<int64_t>(stepMs <= 0 ? 25 : (1000 + stepMs / 2) / stepMs, 1, 120));
    auto codec = Made<CodecPtr>(avcodec_alloc_context3(encoder));
    codec->log_level_offset = kSilent;
    codec->thread_count = 1;
    codec->width = width;
    codec->height = height;
    codec->pix_fmt = AV_PIX_FMT_YUV420P;
    codec->time_base = {1, perSecond};
    codec->framerate = {perSecond, 1};
    codec->max_b_frames = 0;
    codec->gop_size = m_settings.keyInterval != 0 ? static_cast<int>(m_settings.keyInterval) : 2 * perSecond;
    codec->bit_rate = m_settings.bitRate != 0 ? int64_t{m_settings.bitRate}
                                              : std::max<int64_t>(int64_t{width} * height * perSecond / 8, 64'000);
    if (m_settings.type == CORVANE_STREAM_JPEG) {
        codec->strict_std_compliance =
            FF_COMPLIANCE_UNOFFICIAL;    // samples stay as they are; the file says their range
        codec->color_range = AVCOL_RANGE_MPEG;
        if (m_settings.bitRate == 0) {
            constexpr int kFine = 3;
            codec->flags |= AV_CODEC_FLAG_QSCALE;
            codec->global_quality = kFine * FF_QP2LAMBDA;
        }
    } else if (m_settings.type == CORVANE_STREAM_H264) {
        av_opt_set(codec->priv_data, "preset", "veryfast", 0);
        av_opt_set(codec->priv_data, "tune", "zerolatency", 0);
        av_opt_set(codec->priv_data, "forced-idr", "1", 0);
    }
    if (avcodec_open2(codec.get(), encoder, nullptr) < 0)
        return Status_UnsupportedMedia;
    m_codec = std::move(codec);
    m_packet = Made<PacketPtr>(av_packet_alloc());
    m_count = 0;
    m_times.clear();
    return Status_Ok;
}

uint32_t PictureCompressor::Encode(AVFrame& frame, int64_t timeMs, bool wantsKey, const Sink& sink) {
    frame.pts = m_count++;
    frame.pict_type = wantsKey ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
    frame.quality = m_codec->global_quality;
    if (const int result = avcodec_send_frame(m_codec.get(), &frame); result < 0)
        return result == AVERROR(ENOMEM) ? Status_OutOfMemory : Status_Failed;
    m_times.push_back(timeMs);
    uint32_t status = Status_Ok;
    while (!m_times.empty() && avcodec_receive_packet(m_codec.get(), m_packet.get()) >= 0) {
        Picture picture;
        picture.bytes = {m_packet->data, static_cast<size_t>(m_packet->size)};
        picture.key = picture.begins = (m_packet->flags & AV_PKT_FLAG_KEY) != 0;
        picture.timeMs = m_times.front();
        picture.format = {m_settings.type, static_cast<uint32_t>(m_codec->width),
                          static_cast<uint32_t>(m_codec->height)};
        m_times.pop_front();
        const uint32_t result = sink(picture);
        status = Failed(status) ? status : result;
        av_packet_unref(m_packet.get());
    }
    return status;
}

uint32_t PictureCompressor::Add(const RawPictureInfo& picture, int64_t timeMs, bool wantsKey, const Sink& sink) {
    if (const uint32_t status = CheckPicture(picture); Failed(status))
        return status;
    const int width = static_cast<int>(picture.width & ~1u), height = static_cast<int>(picture.height & ~1u);
    const bool differs = m_codec != nullptr
                             ? m_codec->width != width || m_codec->height != height
                             : m_first != nullptr && (m_first->width != width || m_first->height != height);
    uint32_t status = Status_Ok;
    if (differs) {
        status = Flush(sink);
        m_codec.reset();
    }
    FramePtr frame = Convert(picture);
    if (m_codec == nullptr && m_first == nullptr) {
        m_first = std::move(frame);
        m_firstMs = timeMs;
        return status;
    }
    if (m_first != nullptr) {
        const FramePtr first = std::move(m_first);
        status = Open(width, height, timeMs - m_firstMs);
        if (!Failed(status))
            status = Encode(*first, m_firstMs, true, sink);
        wantsKey = false;    // it was one
    }
    return Failed(status) ? status : Encode(*frame, timeMs, wantsKey, sink);
}

uint32_t PictureCompressor::Flush(const Sink& sink) {
    if (m_first == nullptr)
        return Status_Ok;
    const FramePtr first = std::move(m_first);
    const uint32_t status = Open(first->width, first->height, 0);
    return Failed(status) ? status : Encode(*first, m_firstMs, true, sink);
}

}    // namespace movarix
