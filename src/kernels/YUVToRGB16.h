// 4:2:0 to 16 bit RGB, with the analogue U V matrix; or by the colours of the source.
#pragma once

#include <cstdint>

#include "base/PictureView.h"
#include "kernels/ColourMatrix.h"
#include "kernels/KernelResult.h"

namespace corvane::kernels {

// From PF_I420 or PF_NV12 to PF_RGB555, PF_RGB565, PF_BGR555 or PF_BGR565, both sides at least 1, with u = U - 128 and
// v = V - 128, clamped to 0 to 255:
//   R = (65536 Y + 74711 v) >> 16
//   G = (65536 Y - 38076 v - 25821 u) >> 16
//   B = (65536 Y + 133169 u) >> 16
// or by ColourMatrix::ToRgb, where the source states its colours; then packed with R >> 3, G >> 3 or G >> 2, B >> 3.
// Little-endian words on even addresses; bit 15 is 0 with 5 bit green. The last row and column of an odd size use the
// chroma sample of their half block.
int32_t YUVToRGB16(const ConstPictureView& source, const PictureView& destination);

namespace ref {
int32_t YUVToRGB16(const ConstPictureView& source, const PictureView& destination);
}

// The layout of a destination's pixels. `greenBits` is 0 for a format that YUVToRGB16 does not make.
struct Rgb16Layout {
    uint32_t greenBits;    // 5 or 6
    bool redHigh;          // red in the upper bits and blue at bit 0; else exchanged

    static constexpr Rgb16Layout Of(uint32_t format) {
        return {format == PF_RGB555 || format == PF_BGR555   ? 5u
                : format == PF_RGB565 || format == PF_BGR565 ? 6u
                                                             : 0u,
                format == PF_RGB555 || format == PF_RGB565};
    }
};

// Whether the kernel takes these pictures.
inline bool TakesRgb16(const ConstPictureView& source, const PictureView& destination) {
    return (source.ThreePlanes() || source.TwoPlanes()) && source.Complete() && destination &&
           !destination.size.Empty() && Rgb16Layout::Of(destination.format).greenBits != 0;
}

}    // namespace corvane::kernels
