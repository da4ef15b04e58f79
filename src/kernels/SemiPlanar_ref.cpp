#include "kernels/SemiPlanar.h"
#include "kernels/Source420.h"

namespace corvane::kernels {

namespace ref {

void MergeRow(const uint8_t* u, const uint8_t* v, uint8_t* uv, size_t pairs) {
    for (size_t i = 0; i < pairs; ++i) {
        uv[2 * i] = u[i];
        uv[2 * i + 1] = v[i];
    }
}

void SplitRow(const uint8_t* uv, uint8_t* u, uint8_t* v, size_t pairs) {
    for (size_t i = 0; i < pairs; ++i) {
        u[i] = uv[2 * i];
        v[i] = uv[2 * i + 1];
    }
}

}    // namespace ref

int32_t BGRAToI420(const uint8_t* source, ptrdiff_t sourceStep, uint8_t* outY, ptrdiff_t outYStep, uint8_t* outU,
                   ptrdiff_t outUStep, uint8_t* outV, ptrdiff_t outVStep, uint32_t width, uint32_t height) {
    if (source == nullptr || outY == nullptr || outU == nullptr || outV == nullptr || width < 1 || height < 1)
        return kRefused;
    for (uint32_t row = 0; row < height; ++row) {
        const uint8_t* pixel = source + static_cast<ptrdiff_t>(row) * sourceStep;
        uint8_t* luma = outY + static_cast<ptrdiff_t>(row) * outYStep;
        for (uint32_t x = 0; x < width; ++x, pixel += 4)
            luma[x] = static_cast<uint8_t>((7471 * pixel[0] + 38470 * pixel[1] + 19595 * pixel[2] + 32768) >> 16);
    }
    for (uint32_t row = 0; row < height / 2; ++row) {
        const uint8_t* upper = source + 2 * static_cast<ptrdiff_t>(row) * sourceStep;
        const uint8_t* lower = upper + sourceStep;
        uint8_t* u = outU + static_cast<ptrdiff_t>(row) * outUStep;
        uint8_t* v = outV + static_cast<ptrdiff_t>(row) * outVStep;
        for (uint32_t x = 0; x < width / 2; ++x, upper += 8, lower += 8) {
            const int32_t b = upper[0] + upper[4] + lower[0] + lower[4];
            const int32_t g = upper[1] + upper[5] + lower[1] + lower[5];
            const int32_t r = upper[2] + upper[6] + lower[2] + lower[6];
            u[x] = static_cast<uint8_t>((32768 * b - 21709 * g - 11059 * r + 0x2008000) >> 18);
            v[x] = static_cast<uint8_t>((32768 * r - 27439 * g - 5329 * b + 0x2008000) >> 18);
        }
    }
    return ((width | height) & 1) != 0 ? kOddPartUnwritten : kDone;
}

}    // namespace corvane::kernels
