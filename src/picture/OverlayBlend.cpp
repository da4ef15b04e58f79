#include "picture/OverlayBlend.h"

#include <cstring>

#include "corvane/filter.h"
#include "filters/FilterChain.h"
#include "kernels/RgbToYCbCr.h"

namespace corvane {

namespace {

constexpr uint32_t kColorBits = 0x00FFFFFF;

uint32_t PixelAt(const uint8_t* row, uint32_t x) {
    uint32_t pixel;
    std::memcpy(&pixel, row + 4 * size_t{x}, 4);
    return pixel & kColorBits;
}

void BlendBottomUp24(const RasterView& drawing, uint8_t* data, uint32_t stride) {
    for (uint32_t y = 0; y < drawing.height; ++y) {
        const uint8_t* const from = drawing.data + static_cast<ptrdiff_t>(y) * drawing.step;
        uint8_t* const to = data + size_t{stride} * (drawing.height - 1 - y);
        for (uint32_t x = 0; x < drawing.width; ++x) {
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

void BlendI420(const RasterView& drawing, const QMRX::Filter::Picture& to) {
    for (uint32_t y = 0; y + 1 < drawing.height; y += 2) {
        const uint8_t* const from = drawing.data + static_cast<ptrdiff_t>(y) * drawing.step;
        const uint8_t* const below = from + drawing.step;
        uint8_t* const luma = to.plane[0] + static_cast<ptrdiff_t>(y) * to.stride[0];
        uint8_t* const u = to.plane[1] + static_cast<ptrdiff_t>(y / 2) * to.stride[1];
        uint8_t* const v = to.plane[2] + static_cast<ptrdiff_t>(y / 2) * to.stride[2];
        for (uint32_t x = 0; x + 1 < drawing.width; x += 2) {
            const uint32_t pixels[4] = {PixelAt(from, x), PixelAt(from, x + 1), PixelAt(below, x),
                                        PixelAt(below, x + 1)};
            if ((pixels[0] | pixels[1] | pixels[2] | pixels[3]) == 0)
                continue;
            uint8_t* const lower = luma + to.stride[0];
            BlendBlock(pixels, {luma + x, luma + x + 1, lower + x, lower + x + 1}, u + x / 2, v + x / 2);
        }
    }
}

}    // namespace

bool BlendOverlay(const RasterView& drawing, uint8_t* data, uint32_t stride, uint32_t format) {
    switch (format) {
    case PF_BGR24_FLIP:
        BlendBottomUp24(drawing, data, stride);
        return true;
    case PF_I420: {
        QMRX::Filter::Picture picture{};
        FillPicture(picture, data, stride, drawing.height, format);
        BlendI420(drawing, picture);
        return true;
    }
    default:
        return false;
    }
}

}    // namespace corvane
