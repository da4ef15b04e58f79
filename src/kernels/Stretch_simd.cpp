// The vertical pass comes first, on bytes, into one or two rows that stay in the first-level cache; then the horizontal
// pass, which also widens 3 bytes to 4. A pass whose axis does not change is left out.
#include "kernels/Stretch.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/Stretch_simd.cpp"
#include <hwy/cache_control.h>
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>
#include <cstring>

#include "kernels/StretchPlan.h"
#include "kernels/StretchRows-inl.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
bool StretchTarget(const ConstPictureView& source, const PictureView& destination, const Rect& whole) {
    ref::Stretch(source, destination, whole);
    return true;
}
#else

constexpr size_t kGroup = kVector / 4;    // pixels

// `Rounding` for B, G, R, X lanes, where X becomes 0xFF.
HWY_INLINE WordVector PixelRounding(uint32_t taps) {
    const hn::Repartition<uint64_t, Bytes> d64;
    const uint64_t rounding = 128 + taps / 2;
    return hn::BitCast(Words(), hn::Set(d64, rounding | rounding << 16 | rounding << 32 | uint64_t{0xFF00} << 48));
}

// Two vectors of 4 lanes a pixel, pixels 0, 1 and 2, 3 of each block, to bytes.
HWY_INLINE ByteVector PackPixels(WordVector first, WordVector second) {
    const Bytes d;
    HWY_ALIGN static constexpr uint8_t kOrder[16] = {0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15};
    return hn::TableLookupBytes(MergeUpperBytes(first, second), hn::LoadDup128(d, kOrder));
}

// The lanes of two neighbouring pixels from `tap` on.
HWY_INLINE ByteVector TapIndex(size_t tap, size_t pixelBytes) {
    const Bytes d;
    HWY_ALIGN uint8_t index[16];
    for (size_t lane = 0; lane < 8; ++lane) {
        index[2 * lane] = 0x80;
        index[2 * lane + 1] = static_cast<uint8_t>(lane % 4 == 3 ? 0x80 : (tap + lane / 4) * pixelBytes + lane % 4);
    }
    return hn::LoadDup128(d, index);
}

// Stores a row of destination pixels: whole groups first, then the rest.
template <bool kStreaming>
class RowWriter {
public:
    RowWriter(uint8_t* out, size_t pixels) : m_out(out), m_bytes(pixels * 4) {}
    size_t Size() const { return m_bytes; }
    HWY_INLINE void Put(size_t group, ByteVector pixels) const {
        const Bytes d;
        const size_t at = group * kVector;
        if (HWY_LIKELY(at + kVector <= m_bytes)) {
            if constexpr (kStreaming)
                hn::Stream(pixels, d, m_out + at);
            else
                hn::StoreU(pixels, d, m_out + at);
        } else {
            HWY_ALIGN uint8_t rest[kVector];
            hn::Store(pixels, d, rest);
            std::memcpy(m_out + at, rest, m_bytes - at);
        }
    }

private:
    uint8_t* m_out;
    size_t m_bytes;
};

// Fetches the row that comes next, `ahead` bytes on: processors do not prefetch rows of falling addresses.
template <bool kStreaming>
HWY_INLINE void ExpandRow(const uint8_t* source, ptrdiff_t ahead, const RowWriter<kStreaming>& out, size_t groups) {
    const Bytes d;
    const auto opaque = hn::BitCast(d, hn::Set(Dwords(), 0xFF000000u));
    HWY_ALIGN static constexpr uint8_t kWiden[16] = {0, 1, 2, 0x80, 3, 4, 5, 0x80, 6, 7, 8, 0x80, 9, 10, 11, 0x80};
    const auto widen = hn::LoadDup128(d, kWiden);
    for (size_t group = 0; group < groups; ++group, source += kGroup * 3) {
        const auto pixels = LoadBlocks([&](size_t block) { return source + 12 * block; });
        hwy::Prefetch(source + ahead);
        out.Put(group, hn::Or(hn::TableLookupBytesOr0(pixels, widen), opaque));
    }
}

// Reads nothing after the row: the last row of a raster has no room there.
template <bool kStreaming>
HWY_INLINE void CopyRow(const uint8_t* source, const RowWriter<kStreaming>& out) {
    const Bytes d;
    const auto opaque = hn::BitCast(d, hn::Set(Dwords(), 0xFF000000u));
    const size_t groups = out.Size() / kVector;
    for (size_t group = 0; group < groups; ++group)
        out.Put(group, hn::Or(hn::LoadU(d, source + group * kVector), opaque));
    if (out.Size() % kVector != 0) {
        HWY_ALIGN uint8_t rest[kVector] = {};
        std::memcpy(rest, source + groups * kVector, out.Size() % kVector);
        out.Put(groups, hn::Or(hn::Load(d, rest), opaque));
    }
}

// Two pixels a block from their windows. `index`: of the first tap.
template <uint32_t kTaps>
HWY_INLINE WordVector WeighPair(WordVector rounding, ByteVector window, ByteVector index, ByteVector pixelStep,
                                const WordVector* weights) {
    const Words d16;
    auto sum = rounding;
    for (uint32_t tap = 0; tap < kTaps; ++tap) {
        sum = hn::Add(sum, hn::MulHigh(hn::BitCast(d16, hn::TableLookupBytesOr0(window, index)), weights[tap]));
        index = hn::Add(index, pixelStep);
    }
    return sum;
}

