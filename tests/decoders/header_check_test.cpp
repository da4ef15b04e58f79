// What units are left out before libavcodec sees them. Every payload ends at a page that cannot be read.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "decoders/HeaderCheck.h"
#include "support/GuardedBytes.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

using Bytes = std::vector<uint8_t>;

bool Stands(uint32_t stream_type, const Bytes& bytes) {
    const test::GuardedBytes guarded(bytes.data(), bytes.size());
    const auto size = static_cast<uint32_t>(bytes.size());
    ParameterSetCheck sets;
    return stream_type == CORVANE_STREAM_JPEG    ? JpegHeadersStand(guarded.Data(), size)
           : stream_type == CORVANE_STREAM_MPEG4 ? Mpeg4LayerStands(guarded.Data(), size)
           : stream_type == CORVANE_STREAM_H264  ? sets.H264Stands(guarded.Data(), size)
                                                 : sets.HevcStands(guarded.Data(), size);
}

// Good streams of many kinds pass, whole and cut anywhere.
TEST(HeaderCheck, LetsRealStreamsPass) {
    const test::VideoSpec specs[] = {
        {},
        {.options = "cqm=jvt:aud=1:nal-hrd=vbr:vbv-maxrate=900:vbv-bufsize=900"},
        {.b_frames = 2, .sampling = test::Sampling::Yuv444, .options = "cqm=jvt:8x8dct=1"},
        {.sampling = test::Sampling::Yuv422, .bit_depth = 10, .interlaced = true},
        {.width = 16384, .height = 16},
        {.stream_type = CORVANE_STREAM_H265},
        {.stream_type = CORVANE_STREAM_H265,
         .b_frames = 2,
         .options = "temporal-layers=1:hrd=1:vbv-maxrate=900:vbv-bufsize=900:aud=1"},
        {.stream_type = CORVANE_STREAM_H265, .sampling = test::Sampling::Yuv444, .options = "scaling-list=default"},
        {.stream_type = CORVANE_STREAM_MPEG4, .width = 151, .height = 99, .interlaced = true},
        {.stream_type = CORVANE_STREAM_JPEG},
    };
    for (test::VideoSpec spec : specs) {
        SCOPED_TRACE(std::to_string(spec.stream_type) + " " + std::to_string(spec.width) + spec.options);
        spec.frames = 3;
        const auto stream = test::MakeVideo(spec);
        const Bytes& key = stream[0].bytes;
        for (const test::EncodedPicture& picture : stream)
            EXPECT_TRUE(Stands(spec.stream_type, picture.bytes) ||
                        (spec.stream_type == CORVANE_STREAM_MPEG4 && !picture.key));    // no layer in it
        for (size_t size = 0; size < std::min<size_t>(key.size(), 300); ++size)         // reads nothing behind the end
            Stands(spec.stream_type, Bytes(key.begin(), key.begin() + static_cast<ptrdiff_t>(size)));
    }
}

class BitWriter {
public:
    BitWriter& Put(uint64_t value, int count) {
        for (int bit = count - 1; bit >= 0; --bit)
            m_bits.push_back(bit < 64 && (value >> bit & 1) != 0);
        return *this;
    }
    BitWriter& Unsigned(uint64_t value) {    // exponential Golomb
        int length = 0;
        while ((value + 1) >> length > 1)
            ++length;
        return Put(0, length).Put(value + 1, length + 1);
    }
    BitWriter& Signed(int64_t value) { return Unsigned(static_cast<uint64_t>(value > 0 ? 2 * value - 1 : -2 * value)); }

    // Behind `head`, with a stop bit and emulation prevention.
    Bytes Unit(Bytes head) {
        Put(1, 1);
        while (m_bits.size() % 8 != 0)
            Put(0, 1);
        int zeros = 0;
        for (size_t i = 0; i < m_bits.size(); i += 8) {
            uint8_t byte = 0;
            for (size_t bit = 0; bit < 8; ++bit)
                byte = static_cast<uint8_t>(byte << 1 | (m_bits[i + bit] ? 1 : 0));
            if (zeros >= 2 && byte <= 3) {
                head.push_back(3);
                zeros = 0;
            }
            zeros = byte == 0 ? zeros + 1 : 0;
            head.push_back(byte);
        }
        return head;
    }

private:
    std::vector<bool> m_bits;
};

// Sizes in macroblocks; `step` is the first of the first scaling list, in the high profile.
Bytes H264Sequence(uint64_t width, uint64_t height, bool frames_only, int step = 1000000, bool picture_set = false) {
    const bool lists = step != 1000000;
    BitWriter bits;
    bits.Put(lists ? 100 : 66, 8).Put(0, 16).Unsigned(0);
    if (lists) {
        bits.Unsigned(1).Unsigned(0).Unsigned(0).Put(0, 1).Put(1, 1).Put(1, 1).Signed(step).Signed(-8 - step);
        bits.Put(0, 7);    // no other list; the second step made the next scale 0, which ends this one
    }
    bits.Unsigned(0).Unsigned(1).Put(0, 1).Signed(0).Signed(0).Unsigned(2).Signed(1).Signed(-1);    // order type 1
    bits.Unsigned(1).Put(0, 1).Unsigned(width - 1).Unsigned(height - 1).Put(frames_only ? 1 : 0, 1).Put(0, 8);
    Bytes unit = bits.Unit({0, 0, 1, 0x67});
    if (picture_set) {
        BitWriter set;
        set.Unsigned(0).Unsigned(0).Put(0, 2).Unsigned(0).Unsigned(0).Unsigned(0).Put(0, 3).Signed(0).Signed(0).Signed(
            0);
        const Bytes more = set.Put(0, 3).Put(0, 1).Put(1, 1).Put(0, 5).Put(1, 1).Signed(128).Unit({0, 0, 1, 0x68});
        unit.insert(unit.end(), more.begin(), more.end());
    }
    return unit;
}

