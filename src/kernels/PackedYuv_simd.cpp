#include "kernels/PackedYuv.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/PackedYuv_simd.cpp"
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

// A vector of pixels at column x of one row.
template <bool kPlanar, bool kLumaSecond, bool kStreaming>
HWY_INLINE void Put(const BlockOrder<2>& order, const uint8_t* y, const Source420& chroma, uint8_t* out, size_t x) {
    const Bytes d;
    const Words words;
    ByteVector pairs;
    if constexpr (kPlanar) {
        const hn::Rebind<uint8_t, Words> half;
        const auto u = hn::PromoteTo(words, hn::LoadU(half, chroma.u + x / 2));
        const auto v = hn::PromoteTo(words, hn::LoadU(half, chroma.v + x / 2));
        pairs = order(hn::BitCast(d, hn::Or(u, hn::ShiftLeft<8>(v))));
    } else {
        pairs = order(hn::LoadU(d, chroma.u + x));
    }
    const auto luma = order(hn::LoadU(d, y + x));
    const auto first = kLumaSecond ? pairs : luma;
    const auto second = kLumaSecond ? luma : pairs;
    Store<kStreaming>(hn::InterleaveLower(d, first, second), out + 2 * x);
    Store<kStreaming>(hn::InterleaveUpper(d, first, second), out + 2 * x + hn::MaxLanes(d));
}

// One output row at a time: two at once write slower as soon as the picture is larger than the cache.
template <bool kPlanar, bool kLumaSecond, bool kStreaming>
HWY_INLINE void PackRows(const Source420& source, uint8_t* destination, ptrdiff_t step, uint32_t width,
                         uint32_t height) {
    constexpr size_t kStep = hn::MaxLanes(Bytes());
    const BlockOrder<2> order;
    Source420 at = source;
    for (uint32_t row = 0; row < height; ++row) {
        size_t x = 0;
        for (; x + kStep <= width; x += kStep)
            Put<kPlanar, kLumaSecond, kStreaming>(order, at.y, at, destination, x);
        if (x < width)    // again from the end, so that no row is finished byte by byte
            Put<kPlanar, kLumaSecond, false>(order, at.y, at, destination, width - kStep);
        at.y += at.yStep;
        destination += step;
        if (row % 2 != 0) {
            at.u += at.uStep;
            if (kPlanar)
                at.v += at.vStep;
        }
    }
}

template <bool kLumaSecond, bool kStreaming>
HWY_INLINE void PackRows(const Source420& source, uint8_t* destination, ptrdiff_t step, uint32_t width,
                         uint32_t height) {
    if (source.Planar())
        PackRows<true, kLumaSecond, kStreaming>(source, destination, step, width, height);
    else
        PackRows<false, kLumaSecond, kStreaming>(source, destination, step, width, height);
}

void Pack(const Source420& source, uint8_t* destination, ptrdiff_t step, uint32_t width, uint32_t height,
          bool lumaSecond, bool streaming) {
    constexpr size_t kStep = hn::MaxLanes(Bytes());
    if (width < kStep) {
        ref::ToPacked(source.y, source.yStep, source.u, source.uStep, source.v, source.vStep, destination, step, width,
                      height, lumaSecond);
        return;
    }
    if (streaming && OnVectors(destination, step)) {
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