template <uint32_t kTaps, bool kStreaming>
HWY_INLINE void PairRows(const HorizontalTables& tables, size_t pixelBytes, const uint8_t* row0, const uint8_t* row1,
                         const RowWriter<kStreaming>& out0, const RowWriter<kStreaming>& out1) {
    const Bytes d;
    const Words d16;
    const auto rounding = PixelRounding(kTaps);
    const auto pixelStep = hn::Set(d, static_cast<uint8_t>(pixelBytes));
    const uint32_t* offsets = tables.offsets;
    const uint8_t* vectors = tables.vectors;
    for (size_t group = 0; group < tables.groups; ++group) {
        WordVector sums[2][2];
        for (size_t half = 0; half < 2; ++half) {
            const auto index = hn::Load(d, vectors);
            WordVector weights[kTaps];
            weights[0] = hn::Load(d16, reinterpret_cast<const uint16_t*>(vectors + kVector));
            if constexpr (kTaps == 2) {
                weights[1] = hn::Sub(hn::Zero(d16), weights[0]);
                vectors += 2 * kVector;
            } else {
                for (uint32_t tap = 1; tap < kTaps; ++tap)
                    weights[tap] = hn::Load(d16, reinterpret_cast<const uint16_t*>(vectors + (1 + tap) * kVector));
                vectors += (1 + kTaps) * kVector;
            }
            const auto window0 = LoadBlocks([&](size_t block) { return row0 + offsets[block]; });
            const auto window1 = LoadBlocks([&](size_t block) { return row1 + offsets[block]; });
            sums[0][half] = WeighPair<kTaps>(rounding, window0, index, pixelStep, weights);
            sums[1][half] = WeighPair<kTaps>(rounding, window1, index, pixelStep, weights);
            offsets += kBlocks;
        }
        out0.Put(group, PackPixels(sums[0][0], sums[0][1]));
        out1.Put(group, PackPixels(sums[1][0], sums[1][1]));
    }
}

// Sums of the lower and the upper half of each block, of `first` and then of `second`.
HWY_INLINE WordVector AddHalves(WordVector first, WordVector second) {
    const hn::Repartition<uint64_t, Bytes> d64;
    const auto a = hn::BitCast(d64, first);
    const auto b = hn::BitCast(d64, second);
    return hn::Add(hn::BitCast(Words(), hn::InterleaveLower(d64, a, b)),
                   hn::BitCast(Words(), hn::InterleaveUpper(d64, a, b)));
}

// One pixel a block in both rows, from `kChunks` windows of 4 taps (0: the number is in the tables).
template <uint32_t kChunks>
class SinglePixels {
public:
    SinglePixels(const HorizontalTables& tables, size_t pixelBytes, const uint8_t* row0, const uint8_t* row1)
        : m_row0(row0),
          m_row1(row1),
          m_windowBytes(4 * pixelBytes),
          m_chunks(kChunks != 0 ? kChunks : tables.chunks),
          m_offsets(tables.offsets),
          m_weights(reinterpret_cast<const uint16_t*>(tables.vectors)),
          m_index01(TapIndex(0, pixelBytes)),
          m_index23(TapIndex(2, pixelBytes)) {}

    HWY_INLINE void Next(WordVector& sum0, WordVector& sum1) {
        const Words d16;
        sum0 = sum1 = hn::Zero(d16);
        size_t at = 0;
        for (uint32_t chunk = 0; chunk < (kChunks != 0 ? kChunks : m_chunks); ++chunk, at += m_windowBytes) {
            const auto weight01 = hn::Load(d16, m_weights);
            const auto weight23 = hn::Load(d16, m_weights + kVector / 2);
            const auto window0 = LoadBlocks([&](size_t block) { return m_row0 + m_offsets[block] + at; });
            const auto window1 = LoadBlocks([&](size_t block) { return m_row1 + m_offsets[block] + at; });
            sum0 = hn::Add(sum0, Weigh(window0, weight01, weight23));
            sum1 = hn::Add(sum1, Weigh(window1, weight01, weight23));
            m_weights += kVector;
        }
        m_offsets += kBlocks;
    }

private:
    HWY_INLINE WordVector Weigh(ByteVector window, WordVector weight01, WordVector weight23) const {
        const Words d16;
        return hn::Add(hn::MulHigh(hn::BitCast(d16, hn::TableLookupBytesOr0(window, m_index01)), weight01),
                       hn::MulHigh(hn::BitCast(d16, hn::TableLookupBytesOr0(window, m_index23)), weight23));
    }

    const uint8_t* m_row0;
    const uint8_t* m_row1;
    size_t m_windowBytes;
    uint32_t m_chunks;
    const uint32_t* m_offsets;
    const uint16_t* m_weights;
    ByteVector m_index01;
    ByteVector m_index23;
};

