#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "base/FailurePoint.h"
#include "decoders/FFmpegDecoder.h"
#include "support/BareDecoder.h"
#include "support/FailingAllocation.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::EncodedPicture;
using test::Sampling;
using test::VideoSpec;

FFmpegCodec CodecOf(uint32_t stream_type) {
    return stream_type == CORVANE_STREAM_JPEG    ? FFmpegCodec::Mjpeg
           : stream_type == CORVANE_STREAM_MPEG4 ? FFmpegCodec::Mpeg4
           : stream_type == CORVANE_STREAM_H264  ? FFmpegCodec::H264
                                                 : FFmpegCodec::Hevc;
}

// One call; the bytes are gone, overwritten, when it returns.
int32_t Decode(DecoderContext& decoder, std::vector<uint8_t> bytes, DecodedFrame& out, uint32_t& got) {
    const auto size = static_cast<uint32_t>(bytes.size());
    bytes.resize(bytes.size() + 64);
    const EncodedUnit unit{bytes.data(), size, 0};
    const int32_t result = decoder.DecodeVideo(&out, &got, &unit);
    std::fill(bytes.begin(), bytes.end(), uint8_t{0xEE});
    return result;
}

// Largest difference of two luma samples.
int MostApart(const DecodedFrame& frame, const AVFrame& bare) {
    int most = 0;
    for (int y = 0; y < bare.height; ++y)
        for (int x = 0; x < bare.width; ++x)
            most = std::max(
                most, std::abs(frame.planes[0][y * frame.strides[0] + x] - bare.data[0][y * bare.linesize[0] + x]));
    return most;
}

