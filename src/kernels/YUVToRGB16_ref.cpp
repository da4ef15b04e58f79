#include <algorithm>

#include "kernels/YUVToRGB16.h"

namespace corvane::kernels::ref {

namespace {

uint32_t Clamp(int32_t fixed) {
    return static_cast<uint32_t>(std::clamp(fixed >> 16, 0, 255));
}

}    // namespace

int32_t YUVToRGB16(const Source420& source, uint16_t* destination, ptrdiff_t destinationStep, uint32_t width,
                   uint32_t height, Rgb16Layout layout) {
    if (source.y == nullptr || source.u == nullptr || destination == nullptr || width < 1 || height < 1 ||
        (layout.greenBits != 5 && layout.greenBits != 6))
        return kRefused;
    const uint32_t topShift = 5 + layout.greenBits;
    for (uint32_t row = 0; row < height; ++row) {
        const uint8_t* y = source.y + static_cast<ptrdiff_t>(row) * source.yStep;
        const uint8_t* u = source.u + static_cast<ptrdiff_t>(row / 2) * source.uStep;
        const uint8_t* v = source.Planar() ? source.v + static_cast<ptrdiff_t>(row / 2) * source.vStep : u + 1;
        const size_t chromaStep = source.Planar() ? 1 : 2;
        uint16_t* out = destination + static_cast<ptrdiff_t>(row) * destinationStep;
        for (uint32_t x = 0; x < width; ++x) {
            const int32_t luma = 65536 * y[x];
            const int32_t centredU = u[x / 2 * chromaStep] - 128;
            const int32_t centredV = v[x / 2 * chromaStep] - 128;
            uint32_t high = Clamp(luma + 74711 * centredV);
            uint32_t low = Clamp(luma + 133169 * centredU);
            const uint32_t green = Clamp(luma - 38076 * centredV - 25821 * centredU);
            if (!layout.redHigh)
                std::swap(high, low);
            out[x] = static_cast<uint16_t>(high >> 3 << topShift | green >> (8 - layout.greenBits) << 5 | low >> 3);
        }
    }
    return kDone;
}

}    // namespace corvane::kernels::ref
