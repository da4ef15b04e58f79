// Shared by the RGB kernels, once per instruction set: (65536 Y + c) >> 16 is Y + (c >> 16), so the terms that chroma
// adds to R, G and B are computed once for each 2 x 2 block. They are kept as max(t, 0) and max(-t, 0) in doubled
// bytes, in a row buffer that stays in the first-level cache. A pixel then takes one saturated addition and one
// saturated subtraction in byte lanes, which clamp exactly. Terms beyond 255 are kept as 255, which clamps the same.
//
// With a ColourMatrix luma has a factor too. Terms are then kept as words, one for the two pixels of a row that share
// it, and a pixel is computed in word lanes.

#include <hwy/highway.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "base/PictureView.h"
#include "kernels/ColourMatrix.h"
#include "kernels/KernelResult.h"

#ifndef CORVANE_KERNELS_CHROMA_TERMS_COMMON
#define CORVANE_KERNELS_CHROMA_TERMS_COMMON

namespace corvane::kernels {

// scale * x + offset + (((x << shift) + add) * multiplier >> 16) in 16 bit lanes: chosen so that it equals the 16.16
// expression for each of the 256 values of x (checked at compile time where it is used).
struct SingleTerm {
    int shift;
    int scaleShift;    // scale = 1 << scaleShift
    uint16_t add;
    uint16_t multiplier;
    int16_t offset;
    bool wide;    // goes beyond 255

    constexpr bool Equals(int32_t factor, int32_t constant) const {
        for (int32_t x = 0; x < 256; ++x) {
            const int32_t product =
                static_cast<int32_t>(((uint32_t{static_cast<uint16_t>((x << shift) + add)}) * multiplier) >> 16);
            if ((x << shift) + add > 65535 || (x << scaleShift) + offset + product != (factor * x + constant) >> 16)
                return false;
        }
        return true;
    }
};

// -V + ((uFactor U + vFactor V + constant) >> 16).
struct PairTerm {
    int16_t uFactor;
    int16_t vFactor;
    int32_t constant;
};

struct ChromaMatrix {
    SingleTerm red;     // of V
    SingleTerm blue;    // of U
    PairTerm green;
};

// Pixels that one pass over a row covers: six rows of terms of this length take a quarter of the first-level cache.
inline constexpr uint32_t kTermBlock = 2048;
// Whole vectors are written, up to 64 bytes beyond the block.
inline constexpr size_t kTermStride = kTermBlock + 64;

// Rows of terms in the scratch memory, one byte a pixel: for each colour the doubled bytes to add, then those to
// subtract. With a ColourMatrix the first row holds the words, and the second is not used.
enum TermRow : size_t { kRedTerms = 0, kGreenTerms = 2, kBlueTerms = 4, kTermRows = 6 };

}    // namespace corvane::kernels

#endif

#if defined(CORVANE_KERNELS_CHROMA_TERMS_INL) == defined(HWY_TARGET_TOGGLE)
#ifdef CORVANE_KERNELS_CHROMA_TERMS_INL
#undef CORVANE_KERNELS_CHROMA_TERMS_INL
#else
#define CORVANE_KERNELS_CHROMA_TERMS_INL
#endif

#include "kernels/Vectors-inl.h"

#if !CORVANE_KERNELS_PLAIN

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {
// x, u and v hold one chroma sample in each lane.
template <const ChromaMatrix& kMatrix, bool kRed>
HWY_INLINE hn::Vec<SignedWords> Single(WordVector x) {
    constexpr SingleTerm kTerm = kRed ? kMatrix.red : kMatrix.blue;
    const Words d;
    const auto scaled = hn::ShiftLeft<kTerm.scaleShift>(x);
    const auto shifted = hn::ShiftLeft<kTerm.shift>(x);
    const auto product = hn::MulHigh(hn::Add(shifted, hn::Set(d, kTerm.add)), hn::Set(d, kTerm.multiplier));
    const auto rest = hn::Add(scaled, hn::Set(d, static_cast<uint16_t>(kTerm.offset)));
    return hn::BitCast(SignedWords(), hn::Add(product, rest));
}

HWY_INLINE hn::Vec<SignedDwords> PairProduct(const PairTerm& term, hn::Vec<SignedDwords> pairs) {
    const SignedDwords d;
#if HWY_ARCH_X86
    const auto factors =
        hn::BitCast(SignedWords(),
                    hn::Set(d, static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint16_t>(term.vFactor)) << 16 |
                                                    static_cast<uint16_t>(term.uFactor))));
    auto unused = hn::Zero(d);
    return hn::ReorderWidenMulAccumulate(d, hn::BitCast(SignedWords(), pairs), factors, hn::Set(d, term.constant),
                                         unused);
