// Shared by the scaling kernels, once per instruction set: loading of windows, and the vertical pass. Bytes are in the
// upper half of 16 bit lanes, so that the upper half of a product with a 16 bit weight is the weighted value in 1/256
// levels.

#include <hwy/cache_control.h>
#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

#if defined(CORVANE_KERNELS_STRETCH_ROWS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef CORVANE_KERNELS_STRETCH_ROWS_INL
#undef CORVANE_KERNELS_STRETCH_ROWS_INL
#else
#define CORVANE_KERNELS_STRETCH_ROWS_INL
#endif

#include "kernels/Vectors-inl.h"

#if !CORVANE_KERNELS_PLAIN

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

constexpr size_t kVector = hn::MaxLanes(Bytes());
constexpr size_t kBlocks = kVector / 16;

// 16 bytes from each of kBlocks places, one place a block.
template <class Place>
HWY_INLINE ByteVector LoadBlocks(const Place& place) {
    const Bytes d;
    static_assert(kBlocks == 1 || kBlocks == 2 || kBlocks == 4);
    if constexpr (kBlocks == 1) {
        return hn::LoadU(d, place(0));
    } else {
        const hn::Half<Bytes> half;
        if constexpr (kBlocks == 2) {
            return hn::Combine(d, hn::LoadU(half, place(1)), hn::LoadU(half, place(0)));
        } else {
            const hn::Half<hn::Half<Bytes> > quarter;
            return hn::Combine(d, hn::Combine(half, hn::LoadU(quarter, place(3)), hn::LoadU(quarter, place(2))),
                               hn::Combine(half, hn::LoadU(quarter, place(1)), hn::LoadU(quarter, place(0))));
        }
    }
}

// The upper bytes of `even` and `odd`, even ones first.
HWY_INLINE ByteVector MergeUpperBytes(WordVector even, WordVector odd) {
    const Words d16;
    return hn::BitCast(Bytes(), hn::Or(hn::ShiftRight<8>(even), hn::And(odd, hn::Set(d16, 0xFF00))));
}

// Rounding of sums of `taps` products in 1/256 levels. Truncation has taken half a unit of each product in the mean.
HWY_INLINE WordVector Rounding(uint32_t taps) {
    return hn::Set(Words(), static_cast<uint16_t>(128 + taps / 2));
}

// Weighs `count` rows of bytes, and fetches as many rows after them. Reads and writes whole vectors.
template <uint32_t kCount>
HWY_INLINE void WeighRows(const uint8_t* source, ptrdiff_t stride, uint32_t count, const uint16_t* weights,
                          uint8_t* out, size_t bytes) {
    const Bytes d;
    const Words d16;
    const uint32_t taps = kCount != 0 ? kCount : count;
    const ptrdiff_t ahead = static_cast<ptrdiff_t>(taps) * stride;
    const auto rounding = Rounding(taps);
    const auto upper = hn::Set(d16, 0xFF00);
    for (size_t x = 0; x < bytes; x += kVector) {
        auto even = rounding;
        auto odd = rounding;
        const uint8_t* at = source + x;
        for (uint32_t tap = 0; tap < taps; ++tap, at += stride) {
            const auto row = hn::BitCast(d16, hn::LoadU(d, at));
            hwy::Prefetch(at + ahead);
            const auto weight = hn::Set(d16, weights[tap]);
            even = hn::Add(even, hn::MulHigh(hn::ShiftLeft<8>(row), weight));
            odd = hn::Add(odd, hn::MulHigh(hn::And(row, upper), weight));
        }
        hn::StoreU(MergeUpperBytes(even, odd), d, out + x);
    }
}

inline void WeighAnyRows(const uint8_t* source, ptrdiff_t stride, uint32_t count, const uint16_t* weights, uint8_t* out,
                         size_t bytes) {
    if (count == 2)
        WeighRows<2>(source, stride, count, weights, out, bytes);
    else if (count == 3)
        WeighRows<3>(source, stride, count, weights, out, bytes);
    else
        WeighRows<0>(source, stride, count, weights, out, bytes);
}

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#endif
#endif
