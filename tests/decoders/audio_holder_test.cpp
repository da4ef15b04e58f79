#include <gtest/gtest.h>

#include <vector>

#include "decoders/AudioDecoderHolder.h"
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

}    // namespace
}    // namespace corvane::test
