#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "decoders/AudioDecoderHolder.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::EncodedSound;

class AudioHolder : public testing::Test {
protected:
    // Into a buffer of `capacity` bytes.
    int32_t Decode(uint32_t streamType, const EncodedSound& sound, uint32_t capacity, uint32_t rate = 8000,
                   uint32_t channels = 1) {
        const MediaFrameImpl frame(test::SoundHeader(streamType, sound, 0, rate, channels));
        m_pcm.assign((capacity + 1) / 2 + 8, 0x5A5A);
        m_size = capacity;
        const int32_t result = m_holder.Decode(reinterpret_cast<uint8_t*>(m_pcm.data()), &m_size, frame);
        EXPECT_EQ(m_pcm[(capacity + 1) / 2], 0x5A5A);
        EXPECT_TRUE(result == 0 || m_size == capacity);
        return result;
    }

    AudioDecoderHolder m_holder;
    std::vector<int16_t> m_pcm;
    uint32_t m_size = 0;
};

// All through one holder, so that the decoder is replaced in between. The laws keep a sample within 1/16 of its value;
// AMR is a model of speech, its loudness is what can be held.
TEST_F(AudioHolder, GivesBackWhatWasEncoded) {
    const struct {
        uint32_t streamType, rate, channels, blocks;
    } rows[] = {{CORVANE_STREAM_MULAW, 8000, 1, 1},  {CORVANE_STREAM_ALAW, 8000, 1, 1},
                {CORVANE_STREAM_ALAW, 16000, 2, 1},  {CORVANE_STREAM_AMR, 8000, 1, 1},
                {CORVANE_STREAM_MULAW, 48000, 6, 1}, {CORVANE_STREAM_AMR, 8000, 1, 3},
                {CORVANE_STREAM_MULAW, 8000, 11, 1}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.streamType << " x" << row.channels);
        const auto sounds = test::MakeSound(row.streamType, 6, row.rate, row.channels, row.blocks);
        for (const EncodedSound& sound : sounds) {
            ASSERT_EQ(Decode(row.streamType, sound, 1 << 20, row.rate, row.channels), 0);
            ASSERT_EQ(m_size, sound.source.size() * 2);
            double energy = 0, sourceEnergy = 0;
            for (size_t i = 0; i < sound.source.size(); ++i) {
                energy += double(m_pcm[i]) * m_pcm[i];
                sourceEnergy += double(sound.source[i]) * sound.source[i];
                const double off = std::abs(m_pcm[i] - sound.source[i]);
                ASSERT_TRUE(row.streamType == CORVANE_STREAM_AMR || off <= std::abs(sound.source[i]) / 16.0 + 16);
            }
            if (&sound != &sounds.front())    // the first of AMR swings in
                EXPECT_NEAR(std::sqrt(energy / sourceEnergy), 1.0, 0.25);
        }
    }
}

// What does not fit or is no sound loses only itself.
TEST_F(AudioHolder, BadInputAndShortBuffers) {
    const EncodedSound law = test::MakeSound(CORVANE_STREAM_ALAW, 1)[0];
    EncodedSound empty, garbage;
    garbage.bytes.assign(3000, 0xFF);
    testing::internal::CaptureStderr();
    const struct {
        uint32_t streamType, rate, channels;
        const EncodedSound& sound;
        uint32_t capacity;
        int32_t result;
        uint32_t size = 0;
    } rows[] = {
        {CORVANE_STREAM_ALAW, 8000, 1, empty, 4000, 0},      {CORVANE_STREAM_ALAW, 8000, 0, law, 4000, -1},
        {CORVANE_STREAM_ALAW, 0, 1, law, 4000, -1},          {CORVANE_STREAM_ALAW, 8000, 255, law, 4000, 0},
        {CORVANE_STREAM_ALAW, UINT32_MAX, 1, law, 4000, -1}, {CORVANE_STREAM_AMR, 8000, 1, garbage, 4000, 0},
        {CORVANE_STREAM_AAC, 8000, 1, law, 4000, -1},        {CORVANE_STREAM_G726, 8000, 1, law, 4000, -1},
        {CORVANE_STREAM_G7221, 8000, 1, law, 4000, -1},      {CORVANE_STREAM_G729A, 8000, 1, law, 4000, -1},
        {CORVANE_STREAM_H264, 8000, 1, law, 4000, -1},       {0, 0, 0, law, 4000, -1},
        {CORVANE_STREAM_ALAW, 8000, 1, law, 319, -1},        {CORVANE_STREAM_ALAW, 8000, 1, law, 0, -1},
        {CORVANE_STREAM_ALAW, 8000, 1, law, 321, 0, 320},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.streamType << " x" << row.channels << " in " << row.capacity);
        EXPECT_EQ(Decode(row.streamType, row.sound, row.capacity, row.rate, row.channels), row.result);
        EXPECT_TRUE(row.result != 0 || m_size == row.size);
        EXPECT_EQ(Decode(CORVANE_STREAM_ALAW, law, 320), 0);
        EXPECT_EQ(m_size, 320u);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    const auto speech = test::MakeSound(CORVANE_STREAM_AMR, 2, 8000, 1, 3);
    if (speech.empty())
        GTEST_SKIP() << "no AMR encoder in this build";
    EXPECT_EQ(Decode(CORVANE_STREAM_AMR, speech[0], 2 * 320 + 10), -1);
    EXPECT_TRUE(m_pcm[319] != 0x5A5A && m_pcm[320] == 0x5A5A);    // the two blocks that fit are there
    EXPECT_EQ(Decode(CORVANE_STREAM_AMR, speech[1], 3 * 320), 0);
    EXPECT_EQ(m_size, 3u * 320);
}

}    // namespace
}    // namespace corvane
