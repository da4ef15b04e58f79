#include "decoders/HeaderCheck.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "base/Limits.h"
#include "frame/BitReader.h"

namespace corvane {

namespace {

static_assert(kMaxCodedPixels > limits::kMaxPicturePixels);

bool SizeStands(uint64_t width, uint64_t height) {
    return width > 0 && height > 0 && width <= limits::kMaxPictureSide && height <= limits::kMaxPictureSide &&
           width * height <= kMaxCodedPixels;
}

// Behind the next 00 00 01, or `end`.
const uint8_t* BehindStartCode(const uint8_t* at, const uint8_t* end) {
    for (const uint8_t* begin = at; at < end; ++at) {
        at = static_cast<const uint8_t*>(std::memchr(at, 1, static_cast<size_t>(end - at)));
        if (at == nullptr)
            return end;
        if (at - begin >= 2 && at[-1] == 0 && at[-2] == 0)
            return at + 1;
    }
    return end;
}

// The beginning of a NAL unit behind its header, without the bytes that keep start codes out of it.
class Rbsp {
public:
    Rbsp(const uint8_t* at, const uint8_t* end) {
        for (int zeros = 0; at < end && m_size < sizeof m_bytes; ++at) {
            if (zeros >= 2 && *at <= 3) {
                if (*at < 3)
                    break;    // the next start code
                zeros = 0;
                continue;
            }
            zeros = *at == 0 ? zeros + 1 : 0;
            m_bytes[m_size++] = *at;
        }
    }

    BitReader Bits() const { return {m_bytes, m_size}; }

    // Position of the stop bit, behind which there is no syntax.
    uint64_t StopBit() const {
        size_t size = m_size;
        while (size > 0 && m_bytes[size - 1] == 0)
            --size;
        if (size == 0)
            return 0;
        int trailing = 0;
        while ((m_bytes[size - 1] >> trailing & 1) == 0)
            ++trailing;
        return uint64_t{size} * 8 - 1 - static_cast<unsigned>(trailing);
    }

private:
    uint8_t m_bytes[4096];    // more than any parameter set of a real stream
    size_t m_size = 0;
};

// Exponential Golomb codes of up to 32 bits of information, as both standards have them.
uint64_t Unsigned(BitReader& bits) {
    unsigned zeros = 0;
    while (bits.Bits(1) == 0)
        if (++zeros > 32)
            throw std::runtime_error("no code");
    return zeros == 0 ? 0 : (uint64_t{1} << zeros) - 1 + bits.Bits(zeros);
}

int64_t Signed(BitReader& bits) {
    const auto code = static_cast<int64_t>(Unsigned(bits));
    return (code & 1) != 0 ? (code + 1) / 2 : -(code / 2);
}

// Recommendation H.264, 7.3.2.1.1.1; false when a step is out of range.
bool ScalingListStands(BitReader& bits, int length) {
    if (bits.Bits(1) == 0)
        return true;
    int64_t last = 8;
    int64_t next = 8;
    for (int i = 0; i < length; ++i) {
        if (next != 0) {
            const int64_t step = Signed(bits);
            if (step < -128 || step > 127)
                return false;
            next = (last + step) & 0xFF;
        }
        if (i == 0 && next == 0)
            return true;
        last = next != 0 ? next : last;
    }
    return true;
}

bool ScalingMatrixStands(BitReader& bits, int large_lists) {
    for (int i = 0; i < 6 + large_lists; ++i)
        if (!ScalingListStands(bits, i < 6 ? 16 : 64))
            return false;
    return true;
}

bool HasChromaFormat(unsigned profile) {
    constexpr unsigned kProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 144};
    return std::find(std::begin(kProfiles), std::end(kProfiles), profile) != std::end(kProfiles);
}

// Recommendation H.264, 7.3.2.1.1, as far as the size.
bool H264SequenceStands(BitReader bits, uint32_t* chroma_format) {
    const unsigned profile = bits.U8();
    bits.SkipBytes(2);    // constraints, level
    Unsigned(bits);       // identifier
    *chroma_format = 1;
    if (HasChromaFormat(profile)) {
        *chroma_format = static_cast<uint32_t>(std::min<uint64_t>(Unsigned(bits), 4));
        if (*chroma_format == 3)
            bits.SkipBits(1);    // separate planes
        Unsigned(bits);          // bit depths
        Unsigned(bits);
        bits.SkipBits(1);    // transform bypass
        if (bits.Bits(1) != 0 && !ScalingMatrixStands(bits, *chroma_format == 3 ? 6 : 2))
            return false;
    }
    Unsigned(bits);    // log2 of the greatest frame number
    const uint64_t order_type = Unsigned(bits);
    if (order_type == 0) {
        Unsigned(bits);
    } else if (order_type == 1) {
        bits.SkipBits(1);
        Signed(bits);
        Signed(bits);
        const uint64_t cycle = Unsigned(bits);
        if (cycle > 255)
            return false;
        for (uint64_t i = 0; i < cycle; ++i)
            Signed(bits);
    }
    Unsigned(bits);                                // reference frames
    bits.SkipBits(1);                              // gaps allowed
    const uint64_t width = Unsigned(bits) + 1;     // macroblocks
    const uint64_t height = Unsigned(bits) + 1;    // macroblocks, or pairs of them
    const uint64_t fields = bits.Bits(1) != 0 ? 1 : 2;
    return SizeStands(width * 16, height * 16 * fields);
}

// Recommendation H.264, 7.3.2.2. A set that ends early says nothing that could do harm.
bool H264PictureStands(const Rbsp& rbsp, uint32_t chroma_format) {
    BitReader bits = rbsp.Bits();
    Unsigned(bits);    // identifiers
    Unsigned(bits);
    bits.SkipBits(2);    // entropy coding, order
    if (Unsigned(bits) != 0)
        return true;    // slice groups, which no decoder here knows
    Unsigned(bits);     // references
    Unsigned(bits);
    bits.SkipBits(3);    // weighting
    Signed(bits);        // quantiser offsets
    Signed(bits);
    Signed(bits);
    bits.SkipBits(3);    // deblocking, intra prediction, redundant pictures
    if (bits.Position() >= rbsp.StopBit())
        return true;
    const bool large = bits.Bits(1) != 0;
    return bits.Bits(1) == 0 || ScalingMatrixStands(bits, !large ? 0 : chroma_format == 3 ? 6 : 2);
}

// Recommendation H.265, 7.3.2.2, as far as the size.
bool HevcSequenceStands(BitReader bits) {
    bits.SkipBits(4);                                           // video parameter set
    const auto layers = static_cast<unsigned>(bits.Bits(3));    // sub-layers below the highest
    bits.SkipBits(1 + 88 + 8);                                  // nesting, general profile and level
    bool has_profile[8] = {};
    bool has_level[8] = {};
    for (unsigned i = 0; i < layers; ++i) {
        has_profile[i] = bits.Bits(1) != 0;
        has_level[i] = bits.Bits(1) != 0;
    }
    if (layers > 0)
        bits.SkipBits(2 * (8 - layers));
    for (unsigned i = 0; i < layers; ++i)
        bits.SkipBits((has_profile[i] ? 88 : 0) + (has_level[i] ? 8 : 0));
    Unsigned(bits);    // identifier
    if (Unsigned(bits) == 3)
        bits.SkipBits(1);    // separate planes
    const uint64_t width = Unsigned(bits);
    const uint64_t height = Unsigned(bits);
    return SizeStands(width, height);
}

// The standard of MPEG-4 Visual, 6.2.3, as far as the size.
bool LayerStands(BitReader bits) {
    constexpr unsigned kRectangular = 0;
    bits.SkipBits(1);
    const unsigned type = bits.U8();
    if (type == 14 || type == 15)
        return false;    // studio profiles
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
        return false;
    bits.SkipBits(1);
    const auto resolution = static_cast<uint32_t>(bits.Bits(16));    // ticks a second
    if (resolution == 0)
        return false;
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
    return SizeStands(width, bits.Bits(13));
}

// What a check says of syntax that ends early.
template <typename Check>
bool Guarded(Check check, bool when_short) {
    try {
        return check();
    } catch (const std::runtime_error&) {
        return when_short;
    }
}

}    // namespace

