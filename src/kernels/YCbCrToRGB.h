// 4:2:0 to 24 and 32 bit RGB: full-range BT.601 (ITU-R Recommendation BT.601 as JFIF uses it), without a luma offset;
// or by the colours of the source.
#pragma once

#include <cstdint>

#include "base/PictureView.h"
#include "kernels/ColourMatrix.h"
#include "kernels/KernelResult.h"

namespace corvane::kernels {

struct RgbStores {
    uint8_t fourth = 0;    // the value of the fourth byte of a pixel of 32 bits
    // Store past the cache, for a destination that this processor does not read soon. Only where all rows begin on a
    // vector's boundary; 64 bytes are enough for every processor.
    bool streaming = false;
};

// From PF_I420 or PF_NV12 to PF_BGR24, PF_RGB24, PF_BGRA32 or PF_RGBA32, with one U and one V for each block of 2 x 2,
// in 16.16 fixed point, clamped to 0 to 255:
//   R = (65536 Y + 91880 V - 11727880) >> 16
//   G = (65536 Y - 22553 U - 46801 V + 8910128) >> 16
//   B = (65536 Y + 116128 U - 14831618) >> 16
// or by ColourMatrix::ToRgb, where the source has other colours. Width and height are at least 2. An odd last row or
// column is not written and gives kOddPartUnwritten.
int32_t YCbCrToRGB(const ConstPictureView& source, const PictureView& destination, RgbStores stores = {});

namespace ref {
int32_t YCbCrToRGB(const ConstPictureView& source, const PictureView& destination, RgbStores stores = {});
}

// The layout of a destination's pixels. `pixelBytes` is 0 for a format that YCbCrToRGB does not make.
struct RgbLayout {
    uint32_t pixelBytes;    // 3 or 4
    bool redFirst;          // bytes R G B; else B G R

    static constexpr RgbLayout Of(uint32_t format) {
        return {format == PF_BGR24 || format == PF_RGB24     ? 3u
                : format == PF_BGRA32 || format == PF_RGBA32 ? 4u
                                                             : 0u,
                format == PF_RGB24 || format == PF_RGBA32};
    }
};

// Whether the kernel takes these pictures.
inline bool TakesRgb(const ConstPictureView& source, const PictureView& destination) {
    return (source.ThreePlanes() || source.TwoPlanes()) && source.Complete() && destination &&
           destination.size.width >= 2 && destination.size.height >= 2 &&
           RgbLayout::Of(destination.format).pixelBytes != 0;
}

// Null for full-range BT.601, which the kernel computes without a matrix.
inline const ColourMatrix* RgbMatrixOf(const ConstPictureView& source) {
    return source.colours ? MatrixBeside(*source.colours) : nullptr;
}

}    // namespace corvane::kernels
