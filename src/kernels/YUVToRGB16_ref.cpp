#include <algorithm>

#include "kernels/YUVToRGB16.h"

namespace corvane::kernels::ref {

namespace {

uint8_t Clamp(int32_t fixed) {
    return static_cast<uint8_t>(std::clamp(fixed >> 16, 0, 255));
}

Rgb Analogue(int32_t y, int32_t u, int32_t v) {
    const int32_t luma = 65536 * y;
    const int32_t centredU = u - 128;
    const int32_t centredV = v - 128;
    return {Clamp(luma + 74711 * centredV), Clamp(luma - 38076 * centredV - 25821 * centredU),
            Clamp(luma + 133169 * centredU)};
}

// `toRgb(y, u, v)` is the arithmetic of a pixel.
template <typename ToRgb>
void Convert(const Source420& source, uint16_t* destination, ptrdiff_t destinationStep, uint32_t width, uint32_t height,
             Rgb16Layout layout, ToRgb toRgb) {
    const uint32_t topShift = 5 + layout.greenBits;
    for (uint32_t row = 0; row < height; ++row) {
        const uint8_t* y = source.y + static_cast<ptrdiff_t>(row) * source.yStep;
        const uint8_t* u = source.u + static_cast<ptrdiff_t>(row / 2) * source.uStep;
        const uint8_t* v = source.Planar() ? source.v + static_cast<ptrdiff_t>(row / 2) * source.vStep : u + 1;
        const size_t chromaStep = source.Planar() ? 1 : 2;
        uint16_t* out = destination + static_cast<ptrdiff_t>(row) * destinationStep;
        for (uint32_t x = 0; x < width; ++x) {
            const Rgb rgb = toRgb(y[x], u[x / 2 * chromaStep], v[x / 2 * chromaStep]);
            const uint32_t high = layout.redHigh ? rgb.red : rgb.blue;
            const uint32_t low = layout.redHigh ? rgb.blue : rgb.red;
            const uint32_t green = rgb.green;
            out[x] = static_cast<uint16_t>(high >> 3 << topShift | green >> (8 - layout.greenBits) << 5 | low >> 3);
        }
    }
}

}    // namespace

int32_t YUVToRGB16(const Source420& source, uint16_t* destination, ptrdiff_t destinationStep, uint32_t width,
                   uint32_t height, Rgb16Layout layout) {
    if (source.y == nullptr || source.u == nullptr || destination == nullptr || width < 1 || height < 1 ||
        (layout.greenBits != 5 && layout.greenBits != 6))
        return kRefused;
    if (layout.matrix == nullptr)
        Convert(source, destination, destinationStep, width, height, layout, Analogue);
    else
        Convert(source, destination, destinationStep, width, height, layout,
                [matrix = *layout.matrix](int32_t y, int32_t u, int32_t v) { return matrix.ToRgb(y, u, v); });
    return kDone;
}

}    // namespace corvane::kernels::ref
