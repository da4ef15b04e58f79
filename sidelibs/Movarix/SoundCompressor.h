// Encodes samples of 16 bits as G.711.
#pragma once

#include "FFmpeg.h"
#include "Unit.h"

namespace movarix {

class SoundCompressor {
public:
    // CORVANE_STREAM_MULAW or _ALAW.
    explicit SoundCompressor(uint32_t type) : m_type(type) {}

    // `sound` of kPcm becomes `sound` of the type; its bytes are valid until the next call. Raises std::bad_alloc.
    uint32_t Compress(Sound& sound);

private:
    uint32_t Open(const SoundFormat& format);

    const uint32_t m_type;
    CodecPtr m_codec;
    PacketPtr m_packet;
    FramePtr m_frame;
};

}    // namespace movarix
