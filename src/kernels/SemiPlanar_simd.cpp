#include "kernels/SemiPlanar.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/SemiPlanar_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <cstring>

#include "kernels/PlaneCopy.h"
#include "kernels/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
bool CopyPastCache(const uint8_t*, ptrdiff_t, uint8_t*, ptrdiff_t, uint32_t, uint32_t) {
    return false;
}

void MergeRows(const uint8_t* u, ptrdiff_t uStride, const uint8_t* v, ptrdiff_t vStride, uint8_t* uv,
               ptrdiff_t uvStride, uint32_t pairs, uint32_t rows, bool /*pastCache*/) {
    for (; rows > 0; --rows, u += uStride, v += vStride, uv += uvStride)
        ref::MergeRow(u, v, uv, pairs);
}

void SplitRows(const uint8_t* uv, ptrdiff_t uvStride, uint8_t* u, ptrdiff_t uStride, uint8_t* v, ptrdiff_t vStride,
               uint32_t pairs, uint32_t rows, bool /*pastCache*/) {
    for (; rows > 0; --rows, uv += uvStride, u += uStride, v += vStride)
        ref::SplitRow(uv, u, v, pairs);
}
#else

// The work on one row: Do works a vector, Plain a row that is shorter than a vector.
struct Copy {
    const uint8_t* from;
    uint8_t* to;
    void Plain(size_t bytes) const { std::memcpy(to, from, bytes); }
    template <bool kStreaming>
    HWY_INLINE void Do(size_t i) const {
        Store<kStreaming>(hn::LoadU(Bytes(), from + i), to + i);
    }
};

struct Merge {
    const uint8_t* u;
    const uint8_t* v;
    uint8_t* uv;
    void Plain(size_t pairs) const { ref::MergeRow(u, v, uv, pairs); }
    template <bool kStreaming>
    HWY_INLINE void Do(size_t i) const {
        const Bytes d;
        const BlockOrder<2> order;
        const auto first = order(hn::LoadU(d, u + i));
        const auto second = order(hn::LoadU(d, v + i));
        Store<kStreaming>(hn::InterleaveLower(d, first, second), uv + 2 * i);
        Store<kStreaming>(hn::InterleaveUpper(d, first, second), uv + 2 * i + hn::MaxLanes(d));
    }
};

struct Split {
    const uint8_t* uv;
    uint8_t* u;
    uint8_t* v;
    void Plain(size_t pairs) const { ref::SplitRow(uv, u, v, pairs); }
    template <bool kStreaming>
    HWY_INLINE void Do(size_t i) const {
        const Bytes d;
        const auto low = hn::LoadU(d, uv + 2 * i);
        const auto high = hn::LoadU(d, uv + 2 * i + hn::MaxLanes(d));
        Store<kStreaming>(hn::ConcatEven(d, high, low), u + i);
        Store<kStreaming>(hn::ConcatOdd(d, high, low), v + i);
    }
};

// The last vector ends with the row, so that only a row that is shorter than a vector needs a loop by bytes. That
// vector is on no boundary.
template <bool kStreaming, class Work>
HWY_INLINE void DoRow(const Work& work, size_t size) {
    constexpr size_t kStep = hn::MaxLanes(Bytes());
    size_t i = 0;
    for (; i + kStep <= size; i += kStep)
        work.template Do<kStreaming>(i);
    if (i < size)
        work.template Do<false>(size - kStep);
}

// `workOf` makes the work of a row.
template <class WorkOf>
HWY_INLINE void DoRows(uint32_t rows, size_t size, bool streams, const WorkOf& workOf) {
    for (ptrdiff_t row = 0; row < static_cast<ptrdiff_t>(rows); ++row) {
        if (size < hn::MaxLanes(Bytes()))
            workOf(row).Plain(size);
        else if (streams)
            DoRow<true>(workOf(row), size);
        else
            DoRow<false>(workOf(row), size);
    }
    if (streams)
        hwy::FlushStream();
}

bool CopyPastCache(const uint8_t* from, ptrdiff_t fromStride, uint8_t* to, ptrdiff_t toStride, uint32_t width,
                   uint32_t rows) {
    if (!OnVectors(to, toStride))
        return false;
    DoRows(rows, width, true, [=](ptrdiff_t row) { return Copy{from + row * fromStride, to + row * toStride}; });
    return true;
}

void MergeRows(const uint8_t* u, ptrdiff_t uStride, const uint8_t* v, ptrdiff_t vStride, uint8_t* uv,
               ptrdiff_t uvStride, uint32_t pairs, uint32_t rows, bool pastCache) {
    DoRows(rows, pairs, pastCache && OnVectors(uv, uvStride), [=](ptrdiff_t row) {
        return Merge{u + row * uStride, v + row * vStride, uv + row * uvStride};
    });
}

void SplitRows(const uint8_t* uv, ptrdiff_t uvStride, uint8_t* u, ptrdiff_t uStride, uint8_t* v, ptrdiff_t vStride,
               uint32_t pairs, uint32_t rows, bool pastCache) {
    DoRows(rows, pairs, pastCache && OnVectors(u, uStride) && OnVectors(v, vStride), [=](ptrdiff_t row) {
        return Split{uv + row * uvStride, u + row * uStride, v + row * vStride};
    });
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(CopyPastCache);
HWY_EXPORT(MergeRows);
HWY_EXPORT(SplitRows);

namespace {

// From this many bytes of luma on a picture is stored past the cache, which takes three quarters of the time from
// memory to memory. The next reader loses that time again, and more where the picture would have stayed in the cache.
constexpr size_t kLargePlane = size_t{1} << 20;

// Returns whether luma was stored past the cache; chroma follows it.
bool CopyLuma(const ConstPictureView& from, const PictureView& to, uint32_t width, uint32_t height) {
    if (size_t{width} * height >= kLargePlane &&
        HWY_DYNAMIC_DISPATCH(CopyPastCache)(from.plane[0], from.stride[0], to.plane[0], to.stride[0], width, height))
        return true;
    PlaneCopy(from.plane[0], from.stride[0], to.plane[0], to.stride[0], width, height,
              kCopyStreamingStores | kCopyStreamingLoads);
    return false;
}

}    // namespace

int32_t I420ToNV12(const ConstPictureView& source, const PictureView& destination) {
    const auto [width, height] = destination.size;
    if (!source.ThreePlanes() || !destination.TwoPlanes() || !source.Complete() || !destination.Complete() ||
        width < 2 || height < 2)
        return kRefused;
    const bool past = CopyLuma(source, destination, width & ~1u, height & ~1u);
    HWY_DYNAMIC_DISPATCH(MergeRows)
    (source.plane[1], source.stride[1], source.plane[2], source.stride[2], destination.plane[1], destination.stride[1],
     width / 2, height / 2, past);
    return kDone;
}

int32_t NV12ToI420(const ConstPictureView& source, const PictureView& destination) {
    const auto [width, height] = destination.size;
    if (!source.TwoPlanes() || !destination.ThreePlanes() || !source.Complete() || !destination.Complete() ||
        destination.size.Empty())
        return kRefused;
    const bool past = CopyLuma(source, destination, width, height);
    HWY_DYNAMIC_DISPATCH(SplitRows)
    (source.plane[1], source.stride[1], destination.plane[1], destination.stride[1], destination.plane[2],
     destination.stride[2], width / 2 + width % 2, height / 2, past);
    return kDone;
}

}    // namespace corvane::kernels
#endif
