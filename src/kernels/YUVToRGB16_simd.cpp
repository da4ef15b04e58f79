#include "kernels/YUVToRGB16.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/YUVToRGB16_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "base/AlignedBuffer.h"
#include "kernels/ChromaTerms-inl.h"

#ifndef CORVANE_KERNELS_YUVTORGB16_ONCE
#define CORVANE_KERNELS_YUVTORGB16_ONCE
namespace corvane::kernels {
// -38076 v - 25821 u with the 128 taken out is -65536 V + 27460 V - 25821 U + 128 (38076 + 25821).
inline constexpr ChromaMatrix kAnalogueMatrix{
    {2, 0, 3, 2291, -146, false}, {1, 1, 57, 1047, -261, true}, {-25821, 27460, 128 * (38076 + 25821)}};
static_assert(kAnalogueMatrix.red.Equals(74711, -128 * 74711) && kAnalogueMatrix.blue.Equals(133169, -128 * 133169));
static_assert(-38076 == kAnalogueMatrix.green.vFactor - 65536);
}    // namespace corvane::kernels
#endif

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
int32_t ConvertRgb16(const ConstPictureView& source, const PictureView& destination, uint8_t* /*terms*/) {
    return ref::YUVToRGB16(source, destination);
}
#else

// `blue` is the colour at bit 0.
template <int kGreenBits>
struct Rgb16Writer {
    static constexpr size_t kPixelBytes = 2;
    static constexpr size_t kGroup = 2;
    static constexpr bool kFetches = true;

    // Shifts of bytes, made of word shifts; `kMask` removes the bits of the neighbouring byte.
    template <int kShift, uint8_t kMask>
    static HWY_INLINE ByteVector Right(ByteVector v) {
        return hn::And(hn::BitCast(Bytes(), hn::ShiftRight<kShift>(hn::BitCast(Words(), v))), hn::Set(Bytes(), kMask));
    }
    template <int kShift, uint8_t kMask>
    static HWY_INLINE ByteVector Left(ByteVector v) {
        return hn::And(hn::BitCast(Bytes(), hn::ShiftLeft<kShift>(hn::BitCast(Words(), v))), hn::Set(Bytes(), kMask));
    }

    HWY_INLINE void Put(ByteVector blue, ByteVector green, ByteVector red, uint8_t* out) const {
        const Bytes d;
        ByteVector high, low;
        if constexpr (kGreenBits == 6) {
            high = hn::Or(hn::And(red, hn::Set(d, 0xF8)), Right<5, 0x07>(green));
            low = hn::Or(Left<3, 0xE0>(green), Right<3, 0x1F>(blue));
        } else {
            high = hn::Or(Right<1, 0x7C>(red), Right<6, 0x03>(green));
            low = hn::Or(Left<2, 0xE0>(green), Right<3, 0x1F>(blue));
        }
        hn::StoreU(hn::InterleaveLower(d, low, high), d, out);
        hn::StoreU(hn::InterleaveUpper(d, low, high), d, out + hn::MaxLanes(d));
    }
};

// One function for each arithmetic, so that neither takes registers of the other.
template <class Arithmetic>
HWY_NOINLINE void ConvertBy(const Arithmetic arithmetic, const ConstPictureView& source, const PictureView& to,
                            uint8_t* terms) {
    const Rgb16Layout layout = Rgb16Layout::Of(to.format);
    if (layout.greenBits == 6)
        ConvertPicture(arithmetic, Rgb16Writer<6>(), source, to, !layout.redHigh, terms);
    else
        ConvertPicture(arithmetic, Rgb16Writer<5>(), source, to, !layout.redHigh, terms);
}

int32_t ConvertRgb16(const ConstPictureView& source, const PictureView& destination, uint8_t* terms) {
    if (source.colours)
        ConvertBy(WordArithmetic(MatrixOf(*source.colours)), source, destination, terms);
    else
        ConvertBy(ByteArithmetic<kAnalogueMatrix>(), source, destination, terms);
    return kDone;
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(ConvertRgb16);

int32_t YUVToRGB16(const ConstPictureView& source, const PictureView& destination) {
    if (!TakesRgb16(source, destination))
        return kRefused;
    AlignedBuffer memory;
    if (!memory.Allocate(kTermRows * kTermStride))
        return ref::YUVToRGB16(source, destination);
    return HWY_DYNAMIC_DISPATCH(ConvertRgb16)(source, destination, memory.Data());
}

}    // namespace corvane::kernels
#endif
