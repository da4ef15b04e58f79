// The decoder of G.729 Annex A. Annex A and the main body have one bit stream; libavcodec decodes it as the main body
// does; from the Annex its samples differ by a signal-to-noise ratio of 17 to 29 dB.
#pragma once

#include <cstdint>
#include <utility>

#include "decoders/DecoderFactories.h"
#include "decoders/FFmpegSoundDecoder.h"
#include "decoders/SoundDecoder.h"

namespace corvane {

// A block has 10 bytes and is 80 samples at 8000 Hz, one channel. Fewer bytes at the end are dropped.
class DecoderIsolated_Nerilo_G729A final : public SoundDecoder {
public:
    explicit DecoderIsolated_Nerilo_G729A(DecoderPtr decoder) : m_decoder(std::move(decoder)) {}

    int32_t DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) override;

private:
    const DecoderPtr m_decoder;
};

// Null without memory or libavcodec's decoder.
DecoderPtr MakeG729Decoder() noexcept;

}    // namespace corvane
