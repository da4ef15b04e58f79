#include "kernels/PackedYuv.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/PackedYuv_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>

#include "kernels/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
void Pack(const ConstPictureView& source, const PictureView& even, bool /*streaming*/) {
    ref::ToPacked(source, even);
}
#else

// A vector of pixels at column x of one row.
template <bool kPlanar, bool kLumaSecond, bool kStreaming>
HWY_INLINE void Put(const BlockOrder<2>& order, const uint8_t* const (&rows)[3], uint8_t* out, size_t x) {
    const Bytes d;
    const Words words;
    ByteVector pairs;
    if constexpr (kPlanar) {
        const hn::Rebind<uint8_t, Words> half;
        const auto u = hn::PromoteTo(words, hn::LoadU(half, rows[1] + x / 2));
        const auto v = hn::PromoteTo(words, hn::LoadU(half, rows[2] + x / 2));
        pairs = order(hn::BitCast(d, hn::Or(u, hn::ShiftLeft<8>(v))));
    } else {
        pairs = order(hn::LoadU(d, rows[1] + x));
    }
    const auto luma = order(hn::LoadU(d, rows[0] + x));
    const auto first = kLumaSecond ? pairs : luma;
    const auto second = kLumaSecond ? luma : pairs;
    Store<kStreaming>(hn::InterleaveLower(d, first, second), out + 2 * x);
    Store<kStreaming>(hn::InterleaveUpper(d, first, second), out + 2 * x + hn::MaxLanes(d));
}

// One output row at a time: writing two rows at once is slower where the picture is larger than the cache.
template <bool kPlanar, bool kLumaSecond, bool kStreaming>
HWY_INLINE void PackRows(const ConstPictureView& source, const PictureView& even) {
    constexpr size_t kStep = hn::MaxLanes(Bytes());
    const BlockOrder<2> order;
    const size_t width = even.size.width;
    const uint8_t* rows[3] = {source.plane[0], source.plane[1], source.plane[2]};
    uint8_t* out = even.plane[0];
    for (uint32_t row = 0; row < even.size.height; ++row, out += even.stride[0]) {
        size_t x = 0;
        for (; x + kStep <= width; x += kStep)
            Put<kPlanar, kLumaSecond, kStreaming>(order, rows, out, x);
        if (x < width)    // the last vector ends with the row, so that no row needs a loop by bytes
            Put<kPlanar, kLumaSecond, false>(order, rows, out, width - kStep);
        rows[0] += source.stride[0];
        if (row % 2 != 0) {
            rows[1] += source.stride[1];
            if (kPlanar)
                rows[2] += source.stride[2];
        }
    }
}

template <bool kLumaSecond, bool kStreaming>
HWY_INLINE void PackRows(const ConstPictureView& source, const PictureView& even) {
    if (source.ThreePlanes())
        PackRows<true, kLumaSecond, kStreaming>(source, even);
    else
        PackRows<false, kLumaSecond, kStreaming>(source, even);
}

void Pack(const ConstPictureView& source, const PictureView& even, bool streaming) {
    if (even.size.width < hn::MaxLanes(Bytes())) {
        ref::ToPacked(source, even);
        return;
    }
    const bool lumaSecond = even.format == PF_UYVY;
    if (streaming && OnVectors(even.plane[0], even.stride[0])) {
        if (lumaSecond)
            PackRows<true, true>(source, even);
        else
            PackRows<false, true>(source, even);
        hwy::FlushStream();
    } else if (lumaSecond) {
        PackRows<true, false>(source, even);
    } else {
        PackRows<false, false>(source, even);
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

// Pictures of more than half a mebibyte whose rows begin on 16 byte boundaries are stored past the cache.
bool WorthStreaming(const ConstPictureView& source, const PictureView& to) {
    auto all = reinterpret_cast<uintptr_t>(to.plane[0]) | static_cast<uintptr_t>(to.stride[0]);
    ptrdiff_t strides = to.stride[0];
    for (int i = 0; i < source.PlaneCount(); ++i) {
        all |= reinterpret_cast<uintptr_t>(source.plane[i]) | static_cast<uintptr_t>(source.stride[i]);
        strides += source.stride[i];
    }
    return (all & 15) == 0 && strides * ptrdiff_t{to.size.height} > 0x80000;
}

int32_t ToPacked(const ConstPictureView& source, uint32_t from, const PictureView& destination, uint32_t to) {
    if (source.format != from || destination.format != to || !source.Complete() || !destination ||
        destination.size.width < 2 || destination.size.height < 2)
        return kRefused;
    PictureView even = destination;
    even.size = {destination.size.width & ~1u, destination.size.height & ~1u};
    HWY_DYNAMIC_DISPATCH(Pack)(source, even, WorthStreaming(source, destination));
    return kDone;
}

}    // namespace

int32_t PlanarToYUY2(const ConstPictureView& source, const PictureView& destination) {
    return ToPacked(source, PF_I420, destination, PF_YUY2);
}

int32_t PlanarToUYVY(const ConstPictureView& source, const PictureView& destination) {
    return ToPacked(source, PF_I420, destination, PF_UYVY);
}

int32_t NV12ToYUY2(const ConstPictureView& source, const PictureView& destination) {
    return ToPacked(source, PF_NV12, destination, PF_YUY2);
}

int32_t NV12ToUYVY(const ConstPictureView& source, const PictureView& destination) {
    return ToPacked(source, PF_NV12, destination, PF_UYVY);
}

}    // namespace corvane::kernels
#endif
