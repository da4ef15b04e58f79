// What a bad network does to real streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <vector>

#include "decoders/VideoDecoderHolder.h"
#include "support/BareDecoder.h"

namespace corvane {
namespace {

using Stream = std::vector<test::EncodedPicture>;

// Sends the parameter sets of key frames by themselves, marked as key frames too.
void SplitHeaders(Stream& stream, Stream::iterator at, uint32_t codec) {
    const auto isPicture = [codec](uint8_t code) {
        return codec == CORVANE_STREAM_H264 ? code == 0x65 : codec == CORVANE_STREAM_H265 ? code < 64 : code == 0xB6;
    };
    for (; at != stream.end() && codec != CORVANE_STREAM_JPEG; ++at) {
        if (!at->key)
            continue;
        const uint8_t start[] = {0, 0, 1};
        auto picture = std::search(at->bytes.begin(), at->bytes.end(), std::begin(start), std::end(start));
        while (!isPicture(picture[3]))
            picture = std::search(picture + 1, at->bytes.end(), std::begin(start), std::end(start));
        const test::EncodedPicture headers{{at->bytes.begin(), picture}, true, at->ptsMs, -1};
        at->bytes.erase(at->bytes.begin(), picture);
        at = stream.insert(at, headers) + 1;
    }
}

// From the first key frame behind the damage on, every picture is there, is the right one, and equals an undamaged
// decode; it is paired with its own input.
TEST(Damage, EndsAtTheNextGoodKeyFrame) {
    using At = Stream::iterator;
    const std::function<void(Stream&, At, uint32_t)> damages[] = {
        [](Stream&, At at, uint32_t) { at->bytes.resize(at->bytes.size() / 2); },
        [](Stream&, At at, uint32_t) { at->bytes.resize(1); },
        [](Stream&, At at, uint32_t) { at->bytes.clear(); },
        [](Stream&, At at, uint32_t) { std::generate(at->bytes.begin(), at->bytes.end(), std::minstd_rand(7)); },
        [](Stream&, At at, uint32_t) { std::fill_n(at->bytes.begin(), 40, uint8_t{0}); },
        [](Stream& s, At at, uint32_t) { s.erase(at); },
        [](Stream& s, At at, uint32_t) { s.insert(at, test::EncodedPicture(*at)); },
        [](Stream&, At at, uint32_t) { std::iter_swap(at, at + 1); },
        [](Stream& s, At at, uint32_t) { s.erase(s.begin(), at + 1); },
        SplitHeaders,
    };
    for (const uint32_t codec : {CORVANE_STREAM_JPEG, CORVANE_STREAM_MPEG4, CORVANE_STREAM_H264, CORVANE_STREAM_H265}) {
        const Stream clean = test::MakeVideo({.streamType = codec, .width = 160, .height = 96, .frames = 24, .gop = 6});
        const auto bare = test::BareDecode(codec, clean);
        for (const auto& damage : damages)
            for (const int at : {8, 12})
                for (const uint32_t threads : {1u, 3u}) {
                    SCOPED_TRACE(testing::Message()
                                 << codec << " damage " << &damage - damages << " at " << at << " threads " << threads);
                    Stream stream = clean;
                    damage(stream, stream.begin() + at, codec);
                    const bool late = codec == CORVANE_STREAM_H264 || codec == CORVANE_STREAM_H265;
                    const int delay = late ? static_cast<int>(threads) - 1 : 0;
                    int expected = at == 8 ? 12 : 18;    // number of the first key frame behind the damage
                    const int first = expected + delay;
                    VideoDecoderHolder holder;
                    holder.SetThreads(threads);
                    for (const auto& picture : stream) {
                        uint32_t got = 0;
                        // Sets by themselves state no size; the pictures behind the first of them do.
                        const bool sized =
                            &damage == std::end(damages) - 1 && (picture.ptsMs > 480 || picture.number == 12);
                        holder.Decode(test::MakeFrame(codec, picture.bytes, picture.key, picture.ptsMs, sized ? 160 : 0,
                                                      sized ? 96 : 0),
                                      &got);
                        if (picture.number < first)
                            continue;
                        ASSERT_NE(got, 0u);
                        EXPECT_TRUE(test::SamePicture(holder.CurrentFrame(), *bare[static_cast<size_t>(expected)]));
                        FramePtr input;
                        ASSERT_TRUE(holder.CurrentInput(input));
                        EXPECT_EQ(TimeMs(*input), expected++ * 40);
                    }
                    EXPECT_EQ(expected, 24 - delay);
                }
    }
}

}    // namespace
}    // namespace corvane
