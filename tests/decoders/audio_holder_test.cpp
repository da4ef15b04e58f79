#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "decoders/AudioDecoderHolder.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::EncodedSound;

int32_t Decode(AudioDecoderHolder& holder, uint32_t stream_type, const EncodedSound& sound, std::vector<int16_t>& pcm,
               uint32_t& size, uint32_t rate = 8000, uint32_t channels = 1) {
    const MediaFrameImpl frame(test::SoundHeader(stream_type, sound, 0, rate, channels));
    pcm.assign((size + 1) / 2 + 8, 0x5A5A);
    const int32_t result = holder.Decode(reinterpret_cast<uint8_t*>(pcm.data()), &size, frame);
    EXPECT_EQ(pcm.back(), 0x5A5A);    // nothing is written behind the capacity
    return result;
}

// All through one holder, so that the decoder is replaced in between. The laws keep a sample within 1/16 of its value;
// AMR is a model of speech, its loudness is what can be held.
TEST(AudioDecoderHolder, GivesBackWhatWasEncoded) {
    const struct {
        uint32_t stream_type, rate, channels, blocks;
    } rows[] = {{CORVANE_STREAM_MULAW, 8000, 1, 1},  {CORVANE_STREAM_ALAW, 8000, 1, 1},
                {CORVANE_STREAM_ALAW, 16000, 2, 1},  {CORVANE_STREAM_AMR, 8000, 1, 1},
                {CORVANE_STREAM_MULAW, 48000, 6, 1}, {CORVANE_STREAM_AMR, 8000, 1, 3},
                {CORVANE_STREAM_MULAW, 8000, 11, 1}};
    AudioDecoderHolder holder;
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.stream_type) + " x" + std::to_string(row.channels));
        const auto sounds = test::MakeSound(row.stream_type, 6, row.rate, row.channels, row.blocks);
        std::vector<int16_t> pcm;
        for (const EncodedSound& sound : sounds) {
            uint32_t size = 1 << 20;
            ASSERT_EQ(Decode(holder, row.stream_type, sound, pcm, size, row.rate, row.channels), 0);
            ASSERT_EQ(size, sound.source.size() * 2);
            double energy = 0;
            double source_energy = 0;
            for (size_t i = 0; i < sound.source.size(); ++i) {
                energy += double(pcm[i]) * pcm[i];
                source_energy += double(sound.source[i]) * sound.source[i];
                if (row.stream_type != CORVANE_STREAM_AMR) {
                    ASSERT_NEAR(pcm[i], sound.source[i], std::abs(sound.source[i]) / 16.0 + 16);
                }
            }
            if (&sound != &sounds.front()) {    // the first of AMR swings in
                EXPECT_NEAR(std::sqrt(energy / source_energy), 1.0, 0.25);
            }
        }
    }
}

TEST(AudioDecoderHolder, Capacity) {
    AudioDecoderHolder holder;
    std::vector<int16_t> pcm;
    const auto law = test::MakeSound(CORVANE_STREAM_MULAW, 1);
    for (const uint32_t capacity : {320u, 319u, 0u, 321u}) {
        uint32_t size = capacity;
        EXPECT_EQ(Decode(holder, CORVANE_STREAM_MULAW, law[0], pcm, size), capacity >= 320 ? 0 : -1) << capacity;
        EXPECT_EQ(size, capacity >= 320 ? 320 : capacity);
    }
    const auto speech = test::MakeSound(CORVANE_STREAM_AMR, 2, 8000, 1, 3);
    if (speech.empty())
        GTEST_SKIP() << "no AMR encoder in this build";
    uint32_t size = 2 * 320 + 10;
    EXPECT_EQ(Decode(holder, CORVANE_STREAM_AMR, speech[0], pcm, size), -1);
    EXPECT_EQ(size, 2u * 320 + 10);
    EXPECT_NE(pcm[319], 0x5A5A);    // the two blocks that fit are there
    EXPECT_EQ(pcm[320], 0x5A5A);
    size = 3 * 320;
    EXPECT_EQ(Decode(holder, CORVANE_STREAM_AMR, speech[1], pcm, size), 0);    // only that sound was lost
    EXPECT_EQ(size, 3u * 320);
}

TEST(AudioDecoderHolder, BadInputLosesOnlyItself) {
    AudioDecoderHolder holder;
    std::vector<int16_t> pcm;
    const auto law = test::MakeSound(CORVANE_STREAM_ALAW, 1);
    EncodedSound empty;
    EncodedSound garbage;
    garbage.bytes.assign(3000, 0xFF);
    testing::internal::CaptureStderr();
    const struct {
        uint32_t stream_type, rate, channels;
        const EncodedSound& sound;
        int32_t result;
    } rows[] = {
        {CORVANE_STREAM_ALAW, 8000, 1, empty, 0},         {CORVANE_STREAM_ALAW, 8000, 0, law[0], -1},
        {CORVANE_STREAM_ALAW, 0, 1, law[0], -1},          {CORVANE_STREAM_ALAW, 8000, 255, law[0], 0},
        {CORVANE_STREAM_ALAW, 0xFFFFFFFF, 1, law[0], -1}, {CORVANE_STREAM_AMR, 8000, 1, garbage, 0},
        {CORVANE_STREAM_AAC, 8000, 1, law[0], -1},        {CORVANE_STREAM_G726, 8000, 1, law[0], -1},
        {CORVANE_STREAM_G7221, 8000, 1, law[0], -1},      {CORVANE_STREAM_G729A, 8000, 1, law[0], -1},
        {CORVANE_STREAM_H264, 8000, 1, law[0], -1},       {0, 0, 0, law[0], -1},
    };
    for (const auto& row : rows) {
        uint32_t size = 4000;
        EXPECT_EQ(Decode(holder, row.stream_type, row.sound, pcm, size, row.rate, row.channels), row.result)
            << row.stream_type << " " << row.channels;
        EXPECT_EQ(size, row.result == 0 ? 0u : 4000u);
        size = 4000;
        EXPECT_EQ(Decode(holder, CORVANE_STREAM_ALAW, law[0], pcm, size), 0);
        EXPECT_EQ(size, 320u);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}    // namespace
}    // namespace corvane
