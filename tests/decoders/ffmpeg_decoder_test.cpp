#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "decoders/FFmpegDecoder.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::EncodedPicture;
using test::Sampling;

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
        DecoderPtr decoder = MakeVideoDecoder(FFmpegCodec::H264, 1);
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

// A stream that is entered in mid-group shows at once what there is of it.
TEST(FFmpegDecoder, MidGroupsAndWhatCannotBeShared) {
    const DecoderPtr video = MakeVideoDecoder(FFmpegCodec::H264, 1);
    const std::vector<EncodedPicture> stream = test::MakeVideo({.frames = 3});
    DecodedFrame frame{};
    uint32_t got = 9;
    EXPECT_EQ(static_cast<uint32_t>(video->ShareFrame(&frame, 1)), 0x80000005u);
    EXPECT_EQ(video->ShareFrame(&frame, 2), -1);
    const uint8_t slice[] = {0, 0, 1, 0x65};
    std::vector<uint8_t> sets = stream[0].bytes;
    sets.erase(std::search(sets.begin(), sets.end(), std::begin(slice), std::end(slice)), sets.end());
    sets.insert(sets.end(), stream[1].bytes.begin(), stream[1].bytes.end());
    EXPECT_EQ(Decode(*video, sets, frame, got), static_cast<int32_t>(sets.size()));
    EXPECT_EQ(got, 2u);
}

}    // namespace
}    // namespace corvane
