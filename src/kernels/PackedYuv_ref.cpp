#include "kernels/PackedYuv.h"
#include "kernels/Source420.h"

namespace corvane::kernels::ref {

int32_t ToPacked(const uint8_t* y, ptrdiff_t yStep, const uint8_t* u, ptrdiff_t uStep, const uint8_t* v,
                 ptrdiff_t vStep, uint8_t* destination, ptrdiff_t destinationStep, uint32_t width, uint32_t height,
                 bool lumaSecond) {
    if (y == nullptr || u == nullptr || destination == nullptr || width < 2 || height < 2)
        return kRefused;
    for (uint32_t row = 0; row < (height & ~1u); ++row) {
        const uint8_t* luma = y + static_cast<ptrdiff_t>(row) * yStep;
        const uint8_t* blue = u + static_cast<ptrdiff_t>(row / 2) * uStep;
        const uint8_t* red = v != nullptr ? v + static_cast<ptrdiff_t>(row / 2) * vStep : blue + 1;
        const size_t chromaStep = v != nullptr ? 1 : 2;
        uint8_t* out = destination + static_cast<ptrdiff_t>(row) * destinationStep;
        for (uint32_t pair = 0; pair < width / 2; ++pair) {
            out[4 * pair + lumaSecond] = luma[2 * pair];
            out[4 * pair + lumaSecond + 2] = luma[2 * pair + 1];
            out[4 * pair + !lumaSecond] = blue[pair * chromaStep];
            out[4 * pair + !lumaSecond + 2] = red[pair * chromaStep];
        }
    }
    return kDone;
}

}    // namespace corvane::kernels::ref