template <uint32_t kChunks, bool kStreaming>
HWY_INLINE void SingleRows(const HorizontalTables& tables, size_t pixelBytes, const uint8_t* row0, const uint8_t* row1,
                           const RowWriter<kStreaming>& out0, const RowWriter<kStreaming>& out1) {
    const auto rounding = PixelRounding(tables.taps);
    SinglePixels<kChunks> pixels(tables, pixelBytes, row0, row1);
    for (size_t group = 0; group < tables.groups; ++group) {
        WordVector a0, a1, b0, b1, c0, c1, d0, d1;
        pixels.Next(a0, a1);
        pixels.Next(b0, b1);
        pixels.Next(c0, c1);
        pixels.Next(d0, d1);
        out0.Put(group, PackPixels(hn::Add(AddHalves(a0, b0), rounding), hn::Add(AddHalves(c0, d0), rounding)));
        out1.Put(group, PackPixels(hn::Add(AddHalves(a1, b1), rounding), hn::Add(AddHalves(c1, d1), rounding)));
    }
}

// Two rows share the loads of the tables. Of an odd number of rows the last is worked twice.
template <bool kStreaming>
void HorizontalRows(const StretchPlan& plan, const uint8_t* row0, const uint8_t* row1, uint8_t* out0, uint8_t* out1,
                    size_t pixels) {
    const HorizontalTables& tables = plan.Horizontal();
    const RowWriter<kStreaming> writer0(out0, pixels);
    const RowWriter<kStreaming> writer1(out1, pixels);
    const ptrdiff_t ahead = plan.Vertical().Same() ? plan.SourceStride() : 0;
    switch (tables.pass) {
    case HorizontalPass::Copy:
        if (plan.PixelBytes() == 3) {
            ExpandRow(row0, ahead, writer0, tables.groups);
            if (out1 != out0)
                ExpandRow(row1, ahead, writer1, tables.groups);
        } else {
            CopyRow(row0, writer0);
            if (out1 != out0)
                CopyRow(row1, writer1);
        }
        break;
    case HorizontalPass::Pairs:
        if (tables.taps == 2)
            PairRows<2>(tables, plan.PixelBytes(), row0, row1, writer0, writer1);
        else
            PairRows<3>(tables, plan.PixelBytes(), row0, row1, writer0, writer1);
        break;
    case HorizontalPass::Singles:
        if (tables.chunks == 1)
            SingleRows<1>(tables, plan.PixelBytes(), row0, row1, writer0, writer1);
        else if (tables.chunks == 2)
            SingleRows<2>(tables, plan.PixelBytes(), row0, row1, writer0, writer1);
        else
            SingleRows<0>(tables, plan.PixelBytes(), row0, row1, writer0, writer1);
        break;
    }
}

bool StretchTarget(const ConstPictureView& source, const PictureView& destination, const Rect& whole) {
    StretchPlan plan;
    if (!plan.Make(source, destination, whole, kBlocks))
        return false;
    // Larger pictures are stored past the cache.
    constexpr uint64_t kStreamingBytes = uint64_t{2} << 20;
    const bool streaming = OnVectors(destination.plane[0], destination.stride[0]) &&
                           uint64_t{destination.size.width} * destination.size.height * 4 >= kStreamingBytes;
    const auto rowAt = [&](uint32_t row, size_t scratch) -> const uint8_t* {
        uint16_t weights[StretchAxis::kMaxTaps];
        const StretchAxis::Span span = plan.Vertical().At(static_cast<uint32_t>(row - whole.top), weights);
        if (span.count == 1)
            return plan.Row(span.first);
        uint8_t* const out = plan.Scratch(scratch);
        WeighAnyRows(plan.Row(span.first), plan.SourceStride(), span.count, weights, out, plan.RowBytes());
        return out;
    };
    for (uint32_t row = 0; row < destination.size.height; row += 2) {
        const bool second = row + 1 < destination.size.height;
        const uint8_t* const row0 = rowAt(row, 0);
        const uint8_t* const row1 = second ? rowAt(row + 1, 1) : row0;
        uint8_t* const out0 = destination.Row(row);
        uint8_t* const out1 = second ? out0 + destination.stride[0] : out0;
        if (streaming)
            HorizontalRows<true>(plan, row0, row1, out0, out1, destination.size.width);
        else
            HorizontalRows<false>(plan, row0, row1, out0, out1, destination.size.width);
    }
    if (streaming)
        hwy::FlushStream();
    return true;
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(StretchTarget);

bool Stretch(const ConstPictureView& source, const PictureView& destination, const Rect& whole) {
    if (!source || !destination || source.size.Empty() || destination.size.Empty())
        return true;
    // A picture that is so much smaller has few pixels: speed does not matter.
    if (StretchAxis(source.size.width, static_cast<uint32_t>(whole.Width())).Taps() > StretchAxis::kMaxTaps ||
        StretchAxis(source.size.height, static_cast<uint32_t>(whole.Height())).Taps() > StretchAxis::kMaxTaps) {
        ref::Stretch(source, destination, whole);
        return true;
    }
    return HWY_DYNAMIC_DISPATCH(StretchTarget)(source, destination, whole);
}

}    // namespace corvane::kernels
#endif
