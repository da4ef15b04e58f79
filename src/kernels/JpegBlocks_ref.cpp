#include "kernels/JpegBlocks.h"

namespace corvane::kernels::ref {

namespace {

// Eight values `stride` apart, in place. The sums stay below 2^31: at most 8 x 5770 x 32138.
void Transform(int16_t* x, size_t stride, int32_t rounding, int shift) {
    int32_t s[4], d[4];
    for (size_t i = 0; i < 4; ++i) {
        s[i] = x[i * stride] + x[(7 - i) * stride];
        d[i] = x[i * stride] - x[(7 - i) * stride];
    }
    const int32_t sums[8] = {
        (s[0] + s[3] + s[1] + s[2]) * 23170,           d[0] * 32138 + d[1] * 27246 + d[2] * 18205 + d[3] * 6393,
        (s[0] - s[3]) * 30274 + (s[1] - s[2]) * 12540, d[0] * 27246 - d[1] * 6393 - d[2] * 32138 - d[3] * 18205,
        (s[0] + s[3] - s[1] - s[2]) * 23170,           d[0] * 18205 - d[1] * 32138 + d[2] * 6393 + d[3] * 27246,
        (s[0] - s[3]) * 12540 - (s[1] - s[2]) * 30274, d[0] * 6393 - d[1] * 18205 + d[2] * 27246 - d[3] * 32138};
    for (size_t i = 0; i < 8; ++i)
        x[i * stride] = static_cast<int16_t>((sums[i] + rounding) >> shift);
}

}    // namespace

void QuantizeBlocks(const uint8_t* samples, ptrdiff_t stride, size_t count, const uint16_t* reciprocals,
                    int16_t* coefficients, uint64_t* nonZero) {
    for (size_t block = 0; block < count; ++block, samples += 8, coefficients += 64) {
        for (ptrdiff_t i = 0; i < 64; ++i)
            coefficients[i] = samples[i / 8 * stride + i % 8];
        for (size_t row = 0; row < 8; ++row)
            Transform(coefficients + row * 8, 1, 4096, 13);
        for (size_t column = 0; column < 8; ++column)
            Transform(coefficients + column, 8, 0x40000, 19);
        coefficients[0] = static_cast<int16_t>(coefficients[0] - 1024);
        for (size_t i = 0; i < 64; ++i) {
            const int32_t c = coefficients[i];
            coefficients[i] = static_cast<int16_t>((reciprocals[i] * c + 32768 + (c >> 15)) >> 16);
        }
        nonZero[block] = 0;
        for (size_t k = 0; k < 64; ++k)
            nonZero[block] |= uint64_t{coefficients[kZigzag[k]] != 0} << k;
    }
}

}    // namespace corvane::kernels::ref
