// The vertical pass comes first, on bytes, into a row that stays in the first-level cache; then the horizontal pass.
// The taps of eight lanes lie in one window of 16 bytes where the picture shrinks to 4/7 or more, else in a few
// windows. A byte table takes from each window the samples that lie in it.
#include "kernels/PlaneShrink.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/PlaneShrink_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cstring>

#include "kernels/StretchPlan.h"
#include "kernels/StretchRows-inl.h"

#ifndef CORVANE_KERNELS_PLANESHRINK_ONCE
#define CORVANE_KERNELS_PLANESHRINK_ONCE
namespace corvane::kernels {

inline constexpr size_t kShrinkBlock = 16;
inline constexpr size_t kShrinkLanes = 8;    // of a block
// Indices into windows are signed bytes.
inline constexpr size_t kShrinkMaxSpan = 128;

// Gives the forms by instruction set access to a PlaneShrink, and fills its tables.
class ShrinkAccess {
public:
    explicit ShrinkAccess(const PlaneShrink& shrink) : m_shrink(shrink) {}
    const ShrinkSizes& Sizes() const { return m_shrink.m_sizes; }
    uint32_t Taps() const { return m_shrink.m_taps; }
    uint32_t Windows() const { return m_shrink.m_windows; }
    size_t Groups() const { return m_shrink.m_groups; }
    size_t RowBytes() const { return size_t{m_shrink.m_sizes.width} * m_shrink.m_sizes.channels; }
    size_t OutBytes() const { return size_t{m_shrink.m_sizes.toWidth} * m_shrink.m_sizes.channels; }
    const uint32_t* Offsets() const { return m_shrink.m_offsets; }
    const uint8_t* Vectors() const { return m_shrink.m_vectors; }
    uint8_t* Row() const { return m_shrink.m_row; }

    static bool Fill(PlaneShrink& shrink, size_t vectorBytes);

private:
    struct Lane {
        uint32_t first;    // byte of the first tap
        uint16_t weights[StretchAxis::kMaxTaps];
    };
    static Lane LaneAt(const ShrinkSizes& sizes, const StretchAxis& axis, size_t lane);
    static size_t LongestSpan(const ShrinkSizes& sizes, const StretchAxis& axis, size_t lanes);

    const PlaneShrink& m_shrink;
};

}    // namespace corvane::kernels
#endif

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
size_t ShrinkVectorBytes() {
    return 0;
}
void ShrinkTarget(const PlaneShrink&, const uint8_t*, ptrdiff_t, uint32_t, uint32_t, uint8_t*, ptrdiff_t) {}
#else

size_t ShrinkVectorBytes() {
    return kVector;
}

// Samples at `index` of a run of windows. Each lane has its sample in one of them.
template <uint32_t kWindows>
HWY_INLINE WordVector TakeSamples(const ByteVector* windows, uint32_t count, ByteVector index) {
    const Bytes d;
    if constexpr (kWindows == 1)
        return hn::BitCast(Words(), hn::TableLookupBytesOr0(windows[0], index));
    // An index outside the window must have its top bit set. Indices from 16 on get it here; those below 0 have it. Of
    // all others x86 takes the lower four bits; elsewhere no other bits may be set.
    const auto within = [](ByteVector at) HWY_ATTR {
        const auto marked = hn::SaturatedAdd(at, hn::Set(Bytes(), 0x70));
        return HWY_ARCH_X86 ? marked : hn::And(marked, hn::Set(Bytes(), 0x8F));
    };
    auto taken = hn::TableLookupBytesOr0(windows[0], within(index));
    for (uint32_t i = 1; i < (kWindows != 0 ? kWindows : count); ++i) {
        index = hn::Sub(index, hn::Set(d, kShrinkBlock));
        taken = hn::Or(taken, hn::TableLookupBytesOr0(windows[i], within(index)));
    }
    return hn::BitCast(Words(), taken);
}

