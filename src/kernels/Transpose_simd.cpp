#include "kernels/Transpose.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/Transpose_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>

#include "kernels/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
void TransposeSamples(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                      uint32_t width, uint32_t height) {
    ref::Transpose(source, sourceStride, destination, destinationStride, width, height, 1);
}
void MirrorSamples(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                   uint32_t width, uint32_t height) {
    ref::Mirror(source, sourceStride, destination, destinationStride, width, height, 1);
}
#else

constexpr size_t kBlock = 16;
using Block = hn::FixedTag<uint8_t, kBlock>;

// 16 x 16 samples, in four rounds. Each round interleaves rows at half the distance of the round before.
HWY_INLINE void TransposeBlock(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination,
                               ptrdiff_t destinationStride) {
    const Block d;
    hn::Vec<Block> a[kBlock], b[kBlock];
    for (size_t i = 0; i < kBlock; ++i)
        a[i] = hn::LoadU(d, source + static_cast<ptrdiff_t>(i) * sourceStride);
    const auto round = [&](const hn::Vec<Block>* from, hn::Vec<Block>* to) HWY_ATTR {
        for (size_t i = 0; i < kBlock / 2; ++i) {
            to[2 * i] = hn::InterleaveLower(d, from[i], from[i + kBlock / 2]);
            to[2 * i + 1] = hn::InterleaveUpper(d, from[i], from[i + kBlock / 2]);
        }
    };
    round(a, b);
    round(b, a);
    round(a, b);
    round(b, a);
    for (size_t i = 0; i < kBlock; ++i)
        hn::StoreU(a[i], d, destination + static_cast<ptrdiff_t>(i) * destinationStride);
}

// Four blocks side by side fill whole cache lines of the destination. The last block of a row or column begins so early
// that it is whole; some samples are then written twice.
void TransposeSamples(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                      uint32_t width, uint32_t height) {
    constexpr uint32_t kSide = kBlock, kLine = 64;
    if (width < kSide || height < kSide) {
        ref::Transpose(source, sourceStride, destination, destinationStride, width, height, 1);
        return;
    }
    for (uint32_t line = 0; line < width; line += kLine)
        for (uint32_t y = 0; y < height; y += kSide) {
            const auto row = static_cast<ptrdiff_t>(std::min(y, height - kSide));
            for (uint32_t x = line; x < std::min(line + kLine, width); x += kSide) {
                const auto column = static_cast<ptrdiff_t>(std::min(x, width - kSide));
                TransposeBlock(source + column * sourceStride + row, sourceStride,
                               destination + row * destinationStride + column, destinationStride);
            }
        }
}

void MirrorSamples(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                   uint32_t width, uint32_t height) {
    const Bytes d;
    const hn::Repartition<uint64_t, Bytes> eights;
    HWY_ALIGN static constexpr uint8_t kOrder[16] = {7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8};
    const auto order = hn::LoadDup128(d, kOrder);
    constexpr size_t kStep = hn::MaxLanes(d);
    if (width < kStep) {
        ref::Mirror(source, sourceStride, destination, destinationStride, width, height, 1);
        return;
    }
    for (; height > 0; --height, source += sourceStride, destination += destinationStride) {
        const auto put = [&](size_t x) HWY_ATTR {
            const auto turned = hn::TableLookupBytes(hn::LoadU(d, source + (width - kStep - x)), order);
            hn::StoreU(hn::BitCast(d, hn::Reverse(eights, hn::BitCast(eights, turned))), d, destination + x);
        };
        size_t x = 0;
        for (; x + kStep <= width; x += kStep)
            put(x);
        if (x < width)
            put(width - kStep);
    }
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(TransposeSamples);
HWY_EXPORT(MirrorSamples);

namespace {

// Pixels of several bytes are worked in tiles, so that the lines of the source are still cached when their next pixel
// is read.
constexpr uint32_t kTile = 32;

}    // namespace

void Transpose(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
               uint32_t width, uint32_t height, uint32_t channels) {
    if (channels == 1) {
        HWY_DYNAMIC_DISPATCH(TransposeSamples)(source, sourceStride, destination, destinationStride, width, height);
        return;
    }
    for (uint32_t y = 0; y < height; y += kTile)
        for (uint32_t x = 0; x < width; x += kTile)
            ref::Transpose(source + static_cast<ptrdiff_t>(x) * sourceStride + size_t{y} * channels, sourceStride,
                           destination + static_cast<ptrdiff_t>(y) * destinationStride + size_t{x} * channels,
                           destinationStride, std::min(kTile, width - x), std::min(kTile, height - y), channels);
}

void Mirror(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
            uint32_t width, uint32_t height, uint32_t channels) {
    if (channels == 1)
        HWY_DYNAMIC_DISPATCH(MirrorSamples)(source, sourceStride, destination, destinationStride, width, height);
    else
        ref::Mirror(source, sourceStride, destination, destinationStride, width, height, channels);
}

}    // namespace corvane::kernels
#endif
