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

void MergeRows(const uint8_t* u, ptrdiff_t uStep, const uint8_t* v, ptrdiff_t vStep, uint8_t* uv, ptrdiff_t uvStep,
               uint32_t pairs, uint32_t rows, bool /*pastCache*/) {
    for (; rows > 0; --rows, u += uStep, v += vStep, uv += uvStep)
        ref::MergeRow(u, v, uv, pairs);
}

void SplitRows(const uint8_t* uv, ptrdiff_t uvStep, uint8_t* u, ptrdiff_t uStep, uint8_t* v, ptrdiff_t vStep,
               uint32_t pairs, uint32_t rows, bool /*pastCache*/) {
    for (; rows > 0; --rows, uv += uvStep, u += uStep, v += vStep)
        ref::SplitRow(uv, u, v, pairs);
}
#else

// One row of each work: Do a vector, Plain a row that is shorter than one.
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

// The last vector is done once more from the row's end, so that no row needs a loop by bytes unless it is shorter than
// a vector. What begins there is on no boundary.
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

bool CopyPastCache(const uint8_t* from, ptrdiff_t fromStep, uint8_t* to, ptrdiff_t toStep, uint32_t width,
                   uint32_t rows) {
    if (!OnVectors(to, toStep))
        return false;
    DoRows(rows, width, true, [=](ptrdiff_t row) { return Copy{from + row * fromStep, to + row * toStep}; });
    return true;
}

void MergeRows(const uint8_t* u, ptrdiff_t uStep, const uint8_t* v, ptrdiff_t vStep, uint8_t* uv, ptrdiff_t uvStep,
               uint32_t pairs, uint32_t rows, bool pastCache) {
    DoRows(rows, pairs, pastCache && OnVectors(uv, uvStep), [=](ptrdiff_t row) {
        return Merge{u + row * uStep, v + row * vStep, uv + row * uvStep};
    });
}

void SplitRows(const uint8_t* uv, ptrdiff_t uvStep, uint8_t* u, ptrdiff_t uStep, uint8_t* v, ptrdiff_t vStep,
               uint32_t pairs, uint32_t rows, bool pastCache) {
    DoRows(rows, pairs, pastCache && OnVectors(u, uStep) && OnVectors(v, vStep), [=](ptrdiff_t row) {
        return Split{uv + row * uvStep, u + row * uStep, v + row * vStep};
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

// From this many bytes of luma on a picture goes past the cache: from memory to memory that takes three quarters of the
// time. Who reads it next pays what was saved, and more where all would have stayed in the cache.
constexpr size_t kLargePlane = size_t{1} << 20;

// Whether the chroma goes past the cache as the luma did.
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
