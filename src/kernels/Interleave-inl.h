// Rows of byte pairs, once per instruction set. Nothing is read or written beyond the rows.

#if defined(CORVANE_KERNELS_INTERLEAVE_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef CORVANE_KERNELS_INTERLEAVE_INL
#undef CORVANE_KERNELS_INTERLEAVE_INL
#else
#define CORVANE_KERNELS_INTERLEAVE_INL
#endif

#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

#include "kernels/SemiPlanar.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
HWY_INLINE void InterleaveRow(const uint8_t* first, const uint8_t* second, uint8_t* out, size_t pairs) {
    ref::MergeRow(first, second, out, pairs);
}
#else
// The last vector of a row is done again from its end, so that no row needs a loop by bytes unless it is shorter than
// one.
HWY_INLINE void InterleaveRow(const uint8_t* HWY_RESTRICT first, const uint8_t* HWY_RESTRICT second,
                              uint8_t* HWY_RESTRICT out, size_t pairs) {
    const hwy::HWY_NAMESPACE::ScalableTag<uint8_t> d;
    constexpr size_t kStep = hwy::HWY_NAMESPACE::MaxLanes(d);
    if (pairs < kStep) {
        ref::MergeRow(first, second, out, pairs);
        return;
    }
    const auto put = [&](size_t i)
                         HWY_ATTR { StoreInterleaved2(LoadU(d, first + i), LoadU(d, second + i), d, out + 2 * i); };
    size_t i = 0;
    for (; i + kStep <= pairs; i += kStep)
        put(i);
    if (i < pairs)
        put(pairs - kStep);
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#endif
