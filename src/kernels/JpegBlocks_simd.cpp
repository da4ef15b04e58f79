// A block to each 128 bits of a vector, all through: blocks that lie side by side widen into that form by themselves, and
// every interleaving works within 128 bits. Sums of two products are one instruction (pmaddwd), so the even half of the
// transform is folded twice.
#include "kernels/JpegBlocks.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/JpegBlocks_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <cstring>

#include "kernels/Vectors-inl.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN || !HWY_ARCH_X86
void QuantizeTarget(const uint8_t* samples, ptrdiff_t step, size_t count, const uint16_t* reciprocals,
                    int16_t* coefficients, uint64_t* nonZero) {
    ref::QuantizeBlocks(samples, step, count, reciprocals, coefficients, nonZero);
}
#else

using SignedVector = hn::Vec<SignedWords>;
constexpr size_t kBlocks = hn::MaxLanes(SignedWords()) / 8;

// Signed bytes out of words, saturated, the words of `a` first in each 128 bits; and `magnitude` with the sign of `sign`.
#if HWY_TARGET <= HWY_AVX3
HWY_INLINE ByteVector Saturated(SignedVector a, SignedVector b) {
    return ByteVector{_mm512_packs_epi16(a.raw, b.raw)};
}
HWY_INLINE SignedVector WithSign(SignedVector magnitude, SignedVector sign) {
    const auto mask = hn::BroadcastSignBit(sign);
    return hn::Sub(hn::Xor(magnitude, mask), mask);
}
#elif HWY_TARGET <= HWY_AVX2
HWY_INLINE ByteVector Saturated(SignedVector a, SignedVector b) {
    return ByteVector{_mm256_packs_epi16(a.raw, b.raw)};
}
HWY_INLINE SignedVector WithSign(SignedVector magnitude, SignedVector sign) {
    return SignedVector{_mm256_sign_epi16(magnitude.raw, sign.raw)};
}
#else
HWY_INLINE ByteVector Saturated(SignedVector a, SignedVector b) {
    return ByteVector{_mm_packs_epi16(a.raw, b.raw)};
}
HWY_INLINE SignedVector WithSign(SignedVector magnitude, SignedVector sign) {
    return SignedVector{_mm_sign_epi16(magnitude.raw, sign.raw)};
}
#endif

struct Rows {
    SignedVector r[8];
};

// Three perfect shuffles exchange the three bits of the row with those of the column.
HWY_INLINE void Transpose(Rows& rows) {
    const SignedWords d;
    for (int turn = 0; turn < 3; ++turn) {
        Rows next;
        for (size_t i = 0; i < 4; ++i) {
            next.r[2 * i] = hn::InterleaveLower(d, rows.r[i], rows.r[i + 4]);
            next.r[2 * i + 1] = hn::InterleaveUpper(d, rows.r[i], rows.r[i + 4]);
        }
        rows = next;
    }
}

using SignedDwordVector = hn::Vec<SignedDwords>;

// Pairs (a, b) of all lanes.
struct Pairs {
    SignedVector lower, upper;
    HWY_INLINE Pairs(SignedVector a, SignedVector b)
        : lower(hn::InterleaveLower(SignedWords(), a, b)), upper(hn::InterleaveUpper(SignedWords(), a, b)) {}
};

HWY_INLINE SignedDwordVector AddProducts(SignedDwordVector sum, SignedVector pairs, int16_t a, int16_t b) {
    const auto constants = static_cast<int32_t>(static_cast<uint16_t>(a) | uint32_t{static_cast<uint16_t>(b)} << 16);
    SignedDwordVector unused = sum;
    return hn::ReorderWidenMulAccumulate(SignedDwords(), pairs,
                                         hn::BitCast(SignedWords(), hn::Set(SignedDwords(), constants)), sum, unused);
}

// The sums fit 16 bits after the shift.
template <int kShift>
HWY_INLINE SignedVector Shifted(SignedDwordVector lower, SignedDwordVector upper) {
    return hn::ReorderDemote2To(SignedWords(), hn::ShiftRight<kShift>(lower), hn::ShiftRight<kShift>(upper));
}

template <int kShift>
HWY_INLINE SignedVector Even(SignedDwordVector rounding, const Pairs& p, int16_t a, int16_t b) {
    return Shifted<kShift>(AddProducts(rounding, p.lower, a, b), AddProducts(rounding, p.upper, a, b));
}

