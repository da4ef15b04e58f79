#include "platform/x11/PixelPack.h"

#include <cstring>

namespace corvane {

namespace {

uint32_t Load32(const uint8_t* from) {
    uint32_t value;
    std::memcpy(&value, from, sizeof value);
    return value;
}
void Store32(uint8_t* to, uint32_t value) {
    std::memcpy(to, &value, sizeof value);
}

uint32_t To10(uint32_t value) {
    return value << 2 | value >> 6;
}

}    // namespace

void PackRow(PixelLayout layout, const uint8_t* from, uint8_t* to, uint32_t count) {
    if (layout == PixelLayout::Rgb16) {
        for (size_t x = 0; x < count; ++x) {
            const uint32_t pixel = Load32(from + 4 * x);
            const auto packed =
                static_cast<uint16_t>((pixel >> 8 & 0xF800) | (pixel >> 5 & 0x7E0) | (pixel >> 3 & 0x1F));
            std::memcpy(to + 2 * x, &packed, sizeof packed);
        }
    } else if (layout == PixelLayout::Rgb30) {
        for (size_t x = 0; x < count; ++x) {
            const uint32_t pixel = Load32(from + 4 * x);
            Store32(to + 4 * x,
                    3u << 30 | To10(pixel >> 16 & 0xFF) << 20 | To10(pixel >> 8 & 0xFF) << 10 | To10(pixel & 0xFF));
        }
    } else {
        std::memcpy(to, from, size_t{4} * count);
    }
}

void UnpackRow(PixelLayout layout, const uint8_t* from, uint8_t* to, uint32_t count) {
    if (layout == PixelLayout::Rgb16) {
        for (size_t x = 0; x < count; ++x) {
            uint16_t packed;
            std::memcpy(&packed, from + 2 * x, sizeof packed);
            const uint32_t red = packed >> 11;
            const uint32_t green = packed >> 5 & 0x3F;
            const uint32_t blue = packed & 0x1F;
            Store32(to + 4 * x, (red << 3 | red >> 2) << 16 | (green << 2 | green >> 4) << 8 | (blue << 3 | blue >> 2));
        }
    } else if (layout == PixelLayout::Rgb30) {
        for (size_t x = 0; x < count; ++x) {
            const uint32_t pixel = Load32(from + 4 * x);
            Store32(to + 4 * x, (pixel >> 22 & 0xFF) << 16 | (pixel >> 12 & 0xFF) << 8 | (pixel >> 2 & 0xFF));
        }
    } else {
        for (size_t x = 0; x < count; ++x)
            Store32(to + 4 * x, Load32(from + 4 * x) & 0xFFFFFF);
    }
}

}    // namespace corvane
