#include "kernels/PackedYuv.h"
#include "kernels/Source420.h"

namespace corvane::kernels::ref {

int32_t ToPacked(const uint8_t* y, ptrdiff_t y_step, const uint8_t* u, ptrdiff_t u_step, const uint8_t* v,
                 ptrdiff_t v_step, uint8_t* destination, ptrdiff_t destination_step, uint32_t width, uint32_t height,
                 bool luma_second) {
    if (y == nullptr || u == nullptr || destination == nullptr || width < 2 || height < 2)
        return kRefused;
    for (uint32_t row = 0; row < (height & ~1u); ++row) {
        const uint8_t* luma = y + static_cast<ptrdiff_t>(row) * y_step;
        const uint8_t* blue = u + static_cast<ptrdiff_t>(row / 2) * u_step;
        const uint8_t* red = v != nullptr ? v + static_cast<ptrdiff_t>(row / 2) * v_step : blue + 1;
        const size_t chroma_step = v != nullptr ? 1 : 2;
        uint8_t* out = destination + static_cast<ptrdiff_t>(row) * destination_step;
        for (uint32_t pair = 0; pair < width / 2; ++pair) {
            out[4 * pair + luma_second] = luma[2 * pair];
            out[4 * pair + luma_second + 2] = luma[2 * pair + 1];
            out[4 * pair + !luma_second] = blue[pair * chroma_step];
            out[4 * pair + !luma_second + 2] = red[pair * chroma_step];
        }
    }
    return kDone;
}

}    // namespace corvane::kernels::ref
