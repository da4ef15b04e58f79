#include "decoders/FieldMarker.h"

#include <cstring>

namespace corvane {

namespace {

constexpr uint32_t kTextBytes = 10;
// A JPEG segment that can hold the text: marker, length and text.
constexpr uint32_t kSegmentBytes = 2 + 2 + kTextBytes;

uint32_t BigEndian16(const uint8_t* bytes) {
    return uint32_t{bytes[0]} << 8 | bytes[1];
}

// Each half counts on its own; an unknown letter does not change its mark.
void ReadText(const uint8_t* text, FieldMarks& marks) {
    if (text[0] != 'F' || text[2] != '_' || std::memcmp(text + 5, " Mode", 5) != 0)
        return;
    if (text[1] == 'L' || text[1] == 'M')
        marks.fieldLMode = text[1] == 'L';
    if (std::memcmp(text + 3, "IL", 2) == 0)
        marks.interlacedMode = true;
    else if (std::memcmp(text + 3, "PG", 2) == 0)
        marks.interlacedMode = false;
}

}    // namespace

void ReadJpegMarker(const uint8_t* data, uint32_t size, FieldMarks& marks) {
    if (size <= 2 || data[0] != 0xFF || data[1] != 0xD8)
        return;
    const uint8_t* at = data + 2;
    uint32_t left = size - 2;    // bytes from the marker on
    while (left >= kSegmentBytes) {
        const uint32_t marker = BigEndian16(at);
        const uint32_t length = BigEndian16(at + 2);    // counts its own two bytes
        if (length < 2 || marker < 0xFFE0 || marker > 0xFFEF || left - 2 < length || left - 2 - length < kSegmentBytes)
            return;
        if (marker == 0xFFE2 && length >= 2 + kTextBytes)
            ReadText(at + 4, marks);
        at += 2 + length;
        left -= 2 + length;
    }
}

void ReadMpeg4Marker(const uint8_t* data, uint32_t size, FieldMarks& marks) {
    constexpr uint8_t kSequenceStart[4] = {0, 0, 1, 0xB0};
    constexpr uint8_t kUserData = 0xB2;
    constexpr uint8_t kVisualObject = 0xB5;
    if (size < 18 || std::memcmp(data, kSequenceStart, sizeof kSequenceStart) != 0)
        return;
    for (uint32_t at = 4; size - at >= 4; ++at) {
        if (data[at] != 0 || data[at + 1] != 0 || data[at + 2] != 1)
            continue;
        if (data[at + 3] == kVisualObject)
            return;
        if (data[at + 3] == kUserData) {
            if (size - at - 4 >= kTextBytes)
                ReadText(data + at + 4, marks);
            return;
        }
    }
}

}    // namespace corvane
