// Picks, replaces and feeds the audio decoder of one channel. Used by one thread at a time.
#pragma once

#include <cstdint>

#include "decoders/DecoderFactories.h"
#include "frame/MediaFrameImpl.h"

namespace corvane {

class AudioDecoderHolder {
public:
    // Decodes to interleaved signed 16-bit samples. *size enters as the capacity of `pcm` in bytes and leaves as the
    // bytes written; it is unchanged when the call fails. 0 on success; -1 without a decoder for the stream, on a
    // failed decode and when the samples do not fit. Blocks of samples before the one that did not fit are in `pcm`.
    int32_t Decode(uint8_t* pcm, uint32_t* size, const MediaFrameImpl& frame);

    void Reset();

private:
    struct Parameters {
        uint32_t codec = 0;
        uint32_t sampleRate = 0;
        uint32_t channels = 0;
        uint32_t bitRate = 0;
        bool g726MsbFirst = false;
        bool operator==(const Parameters&) const = default;
    };

    DecoderPtr m_decoder;
    Parameters m_parameters;    // those that m_decoder was made for
};

}    // namespace corvane
