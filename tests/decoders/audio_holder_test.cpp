#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/FailurePoint.h"
#include "decoders/AacDecoder.h"
#include "decoders/AudioDecoderHolder.h"
#include "decoders/G7221Decoder.h"
#include "decoders/G726Decoder.h"
#include "decoders/G729Decoder.h"
#include "support/G7221Encoder.h"
#include "support/GuardedBytes.h"
#include "support/SoundMaker.h"
#include "support/StreamMaker.h"

namespace corvane::test {
namespace {

// All through one holder, so that the decoder is replaced in between. Samples of the laws as their Recommendation
// lists them; a frame that does not fit or is no sound loses only itself.
TEST(AudioHolder, LawsBlocksAndShortBuffers) {
    const Bytes mu = {0xFF, 0x00, 0x80, 0xA0}, a = {0xD5, 0x55, 0x2A, 0xAA};
    const std::vector<int16_t> muSamples = {0, -32124, 32124, 7932}, aSamples = {8, -8, -32256, 32256};
    Bytes speech(64, 0xFF);    // two blocks of 32 bytes
    speech[0] = speech[32] = 0x3C;
    const struct {
        uint32_t type, channels;
        Bytes bytes;
        uint32_t capacity;
        int32_t result;
        uint32_t size;
        std::vector<int16_t> samples = {};
    } rows[] = {
        {CORVANE_STREAM_MULAW, 1, mu, 8, 0, 8, muSamples},
        {CORVANE_STREAM_ALAW, 1, a, 9, 0, 8, aSamples},
        {CORVANE_STREAM_ALAW, 2, a, 8, 0, 8, aSamples},
        {CORVANE_STREAM_ALAW, 1, a, 7, -1, 0},
        {CORVANE_STREAM_ALAW, 1, {}, 8, 0, 0},
        {CORVANE_STREAM_ALAW, 0, a, 8, -1, 0},
        {CORVANE_STREAM_AAC, 1, a, 8, -1, 0},
        {CORVANE_STREAM_AMR, 1, speech, 640, 0, 640},
        {CORVANE_STREAM_AMR, 1, speech, 400, -1, 0},
        {CORVANE_STREAM_AMR, 1, Bytes(300, 0xFF), 640, 0, 0},
        {CORVANE_STREAM_MULAW, 1, mu, 8, 0, 8, muSamples},
    };
    AudioDecoderHolder holder;
    testing::internal::CaptureStderr();
    for (const auto& row : rows) {
        MediaFrameHeader header = VideoHeader(row.type, row.bytes, true, 0);
        header.audioSampleRate = 8000;
        header.audioChannels = static_cast<uint8_t>(row.channels);
        std::vector<int16_t> pcm(row.capacity / 2 + 1, 0x5A5A);
        uint32_t size = row.capacity;
        EXPECT_EQ(holder.Decode(reinterpret_cast<uint8_t*>(pcm.data()), &size, MediaFrameImpl(header)), row.result)
            << &row - rows;
        EXPECT_EQ(pcm.back(), 0x5A5A) << &row - rows;
        EXPECT_EQ(size, row.result == 0 ? row.size : row.capacity) << &row - rows;
        pcm.resize(row.samples.size());
        EXPECT_EQ(pcm, row.samples) << &row - rows;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// Frames that are refused, each between two good ones of its type, and frames of which a part is dropped.
TEST(AudioHolder, ImpossibleFramesLoseThemselvesOnly) {
    const Samples tone = Sweep(16000, 0.5, 300, 900);
    const auto g7221 = EncodeG7221(tone, 60);
    const auto g729 = EncodeG729(tone);
    const auto aac = EncodeAac(tone, 16000, 1);
    const uint32_t kG7221 = CORVANE_STREAM_G7221, kG729 = CORVANE_STREAM_G729A, kAac = CORVANE_STREAM_AAC,
                   kG726 = CORVANE_STREAM_G726;
    constexpr uint32_t kAll = 576'000;    // the capacity that the sound device gives
    const Bytes two729 = g729[3] + g729[4];
    const struct {
        const char* name;
        uint32_t type;
        Bytes bytes;
        uint32_t blocks, capacity;
        int32_t samples;    // -1: refused
        uint32_t rate = 16000, bitRate = 16000;
        uint8_t channels = 1;
    } rows[] = {
        {"no count", kG7221, g7221[3], 0, kAll, -1},
        {"count above the size", kG7221, g7221[3], 61, kAll, -1},
        {"largest count", kG7221, g7221[3], UINT32_MAX, kAll, -1},
        {"a block a byte", kG7221, g7221[3], 60, kAll, -1},
        {"a byte short", kG7221, Bytes(59, 1), 1, kAll, -1},
        {"a byte too many", kG7221, Bytes(61, 1), 1, kAll, -1},
        {"16 kbit/s", kG7221, Bytes(40, 1), 1, kAll, -1},
        {"nothing", kG7221, {}, 1, kAll, -1},
        {"no room", kG7221, g7221[3] + g7221[4], 2, 1279, -1},
        {"just room, and a byte that is dropped", kG7221, g7221[3] + g7221[4] + Bytes{1}, 2, 1280, 640},
        {"no count", kG729, g729[3], 0, kAll, -1},
        {"count above the size", kG729, g729[3], 11, kAll, -1},
        {"no room", kG729, two729, 2, 319, -1},
        {"just room, and bytes that are dropped", kG729, two729 + Bytes(9, 1), 2, 320, 160},
        {"a count that differs", kG729, two729, 7, kAll, 160},
        {"too few bytes", kG729, Bytes(9, 1), 1, kAll, 0},
        {"nothing", kG729, {}, 1, kAll, -1},
        {"no count", kAac, aac[3], 0, kAll, -1},
        {"a block a byte", kAac, aac[3], static_cast<uint32_t>(aac[3].size()), kAll, -1},
        {"no room", kAac, aac[3], 1, 2047, -1},
        {"just room", kAac, aac[3], 1, 2048, 1024},
        {"no rate of the standard", kAac, aac[3], 1, kAll, -1, 16001, 0, 1},
        {"seven channels", kAac, aac[3], 1, kAll, -1, 16000, 0, 7},
        {"no channel", kAac, aac[3], 1, kAll, -1, 16000, 0, 0},
        {"1 MiB", kG726, Bytes(1 << 20, 7), 1, kAll, -1},
        {"a byte beyond the capacity", kG726, Bytes(72'001, 7), 1, kAll, -1},
        {"no room", kG726, g729[0], 1, 79, -1},
        {"just room", kG726, g729[0], 1, 80, 40},
        {"to the last byte", kG726, Bytes(72'000, 7), 1, kAll, 288'000},
        {"nothing", kG726, {}, 0, kAll, 0},
        {"another bit rate", kG726, {1}, 1, kAll, -1, 8000, 16001, 1},
        {"bit rate 0", kG726, {1}, 1, kAll, -1, 8000, 0, 1},
        {"48 kbit/s", kG726, {1}, 1, kAll, -1, 8000, 48000, 1},
    };
    testing::internal::CaptureStderr();
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.name) + ' ' + std::to_string(row.type));
        AudioDecoderHolder holder;
        const auto decode = [&](MediaFrameHeader header, uint32_t capacity, uint32_t bitRate) {
            header.detail.audio.audioBitRate = bitRate;
            const Bytes fill(capacity, 0xC9);
            const GuardedBytes pcm(fill);
            const GuardedBytes payload(header.data, header.payloadSize);
            header.data = payload.Data();
            uint32_t size = capacity;
            const int32_t result = holder.Decode(pcm.Data(), &size, MediaFrameImpl(header));
            EXPECT_TRUE(result == 0 || (result < 0 && size == capacity));
            return result == 0 ? static_cast<int32_t>(size / 2) : -1;
        };
        const Bytes& good = row.type == kG7221  ? g7221[2]
                            : row.type == kG729 ? g729[2]
                            : row.type == kAac  ? aac[2]
                                                : g729[0];
        const int32_t wanted = row.type == kG7221 ? 320 : row.type == kG729 ? 80 : row.type == kAac ? 1024 : 40;
        for (int i = 0; i < 2; ++i) {
            EXPECT_EQ(decode(SoundHeader(row.type, good, 16000), kAll, 16000), wanted);
            if (i == 0)
                EXPECT_EQ(decode(SoundHeader(row.type, row.bytes, row.rate, row.channels, row.blocks), row.capacity,
                                 row.bitRate),
                          row.samples);
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The n-th platform call fails, n rising until a frame gets through; the next frame finds a decoder.
TEST(AudioHolder, FailuresLoseOneFrame) {
    const Samples tone = Sweep(16000, 0.5, 300, 900);
    const struct {
        uint32_t type;
        Bytes bytes;
        uint64_t calls;    // at least
    } rows[] = {{CORVANE_STREAM_G7221, EncodeG7221(tone, 80)[3], 1},
                {CORVANE_STREAM_G729A, EncodeG729(tone)[3], 5},
                {CORVANE_STREAM_AAC, EncodeAac(tone, 16000, 1)[3], 6}};
    for (const auto& row : rows) {
        bool passed = false;
        uint64_t n = 0;
        while (!passed && ++n < 100) {
            AudioDecoderHolder holder;
            Bytes pcm(4096);
            const MediaFrameImpl frame(SoundHeader(row.type, row.bytes, 16000));
            uint32_t size = 4096;
            failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), n, false);
            passed = holder.Decode(pcm.data(), &size, frame) == 0 && failure::Hits() < n;
            failure::Disarm();
            size = 4096;
            EXPECT_EQ(holder.Decode(pcm.data(), &size, frame), 0) << row.type << ' ' << n;
        }
        EXPECT_GT(n, row.calls) << row.type;
    }
}

// The other calls of the decoder interface.
TEST(AudioHolder, SoundDecodersHaveNoPictures) {
    DecoderPtr decoders[] = {MakeG7221Decoder(), MakeG729Decoder(), MakeAacDecoder(8000, 1),
                             MakeG726Decoder(16000, G726Packing::LeastSignificantFirst)};
    for (const DecoderPtr& decoder : decoders) {
        DecodedFrame out{};
        uint32_t got = 0;
        const EncodedUnit unit{nullptr, 0, 0};
        EXPECT_EQ(decoder->DecodeVideo(&out, &got, &unit), -1);
        EXPECT_EQ(decoder->ShareFrame(&out, 2), static_cast<int32_t>(0x80000004));
    }
}

}    // namespace
}    // namespace corvane::test
