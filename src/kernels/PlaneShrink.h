// Shrinking of planes of 8 bit samples. Each axis is worked by itself: a sample is the mean of the source samples that
// it covers, where those at the edges count by the part covered (box). An axis that does not change is copied.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/AlignedBuffer.h"

namespace corvane::kernels {

// Of interleaved samples (`channels` 2: U V pairs), sizes count pairs. Neither destination side is larger than the
// source's, and all are at least 1.
struct ShrinkSizes {
    uint32_t width, height;
    uint32_t toWidth, toHeight;
    uint32_t channels = 1;

    bool operator==(const ShrinkSizes&) const = default;
};

// Keeps the tables of one pair of sizes for all bands of a picture and for the pictures that follow. One thread at a
// time.
class PlaneShrink {
public:
    // False when there is no memory; Rows must not be called then.
    [[nodiscard]] bool Make(const ShrinkSizes& sizes);
    void Free();

    // Writes destination rows [row, row + count) to `out`, within 2 levels of `ref::ShrinkRows`, and equal to it where
    // no size changes. `source` is the top left sample of the plane; rows of `out` are written in whole blocks of 64
    // bytes. Strides are in bytes.
    void Rows(const uint8_t* source, ptrdiff_t stride, uint32_t row, uint32_t count, uint8_t* out, ptrdiff_t outStride);

private:
    friend class ShrinkAccess;

    ShrinkSizes m_sizes{};
    AlignedBuffer m_memory;
    bool m_plain = false;      // by the plain form: sizes are so different that speed does not matter
    uint32_t m_taps = 0;       // of the horizontal pass; 0: it is left out
    uint32_t m_windows = 0;    // of 16 bytes, that the taps of 8 lanes lie in
    size_t m_groups = 0;       // of vectors of samples
    size_t m_vectorBytes = 0;
    const uint32_t* m_offsets = nullptr;
    const uint8_t* m_vectors = nullptr;
    uint8_t* m_row = nullptr;    // between the passes
};

namespace ref {
// The definition, in floating point, rounded to the nearest at the end.
void ShrinkRows(const ShrinkSizes& sizes, const uint8_t* source, ptrdiff_t stride, uint32_t row, uint32_t count,
                uint8_t* out, ptrdiff_t outStride);
}    // namespace ref

}    // namespace corvane::kernels
