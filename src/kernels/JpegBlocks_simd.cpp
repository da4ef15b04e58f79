// Each 128 bits of a vector hold one block. Blocks that lie side by side have that form once they are widened, and
// every interleaving works within 128 bits. Sums of two products are one instruction on x86 (pmaddwd), so the even half
// of the transform is folded twice.
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

#if CORVANE_KERNELS_PLAIN
void QuantizeTarget(const uint8_t* samples, ptrdiff_t stride, size_t count, const uint16_t* reciprocals,
                    int16_t* coefficients, uint64_t* nonZero) {
    ref::QuantizeBlocks(samples, stride, count, reciprocals, coefficients, nonZero);
}
#else

using SignedVector = hn::Vec<SignedWords>;
constexpr size_t kBlocks = hn::MaxLanes(SignedWords()) / 8;

struct Rows {
    SignedVector r[8];
    HWY_INLINE Rows() {}    // the implicit constructor is not compiled for this instruction set
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

// Sums of products of pairs, in one lane or in two, by the instruction set.
struct Sum {
    SignedDwordVector first, second;
    HWY_INLINE Sum() : first(hn::Zero(SignedDwords())), second(hn::Zero(SignedDwords())) {}
    HWY_INLINE Sum& Add(SignedVector pairs, int16_t a, int16_t b) {
        const auto constants =
            static_cast<int32_t>(static_cast<uint16_t>(a) | uint32_t{static_cast<uint16_t>(b)} << 16);
        first = hn::ReorderWidenMulAccumulate(
            SignedDwords(), pairs, hn::BitCast(SignedWords(), hn::Set(SignedDwords(), constants)), first, second);
        return *this;
    }
    template <int kShift>
    HWY_INLINE SignedDwordVector Rounded() const {
        return hn::ShiftRight<kShift>(
            hn::Add(hn::RearrangeToOddPlusEven(first, second), hn::Set(SignedDwords(), 1 << (kShift - 1))));
    }
};

// The sums fit 16 bits after the shift.
template <int kShift>
HWY_INLINE SignedVector Even(const Pairs& p, int16_t a, int16_t b) {
    return hn::ReorderDemote2To(SignedWords(), Sum().Add(p.lower, a, b).Rounded<kShift>(),
                                Sum().Add(p.upper, a, b).Rounded<kShift>());
}

template <int kShift>
HWY_INLINE SignedVector Odd(const Pairs& p, const Pairs& q, int16_t a, int16_t b, int16_t c, int16_t e) {
    return hn::ReorderDemote2To(SignedWords(), Sum().Add(p.lower, a, b).Add(q.lower, c, e).Rounded<kShift>(),
                                Sum().Add(p.upper, a, b).Add(q.upper, c, e).Rounded<kShift>());
}

// Across the eight vectors.
template <int kShift>
HWY_INLINE void TransformRows(Rows& x) {
    SignedVector s[4], d[4];
    for (size_t i = 0; i < 4; ++i) {
        s[i] = hn::Add(x.r[i], x.r[7 - i]);
        d[i] = hn::Sub(x.r[i], x.r[7 - i]);
    }
    const Pairs sums(hn::Add(s[0], s[3]), hn::Add(s[1], s[2]));
    const Pairs differences(hn::Sub(s[0], s[3]), hn::Sub(s[1], s[2]));
    const Pairs d01(d[0], d[1]);
    const Pairs d23(d[2], d[3]);
    x.r[0] = Even<kShift>(sums, 23170, 23170);
    x.r[1] = Odd<kShift>(d01, d23, 32138, 27246, 18205, 6393);
    x.r[2] = Even<kShift>(differences, 30274, 12540);
    x.r[3] = Odd<kShift>(d01, d23, 27246, -6393, -32138, -18205);
    x.r[4] = Even<kShift>(sums, 23170, -23170);
    x.r[5] = Odd<kShift>(d01, d23, 18205, -32138, 6393, 27246);
    x.r[6] = Even<kShift>(differences, 12540, -30274);
    x.r[7] = Odd<kShift>(d01, d23, 6393, -18205, 27246, -32138);
}

// The place of each zigzag flag in the result of Quantize: its byte of a block's 16, and its bit.
struct ZigzagTable {
    alignas(16) uint8_t byte[64];
    alignas(16) uint8_t bit[64];
};
constexpr ZigzagTable MakeZigzagTable() {
    ZigzagTable table{};
    for (size_t k = 0; k < 64; ++k) {
        const uint8_t row = kZigzag[k] / 8, column = kZigzag[k] % 8;
        table.byte[k] = static_cast<uint8_t>(2 * column + (row < 4 ? 1 : 0));
        table.bit[k] = static_cast<uint8_t>(4 << row % 4);
    }
    return table;
}
constexpr ZigzagTable kZigzagTable = MakeZigzagTable();

// (r |c| + 32768) >> 16 as the rounded half of (r 2|c|) >> 16. In the result a flag is set for each coefficient that is
// not 0: its magnitude is at most 1024, so that the six upper bits of its negative are all set.
HWY_INLINE WordVector Quantize(Rows& x, const uint16_t* reciprocals) {
    const Words d;
    WordVector flags[2] = {hn::Zero(d), hn::Zero(d)};
    for (size_t row = 0; row < 8; ++row) {
        const auto r = hn::LoadDup128(d, reciprocals + 8 * row);
        const auto twice = hn::BitCast(d, hn::Abs(hn::Add(x.r[row], x.r[row])));
        const auto magnitude = hn::AverageRound(hn::MulHigh(twice, r), hn::Zero(d));
        const auto negative = hn::Sub(hn::Zero(d), magnitude);
        flags[row / 4] = hn::OrAnd(flags[row / 4], negative, hn::Set(d, static_cast<uint16_t>(0x400 << row % 4)));
        x.r[row] = hn::IfNegativeThenElse(x.r[row], hn::BitCast(SignedWords(), negative),
                                          hn::BitCast(SignedWords(), magnitude));
    }
    return hn::Or(flags[0], hn::ShiftRight<8>(flags[1]));
}

HWY_INLINE void NonZeroBits(WordVector flags, uint64_t* nonZero) {
    const Bytes d;
    uint16_t bits[4 + 3][kBlocks];    // each store of mask bits may write 8 bytes
    for (size_t group = 0; group < 4; ++group) {
        const auto bytes =
            hn::TableLookupBytes(hn::BitCast(d, flags), hn::LoadDup128(d, kZigzagTable.byte + 16 * group));
        hn::StoreMaskBits(d, hn::TestBit(bytes, hn::LoadDup128(d, kZigzagTable.bit + 16 * group)),
                          reinterpret_cast<uint8_t*>(bits[group]));
    }
    for (size_t block = 0; block < kBlocks; ++block)
        nonZero[block] = uint64_t{bits[0][block]} | uint64_t{bits[1][block]} << 16 | uint64_t{bits[2][block]} << 32 |
                         uint64_t{bits[3][block]} << 48;
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

HWY_INLINE void QuantizeSome(const uint8_t* samples, ptrdiff_t stride, const uint16_t* reciprocals,
                             int16_t* coefficients, uint64_t* nonZero) {
    const hn::Rebind<uint8_t, SignedWords> narrow;
    HWY_ALIGN static constexpr int16_t kLevel[8] = {1024};
    Rows x;
    for (size_t row = 0; row < 8; ++row)
        x.r[row] = hn::PromoteTo(SignedWords(), hn::LoadU(narrow, samples + static_cast<ptrdiff_t>(row) * stride));
    Transpose(x);
    TransformRows<13>(x);
    Transpose(x);
    TransformRows<19>(x);
    x.r[0] = hn::Sub(x.r[0], hn::LoadDup128(SignedWords(), kLevel));
    const WordVector flags = Quantize(x, reciprocals);
    for (size_t row = 0; row < 8; ++row)
        StoreBlocks(SignedWords(), x.r[row], coefficients + 8 * row);
    NonZeroBits(flags, nonZero);
}

void QuantizeTarget(const uint8_t* samples, ptrdiff_t stride, size_t count, const uint16_t* reciprocals,
                    int16_t* coefficients, uint64_t* nonZero) {
    for (; count >= kBlocks; count -= kBlocks) {
        QuantizeSome(samples, stride, reciprocals, coefficients, nonZero);
        samples += 8 * kBlocks;
        coefficients += 64 * kBlocks;
        nonZero += kBlocks;
    }
    if (kBlocks > 1 && count > 0) {
        uint8_t rest[8 * 8 * kBlocks] = {};
        int16_t all[64 * kBlocks];
        uint64_t bits[kBlocks];
        for (size_t row = 0; row < 8; ++row)
            std::memcpy(rest + row * 8 * kBlocks, samples + static_cast<ptrdiff_t>(row) * stride, 8 * count);
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

void QuantizeBlocks(const uint8_t* samples, ptrdiff_t stride, size_t count, const uint16_t* reciprocals,
                    int16_t* coefficients, uint64_t* nonZero) {
    HWY_DYNAMIC_DISPATCH(QuantizeTarget)(samples, stride, count, reciprocals, coefficients, nonZero);
}

}    // namespace corvane::kernels
#endif
