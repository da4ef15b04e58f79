// The sound path: frames of all sound types at one holder.
//
// Frames, each after eight bytes: 0 the type (of seven, and one that is none), 1 the capacity and a reset, 2 to 4 the
// sample rate, the channel count and the block count (from tables of usual and of impossible values, or the byte),
// 5 the bit rate and the packing of G.726, 6 and 7 the length of the payload.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "Fenced.h"
#include "decoders/AudioDecoderHolder.h"

namespace {

using namespace corvane;

constexpr size_t kMaxInput = 64 * 1024;
constexpr size_t kCapacity = 576'000;    // bytes, of the sound device
constexpr uint32_t kTypes[8] = {CORVANE_STREAM_G7221, CORVANE_STREAM_G729A, CORVANE_STREAM_AAC,  CORVANE_STREAM_AMR,
                                CORVANE_STREAM_MULAW, CORVANE_STREAM_ALAW,  CORVANE_STREAM_G726, CORVANE_STREAM_H264};
constexpr uint32_t kRates[8] = {8000, 16000, 44100, 0, 1, 999, 192'001, UINT32_MAX};
constexpr uint8_t kChannels[8] = {1, 2, 6, 8, 0, 7, 9, 255};
constexpr uint32_t kBitRates[8] = {16000, 24000, 32000, 40000, 0, 16001, 8000, UINT32_MAX};

void Require(bool holds) {
    if (!holds)
        std::abort();
}

uint32_t BlockCount(uint8_t byte, uint32_t size) {
    const uint32_t counts[8] = {1, 2, 3, 0, size, size + 1, UINT32_MAX, byte};
    return counts[byte & 7];
}

}    // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Fenced memory(kCapacity);
    if (size > kMaxInput)
        return 0;
    AudioDecoderHolder holder;
    for (size_t at = 0; size - at >= 8;) {
        const uint8_t* const head = data + at;
        at += 8;
        const size_t length = std::min<size_t>(size_t{head[6]} << 8 | head[7], size - at);
        MediaFrameHeader header{};
        header.recordSize = sizeof header;
        header.data = data + at;
        header.payloadSize = static_cast<uint32_t>(length);
        header.streamType = kTypes[head[0] & 7];
        header.audioSampleRate = (head[2] & 0x80) != 0 ? head[2] * 256u : kRates[head[2] & 7];
        header.audioChannels = kChannels[head[3] & 7];
        header.audioBlockCount = BlockCount(head[4], header.payloadSize);
        header.detail.audio.audioBitRate = kBitRates[head[5] & 7];
        header.detail.audio.audioPacking = head[5] >> 3;
        at += length;
        // The whole capacity, and buffers that are too small, at a page that cannot be touched.
        const uint32_t capacity = (head[1] & 0x80) != 0 ? (head[1] & 0x7Fu) * 64 : uint32_t{kCapacity};
        uint32_t bytes = capacity;
        const int32_t result = holder.Decode(memory.At(capacity, true), &bytes, MediaFrameImpl(header));
        Require(result < 0 ? bytes == capacity : bytes <= capacity && bytes % 2 == 0);
        if ((head[1] & 0x40) != 0)
            holder.Reset();
    }
    return 0;
}
