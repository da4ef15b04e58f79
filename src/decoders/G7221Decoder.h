// The decoder of G.722.1: cuts a payload into blocks and gives them to its kernel.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "decoders/DecoderFactories.h"
#include "decoders/G7221Kernel.h"
#include "decoders/SoundDecoder.h"

namespace corvane {

// A block is 320 samples at 16000 Hz, one channel: 60 bytes at 24 kbit/s, 80 at 32 kbit/s.
class DecoderContext_Nerilo_G7221 final : public SoundDecoder {
public:
    explicit DecoderContext_Nerilo_G7221(std::unique_ptr<G7221Kernel> kernel) : m_kernel(std::move(kernel)) {}

    int32_t DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) override;

private:
    const std::unique_ptr<G7221Kernel> m_kernel;
};

// Null without memory.
DecoderPtr MakeG7221Decoder() noexcept;

}    // namespace corvane
