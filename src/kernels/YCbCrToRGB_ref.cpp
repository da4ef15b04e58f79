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
void Convert(const ConstPictureView& source, const PictureView& destination, uint8_t fourth, ToRgb toRgb) {
    const RgbLayout layout = RgbLayout::Of(destination.format);
    const uint32_t redAt = layout.redFirst ? 0 : 2;
    const bool planar = source.ThreePlanes();
    const size_t chromaStep = planar ? 1 : 2;
    for (uint32_t row = 0; row < (destination.size.height & ~1u); ++row) {
        const auto pair = static_cast<ptrdiff_t>(row / 2);
        const uint8_t* y = source.Row(row);
        const uint8_t* u = source.plane[1] + pair * source.stride[1];
        const uint8_t* v = planar ? source.plane[2] + pair * source.stride[2] : u + 1;
        uint8_t* pixel = destination.Row(row);
        for (uint32_t x = 0; x < (destination.size.width & ~1u); ++x, pixel += layout.pixelBytes) {
            const Rgb rgb = toRgb(y[x], u[x / 2 * chromaStep], v[x / 2 * chromaStep]);
            pixel[redAt] = rgb.red;
            pixel[1] = rgb.green;
            pixel[2 - redAt] = rgb.blue;
            if (layout.pixelBytes == 4)
                pixel[3] = fourth;
        }
    }
}

}    // namespace

int32_t YCbCrToRGB(const ConstPictureView& source, const PictureView& destination, RgbStores stores) {
    if (!TakesRgb(source, destination))
        return kRefused;
    if (const ColourMatrix* const matrix = RgbMatrixOf(source))
        Convert(source, destination, stores.fourth,
                [m = *matrix](int32_t y, int32_t u, int32_t v) { return m.ToRgb(y, u, v); });
    else
        Convert(source, destination, stores.fourth, FullRangeBt601);
    return ((destination.size.width | destination.size.height) & 1) != 0 ? kOddPartUnwritten : kDone;
}

}    // namespace corvane::kernels::ref
