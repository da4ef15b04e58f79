// The decoder of G.726: unpacks codes and gives them to its kernel.
#pragma once

#include <cstdint>

#include "decoders/DecoderFactories.h"
#include "decoders/G726Kernel.h"
#include "decoders/SoundDecoder.h"

namespace corvane {

// Where in a byte the first of its codes lies. The bits of a code that crosses bytes follow each other likewise.
enum class G726Packing {
    LeastSignificantFirst,    // as RFC 3551 has it
    MostSignificantFirst,     // as Recommendation I.366.2 has it
};

// The stream is one of samples: codes go across bytes and across units, and a unit has no blocks.
class DecoderContext_SDK_G726 final : public SoundDecoder {
public:
    // 2, 3, 4 or 5 bits a code.
    DecoderContext_SDK_G726(unsigned bits, G726Packing packing) : m_bits(bits), m_packing(packing), m_kernel(bits) {}

    // -1, and the unit is lost, when its samples do not fit.
    int32_t DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) override;

private:
    unsigned NextCode(const uint8_t** next);
    void Skip(const EncodedUnit& unit);

    const unsigned m_bits;
    const G726Packing m_packing;
    G726Kernel m_kernel;
    unsigned m_held = 0;         // bits that no code has taken yet, less than a code's between units
    unsigned m_heldCount = 0;    // how many
};

// Null without memory, and for a bit rate other than 16000, 24000, 32000 and 40000.
DecoderPtr MakeG726Decoder(uint32_t bitRate, G726Packing packing) noexcept;

}    // namespace corvane
