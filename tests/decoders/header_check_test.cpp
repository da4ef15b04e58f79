// The units that are kept from libavcodec. Every payload ends at a page that cannot be read.

#include "decoders/HeaderCheck.h"
#include "support/BareDecoder.h"
#include "support/BitWriter.h"
#include "support/GuardedBytes.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

Bytes JpegFrame(uint32_t width, uint32_t height) {
    return Bytes{0xFF, 0xC0, 0, 17, 8} +
           Bytes{uint8_t(height >> 8), uint8_t(height), uint8_t(width >> 8), uint8_t(width)} +
           Bytes{3, 1, 0x22, 0, 2, 0x11, 1, 3, 0x11, 1};
}

// A frame header of no size inside what looks like a segment.
Bytes Hidden(uint8_t marker) {
    return Bytes{0xFF, marker, 0, 21} + JpegFrame(0, 0);
}

Bytes Layer(uint32_t width, uint32_t height) {
    BitWriter w;
    w.U(1, 0).U(8, 1).U(1, 1).U(7, 9).U(4, 15).U(16, 0x0101).U(1, 1).U(3, 2).U(1, 1).U(79, ~uint64_t{0}).U(2, 0);
    w.U(1, 1).U(16, 25).U(1, 1).U(1, 1).U(5, 1).U(1, 1).U(13, width).U(1, 1).U(13, height).U(1, 1);
    return w.U(1, 0).U(1, 1).U(1, 0).U(7, 0).Unit({0x20});
}

// Scaling lists: one that is given, one that ends at once, and a large flat one, in codes of one bit.
Bytes H264(uint32_t width, uint32_t height, bool fields, bool lists = false) {
    BitWriter w;
    w.U(8, lists ? 100 : 77).U(16, 30).Ue(0);
    if (lists) {
        w.Ue(1).Ue(0).Ue(0).U(1, 0).U(2, 3);
        for (int i = 0; i < 16; ++i)
            w.Se(i % 2 == 0 ? 5 : -3);
        w.U(1, 1).Se(-8).U(4, 0).U(1, 1).U(64, ~uint64_t{0}).U(1, 0);
    }
    w.Ue(0).Ue(2).Ue(1).U(1, 0).Ue(width / 16 - 1).Ue(height / (fields ? 32 : 16) - 1);
    return w.U(fields ? 2 : 1, fields ? 0 : 1).U(3, 4).Unit({0x67});
}

// With a second sub-layer, whose profile is there, and not its level.
Bytes H265(uint32_t width, uint32_t height) {
    BitWriter w;
    w.U(4, 0).U(3, 1).U(1, 1).U(96, 0).U(2, 2).U(14, 0).U(88, 0).Ue(0).Ue(1).Ue(width).Ue(height);
    return w.Unit({0x42, 1});
}

// A picture header, with one of the usual sizes or, as format 6, another.
Bytes H263(unsigned format, uint32_t width = 4, uint32_t height = 0) {
    BitWriter w;
    w.U(22, 32).U(8, 0).U(5, 0b10000).U(3, format < 6 ? format : 7);
    if (format >= 6)
        w.U(3, 1).U(3, format).U(15, 0b1000).U(9, 1).U(1, 0).U(4, 1).U(9, width / 4 - 1).U(1, 1).U(9, height / 4);
    return w.U(64, 0x123456789).Packed();
}

