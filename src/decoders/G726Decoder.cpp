#include "decoders/G726Decoder.h"

#include <cstring>
#include <new>

namespace corvane {

// Takes a byte at `*next` where the bits that are held are not enough.
unsigned DecoderContext_SDK_G726::NextCode(const uint8_t** next) {
    const bool leastFirst = m_packing == G726Packing::LeastSignificantFirst;
    if (m_heldCount < m_bits) {
        const unsigned byte = *(*next)++;
        m_held = leastFirst ? m_held | byte << m_heldCount : m_held << 8 | byte;
        m_heldCount += 8;
    }
    m_heldCount -= m_bits;
    const unsigned code = (leastFirst ? m_held : m_held >> m_heldCount) & ((1u << m_bits) - 1);
    m_held = leastFirst ? m_held >> m_bits : m_held & ((1u << m_heldCount) - 1);
    return code;
}

// Holds what the codes of the unit would have left, so that the codes of the next one begin where they should.
void DecoderContext_SDK_G726::Skip(const EncodedUnit& unit) {
    m_heldCount = static_cast<unsigned>((uint64_t{unit.size} * 8 + m_heldCount) % m_bits);
    const unsigned last = unit.data[unit.size - 1];
    m_held =
        m_packing == G726Packing::LeastSignificantFirst ? last >> (8 - m_heldCount) : last & ((1u << m_heldCount) - 1);
}

int32_t DecoderContext_SDK_G726::DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) {
    const uint64_t codes = (uint64_t{in->size} * 8 + m_heldCount) / m_bits;    // what they leave is less than a byte
    if (codes * sizeof(int16_t) > *size) {
        Skip(*in);
        return -1;
    }
    const uint8_t* next = in->data;
    for (uint64_t i = 0; i < codes; ++i) {
        const int16_t sample = m_kernel.Decode(NextCode(&next));
        std::memcpy(pcm + i * sizeof sample, &sample, sizeof sample);
    }
    *size = static_cast<uint32_t>(codes * sizeof(int16_t));
    return 0;
}

DecoderPtr MakeG726Decoder(uint32_t bitRate, G726Packing packing) noexcept {
    if (bitRate != 16000 && bitRate != 24000 && bitRate != 32000 && bitRate != 40000)
        return nullptr;
    return DecoderPtr(new (std::nothrow) DecoderContext_SDK_G726(bitRate / 8000, packing));
}

}    // namespace corvane
