#include "frame/FrameExtension.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "frame/BitReader.h"
#include "frame/StreamType.h"

namespace corvane {

namespace {

// Byte offsets in the frame header bytes.
constexpr uint32_t kFlagsByte = 12;        // low byte of the big-endian flags word at byte 9
constexpr uint8_t kItemsPresent = 0x08;    // its bit 3
constexpr uint32_t kItemCountByte = 19;    // number of 32-bit items
constexpr uint32_t kItemArea = 20;

constexpr uint32_t kPacketPrefix = 4;    // bytes in front of the entries of a packet extension

// Tag and length of one entry, the first part of a tag-length-value triple.
struct Entry {
    uint64_t tag;
    uint64_t length;    // bytes
};

// A big-endian number of up to 63 bytes; a value above 32 bits saturates, as no area is that long.
uint64_t ReadLength(BitReader& reader, unsigned bytes) {
    uint64_t value = 0;
    for (; bytes > 0; --bytes)
        value = std::min<uint64_t>(value << 8 | reader.U8(), UINT32_MAX);
    return value;
}

Entry ReadEntry(BitReader& reader) {
    const uint8_t first = reader.U8();
    if (first >= 192)    // short forms: no length byte
        return {first, first < 224 ? 1u : 0u};
    Entry entry{first, 0};
    if (first >= 128)
        entry.tag = (first & 7) == 0 ? 0 : reader.Bits((first & 7u) * 8);
    const uint8_t length = reader.U8();
    if (length >= 224)
        entry.length = ReadLength(reader, length & 3);
    else if (length >= 192)
        entry.length = length & 3;
    else if (length >= 128)
        entry.length = ReadLength(reader, length & 63);
    else
        entry.length = length;
    return entry;
}

// Calls `read` with each tag and length, and skips the bytes of the stated length that `read` left. Fields may be
// longer than the stated length.
template <typename Read>
void ForEachEntry(BitReader& reader, Read read) {
    while (reader.HasMore()) {
        const Entry entry = ReadEntry(reader);
        const uint64_t start = reader.Position();
        read(entry);
        const uint64_t used = (reader.Position() - start) / 8;
        if (used < entry.length)
            reader.SkipBytes(entry.length - used);
    }
}

// The extra lens words may come before or after the calibration that they belong to.
struct LensExtra {
    bool given = false;
    uint16_t words[6] = {};
};

void StoreLensExtra(const LensExtra& extra, FrameExtension& out) {
    if (auto* fisheye = std::get_if<FisheyeCalibration>(&out.record); fisheye != nullptr && extra.given)
        std::memcpy(fisheye->lensExtra, extra.words, sizeof extra.words);
}

FisheyeCalibration ReadFisheye(BitReader& reader, const MediaFrameHeader& header) {
    FisheyeCalibration fisheye;
    fisheye.centerX = reader.U16();
    fisheye.centerY = reader.U16();
    fisheye.radius = reader.U16();
    fisheye.lensId = reader.U8();
    fisheye.lensKind = reader.U8();
    if (header.captureWidth == 1920 && header.captureHeight == 1080)
        fisheye.mountFlag = 1;
    else
        fisheye.mountFlag = fisheye.lensKind == 3 ? 2 : 0;
    return fisheye;
}

SensorLayout ReadSensors(BitReader& reader) {
    SensorLayout layout;
    layout.model = reader.U8();
    layout.sensorCount = reader.U8();
    layout.width = reader.U16();
    layout.height = reader.U16();
    for (unsigned i = 0; i < layout.sensorCount; ++i) {
        SensorLayout::Crop crop;
        crop.x = reader.U16();
        crop.y = reader.U16();
        crop.width = reader.U16();
        crop.height = reader.U16();
        if (i < std::size(layout.sensorCrop))
            layout.sensorCrop[i] = crop;
    }
    return layout;
}

LensRecord ReadLens(BitReader& reader) {
    LensRecord lens;
    for (uint64_t& value : lens.values)
        value = reader.U64();
    for (const unsigned i : {4, 5, 6, 0, 1, 2, 3})    // the order of the stream
        lens.words[i] = reader.U32();
    return lens;
}

FrameTimeRecord ReadTime(BitReader& reader) {
    FrameTimeRecord time;
    time.seconds = reader.U32();
    time.milliseconds = reader.U32();
    time.timeZone = reader.U16();
    time.daylight = reader.U16();
    return time;
}

// Four characters, kept in memory in the order of the stream.
uint32_t ReadCharacters(BitReader& reader) {
    uint8_t bytes[4];
    for (uint8_t& byte : bytes)
        byte = reader.U8();
    uint32_t value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

void ReadBlob(BitReader& reader, uint64_t length, FrameExtension& out) {
    if (length > reader.BitsLeft() / 8)    // before a stated length allocates anything
        throw std::runtime_error("end of stream");
    out.blob.reset();
    out.blobLength = 0;
    out.blob = std::make_unique<uint8_t[]>(length);
    out.blobLength = static_cast<uint32_t>(length);
    if (length > 0)
        std::memcpy(out.blob.get(), reader.Bytes(), length);
    reader.SkipBytes(length);
}

void ReadHeaderEntry(BitReader& reader, uint64_t tag, const MediaFrameHeader& header, LensExtra& extra,
                     FrameExtension& out) {
    switch (tag) {
    case 19:
        out.record = ReadFisheye(reader, header);
        out.kind = ExtensionKind::Fisheye;
        break;
    case 22:
        for (uint16_t& word : extra.words)
            word = reader.U16();
        extra.given = true;
        break;
    case 23:
        out.record = ReadSensors(reader);
        out.kind = ExtensionKind::Sensors;
        break;
    case 25:
        out.record = ReadLens(reader);
        out.kind = ExtensionKind::Lens;
        break;
    case 228:
    case 229:
        out.interlaced = tag == 229;
        break;
    case 230:
    case 231:
        out.fieldCoded = tag == 231;
        break;
    default:
        break;
    }
}

void ReadPacketEntry(BitReader& reader, const Entry& entry, FrameExtension& out) {
    switch (entry.tag) {
    case 96:
        out.baseTime = ReadTime(reader);
        break;
    case 97:
        out.presentTime = ReadTime(reader);
        out.presentTimeGiven = true;
        break;
    case 104:
        out.notForDisplay = (reader.U8() & 1) != 0;
        break;
    case 105:
        out.vendorTag = ReadCharacters(reader);
        break;
    case 106:
        out.vendorSubtype = ReadCharacters(reader);
        break;
    case 107:
        out.decodedWidth = reader.U16();
        out.decodedHeight = reader.U16();
        break;
    case 108:
        ReadBlob(reader, entry.length, out);
        break;
    default:
        break;
    }
}

}    // namespace

void ParseHeaderExtension(const MediaFrameHeader& header, FrameExtension& out) {
    const StreamClass streamClass = ClassOf(header.streamType);
    if (streamClass != StreamClass::Video && streamClass != StreamClass::Placeholder)
        return;
    if (header.headerSize < kItemArea || (header.data[kFlagsByte] & kItemsPresent) == 0)
        return;
    const uint32_t areaSize = header.data[kItemCountByte] * 4u;
    if (areaSize > header.headerSize - kItemArea)
        throw std::runtime_error("end of stream");

    BitReader reader(header.data + kItemArea, areaSize);
    for (int field = 0; field < 3; ++field) {    // optional fields without use here
        if (reader.Bits(1) != 0)
            reader.SkipBits(48);
    }
    reader.SkipBits(5);    // a multiple of 8 bits has passed
    while (reader.HasMore() && reader.PeekBits(8) == 0)
        reader.SkipBytes(1);

    LensExtra extra;
    ForEachEntry(reader, [&](const Entry& entry) { ReadHeaderEntry(reader, entry.tag, header, extra, out); });
    StoreLensExtra(extra, out);
}

void ParsePacketExtension(const MediaFrameHeader& header, FrameExtension& out) {
    out.decodedWidth = header.pictureWidth;
    out.decodedHeight = header.pictureHeight;
    if (header.extension == nullptr || header.extensionSize <= kPacketPrefix)
        return;
    BitReader reader(header.extension + kPacketPrefix, header.extensionSize - kPacketPrefix);
    ForEachEntry(reader, [&](const Entry& entry) { ReadPacketEntry(reader, entry, out); });
}

}    // namespace corvane