#else
    const auto u = hn::ShiftRight<16>(hn::ShiftLeft<16>(pairs));
    const auto v = hn::ShiftRight<16>(pairs);
    return hn::Add(hn::Add(hn::Mul(u, hn::Set(d, term.uFactor)), hn::Mul(v, hn::Set(d, term.vFactor))),
                   hn::Set(d, term.constant));
#endif
}

HWY_INLINE hn::Vec<SignedWords> Pair(const PairTerm& term, WordVector u, WordVector v) {
    const SignedWords d;
    const SignedDwords d32;
    // Even samples as (U, V) pairs of the even lanes, odd samples of the odd lanes.
    const auto u32 = hn::BitCast(Dwords(), u);
    const auto v32 = hn::BitCast(Dwords(), v);
    const auto even = hn::OddEven(hn::BitCast(d, hn::ShiftLeft<16>(v32)), hn::BitCast(d, u));
    const auto odd = hn::OddEven(hn::BitCast(d, v), hn::BitCast(d, hn::ShiftRight<16>(u32)));
    const auto evenSum = PairProduct(term, hn::BitCast(d32, even));
    const auto oddSum = PairProduct(term, hn::BitCast(d32, odd));
    const auto high = hn::OddEven(hn::BitCast(d, oddSum), hn::BitCast(d, hn::ShiftRight<16>(evenSum)));
    return hn::Sub(high, hn::BitCast(d, v));
}

template <bool kWide>
HWY_INLINE void StoreTerm(hn::Vec<SignedWords> term, uint8_t* HWY_RESTRICT up) {
    const SignedWords d;
    auto positive = hn::Max(term, hn::Zero(d));
    auto negative = hn::Sub(positive, term);
    if constexpr (kWide) {
        positive = hn::Min(positive, hn::Set(d, 255));
        negative = hn::Min(negative, hn::Set(d, 255));
    }
    const Bytes bytes;
    alignas(16) static constexpr uint8_t kDouble[16] = {0, 0, 2, 2, 4, 4, 6, 6, 8, 8, 10, 10, 12, 12, 14, 14};
    const auto doubled = hn::LoadDup128(bytes, kDouble);
    hn::StoreU(hn::TableLookupBytes(hn::BitCast(bytes, positive), doubled), bytes, up);
    hn::StoreU(hn::TableLookupBytes(hn::BitCast(bytes, negative), doubled), bytes, up + kTermStride);
}

// The arithmetic of a picture makes a vector of terms for each colour, and a vector of samples from them. This is the
// arithmetic of a matrix that is known when compiling, without a factor of luma.
template <const ChromaMatrix& kMatrix>
struct ByteArithmetic {
    HWY_INLINE void StoreTerms(WordVector u, WordVector v, uint8_t* HWY_RESTRICT terms) const {
        StoreTerm<kMatrix.red.wide>(Single<kMatrix, true>(v), terms + kRedTerms * kTermStride);
        StoreTerm<false>(Pair(kMatrix.green, u, v), terms + kGreenTerms * kTermStride);
        StoreTerm<kMatrix.blue.wide>(Single<kMatrix, false>(u), terms + kBlueTerms * kTermStride);
    }
    HWY_INLINE ByteVector Luma(ByteVector luma) const { return luma; }
    // `up` points at the vector's place in the row of terms to add.
    HWY_INLINE ByteVector Channel(ByteVector luma, const uint8_t* up) const {
        const Bytes d;
        return hn::SaturatedSub(hn::SaturatedAdd(luma, hn::LoadU(d, up)), hn::LoadU(d, up + kTermStride));
    }
};

// The arithmetic of any ColourMatrix.
class WordArithmetic {
public:
    explicit WordArithmetic(const ColourMatrix& matrix)
        : m_black(Set(static_cast<int16_t>(matrix.black << 7))),
          m_luma(Set(matrix.luma)),
          m_redV(Set(matrix.redV)),
          m_greenU(Set(matrix.greenU)),
          m_greenV(Set(matrix.greenV)),
          m_blueU(Set(matrix.blueU)) {}

    HWY_INLINE void StoreTerms(WordVector u, WordVector v, uint8_t* HWY_RESTRICT terms) const {
        const auto centredU = Centred(u);
        const auto centredV = Centred(v);
        Keep(hn::MulFixedPoint15(centredV, m_redV), terms + kRedTerms * kTermStride);
        Keep(hn::Add(hn::MulFixedPoint15(centredU, m_greenU), hn::MulFixedPoint15(centredV, m_greenV)),
             terms + kGreenTerms * kTermStride);
        Keep(hn::MulFixedPoint15(centredU, m_blueU), terms + kBlueTerms * kTermStride);
    }

