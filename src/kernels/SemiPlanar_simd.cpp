#include "kernels/SemiPlanar.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/SemiPlanar_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "kernels/PlaneCopy.h"
#include "kernels/Source420.h"
#include "kernels/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
HWY_INLINE void InterleaveRow(const uint8_t* first, const uint8_t* second, uint8_t* out, size_t pairs) {
    ref::MergeRow(first, second, out, pairs);
}
#else
// The last vector of a row is done again from its end, so that no row needs a loop by bytes unless it is shorter than
// one.
HWY_INLINE void InterleaveRow(const uint8_t* HWY_RESTRICT first, const uint8_t* HWY_RESTRICT second,
                              uint8_t* HWY_RESTRICT out, size_t pairs) {
    const Bytes d;
    constexpr size_t kStep = hn::MaxLanes(d);
    if (pairs < kStep) {
        ref::MergeRow(first, second, out, pairs);
        return;
    }
    const auto put = [&](size_t i) HWY_ATTR {
        hn::StoreInterleaved2(hn::LoadU(d, first + i), hn::LoadU(d, second + i), d, out + 2 * i);
    };
    size_t i = 0;
    for (; i + kStep <= pairs; i += kStep)
        put(i);
    if (i < pairs)
        put(pairs - kStep);
}
#endif

void MergeRows(const uint8_t* u, ptrdiff_t uStep, const uint8_t* v, ptrdiff_t vStep, uint8_t* uv, ptrdiff_t uvStep,
               uint32_t pairs, uint32_t rows) {
    for (uint32_t row = 0; row < rows; ++row) {
        const auto at = static_cast<ptrdiff_t>(row);
        InterleaveRow(u + at * uStep, v + at * vStep, uv + at * uvStep, pairs);
    }
}

#if CORVANE_KERNELS_PLAIN
HWY_INLINE void SplitRow(const uint8_t* uv, uint8_t* u, uint8_t* v, size_t pairs) {
    ref::SplitRow(uv, u, v, pairs);
}
#else
HWY_INLINE void SplitRow(const uint8_t* HWY_RESTRICT uv, uint8_t* HWY_RESTRICT u, uint8_t* HWY_RESTRICT v,
                         size_t pairs) {
    const Bytes d;
    constexpr size_t kStep = hn::MaxLanes(d);
    if (pairs < kStep) {
        ref::SplitRow(uv, u, v, pairs);
        return;
    }
    const auto put = [&](size_t i) HWY_ATTR {
        const auto low = hn::LoadU(d, uv + 2 * i);
        const auto high = hn::LoadU(d, uv + 2 * i + kStep);
        hn::StoreU(hn::ConcatEven(d, high, low), d, u + i);
        hn::StoreU(hn::ConcatOdd(d, high, low), d, v + i);
    };
    size_t i = 0;
    for (; i + kStep <= pairs; i += kStep)
        put(i);
    if (i < pairs)
        put(pairs - kStep);
}
#endif

void SplitRows(const uint8_t* uv, ptrdiff_t uvStep, uint8_t* u, ptrdiff_t uStep, uint8_t* v, ptrdiff_t vStep,
               uint32_t pairs, uint32_t rows) {
    for (uint32_t row = 0; row < rows; ++row) {
        const auto at = static_cast<ptrdiff_t>(row);
        SplitRow(uv + at * uvStep, u + at * uStep, v + at * vStep, pairs);
    }
}

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(MergeRows);
HWY_EXPORT(SplitRows);

int32_t I420ToNV12(const uint8_t* y, ptrdiff_t yStep, const uint8_t* u, ptrdiff_t uStep, const uint8_t* v,
                   ptrdiff_t vStep, uint8_t* outY, ptrdiff_t outYStep, uint8_t* outUv, ptrdiff_t outUvStep,
                   uint32_t width, uint32_t height) {
    if (y == nullptr || u == nullptr || v == nullptr || outY == nullptr || outUv == nullptr || width < 2 || height < 2)
        return kRefused;
    PlaneCopy(y, yStep, outY, outYStep, width & ~1u, height & ~1u, kCopyStreamingStores);
    HWY_DYNAMIC_DISPATCH(MergeRows)(u, uStep, v, vStep, outUv, outUvStep, width / 2, height / 2);
    return kDone;
}

int32_t NV12ToI420(const uint8_t* y, ptrdiff_t yStep, const uint8_t* uv, ptrdiff_t uvStep, uint8_t* outY,
                   ptrdiff_t outYStep, uint8_t* outU, ptrdiff_t outUStep, uint8_t* outV, ptrdiff_t outVStep,
                   uint32_t width, uint32_t height) {
    if (y == nullptr || uv == nullptr || outY == nullptr || outU == nullptr || outV == nullptr || width < 1 ||
        height < 1)
        return kRefused;
    PlaneCopy(y, yStep, outY, outYStep, width, height, kCopyStreamingStores | kCopyStreamingLoads);
    HWY_DYNAMIC_DISPATCH(SplitRows)
    (uv, uvStep, outU, outUStep, outV, outVStep, width / 2 + width % 2, height / 2);
    return kDone;
}

}    // namespace corvane::kernels
#endif
