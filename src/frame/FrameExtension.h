// The contents of the two tag-length-value areas of a frame, and the parsers that read them.
#pragma once

#include <cstdint>
#include <memory>
#include <variant>

#include "corvane/corvane.h"

namespace corvane {

struct FisheyeCalibration {
    uint16_t centerX = 0;    // capture pixels
    uint16_t centerY = 0;
    uint16_t radius = 0;
    uint8_t lensId = 0;
    uint8_t lensKind = 0;     // 3: no analytics overlay, not dewarped
    uint8_t mountFlag = 0;    // 1 capture size is 1920x1080; else 2 when lensKind is 3; else 0
    uint16_t lensExtra[6] = {};
};

struct SensorLayout {
    struct Crop {
        uint16_t x, y, width, height;    // sensor pixels
    };
    uint8_t model = 0;
    uint8_t sensorCount = 0;    // as stated; at most four crops are kept
    uint16_t width = 0;
    uint16_t height = 0;
    Crop sensorCrop[4] = {};
};

// Goes to the dewarp library unchanged: the bit patterns of doubles and seven words.
struct LensRecord {
    uint64_t values[9 + 12 + 9 + 12 + 9 + 3] = {};
    uint32_t words[7] = {};
};

enum class ExtensionKind : uint32_t { None = 0, Fisheye = 1, Sensors = 2, Lens = 3 };

constexpr uint32_t FourCharacters(const char (&text)[5]) {
    return static_cast<uint32_t>(static_cast<uint8_t>(text[0])) |
           static_cast<uint32_t>(static_cast<uint8_t>(text[1])) << 8 |
           static_cast<uint32_t>(static_cast<uint8_t>(text[2])) << 16 |
           static_cast<uint32_t>(static_cast<uint8_t>(text[3])) << 24;
}

struct FrameExtension {
    ExtensionKind kind = ExtensionKind::None;
    std::variant<std::monostate, FisheyeCalibration, SensorLayout, LensRecord> record;
    bool interlaced = false;
    bool fieldCoded = false;
    bool notForDisplay = false;
    bool presentTimeGiven = false;
    FrameTimeRecord baseTime{};
    FrameTimeRecord presentTime{};
    uint32_t vendorTag = FourCharacters("QMRX");
    uint32_t vendorSubtype = 0;
    uint32_t decodedWidth = 0;
    uint32_t decodedHeight = 0;
    std::unique_ptr<uint8_t[]> blob;
    uint32_t blobLength = 0;
};

// Reads the 32-bit items inside the frame header bytes (`header.data`, `header.headerSize`). Raises
// std::runtime_error("end of stream").
void ParseHeaderExtension(const MediaFrameHeader& header, FrameExtension& out);

// Reads the block at `header.extension`. Raises std::runtime_error("end of stream") and std::bad_alloc.
void ParsePacketExtension(const MediaFrameHeader& header, FrameExtension& out);

}    // namespace corvane