    // Of the pixels in even and in odd columns.
    struct Lumas {
        hn::Vec<SignedWords> even;
        hn::Vec<SignedWords> odd;
    };
    HWY_INLINE Lumas Luma(ByteVector luma) const {
        const auto words = hn::BitCast(Words(), luma);
        return {Scaled(hn::ShiftLeft<7>(words)), Scaled(hn::ShiftRight<1>(words))};
    }
    HWY_INLINE ByteVector Channel(const Lumas& luma, const uint8_t* up) const {
        const auto terms = hn::BitCast(SignedWords(), hn::LoadU(Bytes(), up));
        const auto even = hn::BitCast(Words(), Sample(luma.even, terms));
        const auto odd = hn::BitCast(Words(), Sample(luma.odd, terms));
        return hn::BitCast(Bytes(), hn::Or(even, hn::ShiftLeft<8>(odd)));
    }

private:
    using Vector = hn::Vec<SignedWords>;

    static HWY_INLINE Vector Set(int16_t value) { return hn::Set(SignedWords(), value); }
    // (C - 128) << 8
    static HWY_INLINE Vector Centred(WordVector chroma) {
        return hn::BitCast(SignedWords(), hn::Xor(hn::ShiftLeft<8>(chroma), hn::Set(Words(), 0x8000)));
    }
    // Adds the half that rounds the sum.
    static HWY_INLINE void Keep(Vector term, uint8_t* to) {
        hn::StoreU(hn::BitCast(Bytes(), hn::Add(term, Set(32))), Bytes(), to);
    }
    // `shifted` holds Y << 7 beside bits of the neighbouring samples.
    HWY_INLINE Vector Scaled(WordVector shifted) const {
        const auto luma = hn::BitCast(SignedWords(), hn::And(shifted, hn::Set(Words(), 0x7F80)));
        return hn::MulFixedPoint15(hn::Sub(luma, m_black), m_luma);
    }
    // A saturated sum becomes 511, which clamps the same.
    static HWY_INLINE Vector Sample(Vector luma, Vector terms) {
        const auto sum = hn::ShiftRight<6>(hn::SaturatedAdd(luma, terms));
        return hn::Min(hn::Max(sum, hn::Zero(SignedWords())), Set(255));
    }

    Vector m_black, m_luma, m_redV, m_greenU, m_greenV, m_blueU;
};

template <class Arithmetic, class Order>
HWY_INLINE void StoreTermsAt(const Arithmetic& arithmetic, const Order& order, const uint8_t* HWY_RESTRICT u,
                             const uint8_t* HWY_RESTRICT v, uint8_t* HWY_RESTRICT terms) {
    const Words d;
    if (v != nullptr) {
        const hn::Rebind<uint8_t, Words> half;
        arithmetic.StoreTerms(order(hn::PromoteTo(d, hn::LoadU(half, u))), order(hn::PromoteTo(d, hn::LoadU(half, v))),
                              terms);
    } else {
        const auto pairs = hn::BitCast(d, hn::LoadU(Bytes(), u));
        arithmetic.StoreTerms(order(hn::And(pairs, hn::Set(d, 0xFF))), order(hn::ShiftRight<8>(pairs)), terms);
    }
}

// Fetches `bytes` of a row that is written soon into the second-level cache; the first level holds the terms. A picture
// that is not cached is written faster where its lines arrive during the arithmetic of the rows before, and processors
// do not prefetch rows of falling addresses.
HWY_INLINE void FetchAhead(const uint8_t* row, size_t bytes) {
    for (size_t at = 0; at < bytes; at += 64)
        __builtin_prefetch(row + at, 0, 2);
}

// The terms of `count` chroma samples, twice as many bytes in each row, in the order of each vector that `order` makes.
// Fetches `fetchStep` bytes of the row `fetch` for each vector.
template <bool kFetches, class Arithmetic, class Order>
HWY_INLINE void MakeTerms(const Arithmetic& arithmetic, const Order& order, const uint8_t* HWY_RESTRICT u,
                          const uint8_t* HWY_RESTRICT v, size_t count, uint8_t* HWY_RESTRICT terms,
                          const uint8_t* fetch, size_t fetchStep) {
    constexpr size_t kStep = hn::MaxLanes(Words());
    size_t i = 0;
    if (v != nullptr) {
        for (; i + kStep <= count; i += kStep, fetch += fetchStep) {
            if constexpr (kFetches)
                FetchAhead(fetch, fetchStep);
            StoreTermsAt(arithmetic, order, u + i, v + i, terms + 2 * i);
        }
    } else {
        for (; i + kStep <= count; i += kStep, fetch += fetchStep) {
            if constexpr (kFetches)
                FetchAhead(fetch, fetchStep);
            StoreTermsAt(arithmetic, order, u + 2 * i, nullptr, terms + 2 * i);
        }
    }
    if (i == count)
        return;
    HWY_ALIGN uint8_t uTail[2 * kStep] = {};
    HWY_ALIGN uint8_t vTail[kStep] = {};
    std::memcpy(uTail, v != nullptr ? u + i : u + 2 * i, v != nullptr ? count - i : 2 * (count - i));
    if (v != nullptr)
        std::memcpy(vTail, v + i, count - i);
    StoreTermsAt(arithmetic, order, uTail, v != nullptr ? vTail : nullptr, terms + 2 * i);
}

