#include "decoders/AacDecoder.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <new>
#include <optional>

#include "frame/BitReader.h"

namespace corvane {

namespace {

constexpr uint32_t kSamplesPerBlock = 1024;    // of one channel
constexpr uint32_t kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};
constexpr uint32_t kLayouts[] = {1, 2, 3, 4, 5, 6, 8};    // channels of the channel configurations 1 to 7
constexpr uint32_t kLowComplexity = 2;                    // audio object type
constexpr size_t kAdtsBytes = 7;                          // of a header without its check sum

template <size_t N>
std::optional<uint32_t> IndexOf(const uint32_t (&table)[N], uint32_t value) {
    const auto* const found = std::find(std::begin(table), std::end(table), value);
    return found == std::end(table) ? std::nullopt : std::optional(static_cast<uint32_t>(found - std::begin(table)));
}

// An AudioSpecificConfig with the backward compatible extension that says: no spectral band replication. Without it
// libavcodec looks for that in each block, and doubles the rate once it finds it.
std::array<uint8_t, 5> Configuration(uint32_t rateIndex, uint32_t layout) {
    constexpr uint64_t kSyncExtension = 0x2B7;
    constexpr uint64_t kReplication = 5;    // audio object type
    uint64_t bits = kLowComplexity << 4 | rateIndex;
    bits = bits << 4 | layout;
    bits <<= 3;    // blocks of 1024 samples, no core coder, no extension
    bits = bits << 11 | kSyncExtension;
    bits = bits << 5 | kReplication;
    bits <<= 8;    // not present; seven bits to the end of the byte
    std::array<uint8_t, 5> bytes{};
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<uint8_t>(bits >> 8 * (bytes.size() - 1 - i));
    return bytes;
}

// No raw block starts with these bits: its first element would be its end.
bool HasAdtsSync(const uint8_t* data, uint32_t size) {
    return size >= 2 && data[0] == 0xFF && (data[1] & 0xF0) == 0xF0;
}

struct AdtsHeader {
    uint32_t headerBytes;
    uint32_t frameBytes;    // header included
    uint32_t blocks;
};

// The header of a frame of low complexity at this rate, with these channels, that ends inside the data.
std::optional<AdtsHeader> ReadAdts(const uint8_t* data, uint32_t size, uint32_t sampleRate, uint32_t channels) {
    if (size < kAdtsBytes || !HasAdtsSync(data, size))
        return std::nullopt;
    BitReader bits{data, kAdtsBytes};
    bits.SkipBits(13);
    const bool layerIsZero = bits.Bits(2) == 0;
    const bool hasCheckSum = bits.Bits(1) == 0;
    const uint64_t objectType = bits.Bits(2) + 1;
    const uint64_t rateIndex = bits.Bits(4);
    bits.SkipBits(1);
    const uint64_t layout = bits.Bits(3);    // 0: the block describes its channels
    bits.SkipBits(4);
    const auto frameBytes = static_cast<uint32_t>(bits.Bits(13));
    bits.SkipBits(11);
    const auto blocks = static_cast<uint32_t>(bits.Bits(2) + 1);
    const uint32_t headerBytes = kAdtsBytes + (hasCheckSum ? 2 : 0);
    const bool valid = layerIsZero && objectType == kLowComplexity && rateIndex < std::size(kRates) &&
                       kRates[rateIndex] == sampleRate && (layout == 0 || kLayouts[layout - 1] == channels) &&
                       frameBytes > headerBytes && frameBytes <= size &&
                       (blocks == 1 || !hasCheckSum);    // else there are more check sums between the blocks
    return valid ? std::optional(AdtsHeader{headerBytes, frameBytes, blocks}) : std::nullopt;
}

}    // namespace

// Decodes what should be `frames` blocks of samples.
int32_t DecoderIsolated_Nerilo_AAC::DecodeBlock(const EncodedUnit& block, uint32_t frames, uint8_t* pcm,
                                                uint32_t capacity, uint32_t* written) {
    uint32_t bytes = capacity - *written;
    if (bytes / (2 * kSamplesPerBlock * m_channels) < frames ||
        m_decoder->DecodeAudio(pcm + *written, &bytes, &block) < 0 || bytes == 0)
        return -1;
    *written += bytes;
    return 0;
}

// The blocks of a payload with ADTS headers, which state their sizes, so that these may differ. libavcodec gets what is
// between the headers, with the configuration of the other blocks. What has no header is dropped, up to the place where
// a block begins in a payload of equal blocks.
int32_t DecoderIsolated_Nerilo_AAC::DecodeAdts(const EncodedUnit& unit, uint8_t* pcm, uint32_t capacity,
                                               uint32_t* written) {
    const uint32_t blockBytes = BlockBytes(unit);
    for (uint32_t at = 0; at < unit.size;) {
        if (!HasAdtsSync(unit.data + at, unit.size - at)) {
            at += blockBytes - at % blockBytes;
            continue;
        }
        const std::optional<AdtsHeader> header = ReadAdts(unit.data + at, unit.size - at, m_sampleRate, m_channels);
        if (!header)
            return -1;
        const EncodedUnit raw{unit.data + at + header->headerBytes, header->frameBytes - header->headerBytes, 1};
        if (DecodeBlock(raw, header->blocks, pcm, capacity, written) < 0)
            return -1;
        at += header->frameBytes;
    }
    return 0;
}

int32_t DecoderIsolated_Nerilo_AAC::DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) {
    EncodedUnit block{in->data, BlockBytes(*in), 1};
    if (block.size == 0)
        return -1;
    uint32_t written = 0;
    int32_t result = 0;
    if (HasAdtsSync(in->data, in->size))
        result = DecodeAdts(*in, pcm, *size, &written);
    else
        for (uint32_t i = 0; i < in->type_or_count && result == 0; ++i, block.data += block.size)
            result = DecodeBlock(block, 1, pcm, *size, &written);
    if (result == 0)
        *size = written;
    return result;
}

DecoderPtr MakeAacDecoder(uint32_t sampleRate, uint32_t channels) noexcept {
    const std::optional<uint32_t> rate = IndexOf(kRates, sampleRate);
    const std::optional<uint32_t> layout = IndexOf(kLayouts, channels);
    if (!rate || !layout)
        return nullptr;
    DecoderPtr decoder = MakeAudioDecoder(FFmpegCodec::Aac, sampleRate, channels, 0, Configuration(*rate, *layout + 1));
    return DecoderPtr(decoder == nullptr ? nullptr
                                         : new (std::nothrow)
                                               DecoderIsolated_Nerilo_AAC(std::move(decoder), sampleRate, channels));
}

}    // namespace corvane
