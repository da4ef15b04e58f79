// Planes of YCbCr 4:2:0 to full-range BT.601, which is what the JFIF standard means by YCbCr. For stills: it has one
// form, whose loops compilers make vectors of.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/ColourSignal.h"

namespace corvane::kernels {

// Three planes that are converted in place: width x height samples of Y, width / 2 x height / 2 of Cb and Cr. An odd
// last row or column of Y uses the chroma before it, or none where there is none.
struct Planes420 {
    uint8_t* y;
    uint8_t* u;
    uint8_t* v;
    ptrdiff_t yStep;
    ptrdiff_t chromaStep;
    uint32_t width;
    uint32_t height;
};

// Through R, G and B, which are not clamped on the way, in 16.16 fixed point with one rounding, and clamped to 0 to
// 255. Nothing is changed where `from` is full-range BT.601.
void ToFullRangeBt601(const Planes420& planes, const ColourSignal& from);

}    // namespace corvane::kernels
