// The arithmetic of a JPEG encoder on blocks of 8x8 samples: forward DCT, level shift, quantisation, and the
// coefficients of a block that are not 0, in zigzag order.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::kernels {

// The place in natural order of each place in zigzag order (T.81 figure A.6).
inline constexpr uint8_t kZigzag[64] = {0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,
                                        12, 19, 26, 33, 40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28,
                                        35, 42, 49, 56, 57, 50, 43, 36, 29, 22, 15, 23, 30, 37, 44, 51,
                                        58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54, 47, 55, 62, 63};

// Transforms and quantises `count` blocks side by side, whose rows are `stride` bytes apart. Reads no other samples
// than those. Integer DCT with constants in 1.15: rows first, (sum + 4096) >> 13, then columns, (sum + 0x40000) >> 19;
// then 1024 is taken off the DC coefficient (the shift of samples from 0..255 to -128..127), and each coefficient c
// becomes (r c + 32768 + (c >> 15)) >> 16 with its `reciprocals` entry r, at most 32768: c / (65536 / r), halves away
// from zero. `reciprocals` and `coefficients` (64 a block) are in natural order; bit k of a block's `nonZero` is set
// where the coefficient at zigzag place k is not 0. Results are within -1024 to 1024.
void QuantizeBlocks(const uint8_t* samples, ptrdiff_t stride, size_t count, const uint16_t* reciprocals,
                    int16_t* coefficients, uint64_t* nonZero);

namespace ref {
void QuantizeBlocks(const uint8_t* samples, ptrdiff_t stride, size_t count, const uint16_t* reciprocals,
                    int16_t* coefficients, uint64_t* nonZero);
}

}    // namespace corvane::kernels
