#include "decoders/HeaderCheck.h"

#include <algorithm>
#include <stdexcept>

#include "base/Limits.h"
#include "decoders/StartCode.h"
#include "frame/BitReader.h"

namespace corvane {

namespace {

static_assert(kMaxCodedPixels > limits::kMaxPicturePixels);

// The bounds that libavutil complains of: the pixels it was given, and the bytes of a picture of eight bytes a pixel
// with some room on its sides.
bool SizeStands(uint64_t width, uint64_t height) {
    return width > 0 && height > 0 && width <= kMaxCodedPixels && height <= kMaxCodedPixels &&
           width * height <= kMaxCodedPixels && (width * 8 + 1024) * (height + 128) < INT32_MAX;
}

// The beginning of a NAL unit behind its header, read as libavcodec does: three zeros do not end it, as encoders that
// keep no start codes out of their units need. The bytes that keep them out are left in where `raw`.
class Rbsp {
public:
    Rbsp(const uint8_t* at, const uint8_t* end, bool raw = false) {
        for (int zeros = 0; at < end && m_size < sizeof m_bytes; ++at) {
            if (zeros >= 2 && (*at == 1 || *at == 2))
                break;
            if (zeros >= 2 && *at == 3 && !raw) {
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

// What a check says of syntax that ends early.
template <typename Check>
bool Guarded(Check check, bool whenShort) {
    try {
        return check();
    } catch (const std::runtime_error&) {
        return whenShort;
    }
}

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

// A step of a scaling list, which libavcodec reads on behind the end of the unit, where there are zeros.
int64_t Step(BitReader& bits) {
    unsigned zeros = 0;
    while (bits.Bits(1) == 0)
        if (!bits.HasMore() || ++zeros > 31)
            return 0;
    const auto there = static_cast<unsigned>(std::min<uint64_t>(zeros, bits.BitsLeft()));
    const uint64_t rest = there == 0 ? 0 : bits.Bits(there) << (zeros - there);
    const auto code = static_cast<int64_t>((uint64_t{1} << zeros) - 1 + rest);
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
            const int64_t step = Step(bits);
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

bool ScalingMatrixStands(BitReader& bits, int largeLists) {
    for (int i = 0; i < 6 + largeLists; ++i)
        if (!ScalingListStands(bits, i < 6 ? 16 : 64))
            return false;
    return true;
}

bool HasChromaFormat(unsigned profile) {
    constexpr unsigned kProfiles[] = {100, 110, 122, 244, 44, 83, 86, 118, 128, 138, 144};
    return std::find(std::begin(kProfiles), std::end(kProfiles), profile) != std::end(kProfiles);
}

// Recommendation H.264, 7.3.2.1.1, as far as the size. Where libavcodec stops reading without a word, so does this. Of
// a set that ends before its size libavcodec would take the rest from what lies behind.
bool H264SequenceStands(BitReader bits, std::bitset<32>& extensible) {
    const unsigned profile = bits.U8();
    const unsigned constraints = bits.U8();
    bits.SkipBytes(1);    // level
    const uint64_t id = Unsigned(bits);
    if (id >= extensible.size())
        return true;
    if (HasChromaFormat(profile)) {
        const uint64_t chromaFormat = Unsigned(bits);
        if (chromaFormat > 3)
            return true;
        if (chromaFormat == 3)
            bits.SkipBits(1);    // separate planes
        if (Unsigned(bits) > 6 || Unsigned(bits) > 6)
            return true;     // bit depths above 14
        bits.SkipBits(1);    // transform bypass
        if (bits.Bits(1) != 0 && !ScalingMatrixStands(bits, chromaFormat == 3 ? 6 : 2))
            return false;
    }
    Unsigned(bits);    // log2 of the greatest frame number
    const uint64_t orderType = Unsigned(bits);
    if (orderType == 0) {
        Unsigned(bits);
    } else if (orderType == 1) {
        bits.SkipBits(1);
        Signed(bits);
        Signed(bits);
        const uint64_t cycle = Unsigned(bits);
        if (cycle > 255)
            return true;
        for (uint64_t i = 0; i < cycle; ++i)
            Signed(bits);
    } else if (orderType != 2) {
        return true;
    }
    if (Unsigned(bits) > 16)    // reference frames
        return true;
    bits.SkipBits(1);                              // gaps allowed
    const uint64_t width = Unsigned(bits) + 1;     // macroblocks
    const uint64_t height = Unsigned(bits) + 1;    // macroblocks, or pairs of them
    const bool fields = bits.Bits(1) == 0;
    if (!SizeStands(width * 16, height * 16 * (fields ? 2 : 1)))
        return false;
    // A set that is refused leaves the one before in force.
    extensible[id] = (profile != 66 && profile != 77 && profile != 88) || (constraints & 0xE0) == 0;
    return true;
}

// Recommendation H.264, 7.3.2.2. With the profiles that know no extension of this set libavcodec leaves unread what
// stands in its place; some encoders put garbage there.
bool H264PictureStands(const Rbsp& rbsp, const std::bitset<32>& extensible) {
    BitReader bits = rbsp.Bits();
    Unsigned(bits);
    const uint64_t sequence = Unsigned(bits);
    if (sequence >= extensible.size() || !extensible[sequence])
        return true;
    bits.SkipBits(2);    // entropy coding, order
    if (Unsigned(bits) != 0)
        return true;    // slice groups, which no decoder here knows
    if (Unsigned(bits) > 31 || Unsigned(bits) > 31)
        return true;     // references
    bits.SkipBits(3);    // weighting
    Signed(bits);        // quantiser offsets
    Signed(bits);
    Signed(bits);
    bits.SkipBits(3);    // deblocking, intra prediction, redundant pictures
    if (bits.Position() >= rbsp.StopBit())
        return true;
    const bool large = bits.Bits(1) != 0;
    return bits.Bits(1) == 0 || ScalingMatrixStands(bits, large ? 2 : 0);    // there are 6 with 4:4:4
}

// Recommendation H.265, 7.3.2.2, as far as the size.
bool HevcSequenceStands(BitReader bits) {
    bits.SkipBits(4);                                           // video parameter set
    const auto layers = static_cast<unsigned>(bits.Bits(3));    // sub-layers below the highest
    if (layers > 6)
        return true;              // libavcodec stops reading
    bits.SkipBits(1 + 88 + 8);    // nesting, general profile and level
    bool hasProfile[8] = {};
    bool hasLevel[8] = {};
    for (unsigned i = 0; i < layers; ++i) {
        hasProfile[i] = bits.Bits(1) != 0;
        hasLevel[i] = bits.Bits(1) != 0;
    }
    if (layers > 0)
        bits.SkipBits(2 * (8 - layers));
    for (unsigned i = 0; i < layers; ++i)
        bits.SkipBits((hasProfile[i] ? 88 : 0) + (hasLevel[i] ? 8 : 0));
    const uint64_t id = Unsigned(bits);
    const uint64_t chromaFormat = Unsigned(bits);
    if (id > 15 || chromaFormat > 3)
        return true;
    if (chromaFormat == 3)
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
        return true;    // studio profiles, whose headers are others
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

}    // namespace

bool JpegHeadersStand(const uint8_t* data, uint32_t size) {
    constexpr uint8_t kHuffmanTables = 0xC4, kEndOfImage = 0xD9, kQuantiserTables = 0xDB, kJpegLs = 0xF7;
    bool has_size = false;
    for (uint32_t at = 0; at + 1 < size;) {
        const uint8_t marker = data[at + 1];
        if (data[at] != 0xFF || marker < 0xC0 || marker == 0xFF) {
            ++at;    // coded data
            continue;
        }
        if (has_size && marker == kEndOfImage)
            return true;                        // what stands behind is the sender's own
        const uint32_t left = size - at - 2;    // behind the marker
        if (marker <= 0xC3 || marker == kJpegLs) {
            if (left < 7 ||
                !SizeStands(uint32_t{data[at + 7]} << 8 | data[at + 8], uint32_t{data[at + 5]} << 8 | data[at + 6]))
                return false;
            has_size = true;
        }
        const uint32_t length = left < 2 ? 0 : uint32_t{data[at + 2]} << 8 | data[at + 3];
        // Segments are passed over, since they may hold anything, pictures of their own included.
        const bool segment = marker == kHuffmanTables || marker >= kQuantiserTables;
        at += 2 + (segment && length >= 2 && length <= left ? length : 0);
    }
    return true;
}

bool Mpeg4LayerStands(const uint8_t* data, uint32_t size) {
    const uint8_t* end = data + size;
    constexpr uint8_t kPicture = 0xB6;    // decoding begins here, with what was read before
    for (const uint8_t* at = BehindStartCode(data, end); at < end && *at != kPicture; at = BehindStartCode(at, end))
        if (*at >= 0x20 && *at <= 0x2F &&
            Guarded(
                [&] {
                    return LayerStands({at + 1, static_cast<size_t>(end - at - 1)});
                },
                false))
            return true;
    return false;
}

bool ParameterSetCheck::H264Stands(const uint8_t* data, uint32_t size) {
    const uint8_t* end = data + size;
    for (const uint8_t* at = BehindStartCode(data, end); at < end; at = BehindStartCode(at, end)) {
        const unsigned type = *at & 0x9F;    // with the bit that must be zero
        const auto sequence_stands = [&](bool raw) {
            return Guarded([&] { return H264SequenceStands(Rbsp(at + 1, end, raw).Bits(), m_extensible); }, false);
        };
        // Libavcodec tries a sequence parameter set that it cannot read once more as it stands in the unit.
        if (type == 7 && !sequence_stands(false) && !sequence_stands(true))
            return false;
        if (type == 8 && !Guarded([&] { return H264PictureStands(Rbsp(at + 1, end), m_extensible); }, true))
            return false;
    }
    return true;
}

bool HevcHeadersStand(const uint8_t* data, uint32_t size) {
    const uint8_t* end = data + size;
    for (const uint8_t* at = BehindStartCode(data, end); at < end; at = BehindStartCode(at, end)) {
        const bool sequence = end - at > 1 && at[0] == 33 << 1 && at[1] > 0 && at[1] < 8;    // of the base layer
        if (sequence && !Guarded([&] { return HevcSequenceStands(Rbsp(at + 2, end).Bits()); }, false))
            return false;
    }
    return true;
}

}    // namespace corvane
