#include <algorithm>

#include "kernels/YCbCrToRGB.h"

namespace corvane::kernels::ref {

namespace {

uint8_t Clamp(int32_t fixed) {
    return static_cast<uint8_t>(std::clamp(fixed >> 16, 0, 255));
}

}    // namespace

int32_t YCbCrToRGB(const Source420& source, uint8_t* destination, ptrdiff_t destination_step, uint32_t width,
                   uint32_t height, RgbLayout layout) {
    if (source.y == nullptr || source.u == nullptr || destination == nullptr || width < 2 || height < 2 ||
        (layout.bytes != 3 && layout.bytes != 4))
        return kRefused;
    const uint32_t red_at = layout.red_first ? 0 : 2;
    for (uint32_t row = 0; row < (height & ~1u); ++row) {
        const uint8_t* y = source.y + static_cast<ptrdiff_t>(row) * source.y_step;
        const uint8_t* u = source.u + static_cast<ptrdiff_t>(row / 2) * source.u_step;
        const uint8_t* v = source.Planar() ? source.v + static_cast<ptrdiff_t>(row / 2) * source.v_step : u + 1;
        const size_t chroma_step = source.Planar() ? 1 : 2;
        uint8_t* pixel = destination + static_cast<ptrdiff_t>(row) * destination_step;
        for (uint32_t x = 0; x < (width & ~1u); ++x, pixel += layout.bytes) {
            const int32_t luma = 65536 * y[x];
            const int32_t blue_difference = u[x / 2 * chroma_step];
            const int32_t red_difference = v[x / 2 * chroma_step];
            pixel[red_at] = Clamp(luma + 91880 * red_difference - 11727880);
            pixel[1] = Clamp(luma - 22553 * blue_difference - 46801 * red_difference + 8910128);
            pixel[2 - red_at] = Clamp(luma + 116128 * blue_difference - 14831618);
            if (layout.bytes == 4)
                pixel[3] = 0;
        }
    }
    return ((width | height) & 1) != 0 ? kOddPartUnwritten : kDone;
}

}    // namespace corvane::kernels::ref
