// What units are left out before libavcodec sees them. Every payload ends at a page that cannot be read.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>

#include "decoders/HeaderCheck.h"
#include "support/BareDecoder.h"
#include "support/BitWriter.h"
#include "support/GuardedBytes.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using test::BitWriter;
using test::Bytes;
using test::operator+;

constexpr uint32_t kJpeg = CORVANE_STREAM_JPEG, kMpeg4 = CORVANE_STREAM_MPEG4, kH264 = CORVANE_STREAM_H264,
                   kH265 = CORVANE_STREAM_H265;

bool Stands(uint32_t streamType, const Bytes& bytes) {
    const test::GuardedBytes guarded(bytes.data(), bytes.size());
    const auto size = static_cast<uint32_t>(bytes.size());
    return streamType == kJpeg    ? JpegHeadersStand(guarded.Data(), size)
           : streamType == kMpeg4 ? Mpeg4LayerStands(guarded.Data(), size)
           : streamType == kH264  ? ParameterSetCheck().H264Stands(guarded.Data(), size)
                                  : HevcHeadersStand(guarded.Data(), size);
}

// Headers hit at random: no unit is held back that libavcodec decodes without a message, and what goes through brings
// out no message that its context's log level does not hold.
TEST(HeaderCheck, AgreesWithLibavcodec) {
    const std::pair<uint32_t, const char*> specs[] = {
        {kH264, ""}, {kH264, "cqm=jvt:8x8dct=1"}, {kH264, "interlaced=1"}, {kH265, ""}, {kMpeg4, ""}, {kJpeg, ""}};
    std::mt19937 random(5);
    for (const auto& [type, options] : specs) {
        const test::EncodedPicture clean =
            test::MakeVideo({.streamType = type, .width = 96, .height = 96, .frames = 1, .options = options})[0];
        for (int round = 0; round < 400; ++round) {
            test::EncodedPicture unit = clean;
            for (int hits = round % 4; hits > 0; --hits)
                unit.bytes[random() % 100 % unit.bytes.size()] ^= static_cast<uint8_t>(1 << random() % 8);
            if (round % 8 == 0)
                unit.bytes.resize(random() % unit.bytes.size());
            testing::internal::CaptureStderr();
            const bool decoded = !test::BareDecode(type, {unit}).empty();
            const std::string messages = testing::internal::GetCapturedStderr();
            const bool stands = Stands(type, unit.bytes);
            EXPECT_TRUE(stands || !decoded || messages != "") << type << " round " << round;
            EXPECT_TRUE(!stands || messages == "") << type << " round " << round << messages;
        }
    }
}

// Sizes in macroblocks; `step` begins the first scaling list, in the high profile.
Bytes H264Sequence(uint64_t width, uint64_t height, bool framesOnly = true, int step = 0) {
    BitWriter bits;
    bits.U(8, step != 0 ? 100 : 66).U(16, 0).Ue(0);
    if (step != 0)    // the second step makes the next scale 0, which ends the list; there is no other
        bits.Ue(1).Ue(0).Ue(0).U(1, 0).U(1, 1).U(1, 1).Se(step).Se(-8 - step).U(7, 0);
    bits.Ue(0).Ue(1).U(1, 0).Se(0).Se(0).Ue(2).Se(1).Se(-1);    // order type 1
    return bits.Ue(1).U(1, 0).Ue(width - 1).Ue(height - 1).U(1, framesOnly).U(8, 0).Unit({0x67});
}

Bytes HevcSequence(uint64_t width, uint64_t height, unsigned subLayers = 0) {
    BitWriter bits;
    bits.U(4, 0).U(3, subLayers).U(1, 1).U(88, 0).U(8, 93);
    if (subLayers > 0)    // each with profile and level
        bits.U(2 * subLayers, ~uint64_t{0}).U(2 * (8 - subLayers), 0).U(96 * subLayers, 0);
    return bits.Ue(0).Ue(1).Ue(width).Ue(height).U(16, 0).Unit({0x42, 1});
}

// Behind a segment that holds another frame header, without a size.
Bytes Jpeg(uint32_t width, uint32_t height) {
    return Bytes{0xFF, 0xD8, 0xFF, 0xE1, 0, 11, 0xFF, 0xC0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xC1, 0, 17, 8} +
           Bytes{uint8_t(height >> 8), uint8_t(height), uint8_t(width >> 8), uint8_t(width)};
}

TEST(HeaderCheck, HoldsBackImpossibleHeadersOnly) {
    const struct {
        const char* name;
        uint32_t streamType;
        Bytes bytes;
        bool stands;
    } rows[] = {
        {"jpeg", kJpeg, Jpeg(16384, 4096), true},
        {"jpeg too large", kJpeg, Jpeg(16384, 4300), false},
        {"jpeg no height", kJpeg, Jpeg(100, 0), false},
        {"jpeg bytes behind the end", kJpeg, Jpeg(16, 16) + Bytes{0xFF, 0xD9} + Jpeg(0, 0), true},
        {"h264", kH264, H264Sequence(1024, 256), true},
        {"h264 too large", kH264, H264Sequence(1040, 260), false},
        {"h264 too large by fields", kH264, H264Sequence(520, 260, false), false},
        {"h264 absurd", kH264, H264Sequence(1ull << 32, 1), false},
        {"h264 step -128", kH264, H264Sequence(20, 15, true, -128), true},
        {"h264 step -129", kH264, H264Sequence(20, 15, true, -129), false},
        {"h264 step 128", kH264, H264Sequence(20, 15, true, 128), false},
        {"h265", kH265, HevcSequence(16384, 4096), true},
        {"h265 sub-layers", kH265, HevcSequence(320, 240, 6), true},
        {"h265 too large", kH265, HevcSequence(16384, 4300, 2), false},
        {"h265 no width", kH265, HevcSequence(0, 240), false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Stands(row.streamType, row.bytes), row.stands) << row.name;
}

}    // namespace
}    // namespace corvane
