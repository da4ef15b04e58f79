// H.263 under the vendor tag that all frames have which name none, against libavcodec alone.
#include <gtest/gtest.h>

#include <vector>

#include "decoders/VideoDecoderHolder.h"
#include "support/BareDecoder.h"
#include "support/BitWriter.h"
#include "support/StreamMaker.h"

namespace corvane::test {
namespace {

// Sizes of the first version of the Recommendation, and others, which have the header of the second. All go through
// one holder, and a picture that is held keeps its samples.
TEST(H263, PicturesOfAllSizesAreExact) {
    testing::internal::CaptureStderr();
    VideoDecoderHolder holder;
    SharedPicture held;
    int heldNumber = -1;
    const struct {
        int width, height;
    } rows[] = {{176, 144}, {704, 576}, {352, 288}, {352, 240}, {704, 240}, {100, 76}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.width);
        const auto stream = MakeVideo({.streamType = kH263, .width = row.width, .height = row.height, .frames = 7});
        const auto wanted = BareDecode(kH263, stream);
        ASSERT_EQ(wanted.size(), stream.size());
        for (size_t i = 0; i < stream.size(); ++i) {
            uint32_t got = 0;
            ASSERT_EQ(holder.Decode(MakeFrame(kH263, stream[i].bytes, stream[i].key, 0), &got), 0);
            ASSERT_EQ(got, 2u);
            EXPECT_TRUE(SamePicture(holder.CurrentFrame(), *wanted[i])) << i;
            if (heldNumber >= 0)
                EXPECT_EQ(ReadStamp(held.Get().planes[0], held.Get().strides[0]), heldNumber);
        }
        held = holder.ShareCurrent();
        heldNumber = stream.back().number;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// A picture of the second version, up to its size; without one the rest is missing.
Bytes CustomSize(uint32_t width, uint32_t height) {
    BitWriter w;
    w.U(22, 32).U(8, 0).U(5, 0b10000).U(3, 7).U(3, 1).U(3, 6).U(15, 0b1000).U(9, 1).U(1, 0).U(4, 1);
    return w.U(9, width / 4 - 1).U(1, 1).U(9, height / 4).U(64, 0x123456789).Packed();
}

TEST(H263, WhatIsNoneOfItsPicturesFails) {
    using enum DecodeOutcome;
    const auto stream = MakeVideo({.streamType = kH263, .width = 176, .height = 144, .frames = 3});
    const auto large = MakeVideo({.streamType = kH263, .width = 1408, .height = 1152, .frames = 1});
    const struct {
        const char* name;
        Bytes bytes;
        DecodeOutcome outcome;
        bool otherVendor = false;
    } rows[] = {{"of another vendor", stream[0].bytes, NoDecoder, true},
                {"above the largest size", large[0].bytes, Size},
                {"4096 x 4096, cut to the bits of the field", CustomSize(2048, 2044), Size},
                {"one step too wide", CustomSize(708, 576), Size},
                {"one step too high", CustomSize(704, 580), Size},
                {"no height", CustomSize(704, 0), Size},
                {"header ends early", Bytes(stream[0].bytes.begin(), stream[0].bytes.begin() + 4), Failed},
                {"no picture", Bytes(100, 0xA5), Failed},
                {"nothing", {}, NoPicture}};
    testing::internal::CaptureStderr();
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        VideoDecoderHolder holder;
        const auto decode = [&](const Bytes& bytes, bool otherVendor, bool key) {
            MediaFrameHeader header = VideoHeader(kH263, bytes, key, 0);
            header.extension = kOtherVendor;
            header.extensionSize = otherVendor ? sizeof kOtherVendor : 0;
            uint32_t got = 0;
            const int32_t result = holder.Decode(std::make_shared<MediaFrameImpl>(header), &got);
            EXPECT_EQ(result < 0, holder.LastOutcome() != Picture && holder.LastOutcome() != NoPicture);
            return got;
        };
        EXPECT_EQ(decode(stream[0].bytes, false, true), 2u);
        EXPECT_EQ(decode(row.bytes, row.otherVendor, true), 0u);
        EXPECT_EQ(static_cast<int>(holder.LastOutcome()), static_cast<int>(row.outcome));
        EXPECT_EQ(decode(stream[1].bytes, false, row.otherVendor), 2u);
        EXPECT_EQ(holder.InFlight(), 1u);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}    // namespace
}    // namespace corvane::test
