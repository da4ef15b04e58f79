// The decoder of AAC, low complexity: raw blocks of the standard of MPEG-4 Audio, and blocks with ADTS headers.
#pragma once

#include <cstdint>
#include <utility>

#include "decoders/DecoderFactories.h"
#include "decoders/FFmpegSoundDecoder.h"
#include "decoders/SoundDecoder.h"

namespace corvane {

// A block is 1024 samples of each channel. Of a stream with spectral band replication the core is decoded.
class DecoderIsolated_Nerilo_AAC final : public SoundDecoder {
public:
    // `decoder` takes raw blocks of this rate and channel count.
    DecoderIsolated_Nerilo_AAC(DecoderPtr decoder, uint32_t sampleRate, uint32_t channels)
        : m_decoder(std::move(decoder)), m_sampleRate(sampleRate), m_channels(channels) {}

    // Negative, with *size as it was, for a block that is damaged, or at another rate or channel count.
    int32_t DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) override;

private:
    int32_t DecodeBlock(const EncodedUnit& block, uint32_t frames, uint8_t* pcm, uint32_t capacity, uint32_t* written);
    int32_t DecodeAdts(const EncodedUnit& unit, uint8_t* pcm, uint32_t capacity, uint32_t* written);

    const DecoderPtr m_decoder;
    const uint32_t m_sampleRate;
    const uint32_t m_channels;
};

// Null without memory, and for a rate or channel count that the standard has no index for.
DecoderPtr MakeAacDecoder(uint32_t sampleRate, uint32_t channels) noexcept;

}    // namespace corvane
