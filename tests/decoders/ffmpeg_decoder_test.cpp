#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <thread>
#include <vector>

#include "decoders/FFmpegDecoder.h"
#include "support/BareDecoder.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::EncodedPicture;
using test::Sampling;
using test::VideoSpec;

DecoderPtr MakeDecoder(uint32_t streamType, uint32_t threads = 1) {
    const std::map<uint32_t, FFmpegCodec> codecs{
        {1, FFmpegCodec::Mjpeg}, {4, FFmpegCodec::Mpeg4}, {8, FFmpegCodec::H264}, {16, FFmpegCodec::Hevc}};
    return MakeVideoDecoder(codecs.at(streamType), threads);
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

// Luma at most `most` apart, the same size, and chroma to its last sample; it is drawn in slopes of 40 to 200.
bool LikePicture(const DecodedFrame& frame, const AVFrame& bare, int most) {
    const auto luma_differs = [&](int x, int y) {
        return std::abs(frame.planes[0][y * frame.strides[0] + x] - bare.data[0][y * bare.linesize[0] + x]) > most;
    };
    for (int i = 0; i < bare.width * bare.height; ++i)
        if (luma_differs(i % bare.width, i / bare.width))
            return false;
    const uint32_t last = (frame.height + 1) / 2 - 1, column = (frame.width + 1) / 2 - 1;
    return static_cast<int>(frame.width) == bare.width && static_cast<int>(frame.height) == bare.height &&
           frame.strides[2] > 0 && frame.planes[1][last * frame.strides[1] + column] > 30 &&
           frame.planes[2][last * frame.strides[2] + column] > 30;
}

// All of one type through one decoder, so that size and format change in mid-stream; a new one where threads or
// B-frames delay its pictures. `apart` 0: bit by bit as a bare decode. Other formats become 4:2:0: a change of range
// would move samples by up to 16, the fast scaler is up to 7 off, and deep samples have the stamp to be
// known by.
TEST(FFmpegDecoder, PlanesEqualABareDecode) {
    constexpr uint32_t kJpeg = CORVANE_STREAM_JPEG, kMpeg4 = CORVANE_STREAM_MPEG4, kH265 = CORVANE_STREAM_H265;
    constexpr int kScaled = 7, kDeep = 255;
    const struct {
        VideoSpec spec;
        int apart = 0;
        uint32_t threads = 1, delay = 0;    // packets before the first picture
    } rows[] = {
        {{}},
        {{.interlaced = true}},
        {{.width = 326, .height = 182}},
        {{.sampling = Sampling::Yuv422}, kScaled},
        {{.width = 164, .height = 82, .sampling = Sampling::Yuv444}, kScaled},
        {{.width = 164, .height = 82, .sampling = Sampling::Yuv444, .options = "cqm=jvt:8x8dct=1"}, kScaled},
        {{.sampling = Sampling::Gray}, kScaled},
        {{.bitDepth = 10}, kDeep},
        {{.options = "cqm=jvt:aud=1:nal-hrd=vbr:vbv-maxrate=900:vbv-bufsize=900"}},
        {{.width = 16384, .height = 16}},
        {{}, 0, 3, 2},
        {{.bFrames = 2}, 0, 1, 1},
        {{.streamType = kH265}},
        {{.streamType = kH265, .bitDepth = 10}, kDeep},
        {{.streamType = kH265, .options = "scaling-list=default:hrd=1:vbv-maxrate=900:vbv-bufsize=900:aud=1"}},
        {{.streamType = kH265}, 0, 2, 1},
        {{.streamType = kH265, .bFrames = 2, .options = "temporal-layers=1"}, 0, 1, 2},
        {{.streamType = kMpeg4}},
        {{.streamType = kMpeg4, .width = 151, .height = 99, .interlaced = true}},
        {{.streamType = kJpeg, .sampling = Sampling::Yuv422}, kScaled},
        {{.streamType = kJpeg}},
        {{.streamType = kJpeg, .width = 151, .height = 99}},
        {{.streamType = kJpeg, .width = 151, .height = 97, .sampling = Sampling::Yuv422}, kScaled},
        {{.streamType = kJpeg, .width = 201, .height = 97, .sampling = Sampling::Yuv444}, kScaled},
    };
    DecoderPtr decoder;
    uint32_t decoder_type = 0;
    testing::internal::CaptureStderr();
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "row " << &row - rows);
        VideoSpec spec = row.spec;
        spec.firstNumber = 4090;
        const std::vector<EncodedPicture> stream = test::MakeVideo(spec);
        const auto bare = test::BareDecode(spec.streamType, stream);
        if (spec.streamType != decoder_type || row.delay > 0)
            decoder = MakeDecoder(spec.streamType, row.threads);
        decoder_type = row.delay > 0 ? 0 : spec.streamType;
        size_t next = 0;
        for (size_t i = 0; i < stream.size(); ++i) {
            EXPECT_EQ(stream[i].key, spec.streamType == kJpeg || stream[i].number % spec.gop == 0);
            DecodedFrame frame{};
            uint32_t got = 77;
            EXPECT_EQ(Decode(*decoder, stream[i].bytes, frame, got), static_cast<int32_t>(stream[i].bytes.size()));
            ASSERT_EQ(got, i < row.delay ? 0u : 2u) << i;
            if (got == 0)
                continue;
            EXPECT_EQ(test::ReadStamp(frame.planes[0], frame.strides[0]), 4090 + static_cast<int>(next));
            const AVFrame& wanted = *bare.at(next++);
            EXPECT_TRUE(row.apart == 0 ? test::SamePicture(frame, wanted) : LikePicture(frame, wanted, row.apart));
            EXPECT_EQ(frame.owner, nullptr);
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
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
    const DecoderPtr video = MakeDecoder(CORVANE_STREAM_H264);
    const DecoderPtr audio = MakeAudioDecoder(FFmpegCodec::MuLaw, 8000, 1, 0);
    const std::vector<EncodedPicture> stream = test::MakeVideo({.frames = 3});
    const uint8_t garbage[80] = {0, 0, 1, 0x65};
    const EncodedUnit unit{garbage, 16, 0};
    DecodedFrame frame{};
    uint32_t got = 9, size = 0;
    EXPECT_EQ(static_cast<uint32_t>(video->ShareFrame(&frame, 1)), 0x80000005u);
    EXPECT_EQ(static_cast<uint32_t>(video->DecodeAudio(nullptr, &size, &unit)), 0x80000004u);
    EXPECT_EQ(audio->DecodeVideo(&frame, &got, &unit), -1);
    EXPECT_EQ(audio->ShareFrame(&frame, 2), -1);
    EXPECT_EQ(MakeAudioDecoder(FFmpegCodec::MuLaw, 8000, 0, 0), nullptr);
    // Neither damage nor an empty unit ends the stream; after them there is no picture to share.
    for (const EncodedUnit& bad :
         {unit, EncodedUnit{nullptr, 0, 0}, EncodedUnit{garbage, 0, 0}, EncodedUnit{garbage, UINT32_MAX, 0}}) {
        EXPECT_EQ(video->DecodeVideo(&frame, &got, &bad),
                  static_cast<int32_t>(std::min<uint32_t>(bad.size, INT32_MAX)));
        EXPECT_EQ(got, 0u);
        EXPECT_EQ(video->ShareFrame(&frame, 2), -1);
        Decode(*video, stream[0].bytes, frame, got);
        EXPECT_EQ(got, 2u) << bad.size;
    }
    // A stream that is entered in mid-group shows at once what there is of it.
    const uint8_t keySlice[] = {0, 0, 1, 0x65};
    std::vector<uint8_t> sets = stream[0].bytes;
    sets.erase(std::search(sets.begin(), sets.end(), std::begin(keySlice), std::end(keySlice)), sets.end());
    sets.insert(sets.end(), stream[1].bytes.begin(), stream[1].bytes.end());
    EXPECT_GE(Decode(*MakeDecoder(CORVANE_STREAM_H264), sets, frame, got), 0);
    EXPECT_EQ(got, 2u);
}

TEST(FFmpegDecoder, PictureLimitsFromBothSides) {
    const struct {
        int width, height;
        bool stands;
    } rows[] = {{16384, 16, true},  {16385, 16, false},  {80, 16384, true},
                {80, 16385, false}, {16384, 4096, true}, {16384, 4097, false}};
    testing::internal::CaptureStderr();
    for (const auto& row : rows) {
        const VideoSpec spec{.streamType = 1, .width = row.width, .height = row.height, .frames = 1};
        DecodedFrame frame{};
        uint32_t got = 0;
        EXPECT_GE(Decode(*MakeDecoder(CORVANE_STREAM_JPEG), test::MakeVideo(spec)[0].bytes, frame, got), 0);
        EXPECT_EQ(got, row.stands ? 2u : 0u) << row.width << " x " << row.height;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}    // namespace
}    // namespace corvane