template <uint32_t kWindows>
HWY_INLINE void ShrinkRow(const ShrinkAccess& plan, const uint8_t* row, uint8_t* out) {
    const Bytes d;
    const Words d16;
    constexpr uint32_t kMost = kShrinkMaxSpan / kShrinkBlock;
    HWY_ALIGN static constexpr uint8_t kOrder[16] = {0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15};
    const auto order = hn::LoadDup128(d, kOrder);
    const auto sampleStep = hn::Set(d, static_cast<uint8_t>(plan.Sizes().channels));
    const uint32_t taps = plan.Taps();
    const uint32_t count = kWindows != 0 ? kWindows : plan.Windows();
    const auto rounding = Rounding(taps);
    const uint32_t* offsets = plan.Offsets();
    const uint8_t* vectors = plan.Vectors();
    for (size_t group = 0; group < plan.Groups(); ++group) {
        WordVector sums[2];
        for (auto& sum : sums) {
            ByteVector windows[kMost];
            for (uint32_t i = 0; i < count; ++i)
                windows[i] = LoadBlocks([&](size_t block) { return row + offsets[block] + i * kShrinkBlock; });
            offsets += kBlocks;
            auto index = hn::Load(d, vectors);
            vectors += kVector;
            sum = rounding;
            for (uint32_t tap = 0; tap < taps; ++tap, vectors += kVector) {
                const auto weight = hn::Load(d16, reinterpret_cast<const uint16_t*>(vectors));
                sum = hn::Add(sum, hn::MulHigh(TakeSamples<kWindows>(windows, count, index), weight));
                index = hn::Add(index, sampleStep);
            }
        }
        hn::StoreU(hn::TableLookupBytes(MergeUpperBytes(sums[0], sums[1]), order), d, out + group * kVector);
    }
}

// For the last rows of a plane, after which nothing may be read: the rest that is no whole vector is weighed in a copy.
HWY_NOINLINE void WeighLastRows(const uint8_t* source, ptrdiff_t stride, uint32_t count, const uint16_t* weights,
                                uint8_t* out, size_t bytes) {
    const size_t whole = bytes / kVector * kVector;
    WeighAnyRows(source, stride, count, weights, out, whole);
    uint8_t ends[StretchAxis::kMaxTaps * kVector] = {};
    for (uint32_t i = 0; i < count; ++i)
        std::memcpy(ends + i * kVector, source + static_cast<ptrdiff_t>(i) * stride + whole, bytes - whole);
    WeighAnyRows(ends, kVector, count, weights, out + whole, bytes - whole);
}

