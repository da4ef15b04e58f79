#include "kernels/PackedYuv.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/PackedYuv_simd.cpp"
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>

#include "kernels/Source420.h"
#include "kernels/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
void Pack(const Source420& source, uint8_t* destination, ptrdiff_t step, uint32_t width, uint32_t height,
          bool lumaSecond, bool /*streaming*/) {
    ref::ToPacked(source.y, source.yStep, source.u, source.uStep, source.v, source.vStep, destination, step, width,
                  height, lumaSecond);
}
#else

template <bool kLumaSecond, bool kStreaming>
HWY_INLINE void PutRow(ByteVector luma, ByteVector pairs, uint8_t* out) {
    const Bytes d;
    const auto first = kLumaSecond ? pairs : luma;
    const auto second = kLumaSecond ? luma : pairs;
    const auto low = hn::InterleaveLower(d, first, second);
    const auto high = hn::InterleaveUpper(d, first, second);
    if constexpr (kStreaming) {
        hn::Stream(low, d, out);
        hn::Stream(high, d, out + hn::MaxLanes(d));
    } else {
        hn::StoreU(low, d, out);
        hn::StoreU(high, d, out + hn::MaxLanes(d));
    }
}

// A vector of pixels at column x of both rows.
template <bool kLumaSecond, bool kStreaming>
HWY_INLINE void PutBothRows(const BlockOrder<2>& order, const Source420& at, uint8_t* out, ptrdiff_t step, size_t x) {
    const Bytes d;
    const Words words;
    ByteVector pairs;
    if (at.Planar()) {
        const hn::Rebind<uint8_t, Words> half;
        const auto u = hn::PromoteTo(words, hn::LoadU(half, at.u + x / 2));
        const auto v = hn::PromoteTo(words, hn::LoadU(half, at.v + x / 2));
        pairs = order(hn::BitCast(d, hn::Or(u, hn::ShiftLeft<8>(v))));
    } else {
        pairs = order(hn::LoadU(d, at.u + x));
    }
    PutRow<kLumaSecond, kStreaming>(order(hn::LoadU(d, at.y + x)), pairs, out + 2 * x);
    PutRow<kLumaSecond, kStreaming>(order(hn::LoadU(d, at.y + at.yStep + x)), pairs, out + step + 2 * x);
}

template <bool kLumaSecond, bool kStreaming>
HWY_INLINE void PackRows(const Source420& source, uint8_t* destination, ptrdiff_t step, uint32_t width,
                         uint32_t height) {
    constexpr size_t kStep = hn::MaxLanes(Bytes());
    const BlockOrder<2> order;
    Source420 at = source;
    for (uint32_t row = 0; row < height; row += 2) {
        size_t x = 0;
        if (at.Planar()) {
            for (; x + kStep <= width; x += kStep)
                PutBothRows<kLumaSecond, kStreaming>(order, at, destination, step, x);
        } else {
            for (; x + kStep <= width; x += kStep)
                PutBothRows<kLumaSecond, kStreaming>(order, at, destination, step, x);
        }
        if (x < width)    // again from the end, so that no row is finished byte by byte
            PutBothRows<kLumaSecond, false>(order, at, destination, step, width - kStep);
        at.y += 2 * at.yStep;
        at.u += at.uStep;
        if (at.Planar())
            at.v += at.vStep;
        destination += 2 * step;
    }
}

void Pack(const Source420& source, uint8_t* destination, ptrdiff_t step, uint32_t width, uint32_t height,
          bool lumaSecond, bool streaming) {
    constexpr size_t kStep = hn::MaxLanes(Bytes());
    if (width < kStep) {
        ref::ToPacked(source.y, source.yStep, source.u, source.uStep, source.v, source.vStep, destination, step, width,
                      height, lumaSecond);
        return;
    }
    const bool aligned = ((reinterpret_cast<uintptr_t>(destination) | static_cast<uintptr_t>(step)) & (kStep - 1)) == 0;
    if (streaming && aligned) {
        if (lumaSecond)
            PackRows<true, true>(source, destination, step, width, height);
        else
            PackRows<false, true>(source, destination, step, width, height);
        hwy::FlushStream();
    } else if (lumaSecond) {
        PackRows<true, false>(source, destination, step, width, height);
    } else {
        PackRows<false, false>(source, destination, step, width, height);
    }
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(Pack);

namespace {

// Pictures beyond half a mebibyte with rows on 16 byte boundaries go past the cache.
bool WorthStreaming(const Source420& source, const uint8_t* destination, ptrdiff_t step, uint32_t height) {
    const ptrdiff_t vStep = source.Planar() ? source.vStep : 0;
    const auto address = [](const uint8_t* plane) { return reinterpret_cast<uintptr_t>(plane); };
    const uintptr_t all = address(source.y) | address(source.u) | address(source.v) | address(destination) |
                          static_cast<uintptr_t>(source.yStep | source.uStep | vStep | step);
    return (all & 15) == 0 && (source.yStep + source.uStep + vStep + step) * ptrdiff_t{height} > 0x80000;
}

int32_t ToPacked(const Source420& source, uint8_t* destination, ptrdiff_t step, uint32_t width, uint32_t height,
                 bool lumaSecond) {
    if (source.y == nullptr || source.u == nullptr || destination == nullptr || width < 2 || height < 2)
        return kRefused;
    HWY_DYNAMIC_DISPATCH(Pack)
    (source, destination, step, width & ~1u, height & ~1u, lumaSecond,
     WorthStreaming(source, destination, step, height));
    return kDone;
}

}    // namespace

int32_t PlanarToYUY2(const uint8_t* y, ptrdiff_t yStep, const uint8_t* u, ptrdiff_t uStep, const uint8_t* v,
                     ptrdiff_t vStep, uint8_t* destination, ptrdiff_t destinationStep, uint32_t width,
                     uint32_t height) {
    if (v == nullptr)
        return kRefused;
    return ToPacked({y, u, v, yStep, uStep, vStep}, destination, destinationStep, width, height, false);
}

int32_t PlanarToUYVY(const uint8_t* y, ptrdiff_t yStep, const uint8_t* u, ptrdiff_t uStep, const uint8_t* v,
                     ptrdiff_t vStep, uint8_t* destination, ptrdiff_t destinationStep, uint32_t width,
                     uint32_t height) {
    if (v == nullptr)
        return kRefused;
    return ToPacked({y, u, v, yStep, uStep, vStep}, destination, destinationStep, width, height, true);
}

int32_t NV12ToYUY2(const uint8_t* y, ptrdiff_t yStep, const uint8_t* uv, ptrdiff_t uvStep, uint8_t* destination,
                   ptrdiff_t destinationStep, uint32_t width, uint32_t height) {
    return ToPacked({y, uv, nullptr, yStep, uvStep, 0}, destination, destinationStep, width, height, false);
}

int32_t NV12ToUYVY(const uint8_t* y, ptrdiff_t yStep, const uint8_t* uv, ptrdiff_t uvStep, uint8_t* destination,
                   ptrdiff_t destinationStep, uint32_t width, uint32_t height) {
    return ToPacked({y, uv, nullptr, yStep, uvStep, 0}, destination, destinationStep, width, height, true);
}

}    // namespace corvane::kernels
#endif
