// The decoder of AAC, low complexity: raw blocks of the standard of MPEG-4 Audio, and blocks with ADTS headers.
#pragma once

#include <cstdint>

#include "corvane/decoder.h"
#include "decoders/DecoderFactories.h"
#include "decoders/FFmpegDecoder.h"

namespace corvane {

// A block is 1024 samples of each channel. Of a stream with spectral band replication the core is decoded.
class DecoderIsolated_Nerilo_AAC final : public DecoderContext {
public:
    DecoderIsolated_Nerilo_AAC(uint32_t sampleRate, uint32_t channels)
        : m_sampleRate(sampleRate), m_channels(channels) {}

    // Whether there is a decoder for blocks of this rate and channel count. Makes it where it is missing.
    bool Prepare();

    int32_t DecodeVideo(DecodedFrame*, uint32_t*, const EncodedUnit*) override { return -1; }
    // Negative, with *size as it was, for a block that is damaged, or at another rate or channel count.
    int32_t DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) override;
    void Destroy() override { delete this; }
    int32_t ShareFrame(DecodedFrame* out, int32_t version) override;

private:
    ~DecoderIsolated_Nerilo_AAC() = default;
    int32_t DecodeBlock(const EncodedUnit& block, uint32_t frames, uint8_t* pcm, uint32_t capacity, uint32_t* written);
    int32_t DecodeAdts(const EncodedUnit& block, uint8_t* pcm, uint32_t capacity, uint32_t* written);

    const uint32_t m_sampleRate;
    const uint32_t m_channels;
    FFmpegDecoderPtr m_decoder;    // null after a block that failed: it may have changed the configuration
};

// Null without memory, and for a rate or channel count that the standard has no index for.
DecoderPtr MakeAacDecoder(uint32_t sampleRate, uint32_t channels) noexcept;

}    // namespace corvane