TEST(FFmpegDecoder, PlanesEqualABareDecode) {
    const struct {
        const char* name;
        VideoSpec spec;
        uint32_t threads;
        uint32_t delay;    // packets before the first picture
    } rows[] = {
        {"h264", {}, 0, 0},
        {"h264 interlaced", {.interlaced = true}, 1, 0},
        {"h264 cropped", {.width = 326, .height = 182}, 1, 0},
        {"h264 three threads", {}, 3, 2},
        {"h264 B-frames", {.b_frames = 2}, 1, 1},
        {"h265", {.stream_type = CORVANE_STREAM_H265}, 1, 0},
        {"h265 two threads", {.stream_type = CORVANE_STREAM_H265}, 2, 1},
        {"mpeg4", {.stream_type = CORVANE_STREAM_MPEG4}, 0, 0},
        {"mpeg4 odd", {.stream_type = CORVANE_STREAM_MPEG4, .width = 151, .height = 99}, 0, 0},
        {"jpeg", {.stream_type = CORVANE_STREAM_JPEG}, 0, 0},
        {"jpeg odd", {.stream_type = CORVANE_STREAM_JPEG, .width = 151, .height = 99}, 0, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const std::vector<EncodedPicture> stream = test::MakeVideo(row.spec);
        const auto bare = test::BareDecode(row.spec.stream_type, stream);
        const DecoderPtr decoder = MakeVideoDecoder(CodecOf(row.spec.stream_type), row.threads);
        ASSERT_NE(decoder, nullptr);
        size_t next = 0;
        for (size_t i = 0; i < stream.size(); ++i) {
            DecodedFrame frame{};
            uint32_t got = 77;
            EXPECT_EQ(Decode(*decoder, stream[i].bytes, frame, got), static_cast<int32_t>(stream[i].bytes.size()));
            ASSERT_EQ(got, i < row.delay ? 0u : 2u) << i;
            if (got == 0)
                continue;
            EXPECT_EQ(test::ReadStamp(frame.planes[0], frame.strides[0]), static_cast<int>(next));
            EXPECT_TRUE(test::SamePicture(frame, *bare.at(next++)));
            EXPECT_EQ(frame.owner, nullptr);
        }
    }
}

// All through one decoder, so that format and size change in mid-stream.
TEST(FFmpegDecoder, OtherFormatsBecomeThreePlanesOf420) {
    const VideoSpec specs[] = {
        {.stream_type = CORVANE_STREAM_JPEG, .frames = 2, .sampling = Sampling::Yuv422},
        {.stream_type = CORVANE_STREAM_JPEG, .frames = 2},
        {.stream_type = CORVANE_STREAM_JPEG, .width = 151, .height = 99, .frames = 2, .sampling = Sampling::Yuv422},
        {.stream_type = CORVANE_STREAM_JPEG, .width = 201, .height = 99, .frames = 2, .sampling = Sampling::Yuv444},
        {.frames = 2, .sampling = Sampling::Yuv422},
        {.width = 164, .height = 82, .frames = 2, .sampling = Sampling::Yuv444},
        {.frames = 2, .bit_depth = 10},
        {.stream_type = CORVANE_STREAM_H265, .frames = 2, .bit_depth = 10},
    };
    DecoderPtr decoder;
    uint32_t stream_type = 0;
    testing::internal::CaptureStderr();
    for (const VideoSpec& spec : specs) {
        SCOPED_TRACE(std::to_string(spec.stream_type) + " " + std::to_string(spec.width));
        if (spec.stream_type != stream_type)
            decoder = MakeVideoDecoder(CodecOf(spec.stream_type), 1);
        stream_type = spec.stream_type;
        const std::vector<EncodedPicture> stream = test::MakeVideo(spec);
        const auto bare = test::BareDecode(spec.stream_type, stream);
        for (size_t i = 0; i < stream.size(); ++i) {
            DecodedFrame frame{};
            uint32_t got = 0;
            Decode(*decoder, stream[i].bytes, frame, got);
            ASSERT_EQ(got, 2u);
            EXPECT_NE(frame.strides[2], 0u);
            ASSERT_EQ(frame.width, static_cast<uint32_t>(spec.width));
            ASSERT_EQ(frame.height, static_cast<uint32_t>(spec.height));
            EXPECT_EQ(test::ReadStamp(frame.planes[0], frame.strides[0]), stream[i].number);
            // A change of range would move samples by up to 16; the fast scaler is up to 3 off.
            EXPECT_LE(spec.bit_depth > 8 ? 0 : MostApart(frame, *bare[i]), 3);
            const int last_row = (spec.height + 1) / 2 - 1;    // of a chroma plane; drawn in slopes of 40 to 200
            for (int plane = 1; plane < 3; ++plane)
                EXPECT_GT(frame.planes[plane][last_row * frame.strides[plane] + (spec.width + 1) / 2 - 1], 30);
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(FFmpegDecoder, SharedPicturesOutliveTheirDecoder) {
    for (const Sampling sampling : {Sampling::Yuv420, Sampling::Yuv422}) {
        const std::vector<EncodedPicture> stream = test::MakeVideo({.sampling = sampling});
        DecoderPtr decoder = MakeVideoDecoder(FFmpegCodec::H264, 1);
        std::vector<DecodedFrame> shared;
        for (const EncodedPicture& picture : stream) {
            DecodedFrame frame{};
            uint32_t got = 0;
            Decode(*decoder, picture.bytes, frame, got);
            ASSERT_EQ(decoder->ShareFrame(&frame, 2), 0);
            frame.add_ref(frame.owner);
            shared.push_back(frame);
        }
        decoder.reset();
        std::vector<std::thread> threads;    // two holders a picture, each drops its own reference
        for (int holder = 0; holder < 2; ++holder)
            threads.emplace_back([&] {
                for (size_t i = 0; i < shared.size(); ++i) {
                    EXPECT_EQ(test::ReadStamp(shared[i].planes[0], shared[i].strides[0]), static_cast<int>(i));
                    shared[i].release(shared[i].owner);
                }
            });
        for (std::thread& thread : threads)
            thread.join();
    }
}

TEST(FFmpegDecoder, AnswersOfTheInterface) {
    const DecoderPtr video = MakeVideoDecoder(FFmpegCodec::H264, 1);
    const DecoderPtr audio = MakeAudioDecoder(FFmpegCodec::MuLaw, 8000, 1, 0);
    const uint8_t garbage[80] = {0, 0, 1, 0x65};
    const EncodedUnit unit{garbage, 16, 0};
    DecodedFrame frame{};
    uint32_t got = 9;
    uint32_t size = 0;
    EXPECT_EQ(static_cast<uint32_t>(video->ShareFrame(&frame, 1)), 0x80000005u);
    EXPECT_EQ(video->ShareFrame(&frame, 2), -1);
    EXPECT_EQ(static_cast<uint32_t>(video->DecodeAudio(nullptr, &size, &unit)), 0x80000004u);
    EXPECT_EQ(video->DecodeVideo(&frame, &got, &unit), 16);    // damaged: no failure, no picture
    EXPECT_EQ(got, 0u);
    EXPECT_EQ(audio->DecodeVideo(&frame, &got, &unit), -1);
    EXPECT_EQ(audio->ShareFrame(&frame, 2), -1);
    EXPECT_EQ(MakeAudioDecoder(FFmpegCodec::MuLaw, 8000, 0, 0), nullptr);

    // An empty unit must not end the stream, and after it there is no picture to share.
    const std::vector<EncodedPicture> stream = test::MakeVideo({.frames = 3});
    Decode(*video, stream[0].bytes, frame, got);
    EXPECT_EQ(got, 2u);
    for (const EncodedUnit& empty :
         {EncodedUnit{nullptr, 0, 0}, EncodedUnit{garbage, 0, 0}, EncodedUnit{garbage, UINT32_MAX, 0}}) {
        EXPECT_GE(video->DecodeVideo(&frame, &got, &empty), 0);
        EXPECT_EQ(got, 0u);
        EXPECT_EQ(video->ShareFrame(&frame, 2), -1);
    }
    Decode(*video, stream[1].bytes, frame, got);
    EXPECT_EQ(got, 2u);
}

// A stream that is entered in mid-group shows at once what there is of it.
TEST(FFmpegDecoder, ShowsPicturesWithoutTheirKeyFrame) {
    const std::vector<EncodedPicture> stream = test::MakeVideo({.frames = 2});
    const uint8_t key_slice[] = {0, 0, 1, 0x65};
    std::vector<uint8_t> unit = stream[0].bytes;
    unit.erase(std::search(unit.begin(), unit.end(), std::begin(key_slice), std::end(key_slice)), unit.end());
    ASSERT_LT(unit.size(), stream[0].bytes.size());
    unit.insert(unit.end(), stream[1].bytes.begin(), stream[1].bytes.end());
    const DecoderPtr decoder = MakeVideoDecoder(FFmpegCodec::H264, 1);
    DecodedFrame frame{};
    uint32_t got = 0;
    EXPECT_GE(Decode(*decoder, unit, frame, got), 0);
    EXPECT_EQ(got, 2u);
}

TEST(FFmpegDecoder, PictureLimitsFromBothSides) {
    const struct {
        int width, height, announced_width;
        bool stands;
    } rows[] = {{16384, 16, 16384, true},   {16385, 16, 16385, false},  {80, 16384, 80, true},
                {80, 16385, 80, false},     {16384, 4096, 16384, true}, {16384, 4097, 16384, false},
                {320, 65500, 65500, false}, {320, 240, 0, false}};
    testing::internal::CaptureStderr();
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.announced_width) + " x " + std::to_string(row.height));
        std::vector<uint8_t> jpeg =
            test::MakeVideo(
                {.stream_type = CORVANE_STREAM_JPEG, .width = row.width, .height = row.height, .frames = 1})[0]
                .bytes;
        size_t header = 0;    // marker, length, precision, height, width
        while (!(jpeg[header] == 0xFF && jpeg[header + 1] == 0xC0))
            ++header;
        jpeg[header + 7] = static_cast<uint8_t>(row.announced_width >> 8);
        jpeg[header + 8] = static_cast<uint8_t>(row.announced_width);
        const DecoderPtr decoder = MakeVideoDecoder(FFmpegCodec::Mjpeg, 0);
        DecodedFrame frame{};
        uint32_t got = 0;
        EXPECT_GE(Decode(*decoder, jpeg, frame, got), 0);
        EXPECT_EQ(got, row.stands ? 2u : 0u);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The n-th call of the platform, or the n-th allocation, fails, n rising until all goes well: one unit is lost at most,
// and nothing else but the decoder that could not be made.
TEST(FFmpegDecoder, SurvivesEveryFailedCall) {
    const std::vector<EncodedPicture> stream =
        test::MakeVideo({.stream_type = CORVANE_STREAM_JPEG, .frames = 4, .sampling = Sampling::Yuv422});
    for (const bool allocations : {false, true}) {
        bool failed = true;
        for (uint64_t n = 1; failed; ++n) {
            ASSERT_LT(n, 1000u);
            if (allocations)
                test::allocation::FailAt(n);
            else
                failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), n, false);
            size_t pictures = 0;
            bool good_end = false;
            const DecoderPtr decoder = MakeVideoDecoder(FFmpegCodec::Mjpeg, 0);
            for (const EncodedPicture& picture : stream) {
                DecodedFrame frame{};
                uint32_t got = 0;
                const EncodedUnit unit{picture.bytes.data(), static_cast<uint32_t>(picture.bytes.size()), 0};
                if (decoder != nullptr && decoder->DecodeVideo(&frame, &got, &unit) >= 0 && got != 0) {
                    ++pictures;
                    good_end = test::ReadStamp(frame.planes[0], frame.strides[0]) == picture.number;
                }
            }
            failed = allocations ? test::allocation::Stop() >= n : failure::Hits() >= n;
            failure::Disarm();
            EXPECT_TRUE(decoder == nullptr || pictures + 1 >= stream.size()) << n;
            EXPECT_EQ(pictures == stream.size() && good_end, pictures == stream.size()) << n;
            EXPECT_TRUE(failed || pictures == stream.size());
        }
    }
}

}    // namespace
}    // namespace corvane
