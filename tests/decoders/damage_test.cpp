// What a bad network and a hostile sender do to real streams.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "base/FailurePoint.h"
#include "decoders/VideoDecoderHolder.h"
#include "support/BareDecoder.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::EncodedPicture;
using test::MakeFrame;
using Stream = std::vector<EncodedPicture>;

constexpr uint32_t kCodecs[] = {CORVANE_STREAM_JPEG, CORVANE_STREAM_MPEG4, CORVANE_STREAM_H264, CORVANE_STREAM_H265};

// From the first key frame behind the damage on, every picture is there, is the right one, and equals an undamaged
// decode.
TEST(Damage, EndsAtTheNextGoodKeyFrame) {
    const struct {
        const char* name;
        std::function<void(Stream&, size_t)> damage;    // at this picture
    } rows[] = {
        {"cut", [](Stream& s, size_t at) { s[at].bytes.resize(s[at].bytes.size() / 2); }},
        {"cut to a byte", [](Stream& s, size_t at) { s[at].bytes.resize(1); }},
        {"empty", [](Stream& s, size_t at) { s[at].bytes.clear(); }},
        {"flipped bits",
         [](Stream& s, size_t at) {
             for (size_t i = s[at].bytes.size() / 3; i < s[at].bytes.size(); i += 17)
                 s[at].bytes[i] ^= 0x24;
         }},
        {"garbage",
         [](Stream& s, size_t at) { std::generate(s[at].bytes.begin(), s[at].bytes.end(), std::minstd_rand(7)); }},
        {"header of zeros", [](Stream& s, size_t at) { std::fill_n(s[at].bytes.begin(), 40, uint8_t{0}); }},
        {"lost", [](Stream& s, size_t at) { s.erase(s.begin() + static_cast<ptrdiff_t>(at)); }},
        {"doubled",
         [](Stream& s, size_t at) { s.insert(s.begin() + static_cast<ptrdiff_t>(at), EncodedPicture(s[at])); }},
        {"exchanged", [](Stream& s, size_t at) { std::swap(s[at], s[at + 1]); }},
        {"no start", [](Stream& s, size_t at) { s.erase(s.begin(), s.begin() + static_cast<ptrdiff_t>(at) + 1); }},
    };
    for (const uint32_t codec : kCodecs) {
        const Stream clean =
            test::MakeVideo({.stream_type = codec, .width = 160, .height = 96, .frames = 24, .gop = 6});
        const auto bare = test::BareDecode(codec, clean);
        for (const auto& row : rows)
            for (const size_t at : {size_t{8}, size_t{12}})
                for (const uint32_t threads : {1u, 3u}) {
                    SCOPED_TRACE(testing::Message()
                                 << codec << " " << row.name << " at " << at << " threads " << threads);
                    Stream stream = clean;
                    row.damage(stream, at);
                    const int good_from = at == 8 ? 12 : 18;    // number of the first key frame behind the damage
                    const uint32_t delay =
                        codec == CORVANE_STREAM_JPEG || codec == CORVANE_STREAM_MPEG4 ? 0 : threads - 1;
                    VideoDecoderHolder holder;
                    holder.SetThreads(threads);
                    int expected = good_from;
                    for (const EncodedPicture& picture : stream) {
                        uint32_t got = 0;
                        holder.Decode(MakeFrame(codec, picture.bytes, picture.key, picture.pts_ms), &got);
                        if (picture.number < good_from + static_cast<int>(delay))
                            continue;
                        ASSERT_NE(got, 0u) << picture.number;
                        const DecodedFrame& frame = holder.CurrentFrame();
                        EXPECT_EQ(test::ReadStamp(frame.planes[0], frame.strides[0]), expected);
                        EXPECT_TRUE(test::SamePicture(frame, *bare[static_cast<size_t>(expected)])) << expected;
                        FramePtr input;
                        ASSERT_TRUE(holder.CurrentInput(input));
                        EXPECT_EQ(TimeMs(*input), expected++ * 40);
                    }
                    EXPECT_EQ(expected, 24 - static_cast<int>(delay));
                }
    }
}

// Thousands of mutated frames: bounded, silent, and a good stream plays on the same holder afterwards.
TEST(Damage, FloodOfGarbageIsBoundedAndSilent) {
    std::mt19937 random(20);
    testing::internal::CaptureStderr();
    for (const uint32_t codec : kCodecs)
        for (const bool interlaced : {false, true}) {
            const Stream clean = test::MakeVideo({.stream_type = codec,
                                                  .width = 96,
                                                  .height = 64,
                                                  .frames = 6,
                                                  .gop = 3,
                                                  .interlaced = interlaced && codec != CORVANE_STREAM_JPEG});
            VideoDecoderHolder holder;
            holder.SetThreads(interlaced ? 2 : 1);
            uint32_t got = 0;
            for (int round = 0; round < 60; ++round)
                for (EncodedPicture picture : clean) {
                    for (uint32_t hits = random() % 8; hits > 0; --hits)
                        picture.bytes[random() %
                                      std::min<size_t>(picture.bytes.size(), random() % 2 == 0 ? 64 : SIZE_MAX)] =
                            static_cast<uint8_t>(random());
                    if (random() % 8 == 0)
                        picture.bytes.resize(random() % picture.bytes.size());
                    const int32_t result = holder.Decode(MakeFrame(codec, picture.bytes, random() % 2 == 0, 0), &got);
                    ASSERT_TRUE(result == 0 || got == 0);
                    ASSERT_LE(holder.InFlight(), 2u + 32);
                }
            holder.Reset(false);
            int last = -1;
            for (const EncodedPicture& picture : clean) {
                holder.Decode(MakeFrame(codec, picture.bytes, picture.key, 0), &got);
                if (got != 0)
                    last = test::ReadStamp(holder.CurrentFrame().planes[0], holder.CurrentFrame().strides[0]);
            }
            EXPECT_GE(last, 4);
        }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The n-th platform call fails, or all from the n-th on: the road goes on and, once they work again, plays.
TEST(Damage, FailedPlatformCallsLoseNoMoreThanAGroup) {
    for (const uint32_t codec : kCodecs)
        for (const bool for_good : {false, true}) {
            const Stream stream =
                test::MakeVideo({.stream_type = codec, .width = 96, .height = 64, .frames = 4, .gop = 2});
            bool failed = true;
            for (uint64_t n = 1; failed; ++n) {
                ASSERT_LT(n, 500u);
                VideoDecoderHolder holder;
                uint32_t got = 0;
                failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), n, for_good);
                for (const EncodedPicture& picture : stream)
                    holder.Decode(MakeFrame(codec, picture.bytes, picture.key, 0), &got);
                failed = failure::Hits() >= n;
                failure::Disarm();
                for (const EncodedPicture& picture : stream)
                    holder.Decode(MakeFrame(codec, picture.bytes, picture.key, picture.pts_ms), &got);
                ASSERT_EQ(got, 2u) << n;
                // A picture that could not be fetched in its turn comes one later.
                EXPECT_GE(test::ReadStamp(holder.CurrentFrame().planes[0], holder.CurrentFrame().strides[0]), 2);
            }
        }
}

}    // namespace
}    // namespace corvane
