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

// A set that ends inside its first scaling list: libavcodec takes the rest from what lies behind, and says so.
TEST(HeaderCheck, SequenceThatEndsEarly) {
    BitWriter sps;
    sps.U(8, 100).U(16, 30).Ue(0).Ue(1).Ue(0).Ue(0).U(1, 0).U(2, 3).U(9, 1);
    const Bytes unit = sps.Unit({0x67}) + Bytes{0, 0, 1, 0x68, 0xFF, 0xFF, 0xFF};
    testing::internal::CaptureStderr();
    test::BareDecode(kH264, {{unit, true, 0, 0}});
    EXPECT_NE(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(Stands(kH264, unit));
}

// Behind a segment that holds another frame header, without a size.
Bytes Jpeg(uint32_t width, uint32_t height) {
    return Bytes{0xFF, 0xD8, 0xFF, 0xE1, 0, 11, 0xFF, 0xC0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xC1, 0, 17, 8} +
           Bytes{uint8_t(height >> 8), uint8_t(height), uint8_t(width >> 8), uint8_t(width)};
}

TEST(HeaderCheck, HoldsBackImpossibleJpegSizesOnly) {
    EXPECT_TRUE(Stands(kJpeg, Jpeg(16384, 4096)));
    EXPECT_FALSE(Stands(kJpeg, Jpeg(16384, 4300)));
    EXPECT_FALSE(Stands(kJpeg, Jpeg(100, 0)));
    EXPECT_TRUE(Stands(kJpeg, Jpeg(16, 16) + Bytes{0xFF, 0xD9} + Jpeg(0, 0)));    // behind the end
    for (Bytes cut = Jpeg(16, 16); cut.size() >= 17; cut.pop_back())              // in its header
        EXPECT_EQ(Stands(kJpeg, cut), cut.size() == 24) << cut.size();
}

}    // namespace
}    // namespace corvane
