#include "decoders/G7221Decoder.h"

#include <cstring>
#include <new>

namespace corvane {

int32_t DecoderContext_Nerilo_G7221::DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) {
    constexpr uint32_t kBytesAt24k = 60;
    constexpr uint32_t kBytesAt32k = 80;
    int16_t samples[G7221Kernel::kSamples];
    const uint32_t bytes = BlockBytes(*in);
    if (bytes != kBytesAt24k && bytes != kBytesAt32k)
        return -1;
    uint32_t written = 0;
    for (uint32_t i = 0; i < in->type_or_count; ++i) {
        if (*size - written < sizeof samples)
            return -1;
        m_kernel->Decode(in->data + size_t{i} * bytes, bytes, samples);
        std::memcpy(pcm + written, samples, sizeof samples);
        written += sizeof samples;
    }
    *size = written;
    return 0;
}

DecoderPtr MakeG7221Decoder() noexcept {
    std::unique_ptr<G7221Kernel> kernel = G7221Kernel::Make();
    return DecoderPtr(kernel == nullptr ? nullptr : new (std::nothrow) DecoderContext_Nerilo_G7221(std::move(kernel)));
}

}    // namespace corvane
