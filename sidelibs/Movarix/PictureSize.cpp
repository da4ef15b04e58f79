#include "PictureSize.h"

#include "Bits.h"

namespace movarix {

namespace {

// ITU-T T.81, B.2.2: the frame header is the first marker of C0 to CF but for C4, C8 and CC.
bool ReadJpeg(const View& bytes, PictureFormat& format) {
    const uint8_t* const data = bytes.data;
    if (bytes.size < 4 || data[0] != 0xFF || data[1] != 0xD8)
        return false;
    for (size_t at = 2; at + 9 <= bytes.size && data[at] == 0xFF;) {
        const unsigned marker = data[at + 1];
        if (marker == 0xC0 || (marker > 0xC0 && marker <= 0xCF && marker % 4 != 0)) {
            format.height = data[at + 5] * 256u + data[at + 6];
            format.width = data[at + 7] * 256u + data[at + 8];
            break;
        }
        at += marker == 0xFF ? 1 : 2 + (data[at + 2] * size_t{256} + data[at + 3]);    // a fill byte, or a segment
    }
    return true;
}

// ITU-T H.263, 5.1: the source format of PTYPE, or of PLUSPTYPE with the sizes of CPFMT.
bool ReadH263(const View& bytes, PictureFormat& format) {
    constexpr uint32_t kSizes[8][2] = {{}, {128, 96}, {176, 144}, {352, 288}, {704, 576}, {1408, 1152}, {}, {}};
    constexpr uint32_t kExtended = 7, kCustom = 6;
    Bits bits(bytes);
    if (bits.Take(22) != 0x20)
        return false;
    bits.Take(8 + 5);
    uint32_t source = bits.Take(3);
    if (source == kExtended && bits.Take(3) == 1) {
        source = bits.Take(3);
        bits.Take(15 + 9);
        if (bits.Take(1) == 1)
            bits.Take(2);
        if (source == kCustom) {
            bits.Take(4);
            format.width = (bits.Take(9) + 1) * 4;
            bits.Take(1);
            format.height = bits.Take(9) * 4;
            return true;
        }
    }
    if (kSizes[source][0] != 0) {
        format.width = kSizes[source][0];
        format.height = kSizes[source][1];
    }
    return true;
}

}    // namespace

bool ReadPictureSize(const View& bytes, PictureFormat& format) {
    return format.type == CORVANE_STREAM_JPEG ? ReadJpeg(bytes, format) : ReadH263(bytes, format);
}

}    // namespace movarix
