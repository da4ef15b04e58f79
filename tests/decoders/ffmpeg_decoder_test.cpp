#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "decoders/FFmpegDecoder.h"
#include "support/BareDecoder.h"

namespace corvane {
namespace {

using test::EncodedPicture;
using test::Sampling;
using test::VideoSpec;

DecoderPtr MakeDecoder(uint32_t streamType, uint32_t threads = 1) {
    return MakeVideoDecoder(streamType == CORVANE_STREAM_JPEG    ? FFmpegCodec::Mjpeg
                            : streamType == CORVANE_STREAM_MPEG4 ? FFmpegCodec::Mpeg4
                            : streamType == CORVANE_STREAM_H264  ? FFmpegCodec::H264
                                                                 : FFmpegCodec::Hevc,
                            threads);
}

// One call; the bytes are gone, overwritten, when it returns. Bytes consumed, with *got 0 or 2.
int32_t Decode(DecoderContext& decoder, std::vector<uint8_t> bytes, DecodedFrame& out, uint32_t& got) {
    const auto size = static_cast<uint32_t>(bytes.size());
    bytes.resize(bytes.size() + 64);
    const EncodedUnit unit{bytes.data(), size, 0};
    const int32_t result = decoder.DecodeVideo(&out, &got, &unit);
    std::fill(bytes.begin(), bytes.end(), uint8_t{0xEE});
    return result;
}

TEST(FFmpegDecoder, SharedPicturesOutliveTheirDecoder) {
    for (const Sampling sampling : {Sampling::Yuv420, Sampling::Yuv422}) {
        DecoderPtr decoder = MakeDecoder(CORVANE_STREAM_H264);
        std::vector<DecodedFrame> shared;
        for (const EncodedPicture& picture : test::MakeVideo({.sampling = sampling})) {
            uint32_t got = 0;
            Decode(*decoder, picture.bytes, shared.emplace_back(), got);
            ASSERT_EQ(decoder->ShareFrame(&shared.back(), 2), 0);
            shared.back().add_ref(shared.back().owner);
        }
        decoder.reset();
        const auto hold = [&] {    // two holders a picture, each drops its own reference
            for (size_t i = 0; i < shared.size(); ++i) {
                EXPECT_EQ(test::ReadStamp(shared[i].planes[0], shared[i].strides[0]), static_cast<int>(i));
                shared[i].release(shared[i].owner);
            }
        };
        std::thread other(hold);
        hold();
        other.join();
    }
}

TEST(FFmpegDecoder, DamageEmptyUnitsMidGroupsAndSizes) {
    const DecoderPtr video = MakeDecoder(CORVANE_STREAM_H264);
    const std::vector<EncodedPicture> stream = test::MakeVideo({.frames = 3});
    const uint8_t garbage[80] = {0, 0, 1, 0x65};
    DecodedFrame frame{};
    uint32_t got = 9;
    EXPECT_EQ(static_cast<uint32_t>(video->ShareFrame(&frame, 1)), 0x80000005u);
    for (const EncodedUnit& bad : {EncodedUnit{garbage, 16, 0}, {nullptr, 0, 0}, {garbage, 0, 0}}) {
        EXPECT_EQ(video->DecodeVideo(&frame, &got, &bad), static_cast<int32_t>(bad.size));
        EXPECT_EQ(got, 0u);
        EXPECT_EQ(video->ShareFrame(&frame, 2), -1);
        Decode(*video, stream[0].bytes, frame, got);
        EXPECT_EQ(got, 2u) << bad.size;
    }
    // A stream that is entered in mid-group shows at once what there is of it.
    std::vector<uint8_t> sets = stream[0].bytes;
    sets.erase(std::search(sets.begin(), sets.end(), garbage, garbage + 4), sets.end());
    sets.insert(sets.end(), stream[1].bytes.begin(), stream[1].bytes.end());
    EXPECT_GE(Decode(*MakeDecoder(CORVANE_STREAM_H264), sets, frame, got), 0);
    EXPECT_EQ(got, 2u);
    for (const auto& [width, height, stands] :
         {std::tuple{16384, 16, true}, {16385, 16, false}, {80, 16385, false}, {16384, 4096, true}}) {
        const VideoSpec spec{.streamType = CORVANE_STREAM_JPEG, .width = width, .height = height, .frames = 1};
        EXPECT_GE(Decode(*MakeDecoder(CORVANE_STREAM_JPEG), test::MakeVideo(spec)[0].bytes, frame, got), 0);
        EXPECT_EQ(got, stands ? 2u : 0u) << width << " x " << height;
    }
}

}    // namespace
}    // namespace corvane