// One row of `count` pixels through `Writer`: its `Put(blue, green, red, out)` writes a whole vector of pixels of
// Writer::kPixelBytes bytes, its `kGroup` is what BlockOrder needs. `blue` and `red` are the rows of terms of the
// colours that Put takes first and last. Fetches half a row from `fetch`, for a Writer that `kFetches`.
template <class Arithmetic, class Writer>
HWY_INLINE void ConvertRow(const Arithmetic& arithmetic, const Writer& writer, const BlockOrder<Writer::kGroup>& order,
                           const uint8_t* HWY_RESTRICT y, const uint8_t* HWY_RESTRICT blue,
                           const uint8_t* HWY_RESTRICT green, const uint8_t* HWY_RESTRICT red, size_t count,
                           uint8_t* HWY_RESTRICT out, const uint8_t* fetch) {
    const Bytes d;
    constexpr size_t kStep = hn::MaxLanes(Bytes());
    size_t x = 0;
    for (; x + kStep <= count; x += kStep) {
        if constexpr (Writer::kFetches)
            FetchAhead(fetch + x * Writer::kPixelBytes / 2, kStep * Writer::kPixelBytes / 2);
        const auto luma = arithmetic.Luma(order(hn::LoadU(d, y + x)));
        writer.Put(arithmetic.Channel(luma, blue + x), arithmetic.Channel(luma, green + x),
                   arithmetic.Channel(luma, red + x), out + x * Writer::kPixelBytes);
    }
    if (x == count)
        return;
    HWY_ALIGN uint8_t lumaTail[kStep] = {};
    HWY_ALIGN uint8_t outTail[kStep * Writer::kPixelBytes];
    std::memcpy(lumaTail, y + x, count - x);
    const auto luma = arithmetic.Luma(order(hn::Load(d, lumaTail)));
    writer.Put(arithmetic.Channel(luma, blue + x), arithmetic.Channel(luma, green + x),
               arithmetic.Channel(luma, red + x), outTail);
    std::memcpy(out + x * Writer::kPixelBytes, outTail, (count - x) * Writer::kPixelBytes);
}

// All rows of `to`, with red and blue exchanged when `redFirst`, one output row at a time: writing two rows at once is
// slower where the picture is larger than the cache.
template <class Arithmetic, class Writer>
HWY_INLINE void ConvertPicture(const Arithmetic& arithmetic, const Writer& writer, const ConstPictureView& source,
                               const PictureView& to, bool redFirst, uint8_t* terms) {
    const BlockOrder<Writer::kGroup> order;
    const uint8_t* first = terms + (redFirst ? kRedTerms : kBlueTerms) * kTermStride;
    const uint8_t* last = terms + (redFirst ? kBlueTerms : kRedTerms) * kTermStride;
    const bool planar = source.ThreePlanes();
    const auto [width, height] = to.size;
    for (uint32_t row = 0; row < height; row += 2) {
        const auto pair = static_cast<ptrdiff_t>(row / 2);
        for (uint32_t x = 0; x < width; x += kTermBlock) {
            const uint32_t count = std::min(kTermBlock, width - x);
            const uint8_t* u = source.plane[1] + pair * source.stride[1] + (planar ? x / 2 : x);
            const uint8_t* v = planar ? source.plane[2] + pair * source.stride[2] + x / 2 : nullptr;
            // The second row is fetched during the terms, the two halves of the first of the next pair during the rows.
            const auto rowAt = [&](uint32_t line) HWY_ATTR { return to.Row(line) + size_t{x} * Writer::kPixelBytes; };
            const size_t rowBytes = size_t{count} * Writer::kPixelBytes;
            MakeTerms<Writer::kFetches>(arithmetic, order, u, v, (count + 1) / 2, terms,
                                        rowAt(std::min(row + 1, height - 1)),
                                        hn::MaxLanes(Bytes()) * Writer::kPixelBytes);
            for (uint32_t line = row; line < std::min(row + 2, height); ++line) {
                const uint8_t* next = rowAt(std::min(row + 2, height - 1)) + (line - row) * rowBytes / 2;
                ConvertRow(arithmetic, writer, order, source.Row(line) + x, first, terms + kGreenTerms * kTermStride,
                           last, count, rowAt(line), next);
            }
        }
    }
}

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#endif
#endif
