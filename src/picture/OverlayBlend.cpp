#include "picture/OverlayBlend.h"

#include <cstring>

#include "kernels/RgbToYCbCr.h"

namespace corvane {

namespace {

constexpr uint32_t kColorBits = 0x00FFFFFF;

uint32_t PixelAt(const uint8_t* row, uint32_t x) {
    uint32_t pixel;
    std::memcpy(&pixel, row + 4 * size_t{x}, 4);
    return pixel & kColorBits;
}

void BlendBgr24(const ConstPictureView& drawing, const PictureView& picture) {
    for (uint32_t y = 0; y < drawing.size.height; ++y) {
        const uint8_t* const from = drawing.Row(y);
        uint8_t* const to = picture.Row(y);
        for (uint32_t x = 0; x < drawing.size.width; ++x) {
            if (PixelAt(from, x) != 0)
                std::memcpy(to + 3 * size_t{x}, from + 4 * size_t{x}, 3);
        }
    }
}

// One block of 2x2 pixels, some of them drawn.
void BlendBlock(const uint32_t (&pixels)[4], uint8_t* const (&luma)[4], uint8_t* u, uint8_t* v) {
    uint32_t cb = 0;
    uint32_t cr = 0;
    for (int i = 0; i < 4; ++i) {
        const auto blue = static_cast<uint8_t>(pixels[i]);
        const auto green = static_cast<uint8_t>(pixels[i] >> 8);
        const auto red = static_cast<uint8_t>(pixels[i] >> 16);
        const uint32_t y = kernels::LumaOf(red, green, blue);
        if (y == 0) {
            cb += *u;
            cr += *v;
            continue;
        }
        *luma[i] = static_cast<uint8_t>(y);
        cb += kernels::CbOf(red, green, blue);
        cr += kernels::CrOf(red, green, blue);
    }
    *u = static_cast<uint8_t>(cb >> 2);
    *v = static_cast<uint8_t>(cr >> 2);
}

void BlendI420(const ConstPictureView& drawing, const PictureView& picture) {
    for (uint32_t y = 0; y + 1 < drawing.size.height; y += 2) {
        const uint8_t* const from = drawing.Row(y);
        const uint8_t* const below = drawing.Row(y + 1);
        uint8_t* const luma = picture.Row(y);
        uint8_t* const u = picture.plane[1] + static_cast<ptrdiff_t>(y / 2) * picture.stride[1];
        uint8_t* const v = picture.plane[2] + static_cast<ptrdiff_t>(y / 2) * picture.stride[2];
        for (uint32_t x = 0; x + 1 < drawing.size.width; x += 2) {
            const uint32_t pixels[4] = {PixelAt(from, x), PixelAt(from, x + 1), PixelAt(below, x),
                                        PixelAt(below, x + 1)};
            if ((pixels[0] | pixels[1] | pixels[2] | pixels[3]) == 0)
                continue;
            uint8_t* const lower = luma + picture.stride[0];
            BlendBlock(pixels, {luma + x, luma + x + 1, lower + x, lower + x + 1}, u + x / 2, v + x / 2);
        }
    }
}

}    // namespace

void BlendOverlay(const ConstPictureView& drawing, const PictureView& picture) {
    if (picture.ThreePlanes())
        BlendI420(drawing, picture);
    else
        BlendBgr24(drawing, picture);
}

}    // namespace corvane
