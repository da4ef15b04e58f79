#include "kernels/Deinterlace.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/Deinterlace_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cstring>

#include "kernels/KernelResult.h"
#include "kernels/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
HWY_INLINE void SmoothRow(const uint8_t* above, const uint8_t* row, const uint8_t* below, uint8_t* out, size_t width,
                          uint32_t weight) {
    ref::SmoothRow(above, row, below, out, width, weight);
}
#else
// The sum is at most 255 * 256, so it stays within unsigned words.
HWY_INLINE void SmoothRow(const uint8_t* HWY_RESTRICT above, const uint8_t* HWY_RESTRICT row,
                          const uint8_t* HWY_RESTRICT below, uint8_t* HWY_RESTRICT out, size_t width, uint32_t weight) {
    const Bytes d;
    const Words words;
    constexpr size_t kStep = hn::MaxLanes(d);
    if (width < kStep) {
        ref::SmoothRow(above, row, below, out, width, weight);
        return;
    }
    const auto center = hn::Set(words, static_cast<uint16_t>(weight));
    const auto outer = hn::Set(words, static_cast<uint16_t>((256 - weight) >> 1));
    const auto lowBytes = hn::Set(words, 0xFF);
    const auto weigh = [&](auto a, auto r, auto b)
                           HWY_ATTR { return hn::Add(hn::Mul(hn::Add(a, b), outer), hn::Mul(r, center)); };
    const auto weighted = [&](size_t x) HWY_ATTR {
        const auto a = hn::BitCast(words, hn::LoadU(d, above + x));
        const auto r = hn::BitCast(words, hn::LoadU(d, row + x));
        const auto b = hn::BitCast(words, hn::LoadU(d, below + x));
        const auto even = weigh(hn::And(a, lowBytes), hn::And(r, lowBytes), hn::And(b, lowBytes));
        const auto odd = weigh(hn::ShiftRight<8>(a), hn::ShiftRight<8>(r), hn::ShiftRight<8>(b));
        const auto result = hn::Or(hn::ShiftRight<8>(even), hn::AndNot(lowBytes, odd));
        hn::StoreU(hn::BitCast(d, result), d, out + x);
    };
    // The weights are a quarter, a half and a quarter. Truncating once or after each halving gives the same. The
    // processor's average rounds up, so the complements are averaged.
    const auto quartered = [&](size_t x) HWY_ATTR {
        const auto outerHalf = hn::AverageRound(hn::Not(hn::LoadU(d, above + x)), hn::Not(hn::LoadU(d, below + x)));
        hn::StoreU(hn::Not(hn::AverageRound(outerHalf, hn::Not(hn::LoadU(d, row + x)))), d, out + x);
    };
    const auto whole = [&](const auto& put) HWY_ATTR {
        size_t x = 0;
        for (; x + kStep <= width; x += kStep)
            put(x);
        if (x < width)
            put(width - kStep);
    };
    if (weight == 128)
        whole(quartered);
    else
        whole(weighted);
}
#endif

void SmoothInner(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                 uint32_t width, uint32_t height, uint32_t weight) {
    for (uint32_t row = 1; row + 1 < height; ++row) {
        const uint8_t* at = source + static_cast<ptrdiff_t>(row) * sourceStride;
        SmoothRow(at - sourceStride, at, at + sourceStride,
                  destination + static_cast<ptrdiff_t>(row) * destinationStride, width, weight);
    }
}

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(SmoothInner);

int32_t SmoothPlane(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                    uint32_t width, uint32_t height, uint32_t weight) {
    if (source == nullptr || destination == nullptr || width < 1 || height < 3)
        return kRefused;
    const auto last = static_cast<ptrdiff_t>(height - 1);
    std::memcpy(destination, source, width);
    HWY_DYNAMIC_DISPATCH(SmoothInner)
    (source, sourceStride, destination, destinationStride, width, height, std::min(weight, 256u));
    std::memcpy(destination + last * destinationStride, source + last * sourceStride, width);
    return kDone;
}

}    // namespace corvane::kernels
#endif
