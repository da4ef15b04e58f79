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
void Convert(const ConstPictureView& source, const PictureView& destination, ToRgb toRgb) {
    const Rgb16Layout layout = Rgb16Layout::Of(destination.format);
    const uint32_t topShift = 5 + layout.greenBits;
    const bool planar = source.ThreePlanes();
    const size_t chromaStep = planar ? 1 : 2;
    for (uint32_t row = 0; row < destination.size.height; ++row) {
        const auto pair = static_cast<ptrdiff_t>(row / 2);
        const uint8_t* y = source.Row(row);
        const uint8_t* u = source.plane[1] + pair * source.stride[1];
        const uint8_t* v = planar ? source.plane[2] + pair * source.stride[2] : u + 1;
        auto* const out = reinterpret_cast<uint16_t*>(destination.Row(row));
        for (uint32_t x = 0; x < destination.size.width; ++x) {
            const Rgb rgb = toRgb(y[x], u[x / 2 * chromaStep], v[x / 2 * chromaStep]);
            const uint32_t high = layout.redHigh ? rgb.red : rgb.blue;
            const uint32_t low = layout.redHigh ? rgb.blue : rgb.red;
            const uint32_t green = rgb.green;
            out[x] = static_cast<uint16_t>(high >> 3 << topShift | green >> (8 - layout.greenBits) << 5 | low >> 3);
        }
    }
}

}    // namespace

int32_t YUVToRGB16(const ConstPictureView& source, const PictureView& destination) {
    if (!TakesRgb16(source, destination))
        return kRefused;
    if (source.colours)
        Convert(source, destination,
                [m = MatrixOf(*source.colours)](int32_t y, int32_t u, int32_t v) { return m.ToRgb(y, u, v); });
    else
        Convert(source, destination, Analogue);
    return kDone;
}

}    // namespace corvane::kernels::ref