template <int kShift>
HWY_INLINE SignedVector Odd(SignedDwordVector rounding, const Pairs& p, const Pairs& q, int16_t a, int16_t b, int16_t c,
                            int16_t e) {
    return Shifted<kShift>(AddProducts(AddProducts(rounding, p.lower, a, b), q.lower, c, e),
                           AddProducts(AddProducts(rounding, p.upper, a, b), q.upper, c, e));
}

// Across the eight vectors.
template <int kShift>
HWY_INLINE void TransformRows(Rows& x) {
    const auto rounding = hn::Set(SignedDwords(), 1 << (kShift - 1));
    SignedVector s[4], d[4];
    for (size_t i = 0; i < 4; ++i) {
        s[i] = hn::Add(x.r[i], x.r[7 - i]);
        d[i] = hn::Sub(x.r[i], x.r[7 - i]);
    }
    const Pairs sums(hn::Add(s[0], s[3]), hn::Add(s[1], s[2]));
    const Pairs differences(hn::Sub(s[0], s[3]), hn::Sub(s[1], s[2]));
    const Pairs d01(d[0], d[1]);
    const Pairs d23(d[2], d[3]);
    x.r[0] = Even<kShift>(rounding, sums, 23170, 23170);
    x.r[1] = Odd<kShift>(rounding, d01, d23, 32138, 27246, 18205, 6393);
    x.r[2] = Even<kShift>(rounding, differences, 30274, 12540);
    x.r[3] = Odd<kShift>(rounding, d01, d23, 27246, -6393, -32138, -18205);
    x.r[4] = Even<kShift>(rounding, sums, 23170, -23170);
    x.r[5] = Odd<kShift>(rounding, d01, d23, 18205, -32138, 6393, 27246);
    x.r[6] = Even<kShift>(rounding, differences, 12540, -30274);
    x.r[7] = Odd<kShift>(rounding, d01, d23, 6393, -18205, 27246, -32138);
}

// (r |c| + 32768) >> 16 as the rounded half of (r 2|c|) >> 16.
HWY_INLINE void Quantize(Rows& x, const uint16_t* reciprocals) {
    const Words d16;
    for (size_t row = 0; row < 8; ++row) {
        const auto r = hn::LoadDup128(d16, reciprocals + 8 * row);
        const auto twice = hn::BitCast(d16, hn::Abs(hn::Add(x.r[row], x.r[row])));
        const auto magnitude = hn::AverageRound(hn::MulHigh(twice, r), hn::Zero(d16));
        x.r[row] = WithSign(hn::BitCast(SignedWords(), magnitude), x.r[row]);
    }
}

// For 16 places in zigzag order, where their bytes are among those of two rows; 0x80 for those that are elsewhere.
struct ZigzagTable {
    alignas(16) uint8_t index[4][4][16];
    bool used[4][4];
};
constexpr ZigzagTable MakeZigzagTable() {
    ZigzagTable table{};
    for (size_t group = 0; group < 4; ++group)
        for (size_t rows = 0; rows < 4; ++rows)
            for (size_t i = 0; i < 16; ++i) {
                const bool here = kZigzag[16 * group + i] / 16 == rows;
                table.index[group][rows][i] = here ? kZigzag[16 * group + i] % 16 : 0x80;
                table.used[group][rows] |= here;
            }
    return table;
}
constexpr ZigzagTable kZigzagTable = MakeZigzagTable();

template <size_t kGroup>
HWY_INLINE void StoreNonZeroBits(const ByteVector (&bytes)[4], uint8_t* bits) {
    const Bytes d;
    auto group = hn::Zero(d);
    if constexpr (kZigzagTable.used[kGroup][0])
        group = hn::TableLookupBytesOr0(bytes[0], hn::LoadDup128(d, kZigzagTable.index[kGroup][0]));
    if constexpr (kZigzagTable.used[kGroup][1])
        group = hn::Or(group, hn::TableLookupBytesOr0(bytes[1], hn::LoadDup128(d, kZigzagTable.index[kGroup][1])));
    if constexpr (kZigzagTable.used[kGroup][2])
        group = hn::Or(group, hn::TableLookupBytesOr0(bytes[2], hn::LoadDup128(d, kZigzagTable.index[kGroup][2])));
    if constexpr (kZigzagTable.used[kGroup][3])
        group = hn::Or(group, hn::TableLookupBytesOr0(bytes[3], hn::LoadDup128(d, kZigzagTable.index[kGroup][3])));
    hn::StoreMaskBits(d, hn::Eq(group, hn::Zero(d)), bits);
}