Bytes HevcSequence(uint64_t width, uint64_t height, unsigned sub_layers, unsigned layer = 0) {
    BitWriter bits;
    bits.Put(0, 4).Put(sub_layers, 3).Put(1, 1).Put(0, 88).Put(93, 8);
    for (unsigned i = 0; i < sub_layers; ++i)
        bits.Put(3, 2);
    if (sub_layers > 0)
        bits.Put(0, static_cast<int>(2 * (8 - sub_layers)));
    for (unsigned i = 0; i < sub_layers; ++i)
        bits.Put(0, 64).Put(0, 32);
    bits.Unsigned(0).Unsigned(1).Unsigned(width).Unsigned(height).Put(0, 16);
    return bits.Unit({0, 0, 1, 0x42, static_cast<uint8_t>(layer << 3 | 1)});
}

Bytes Mpeg4Layer(uint64_t width, uint64_t height, unsigned type = 1, bool extras = false, bool behind_picture = false) {
    BitWriter bits;
    bits.Put(0, 1).Put(type, 8).Put(extras ? 1 : 0, 1);
    if (extras)
        bits.Put(0x11, 7).Put(15, 4).Put(0x0101, 16).Put(1, 1).Put(0, 3).Put(1, 1).Put(~0ull, 40).Put(~0ull, 39);
    else
        bits.Put(1, 4).Put(0, 1);
    bits.Put(0, 2).Put(1, 1).Put(25, 16).Put(1, 1).Put(1, 1).Put(1, 5).Put(1, 1).Put(width, 13).Put(1, 1).Put(height,
                                                                                                              13);
    Bytes head = behind_picture ? Bytes{0, 0, 1, 0xB6, 9} : Bytes{};
    head.insert(head.end(), {0, 0, 1, 0x20});
    return bits.Unit(head);
}

TEST(HeaderCheck, HoldsBackImpossibleHeaders) {
    const auto jpeg = [](uint32_t width, uint32_t height) {
        return Bytes{0xFF,
                     0xD8,
                     0xFF,
                     0xE1,
                     0,
                     7,
                     0xFF,
                     0xC0,
                     0,
                     0,
                     0,
                     0xFF,
                     0xC1,
                     0,
                     17,
                     8,
                     uint8_t(height >> 8),
                     uint8_t(height),
                     uint8_t(width >> 8),
                     uint8_t(width)};
    };
    constexpr uint32_t kH264 = CORVANE_STREAM_H264, kH265 = CORVANE_STREAM_H265, kMpeg4 = CORVANE_STREAM_MPEG4;
    const struct {
        const char* name;
        uint32_t stream_type;
        Bytes bytes;
        bool stands;
    } rows[] = {
        {"jpeg", 1, jpeg(16384, 4096), true},
        {"jpeg wide", 1, jpeg(16385, 1), false},
        {"jpeg many pixels", 1, jpeg(16384, 4300), false},
        {"jpeg no height", 1, jpeg(100, 0), false},
        {"h264", kH264, H264Sequence(1024, 256, true), true},
        {"h264 wide", kH264, H264Sequence(1025, 1, true), false},
        {"h264 high by fields", kH264, H264Sequence(1, 512, false), true},
        {"h264 too high by fields", kH264, H264Sequence(1, 513, false), false},
        {"h264 absurd", kH264, H264Sequence(1ull << 32, 1, true), false},
        {"h264 step -128", kH264, H264Sequence(20, 15, true, -128), true},
        {"h264 step -129", kH264, H264Sequence(20, 15, true, -129), false},
        {"h264 step 128", kH264, H264Sequence(20, 15, true, 128), false},
        {"h264 step in a picture set", kH264, H264Sequence(20, 15, true, 1000000, true), false},
        {"h264 not Annex B", kH264, {1, 0x64, 0, 0x1F, 0xFF, 0xE1, 0, 9, 0x67}, false},
        {"h265", kH265, HevcSequence(16384, 4096, 0), true},
        {"h265 sub-layers", kH265, HevcSequence(320, 240, 6), true},
        {"h265 wide", kH265, HevcSequence(16385, 8, 2), false},
        {"h265 no width", kH265, HevcSequence(0, 240, 0), false},
        {"h265 other layer", kH265, HevcSequence(0, 240, 0, 1), true},
        {"mpeg4", kMpeg4, Mpeg4Layer(8191, 8191), true},
        {"mpeg4 extras", kMpeg4, Mpeg4Layer(320, 240, 1, true), true},
        {"mpeg4 no width", kMpeg4, Mpeg4Layer(0, 240, 1, true), false},
        {"mpeg4 studio", kMpeg4, Mpeg4Layer(320, 240, 14), false},
        {"mpeg4 layer too late", kMpeg4, Mpeg4Layer(320, 240, 1, false, true), false},
        {"mpeg4 none", kMpeg4, {0, 0, 1, 0xB0, 1}, false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Stands(row.stream_type, row.bytes), row.stands) << row.name;
}

}    // namespace
}    // namespace corvane
