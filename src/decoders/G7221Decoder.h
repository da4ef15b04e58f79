// The decoder of G.722.1: cuts a payload into blocks and gives them to its kernel.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "corvane/decoder.h"
#include "decoders/DecoderFactories.h"
#include "decoders/G7221Kernel.h"

namespace corvane {

// A block is 320 samples at 16000 Hz, one channel: 60 bytes at 24 kbit/s, 80 at 32 kbit/s.
class DecoderContext_Nerilo_G7221 final : public DecoderContext {
public:
    explicit DecoderContext_Nerilo_G7221(std::unique_ptr<G7221Kernel> kernel) : m_kernel(std::move(kernel)) {}

    int32_t DecodeVideo(DecodedFrame*, uint32_t*, const EncodedUnit*) override { return -1; }
    int32_t DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) override;
    void Destroy() override { delete this; }
    int32_t ShareFrame(DecodedFrame* out, int32_t version) override;

private:
    ~DecoderContext_Nerilo_G7221() = default;

    const std::unique_ptr<G7221Kernel> m_kernel;
};

// Null without memory.
DecoderPtr MakeG7221Decoder() noexcept;

}    // namespace corvane
