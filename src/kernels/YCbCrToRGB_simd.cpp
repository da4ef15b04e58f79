#include "kernels/YCbCrToRGB.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/YCbCrToRGB_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include "base/AlignedBuffer.h"
#include "kernels/ChromaTerms-inl.h"

#ifndef CORVANE_KERNELS_YCBCRTORGB_ONCE
#define CORVANE_KERNELS_YCBCRTORGB_ONCE
namespace corvane::kernels {
inline constexpr ChromaMatrix kFullRangeMatrix{
    {0, 0, 1035, 26344, -595, false}, {4, 0, 32347, 3162, -1787, false}, {-22553, 18735, 8910128}};
static_assert(kFullRangeMatrix.red.Equals(91880, -11727880) && kFullRangeMatrix.blue.Equals(116128, -14831618));
static_assert(-46801 == kFullRangeMatrix.green.vFactor - 65536);
}    // namespace corvane::kernels
#endif

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

#if CORVANE_KERNELS_PLAIN
int32_t ConvertRgb(const ConstPictureView& source, const PictureView& destination, RgbStores stores,
                   uint8_t* /*terms*/) {
    return ref::YCbCrToRGB(source, destination, stores);
}
#else

template <bool kStreaming>
struct Rgb24Writer {
    static constexpr size_t kPixelBytes = 3;
    static constexpr size_t kGroup = 0;
    static constexpr bool kFetches = !kStreaming;
    HWY_INLINE void Put(ByteVector blue, ByteVector green, ByteVector red, uint8_t* out) const {
        const Bytes d;
        if constexpr (!kStreaming) {
            hn::StoreInterleaved3(blue, green, red, d, out);
        } else {
            constexpr size_t kStep = hn::MaxLanes(d);
            HWY_ALIGN uint8_t pixels[3 * kStep];    // compilers keep it in registers
            hn::StoreInterleaved3(blue, green, red, d, pixels);
            for (size_t at = 0; at < 3 * kStep; at += kStep)
                hn::Stream(hn::Load(d, pixels + at), d, out + at);
        }
    }
};

template <bool kStreaming>
class Rgb32Writer {
public:
    static constexpr size_t kPixelBytes = 4;
    static constexpr size_t kGroup = 1;
    static constexpr bool kFetches =
        !kStreaming && hn::MaxLanes(Bytes()) < 64;    // stores of whole lines need no fetch

    explicit Rgb32Writer(uint8_t fourth) : m_fourth(hn::Set(Bytes(), fourth)) {}
    HWY_INLINE void Put(ByteVector blue, ByteVector green, ByteVector red, uint8_t* out) const {
        const Bytes d;
        const Words d16;
        constexpr size_t kStep = hn::MaxLanes(Bytes());
        const auto bgLow = hn::BitCast(d16, hn::InterleaveLower(d, blue, green));
        const auto bgHigh = hn::BitCast(d16, hn::InterleaveUpper(d, blue, green));
        const auto rxLow = hn::BitCast(d16, hn::InterleaveLower(d, red, m_fourth));
        const auto rxHigh = hn::BitCast(d16, hn::InterleaveUpper(d, red, m_fourth));
        Store<kStreaming>(hn::BitCast(d, hn::InterleaveLower(d16, bgLow, rxLow)), out);
        Store<kStreaming>(hn::BitCast(d, hn::InterleaveUpper(d16, bgLow, rxLow)), out + kStep);
        Store<kStreaming>(hn::BitCast(d, hn::InterleaveLower(d16, bgHigh, rxHigh)), out + 2 * kStep);
        Store<kStreaming>(hn::BitCast(d, hn::InterleaveUpper(d16, bgHigh, rxHigh)), out + 3 * kStep);
    }

private:
    ByteVector m_fourth;
};

// One function for each arithmetic, so that neither takes registers of the other.
template <class Arithmetic>
HWY_NOINLINE void ConvertBy(const Arithmetic arithmetic, const ConstPictureView& source, const PictureView& even,
                            RgbStores stores, uint8_t* terms) {
    const RgbLayout layout = RgbLayout::Of(even.format);
    const bool streaming = stores.streaming && OnVectors(even.plane[0], even.stride[0]);
    if (layout.pixelBytes == 3 && streaming)
        ConvertPicture(arithmetic, Rgb24Writer<true>(), source, even, layout.redFirst, terms);
    else if (layout.pixelBytes == 3)
        ConvertPicture(arithmetic, Rgb24Writer<false>(), source, even, layout.redFirst, terms);
    else if (streaming)
        ConvertPicture(arithmetic, Rgb32Writer<true>(stores.fourth), source, even, layout.redFirst, terms);
    else
        ConvertPicture(arithmetic, Rgb32Writer<false>(stores.fourth), source, even, layout.redFirst, terms);
    if (streaming)
        hwy::FlushStream();
}

int32_t ConvertRgb(const ConstPictureView& source, const PictureView& destination, RgbStores stores, uint8_t* terms) {
    PictureView even = destination;
    even.size = {destination.size.width & ~1u, destination.size.height & ~1u};
    if (const ColourMatrix* const matrix = RgbMatrixOf(source))
        ConvertBy(WordArithmetic(*matrix), source, even, stores, terms);
    else
        ConvertBy(ByteArithmetic<kFullRangeMatrix>(), source, even, stores, terms);
    return even.size == destination.size ? kDone : kOddPartUnwritten;
}
#endif

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(ConvertRgb);

int32_t YCbCrToRGB(const ConstPictureView& source, const PictureView& destination, RgbStores stores) {
    if (!TakesRgb(source, destination))
        return kRefused;
    AlignedBuffer memory;
    if (!memory.Allocate(kTermRows * kTermStride))
        return ref::YCbCrToRGB(source, destination, stores);
    return HWY_DYNAMIC_DISPATCH(ConvertRgb)(source, destination, stores, memory.Data());
}

}    // namespace corvane::kernels
#endif
