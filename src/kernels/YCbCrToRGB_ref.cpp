#include <algorithm>

#include "kernels/YCbCrToRGB.h"

namespace corvane::kernels::ref {

namespace {

uint8_t Clamp(int32_t fixed) {
    return static_cast<uint8_t>(std::clamp(fixed >> 16, 0, 255));
}

Rgb FullRangeBt601(int32_t y, int32_t u, int32_t v) {
    const int32_t luma = 65536 * y;
    return {Clamp(luma + 91880 * v - 11727880), Clamp(luma - 22553 * u - 46801 * v + 8910128),
            Clamp(luma + 116128 * u - 14831618)};
}

// `toRgb(y, u, v)` is the arithmetic of a pixel.
template <typename ToRgb>
void Convert(const Source420& source, uint8_t* destination, ptrdiff_t destinationStep, uint32_t width, uint32_t height,
             RgbLayout layout, ToRgb toRgb) {
    const uint32_t redAt = layout.redFirst ? 0 : 2;
    for (uint32_t row = 0; row < (height & ~1u); ++row) {
        const uint8_t* y = source.y + static_cast<ptrdiff_t>(row) * source.yStep;
        const uint8_t* u = source.u + static_cast<ptrdiff_t>(row / 2) * source.uStep;
        const uint8_t* v = source.Planar() ? source.v + static_cast<ptrdiff_t>(row / 2) * source.vStep : u + 1;
        const size_t chromaStep = source.Planar() ? 1 : 2;
        uint8_t* pixel = destination + static_cast<ptrdiff_t>(row) * destinationStep;
        for (uint32_t x = 0; x < (width & ~1u); ++x, pixel += layout.bytes) {
            const Rgb rgb = toRgb(y[x], u[x / 2 * chromaStep], v[x / 2 * chromaStep]);
            pixel[redAt] = rgb.red;
            pixel[1] = rgb.green;
            pixel[2 - redAt] = rgb.blue;
            if (layout.bytes == 4)
                pixel[3] = layout.fourth;
        }
    }
}

}    // namespace

int32_t YCbCrToRGB(const Source420& source, uint8_t* destination, ptrdiff_t destinationStep, uint32_t width,
                   uint32_t height, RgbLayout layout) {
    if (source.y == nullptr || source.u == nullptr || destination == nullptr || width < 2 || height < 2 ||
        (layout.bytes != 3 && layout.bytes != 4))
        return kRefused;
    if (layout.matrix == nullptr)
        Convert(source, destination, destinationStep, width, height, layout, FullRangeBt601);
    else
        Convert(source, destination, destinationStep, width, height, layout,
                [matrix = *layout.matrix](int32_t y, int32_t u, int32_t v) { return matrix.ToRgb(y, u, v); });
    return ((width | height) & 1) != 0 ? kOddPartUnwritten : kDone;
}

}    // namespace corvane::kernels::ref
