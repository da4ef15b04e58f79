// Vector types of the kernels and the order of their blocks, once per instruction set.

#if defined(CORVANE_KERNELS_VECTORS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef CORVANE_KERNELS_VECTORS_INL
#undef CORVANE_KERNELS_VECTORS_INL
#else
#define CORVANE_KERNELS_VECTORS_INL
#endif

#include <hwy/cache_control.h>
#include <hwy/highway.h>

#include <cstddef>
#include <cstdint>

// Emulated instruction sets gain nothing from vectors: they use the plain forms.
#undef CORVANE_KERNELS_PLAIN
#if HWY_TARGET == HWY_SCALAR || HWY_TARGET == HWY_EMU128
#define CORVANE_KERNELS_PLAIN 1
#else
#define CORVANE_KERNELS_PLAIN 0

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Bytes = hn::ScalableTag<uint8_t>;
using Words = hn::Repartition<uint16_t, Bytes>;
using SignedWords = hn::Repartition<int16_t, Bytes>;
using Dwords = hn::Repartition<uint32_t, Bytes>;
using SignedDwords = hn::Repartition<int32_t, Bytes>;
using ByteVector = hn::Vec<Bytes>;
using WordVector = hn::Vec<Words>;

// Whether all rows of a plane begin on a vector's boundary, as stores past the cache need it.
inline bool OnVectors(const uint8_t* plane, ptrdiff_t stride) {
    return ((reinterpret_cast<uintptr_t>(plane) | static_cast<uintptr_t>(stride)) & (hn::MaxLanes(Bytes()) - 1)) == 0;
}

// Stores past the cache when `kStreaming`; `out` is on a vector's boundary then, and hwy::FlushStream() follows the
// last store.
template <bool kStreaming>
HWY_INLINE void Store(ByteVector bytes, uint8_t* out) {
    if constexpr (kStreaming)
        hn::Stream(bytes, Bytes(), out);
    else
        hn::StoreU(bytes, Bytes(), out);
}

// Reorders groups of `kGroup` double words, so that the interleaving within blocks that follows gives whole output
// vectors in order: block L, group k of the result is group k * blocks + L of the input. Does nothing on 128-bit
// vectors.
template <size_t kGroup>
class BlockOrder {
public:
    BlockOrder() : m_indices(hn::SetTableIndices(Dwords(), Indices().data)) {}

    template <class V>
    HWY_INLINE V operator()(V v) const {
        if constexpr (kGroup == 0 || hn::MaxLanes(Dwords()) == 4)
            return v;
        else
            return hn::BitCast(hn::DFromV<V>(), hn::TableLookupLanes(hn::BitCast(Dwords(), v), m_indices));
    }

private:
    struct IndexTable {
        HWY_ALIGN int32_t data[hn::MaxLanes(Dwords())] = {};
    };
    static IndexTable Indices() {
        IndexTable table;
        constexpr size_t kBlocks = hn::MaxLanes(Dwords()) / 4;
        constexpr size_t kWidth = kGroup == 0 ? 1 : kGroup;
        for (size_t block = 0; block < kBlocks; ++block) {
            for (size_t i = 0; i < 4; ++i)
                table.data[block * 4 + i] = static_cast<int32_t>((i / kWidth * kBlocks + block) * kWidth + i % kWidth);
        }
        return table;
    }
    decltype(hn::SetTableIndices(Dwords(), static_cast<const int32_t*>(nullptr))) m_indices;
};

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#endif
#endif
