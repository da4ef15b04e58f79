#include "decoders/PayloadFault.h"

#include <algorithm>
#include <iterator>

#include "corvane/corvane.h"
#include "decoders/StartCode.h"

namespace corvane {

namespace {

// Whether lengths of `width` bytes, big-endian, each in front of a NAL unit, fill the payload exactly. No unit of
// Annex B does: its start code would be the length 0 or 1, or 256 and more that end with the payload by chance.
bool IsLengthPrefixed(const uint8_t* data, uint32_t size, unsigned width) {
    const uint8_t* const end = data + size;
    while (end - data > static_cast<ptrdiff_t>(width)) {
        uint64_t length = 0;
        for (unsigned i = 0; i < width; ++i)
            length = length << 8 | *data++;
        const bool forbidden = (*data & 0x80) != 0;    // the first bit of a NAL unit's header is 0
        if (length < 2 || length > static_cast<uint64_t>(end - data) || forbidden)
            return false;
        data += length;
    }
    return size > 0 && data == end;
}

bool IsH264Profile(unsigned profile_idc) {
    constexpr unsigned kProfiles[] = {44, 66, 77, 83, 86, 88, 100, 110, 118, 122, 128, 138, 139, 134, 135, 244};
    return std::find(std::begin(kProfiles), std::end(kProfiles), profile_idc) != std::end(kProfiles);
}

// The meaning of the bytes after the start codes of a payload in each format that has start codes.
struct Signs {
    bool h264 = false;           // a slice, or a sequence parameter set of a known profile
    bool h265 = false;           // both a video and a sequence parameter set, or a trailing picture
    bool h265Picture = false;    // any picture of the base layer
    bool mpeg4 = false;          // the start of a sequence or of a picture; the other two forbid these bytes
    bool noMpeg4Code = false;    // of H.264 or H.265, where MPEG-4 Visual has reserved codes
};

Signs ReadSigns(const uint8_t* data, uint32_t size) {
    Signs signs;
    bool vps = false;
    bool sps = false;
    const uint8_t* const end = data + size;
    for (const uint8_t* at = AfterStartCode(data, end); at < end; at = AfterStartCode(at, end)) {
        const unsigned first = at[0];
        const unsigned second = end - at > 1 ? at[1] : 0;
        const bool forbidden = (first & 0x80) != 0;
        const unsigned type = first & 31;
        const bool h264 = !forbidden && (type == 1 || type == 5 || (type == 7 && IsH264Profile(second)));
        // Of the base layer of H.265: the byte is even, which no slice or sequence parameter set of H.264 is.
        const bool base = (first & 0x81) == 0 && second >= 1 && second <= 7;
        const unsigned baseType = first >> 1;
        const bool parameters = base && second == 1 && (baseType == 32 || baseType == 33);
        vps |= parameters && baseType == 32;
        sps |= parameters && baseType == 33;
        signs.h264 |= h264;
        signs.h265 |= (vps && sps) || (base && baseType <= 1);
        signs.h265Picture |= base && baseType < 32 && first != 6;    // 6: supplemental information of H.264
        signs.mpeg4 |= first == 0xB0 || first == 0xB6;
        signs.noMpeg4Code |= first >= 0x30 && first < 0xB0 && (h264 || parameters);
    }
    return signs;
}

}    // namespace

PayloadFault FindPayloadFault(uint32_t streamType, const uint8_t* data, uint32_t size) noexcept {
    if (size < 2)
        return PayloadFault::None;
    const bool jpeg = data[0] == 0xFF && data[1] == 0xD8;
    if (streamType == CORVANE_STREAM_JPEG)
        return jpeg ? PayloadFault::None : PayloadFault::WrongType;
    if (streamType != CORVANE_STREAM_H264 && streamType != CORVANE_STREAM_H265 && streamType != CORVANE_STREAM_MPEG4)
        return PayloadFault::None;
    if (jpeg)
        return PayloadFault::WrongType;
    if (IsLengthPrefixed(data, size, 4) || IsLengthPrefixed(data, size, 2))
        return PayloadFault::NoStartCode;
    const Signs signs = ReadSigns(data, size);
    const bool wrong = streamType == CORVANE_STREAM_H264   ? !signs.h264 && (signs.h265 || signs.mpeg4)
                       : streamType == CORVANE_STREAM_H265 ? !signs.h265Picture && (signs.h264 || signs.mpeg4)
                                                           : !signs.mpeg4 && signs.noMpeg4Code;
    return wrong ? PayloadFault::WrongType : PayloadFault::None;
}

}    // namespace corvane