bool JpegHeadersStand(const uint8_t* data, uint32_t size) {
    for (uint32_t at = 0; at + 1 < size;) {
        const uint8_t marker = data[at + 1];
        if (data[at] != 0xFF || marker < 0xC0 || marker == 0xFF || (marker >= 0xD0 && marker <= 0xD9)) {
            ++at;    // coded data, or a marker that stands alone
            continue;
        }
        const uint32_t left = size - at - 2;    // behind the marker
        const bool frame_header =
            (marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC) || marker == 0xF7;
        if (frame_header && (left < 7 || !SizeStands(uint32_t{data[at + 7]} << 8 | data[at + 8],
                                                     uint32_t{data[at + 5]} << 8 | data[at + 6])))
            return false;
        const uint32_t length = left < 2 ? 0 : uint32_t{data[at + 2]} << 8 | data[at + 3];
        // Segments are passed over, since they may hold anything, pictures of their own included.
        const bool segment = marker == 0xC4 || marker >= 0xDB;
        at += 2 + (segment && length >= 2 && length <= left ? length : 0);
    }
    return true;
}

bool Mpeg4LayerStands(const uint8_t* data, uint32_t size) {
    const uint8_t* end = data + size;
    constexpr uint8_t kPicture = 0xB6;    // decoding begins here, with what was read before
    for (const uint8_t* at = BehindStartCode(data, end); at < end && *at != kPicture; at = BehindStartCode(at, end))
        if (*at >= 0x20 && *at <= 0x2F)
            return Guarded([&] { return LayerStands({at + 1, static_cast<size_t>(end - at - 1)}); }, false);
    return false;
}

bool ParameterSetCheck::H264Stands(const uint8_t* data, uint32_t size) {
    const uint8_t* end = data + size;
    if (size > 0 && data[0] == 1)
        return false;    // not Annex B: a configuration record, which libavcodec would take for good
    for (const uint8_t* at = BehindStartCode(data, end); at < end; at = BehindStartCode(at, end)) {
        const unsigned type = *at & 0x1F;
        if (type != 7 && type != 8)
            continue;
        const Rbsp rbsp(at + 1, end);
        if (type == 7 ? !Guarded([&] { return H264SequenceStands(rbsp.Bits(), &m_chroma_format); }, false)
                      : !Guarded([&] { return H264PictureStands(rbsp, m_chroma_format); }, true))
            return false;
    }
    return true;
}

bool ParameterSetCheck::HevcStands(const uint8_t* data, uint32_t size) const {
    const uint8_t* end = data + size;
    for (const uint8_t* at = BehindStartCode(data, end); at < end; at = BehindStartCode(at, end)) {
        const bool sequence = (at[0] >> 1 & 0x3F) == 33;
        const bool base_layer = end - at > 1 && (at[0] & 1) == 0 && at[1] >> 3 == 0;
        if (sequence && base_layer && !Guarded([&] { return HevcSequenceStands(Rbsp(at + 2, end).Bits()); }, false))
            return false;
    }
    return true;
}

}    // namespace corvane
