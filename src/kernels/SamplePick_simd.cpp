// The samples of 16 lanes lie in a few windows of 16 bytes in a row: a byte table takes from each window the samples
// that lie in it.
#include "kernels/SamplePick.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/SamplePick_simd.cpp"
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cstring>

#include "kernels/Vectors-inl.h"

#ifndef CORVANE_KERNELS_SAMPLEPICK_ONCE
#define CORVANE_KERNELS_SAMPLEPICK_ONCE
namespace corvane::kernels {

inline constexpr size_t kPickLanes = 16;
inline constexpr size_t kPickMaxWindows = 4;

}    // namespace corvane::kernels
#endif

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
void PickBlocks(const PickTables& tables, const uint8_t* source, uint8_t* out, const uint8_t* /*next*/) {
    ref::PickRow(tables.columns, tables.count, source, out);
}
#else
template <size_t kWindows>
HWY_INLINE void PickWindows(const PickTables& tables, const uint8_t* HWY_RESTRICT source, uint8_t* HWY_RESTRICT out,
                            const uint8_t* next) {
    const hn::FixedTag<uint8_t, kPickLanes> d;
    const uint32_t* offset = tables.offsets;
    const uint8_t* lanes = tables.lanes;
    const size_t last = tables.count - kPickLanes;
    for (size_t at = 0;; at = std::min(at + kPickLanes, last), ++offset) {
        hwy::Prefetch(next + *offset);
        auto picked = hn::Zero(d);
        for (size_t i = 0; i < kWindows; ++i, lanes += kPickLanes)
            picked = hn::Or(
                picked, hn::TableLookupBytesOr0(hn::LoadU(d, source + *offset + i * kPickLanes), hn::Load(d, lanes)));
        hn::StoreU(picked, d, out + at);
        if (at == last)
            return;
    }
}

void PickBlocks(const PickTables& tables, const uint8_t* source, uint8_t* out, const uint8_t* next) {
    switch (tables.windows) {
    case 1:
        return PickWindows<1>(tables, source, out, next);
    case 2:
        return PickWindows<2>(tables, source, out, next);
    case 3:
        return PickWindows<3>(tables, source, out, next);
    default:
        return PickWindows<kPickMaxWindows>(tables, source, out, next);
    }
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(PickBlocks);

bool SamplePick::Make(std::span<const uint32_t> columns, size_t sourceBytes) {
    m_tables.count = columns.size();
    m_tables.windows = 0;
    const size_t blocks = (m_tables.count + kPickLanes - 1) / kPickLanes;
    const auto first = [&](size_t block) { return std::min(block * kPickLanes, m_tables.count - kPickLanes); };
    if (m_tables.count >= kPickLanes) {
        size_t span = 0;
        for (size_t block = 0; block < blocks; ++block)
            span = std::max<size_t>(span, columns[first(block) + kPickLanes - 1] - columns[first(block)] + 1);
        const size_t windows = (span + kPickLanes - 1) / kPickLanes;
        if (windows <= kPickMaxWindows && windows * kPickLanes <= sourceBytes)
            m_tables.windows = windows;
    }
    const size_t laneBytes = blocks * m_tables.windows * kPickLanes;
    if (!m_memory.Allocate(laneBytes + (blocks + m_tables.count) * sizeof(uint32_t)))
        return false;
    auto* const offsets = reinterpret_cast<uint32_t*>(m_memory.Data() + laneBytes);
    m_tables.lanes = m_memory.Data();
    m_tables.offsets = offsets;
    m_tables.columns = offsets + blocks;
    std::copy(columns.begin(), columns.end(), offsets + blocks);
    std::memset(m_memory.Data(), 0x80, laneBytes);
    for (size_t block = 0; m_tables.windows != 0 && block < blocks; ++block) {
        const size_t base = std::min<size_t>(columns[first(block)], sourceBytes - m_tables.windows * kPickLanes);
        offsets[block] = static_cast<uint32_t>(base);
        for (size_t lane = 0; lane < kPickLanes; ++lane) {
            const size_t at = columns[first(block) + lane] - base;
            uint8_t* const window = m_memory.Data() + (block * m_tables.windows + at / kPickLanes) * kPickLanes;
            window[lane] = static_cast<uint8_t>(at % kPickLanes);
        }
    }
    return true;
}

void SamplePick::Row(const uint8_t* source, uint8_t* out, const uint8_t* next) const {
    if (m_tables.windows == 0)
        ref::PickRow(m_tables.columns, m_tables.count, source, out);
    else
        HWY_DYNAMIC_DISPATCH(PickBlocks)(m_tables, source, out, next);
}

}    // namespace corvane::kernels
#endif