HWY_INLINE void NonZeroBits(const Rows& x, uint64_t* nonZero) {
    const ByteVector bytes[4] = {Saturated(x.r[0], x.r[1]), Saturated(x.r[2], x.r[3]), Saturated(x.r[4], x.r[5]),
                                 Saturated(x.r[6], x.r[7])};
    uint16_t zero[4 + 3][kBlocks];    // each store of mask bits may write 8 bytes
    StoreNonZeroBits<0>(bytes, reinterpret_cast<uint8_t*>(zero[0]));
    StoreNonZeroBits<1>(bytes, reinterpret_cast<uint8_t*>(zero[1]));
    StoreNonZeroBits<2>(bytes, reinterpret_cast<uint8_t*>(zero[2]));
    StoreNonZeroBits<3>(bytes, reinterpret_cast<uint8_t*>(zero[3]));
    for (size_t block = 0; block < kBlocks; ++block)
        nonZero[block] = ~(uint64_t{zero[0][block]} | uint64_t{zero[1][block]} << 16 | uint64_t{zero[2][block]} << 32 |
                           uint64_t{zero[3][block]} << 48);
}

// One row of each block to its own 64 coefficients.
template <class D>
HWY_INLINE void StoreBlocks(D d, hn::Vec<D> row, int16_t* out) {
    if constexpr (hn::MaxLanes(d) == 8) {
        hn::StoreU(row, d, out);
    } else {
        const hn::Half<D> half;
        StoreBlocks(half, hn::LowerHalf(half, row), out);
        StoreBlocks(half, hn::UpperHalf(half, row), out + 8 * hn::MaxLanes(half));
    }
}

HWY_INLINE void QuantizeSome(const uint8_t* samples, ptrdiff_t step, const uint16_t* reciprocals, int16_t* coefficients,
                             uint64_t* nonZero) {
    const hn::Rebind<uint8_t, SignedWords> narrow;
    HWY_ALIGN static constexpr int16_t kLevel[8] = {1024};
    Rows x;
    for (size_t row = 0; row < 8; ++row)
        x.r[row] = hn::PromoteTo(SignedWords(), hn::LoadU(narrow, samples + static_cast<ptrdiff_t>(row) * step));
    Transpose(x);
    TransformRows<13>(x);
    Transpose(x);
    TransformRows<19>(x);
    x.r[0] = hn::Sub(x.r[0], hn::LoadDup128(SignedWords(), kLevel));
    Quantize(x, reciprocals);
    for (size_t row = 0; row < 8; ++row)
        StoreBlocks(SignedWords(), x.r[row], coefficients + 8 * row);
    NonZeroBits(x, nonZero);
}

void QuantizeTarget(const uint8_t* samples, ptrdiff_t step, size_t count, const uint16_t* reciprocals,
                    int16_t* coefficients, uint64_t* nonZero) {
    for (; count >= kBlocks; count -= kBlocks) {
        QuantizeSome(samples, step, reciprocals, coefficients, nonZero);
        samples += 8 * kBlocks;
        coefficients += 64 * kBlocks;
        nonZero += kBlocks;
    }
    if (kBlocks > 1 && count > 0) {
        uint8_t rest[8 * 8 * kBlocks] = {};
        int16_t all[64 * kBlocks];
        uint64_t bits[kBlocks];
        for (size_t row = 0; row < 8; ++row)
            std::memcpy(rest + row * 8 * kBlocks, samples + static_cast<ptrdiff_t>(row) * step, 8 * count);
        QuantizeSome(rest, 8 * kBlocks, reciprocals, all, bits);
        std::memcpy(coefficients, all, count * 64 * sizeof(int16_t));
        std::memcpy(nonZero, bits, count * sizeof(uint64_t));
    }
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(QuantizeTarget);

void QuantizeBlocks(const uint8_t* samples, ptrdiff_t step, size_t count, const uint16_t* reciprocals,
                    int16_t* coefficients, uint64_t* nonZero) {
    HWY_DYNAMIC_DISPATCH(QuantizeTarget)(samples, step, count, reciprocals, coefficients, nonZero);
}

}    // namespace corvane::kernels
#endif
