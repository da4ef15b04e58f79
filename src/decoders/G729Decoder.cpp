#include "decoders/G729Decoder.h"

#include <new>
#include <utility>

namespace corvane {

namespace {
constexpr uint32_t kBlockBytes = 10;
constexpr uint32_t kSampleBytes = 160;    // of one block
constexpr uint32_t kSampleRate = 8000;
}    // namespace

int32_t DecoderIsolated_Nerilo_G729A::DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) {
    if (BlockBytes(*in) == 0)
        return -1;
    uint32_t written = 0;
    for (uint32_t at = 0; in->size - at >= kBlockBytes; at += kBlockBytes) {
        const EncodedUnit block{in->data + at, kBlockBytes, 1};
        uint32_t bytes = *size - written;
        if (bytes < kSampleBytes || m_decoder->DecodeAudio(pcm + written, &bytes, &block) < 0 || bytes == 0)
            return -1;
        written += bytes;
    }
    *size = written;
    return 0;
}

DecoderPtr MakeG729Decoder() noexcept {
    DecoderPtr decoder = MakeAudioDecoder(FFmpegCodec::G729, kSampleRate, 1, 0);
    return DecoderPtr(decoder == nullptr ? nullptr
                                         : new (std::nothrow) DecoderIsolated_Nerilo_G729A(std::move(decoder)));
}

}    // namespace corvane