TEST(HeaderCheck, HoldsBackImpossibleSizesOnly) {
    using enum HeaderVerdict;
    const Bytes start = {0xFF, 0xD8}, end = {0xFF, 0xD9}, picture = {0, 0, 1, 0xB6, 0x10, 0x60, 0x6D, 0x82, 0xE3};
    struct Row {
        const char* name;
        uint32_t type;
        Bytes bytes;
        HeaderVerdict verdict;
    };
    std::vector<Row> rows = {
        {"JPEG", kJpeg, start + JpegFrame(16384, 4096), Valid},
        {"JPEG, too large", kJpeg, start + JpegFrame(16384, 4300), Size},
        {"JPEG, no height", kJpeg, start + JpegFrame(100, 0), Size},
        {"JPEG, behind the end", kJpeg, start + JpegFrame(16, 16) + end + JpegFrame(0, 0), Valid},
        {"JPEG, header ends early", kJpeg, start + Bytes{0xFF, 0xC0, 0, 17, 8, 0, 16, 0}, Damaged},
        {"JPEG, in a table", kJpeg, start + Bytes{0xFF, 0xDB, 0, 67, 0} + JpegFrame(0, 0) + Bytes(45, 9) + end, Valid},
        {"H.263", kH263, H263(6, 704, 576), Valid},
        {"H.263, the least", kH263, H263(6, 4, 4), Valid},
        {"H.263, too wide, behind a byte", kH263, Bytes{9} + H263(6, 708, 576), Size},
        {"H.263, too high", kH263, H263(6, 704, 580), Size},
        {"H.263, no height", kH263, H263(6, 704, 0), Size},
        {"H.263, four times CIF", kH263, H263(4), Valid},
        {"H.263, sixteen times CIF", kH263, H263(5), Size},
        {"H.263, no format", kH263, H263(0), Damaged},
        {"H.263, ends early", kH263, {0, 0, 0x80, 2}, Damaged},
        {"H.263, none", kH263, Bytes(100, 0xA5), Damaged},
        {"MPEG-4", kMpeg4, Layer(8191, 8191) + picture, Valid},
        {"MPEG-4, no width", kMpeg4, Layer(0, 8) + picture, Size},
        {"MPEG-4, none", kMpeg4, picture, Damaged},
        {"MPEG-4, behind the picture", kMpeg4, picture + Layer(16, 16), Damaged},
        {"MPEG-4, a second without size", kMpeg4, Layer(16, 16) + Layer(0, 0) + picture, Valid},
        {"MPEG-4, a first without size", kMpeg4, Layer(0, 0) + Layer(16, 16) + picture, Size},
        {"H.264", kH264, H264(16384, 4096, false), Valid},
        {"H.264, too large", kH264, H264(16384, 4352, false), Size},
        {"H.264, fields, too large", kH264, H264(16384, 4352, true), Size},
        {"H.264, scaling lists", kH264, H264(65536, 65536, false, true), Size},
        {"H.264, the second", kH264, H264(16, 16, false) + H264(65536, 65536, false), Size},
        {"H.264, ends early", kH264, {0, 0, 1, 0x67, 77, 0, 30, 0xDA}, Damaged},
        {"H.264, order count of type 3", kH264, {0, 0, 1, 0x67, 77, 0, 30, 0xC9}, Valid},
        {"H.265", kH265, H265(16384, 4096), Valid},
        {"H.265, too large", kH265, H265(16384, 4352), Size},
        {"H.265, no height", kH265, H265(64, 0), Size},
        {"H.265, ends early", kH265, {0, 0, 1, 0x42, 1, 1, 1}, Damaged},
    };
    for (const int marker : {0xC4, 0xE0, 0xE1, 0xEF, 0xFE})
        rows.push_back({"JPEG, in a segment", kJpeg, start + Hidden(static_cast<uint8_t>(marker)) + end, Valid});
    // A quantiser table has 65 bytes.
    for (const int marker : {0xDB, 0xDC, 0xF0, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF9, 0xFA, 0xFB, 0xFC, 0xFD})
        rows.push_back({"JPEG, no segment", kJpeg, start + Hidden(static_cast<uint8_t>(marker)) + end, Size});
    for (const Row& row : rows) {
        const GuardedBytes guarded(row.bytes.data(), row.bytes.size());
        const auto check = row.type == kJpeg    ? CheckJpegHeaders
                           : row.type == kH263  ? CheckH263Picture
                           : row.type == kMpeg4 ? CheckMpeg4Layer
                           : row.type == kH264  ? CheckH264Sequences
                                                : CheckHevcSequences;
        const HeaderVerdict verdict = check(guarded.Data(), static_cast<uint32_t>(row.bytes.size()));
        testing::internal::CaptureStderr();
        BareDecode(row.type, {{row.bytes, true, 0, 0}});
        const std::string lines = testing::internal::GetCapturedStderr();
        EXPECT_EQ(static_cast<int>(verdict), static_cast<int>(row.verdict)) << row.name << int{row.bytes[3]};
        EXPECT_TRUE(verdict != Valid || lines.empty()) << row.name << int{row.bytes[3]} << lines;
    }
}

}    // namespace
}    // namespace corvane::test
