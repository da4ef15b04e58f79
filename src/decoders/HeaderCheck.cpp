#include "decoders/HeaderCheck.h"

#include <stdexcept>

#include "base/Limits.h"
#include "decoders/H264Syntax.h"
#include "decoders/RbspReader.h"
#include "decoders/StartCode.h"
#include "frame/BitReader.h"

namespace corvane {

namespace {

static_assert(kMaxCodedPixels > limits::kMaxPicturePixels);

// Libavutil prints a line above these bounds: its own limit of pixels, and INT32_MAX bytes for a picture of eight bytes
// a pixel with a margin on each side.
HeaderVerdict CheckSize(uint64_t width, uint64_t height) {
    const bool valid = width > 0 && height > 0 && width <= kMaxCodedPixels && height <= kMaxCodedPixels &&
                       width * height <= kMaxCodedPixels && (width * 8 + 1024) * (height + 128) < INT32_MAX;
    return valid ? HeaderVerdict::Valid : HeaderVerdict::Size;
}

// Calls `check` with the bytes after each start code. Returns the first verdict other than Valid.
template <typename Check>
HeaderVerdict CheckEach(const uint8_t* data, uint32_t size, Check check) {
    const uint8_t* const end = data + size;
    try {
        for (const uint8_t* at = AfterStartCode(data, end); at < end; at = AfterStartCode(at, end))
            if (const HeaderVerdict verdict = check(at, static_cast<size_t>(end - at)); verdict != HeaderVerdict::Valid)
                return verdict;
    } catch (const QMRX::SDK::Utility::NALUParserException&) {
        return HeaderVerdict::Damaged;
    }
    return HeaderVerdict::Valid;
}

// Recommendation H.265, 7.3.2.2, as far as the size.
HeaderVerdict CheckHevcSequence(RbspReader bits) {
    bits.Bits(4);                            // video parameter set
    const uint32_t layers = bits.Bits(3);    // sub-layers below the highest
    if (layers > 6)
        return HeaderVerdict::Valid;    // libavcodec stops reading
    const auto skip = [&](unsigned count) {
        for (; count > 0; count -= 8)
            bits.Bits(8);
    };
    bits.Flag();     // nesting
    skip(88 + 8);    // general profile and level
    uint32_t present[8] = {};
    for (uint32_t i = 0; i < layers; ++i)
        present[i] = bits.Bits(2);
    for (uint32_t i = layers; layers > 0 && i < 8; ++i)
        bits.Bits(2);
    for (const uint32_t flags : present)
        skip(((flags & 2) != 0 ? 88 : 0) + ((flags & 1) != 0 ? 8 : 0));
    const uint32_t id = bits.Ue();
    const uint32_t chroma_format_idc = bits.Ue();
    if (id > 15 || chroma_format_idc > 3)
        return HeaderVerdict::Valid;
    if (chroma_format_idc == 3)
        bits.Flag();    // separate planes
    const uint32_t width = bits.Ue();
    return CheckSize(width, bits.Ue());
}

// The standard of MPEG-4 Visual, 6.2.3, as far as the size.
HeaderVerdict CheckLayer(BitReader bits) {
    constexpr unsigned kRectangular = 0;
    bits.SkipBits(1);
    const unsigned type = bits.U8();
    if (type == 14 || type == 15)
        return HeaderVerdict::Valid;    // studio profiles have other headers
    if (bits.Bits(1) != 0)
        bits.SkipBits(7);    // version, priority
    if (bits.Bits(4) == 15)
        bits.SkipBits(16);    // pixel shape
    if (bits.Bits(1) != 0) {
        bits.SkipBits(3);    // chroma format, low delay
        if (bits.Bits(1) != 0)
            bits.SkipBits(79);    // buffer model
    }
    if (bits.Bits(2) != kRectangular)
        return HeaderVerdict::Damaged;
    bits.SkipBits(1);
    const auto resolution = static_cast<uint32_t>(bits.Bits(16));    // ticks a second
    if (resolution == 0)
        return HeaderVerdict::Damaged;
    bits.SkipBits(1);
    if (bits.Bits(1) != 0) {    // fixed rate
        unsigned width = 1;
        while (width < 16 && (resolution - 1) >> width != 0)
            ++width;
        bits.SkipBits(width);
    }
    bits.SkipBits(1);
    const uint64_t width = bits.Bits(13);
    bits.SkipBits(1);
    return CheckSize(width, bits.Bits(13));
}

// Recommendation H.263, 5.1, after the picture start code, as far as the size. Valid for a picture with the size of the
// one before, and where libavcodec stops reading.
HeaderVerdict CheckPicture(BitReader bits) {
    constexpr uint32_t kSizes[6][2] = {{}, {128, 96}, {176, 144}, {352, 288}, {704, 576}, {1408, 1152}};
    constexpr uint64_t kCustom = 6;
    constexpr uint64_t kExtended = 7;
    bits.SkipBits(8 + 2 + 3);    // temporal reference, marker and identification, three flags
    uint64_t format = bits.Bits(3);
    uint64_t width = 0;
    uint64_t height = 0;
    if (format >= kCustom) {    // libavcodec reads the reserved value as the extended form
        if (bits.Bits(3) != 1)
            return HeaderVerdict::Valid;
        format = bits.Bits(3);
        bits.SkipBits(15 + 9 + 1);    // the rest of the optional and mandatory parts of the type, multipoint
    }
    if (format == 0 || format == kExtended)
        return HeaderVerdict::Damaged;
    if (format == kCustom) {
        bits.SkipBits(4);    // pixel aspect ratio
        width = (bits.Bits(9) + 1) * 4;
        bits.SkipBits(1);
        height = bits.Bits(9) * 4;
    } else {
        width = kSizes[format][0];
        height = kSizes[format][1];
    }
    return width > 0 && height > 0 && width <= kMostH263Width && height <= kMostH263Height ? HeaderVerdict::Valid
                                                                                           : HeaderVerdict::Size;
}

}    // namespace

HeaderVerdict CheckH263Picture(const uint8_t* data, uint32_t size) {
    for (uint32_t at = 0; at + 3 <= size; ++at) {
        if (data[at] != 0 || data[at + 1] != 0 || (data[at + 2] & 0xFC) != 0x80)
            continue;
        try {
            BitReader bits{data + at, size - at};
            bits.SkipBits(22);
            return CheckPicture(bits);
        } catch (const std::runtime_error&) {
            break;
        }
    }
    return HeaderVerdict::Damaged;
}

HeaderVerdict CheckJpegHeaders(const uint8_t* data, uint32_t size) {
    constexpr uint8_t kHuffmanTables = 0xC4, kEndOfImage = 0xD9, kQuantiserTables = 0xDB, kApplication = 0xE0,
                      kLastApplication = 0xEF, kJpegLs = 0xF7, kComment = 0xFE;
    bool hasSize = false;
    for (uint32_t at = 0; at + 1 < size;) {
        const uint8_t marker = data[at + 1];
        if (data[at] != 0xFF || marker < 0xC0 || marker == 0xFF) {
            ++at;    // coded data
            continue;
        }
        if (hasSize && marker == kEndOfImage)
            return HeaderVerdict::Valid;        // bytes after the image are not decoded
        const uint32_t left = size - at - 2;    // after the marker
        if (marker <= 0xC3 || marker == kJpegLs) {
            if (left < 7)
                return HeaderVerdict::Damaged;
            const HeaderVerdict verdict =
                CheckSize(uint32_t{data[at + 7]} << 8 | data[at + 8], uint32_t{data[at + 5]} << 8 | data[at + 6]);
            if (verdict != HeaderVerdict::Valid)
                return verdict;
            hasSize = true;
        }
        const uint32_t length = left < 2 ? 0 : uint32_t{data[at + 2]} << 8 | data[at + 3];
        // Segments may hold anything, pictures of their own included. Of other markers, and of a quantiser table that
        // is too short, libavcodec reads nothing.
        const bool segment = marker == kHuffmanTables || (marker == kQuantiserTables && length >= 67) ||
                             (marker >= kApplication && marker <= kLastApplication) || marker == kComment;
        at += 2 + (segment && length >= 2 && length <= left ? length : 0);
    }
    return HeaderVerdict::Valid;
}

HeaderVerdict CheckMpeg4Layer(const uint8_t* data, uint32_t size) {
    constexpr uint8_t kPicture = 0xB6;    // decoding begins here, with the headers read so far
    const uint8_t* const end = data + size;
    for (const uint8_t* at = AfterStartCode(data, end); at < end && *at != kPicture; at = AfterStartCode(at, end)) {
        if (*at < 0x20 || *at > 0x2F)
            continue;
        try {
            return CheckLayer({at + 1, static_cast<size_t>(end - at - 1)});
        } catch (const std::runtime_error&) {
            break;
        }
    }
    return HeaderVerdict::Damaged;
}

HeaderVerdict CheckH264Sequences(const uint8_t* data, uint32_t size) {
    return CheckEach(data, size, [](const uint8_t* at, size_t left) {
        if ((*at & 0x9F) != h264::kSps)    // and forbidden_zero_bit is 0
            return HeaderVerdict::Valid;
        try {
            RbspReader reader(at + 1, left - 1);
            uint32_t id = 0;
            const h264::SequenceParameterSet sps = h264::ReadSps(reader, id);
            return CheckSize((uint64_t{sps.pic_width_in_mbs_minus1} + 1) * 16,
                             (uint64_t{sps.pic_height_in_map_units_minus1} + 1) * (sps.frame_mbs_only_flag ? 16 : 32));
        } catch (const std::runtime_error&) {
            return HeaderVerdict::Valid;    // libavcodec stops reading
        }
    });
}

HeaderVerdict CheckHevcSequences(const uint8_t* data, uint32_t size) {
    return CheckEach(data, size, [](const uint8_t* at, size_t left) {
        const bool sequence = left > 1 && at[0] == 33 << 1 && at[1] > 0 && at[1] < 8;    // of the base layer
        return sequence ? CheckHevcSequence(RbspReader(at + 2, left - 2)) : HeaderVerdict::Valid;
    });
}

}    // namespace corvane
