#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "decoders/VideoDecoderHolder.h"
#include "support/StreamMaker.h"

namespace corvane::test {
namespace {

struct Row {
    const char* name;
    VideoSpec spec;
};

// Every kind of stream that the maker offers comes out of the decoder with its stamps.
TEST(StreamMaker, StampsSurviveEveryKindOfStream) {
    const Row rows[] = {
        {"h264", {}},
        {"h264 4:2:2", {.sampling = Sampling::Yuv422}},
        {"h264 4:4:4", {.sampling = Sampling::Yuv444}},
        {"h264 10 bit", {.bit_depth = 10}},
        {"h264 gray", {.sampling = Sampling::Gray}},
        {"h264 interlaced", {.interlaced = true}},
        {"h265", {.stream_type = CORVANE_STREAM_H265}},
        {"h265 10 bit", {.stream_type = CORVANE_STREAM_H265, .bit_depth = 10}},
        {"mpeg4", {.stream_type = CORVANE_STREAM_MPEG4}},
        {"mpeg4 interlaced", {.stream_type = CORVANE_STREAM_MPEG4, .interlaced = true}},
        {"mpeg4 odd", {.stream_type = CORVANE_STREAM_MPEG4, .width = 151, .height = 99}},
        {"jpeg", {.stream_type = CORVANE_STREAM_JPEG}},
        {"jpeg odd", {.stream_type = CORVANE_STREAM_JPEG, .width = 151, .height = 99}},
        {"jpeg 4:2:2 odd",
         {.stream_type = CORVANE_STREAM_JPEG, .width = 151, .height = 99, .sampling = Sampling::Yuv422}},
        {"jpeg 4:4:4", {.stream_type = CORVANE_STREAM_JPEG, .sampling = Sampling::Yuv444}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        VideoSpec spec = row.spec;
        spec.first_number = 4090;
        testing::internal::CaptureStderr();
        const std::vector<EncodedPicture> stream = MakeVideo(spec);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_TRUE(stream[0].key);
        EXPECT_TRUE(stream[5].key);
        EXPECT_EQ(stream[1].key, spec.stream_type == CORVANE_STREAM_JPEG);
        VideoDecoderHolder holder;
        for (const EncodedPicture& picture : stream) {
            uint32_t got = 0;
            ASSERT_EQ(holder.Decode(MakeFrame(spec.stream_type, picture.bytes, picture.key, picture.pts_ms), &got), 0);
            ASSERT_EQ(got, 2u);
            const DecodedFrame& frame = holder.CurrentFrame();
            EXPECT_EQ(frame.width, static_cast<uint32_t>(spec.width));
            EXPECT_EQ(frame.height, static_cast<uint32_t>(spec.height));
            EXPECT_EQ(ReadStamp(frame.planes[0], frame.strides[0]), picture.number);
        }
    }
}

TEST(StreamMaker, NoStampIsNotReadAsOne) {
    const std::vector<uint8_t> black(kStampWidth * kStampHeight, 0);
    EXPECT_EQ(ReadStamp(black.data(), kStampWidth), -1);
}

}    // namespace
}    // namespace corvane::test
