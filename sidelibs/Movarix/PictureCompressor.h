// Encodes raw pictures, on the caller's thread, without delay but for the first picture: it waits for the second, which
// shows the rate. Pictures of one size after the other; another size begins another encoder, so that it begins with a
// key frame.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>

#include "FFmpeg.h"
#include "Unit.h"

namespace movarix {

class PictureCompressor {
public:
    using Sink = std::function<uint32_t(const Picture&)>;

    // Status_NotSupported: this libavcodec has no encoder of the type.
    static uint32_t Check(uint32_t type);

    explicit PictureCompressor(const MovarixCompressor& settings) : m_settings(settings) {}

    // Encodes `picture`; an odd last row or column is left out. `wantsKey`: as a key frame. Encoded pictures go to
    // `sink`. Returns its first negative status; Status_InvalidArgument: sizes do not fit; Status_UnsupportedMedia: the
    // format, or the encoder does not take the size. Raises std::bad_alloc.
    uint32_t Add(const RawPictureInfo& picture, int64_t timeMs, bool wantsKey, const Sink& sink);
    // The first picture, where none followed.
    uint32_t Flush(const Sink& sink);

private:
    FramePtr Convert(const RawPictureInfo& picture);
    uint32_t Open(int width, int height, int64_t stepMs);
    uint32_t Encode(AVFrame& frame, int64_t timeMs, bool wantsKey, const Sink& sink);

    const MovarixCompressor m_settings;
    CodecPtr m_codec;
    PacketPtr m_packet;
    FramePtr m_first;    // waits for the second
    int64_t m_firstMs = 0;
    ScalerPtr m_scaler;
    uint32_t m_scalerFormat = 0;
    int64_t m_count = 0;            // of pictures that the encoder got
    std::deque<int64_t> m_times;    // of those in the encoder
};

}    // namespace movarix