void ShrinkTarget(const PlaneShrink& shrink, const uint8_t* source, ptrdiff_t stride, uint32_t row, uint32_t count,
                  uint8_t* out, ptrdiff_t outStride) {
    const ShrinkAccess plan(shrink);
    const StretchAxis vertical(plan.Sizes().height, plan.Sizes().toHeight);
    for (uint32_t line = 0; line < count; ++line, out += outStride) {
        uint16_t weights[StretchAxis::kMaxTaps];
        const StretchAxis::Span span = vertical.At(row + line, weights);
        const uint8_t* from = source + static_cast<ptrdiff_t>(span.first) * stride;
        uint8_t* const between = plan.Taps() != 0 ? plan.Row() : out;
        if (span.count == 1)
            std::memcpy(between, from, plan.RowBytes());
        else if (span.first + span.count < plan.Sizes().height)
            WeighAnyRows(from, stride, span.count, weights, between, plan.RowBytes());
        else
            WeighLastRows(from, stride, span.count, weights, between, plan.RowBytes());
        if (plan.Windows() == 1)
            ShrinkRow<1>(plan, between, out);
        else if (plan.Windows() == 2)
            ShrinkRow<2>(plan, between, out);
        else if (plan.Windows() != 0)
            ShrinkRow<0>(plan, between, out);
    }
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(ShrinkVectorBytes);
HWY_EXPORT(ShrinkTarget);

ShrinkAccess::Lane ShrinkAccess::LaneAt(const ShrinkSizes& sizes, const StretchAxis& axis, size_t lane) {
    Lane made{};
    const size_t last = size_t{sizes.toWidth} * sizes.channels - 1;    // repeated up to the end of its group
    lane = std::min(lane, last);
    const StretchAxis::Span span = axis.At(static_cast<uint32_t>(lane / sizes.channels), made.weights);
    std::fill(made.weights + span.count, made.weights + StretchAxis::kMaxTaps, uint16_t{0});
    made.first = static_cast<uint32_t>(size_t{span.first} * sizes.channels + lane % sizes.channels);
    return made;
}

// Bytes from the first to the last source byte of a block of eight lanes.
size_t ShrinkAccess::LongestSpan(const ShrinkSizes& sizes, const StretchAxis& axis, size_t lanes) {
    size_t longest = 0;
    for (size_t lane = 0; lane < lanes; lane += kShrinkLanes) {
        const size_t first = LaneAt(sizes, axis, lane).first;
        size_t end = 0;
        for (size_t i = 0; i < kShrinkLanes; ++i)
            end = std::max<size_t>(end, LaneAt(sizes, axis, lane + i).first);
        longest = std::max(longest, end - first + (axis.Taps() - 1) * sizes.channels + 1);
    }
    return longest;
}

// For each half of a group (lanes 0 to 7 and 8 to 15 of its blocks) stand an offset for each block and, in vectors, the
// byte index of the first tap for each lane and the weights of each tap.
bool ShrinkAccess::Fill(PlaneShrink& shrink, size_t vectorBytes) {
    const ShrinkSizes& sizes = shrink.m_sizes;
    const StretchAxis axis(sizes.width, sizes.toWidth);
    const StretchAxis vertical(sizes.height, sizes.toHeight);
    const size_t blocks = vectorBytes / kShrinkBlock;
    shrink.m_taps = shrink.m_windows = 0;
    shrink.m_groups = 0;
    shrink.m_plain = vectorBytes == 0 || axis.Taps() > StretchAxis::kMaxTaps || vertical.Taps() > StretchAxis::kMaxTaps;
    if (shrink.m_plain || axis.Same())
        return true;
    const size_t groups = (size_t{sizes.toWidth} * sizes.channels + vectorBytes - 1) / vectorBytes;
    const size_t span = LongestSpan(sizes, axis, groups * vectorBytes);
    if (span > kShrinkMaxSpan) {
        shrink.m_plain = true;
        return true;
    }
    const auto taps = static_cast<uint32_t>(axis.Taps());
    const size_t rowRoom = (size_t{sizes.width} * sizes.channels + kShrinkMaxSpan + vectorBytes + 63) & ~size_t{63};
    const size_t vectorRoom = groups * 2 * (1 + taps) * vectorBytes;
    if (!shrink.m_memory.Allocate(rowRoom + vectorRoom + groups * 2 * blocks * sizeof(uint32_t)))
        return false;
    shrink.m_taps = taps;
    shrink.m_windows = static_cast<uint32_t>((span + kShrinkBlock - 1) / kShrinkBlock);
    shrink.m_groups = groups;
    shrink.m_row = shrink.m_memory.Data();
    uint8_t* vectors = shrink.m_memory.Data() + rowRoom;
    auto* offsets = reinterpret_cast<uint32_t*>(vectors + vectorRoom);
    shrink.m_vectors = vectors;
    shrink.m_offsets = offsets;
    for (size_t half = 0; half < 2 * groups; ++half, vectors += (1 + taps) * vectorBytes) {
        for (size_t block = 0; block < blocks; ++block) {
            const size_t lane = half / 2 * vectorBytes + block * kShrinkBlock + half % 2 * kShrinkLanes;
            *offsets = LaneAt(sizes, axis, lane).first;
            for (size_t i = 0; i < kShrinkLanes; ++i) {
                const Lane made = LaneAt(sizes, axis, lane + i);
                uint8_t* const at = vectors + block * kShrinkBlock + 2 * i;
                at[0] = 0x80;    // gives 0
                at[1] = static_cast<uint8_t>(made.first - *offsets);
                for (uint32_t tap = 0; tap < taps; ++tap)
                    std::memcpy(at + (1 + tap) * vectorBytes, &made.weights[tap], 2);
            }
            ++offsets;
        }
    }
    return true;
}

bool PlaneShrink::Make(const ShrinkSizes& sizes) {
    const size_t vectorBytes = HWY_DYNAMIC_DISPATCH(ShrinkVectorBytes)();
    if (m_sizes == sizes && m_vectorBytes == vectorBytes)
        return true;
    Free();
    m_sizes = sizes;
    if (!ShrinkAccess::Fill(*this, vectorBytes)) {
        Free();
        return false;
    }
    m_vectorBytes = vectorBytes;
    return true;
}

void PlaneShrink::Free() {
    m_sizes = {};
    m_memory.Free();
}

void PlaneShrink::Rows(const uint8_t* source, ptrdiff_t stride, uint32_t row, uint32_t count, uint8_t* out,
                       ptrdiff_t outStride) {
    if (m_plain)
        ref::ShrinkRows(m_sizes, source, stride, row, count, out, outStride);
    else
        HWY_DYNAMIC_DISPATCH(ShrinkTarget)(*this, source, stride, row, count, out, outStride);
}

}    // namespace corvane::kernels
#endif
