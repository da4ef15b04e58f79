#include <gtest/gtest.h>

#include <vector>

#include "decoders/AudioDecoderHolder.h"

namespace corvane {
namespace {

using Bytes = std::vector<uint8_t>;

// All through one holder, so that the decoder is replaced in between. Samples of the laws as their Recommendation
// lists them; what does not fit or is no sound loses only itself.
TEST(AudioHolder, LawsBlocksAndShortBuffers) {
    const Bytes mu = {0xFF, 0x00, 0x80, 0xA0}, a = {0xD5, 0x55, 0x2A, 0xAA};
    const std::vector<int16_t> muSamples = {0, -32124, 32124, 7932}, aSamples = {8, -8, -32256, 32256};
    Bytes speech(64, 0);    // two blocks of 32 bytes
    speech[0] = speech[32] = 0x3C;
    const struct {
        const char* name;
        uint32_t type, rate, channels;
        Bytes bytes;
        uint32_t capacity;
        int32_t result;
        uint32_t size;
        std::vector<int16_t> samples = {};
    } rows[] = {
        {"mu-law", CORVANE_STREAM_MULAW, 8000, 1, mu, 8, 0, 8, muSamples},
        {"A-law", CORVANE_STREAM_ALAW, 8000, 1, a, 9, 0, 8, aSamples},
        {"A-law in stereo", CORVANE_STREAM_ALAW, 16000, 2, a, 8, 0, 8, aSamples},
        {"one byte short", CORVANE_STREAM_ALAW, 8000, 1, a, 7, -1, 0},
        {"empty", CORVANE_STREAM_ALAW, 8000, 1, {}, 8, 0, 0},
        {"no channel", CORVANE_STREAM_ALAW, 8000, 0, a, 8, -1, 0},
        {"rate beyond all", CORVANE_STREAM_ALAW, UINT32_MAX, 1, a, 8, -1, 0},
        {"no decoder", CORVANE_STREAM_AAC, 8000, 1, a, 8, -1, 0},
        {"video", CORVANE_STREAM_H264, 8000, 1, a, 8, -1, 0},
        {"AMR of two blocks", CORVANE_STREAM_AMR, 8000, 1, speech, 640, 0, 640},
        {"AMR, room for one block", CORVANE_STREAM_AMR, 8000, 1, speech, 400, -1, 0},
        {"AMR, no block", CORVANE_STREAM_AMR, 8000, 1, Bytes(300, 0xFF), 640, 0, 0},
        {"and mu-law again", CORVANE_STREAM_MULAW, 8000, 1, mu, 8, 0, 8, muSamples},
    };
    AudioDecoderHolder holder;
    testing::internal::CaptureStderr();
    for (const auto& row : rows) {
        MediaFrameHeader header{};
        header.recordSize = sizeof header;
        header.streamType = row.type;
        header.data = row.bytes.data();
        header.payloadSize = static_cast<uint32_t>(row.bytes.size());
        header.audioSampleRate = row.rate;
        header.audioChannels = static_cast<uint8_t>(row.channels);
        std::vector<int16_t> pcm(row.capacity / 2 + 1, 0x5A5A);
        uint32_t size = row.capacity;
        EXPECT_EQ(holder.Decode(reinterpret_cast<uint8_t*>(pcm.data()), &size, MediaFrameImpl(header)), row.result)
            << row.name;
        EXPECT_EQ(pcm.back(), 0x5A5A) << row.name;
        EXPECT_EQ(size, row.result == 0 ? row.size : row.capacity) << row.name;
        pcm.resize(row.samples.size());
        EXPECT_EQ(pcm, row.samples) << row.name;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}    // namespace
}    // namespace corvane
