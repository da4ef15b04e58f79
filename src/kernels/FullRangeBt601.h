// Planes of YCbCr 4:2:0 to full-range BT.601, the YCbCr of the JFIF standard. For stills. The kernel has one form,
// whose loops compilers vectorise.
#pragma once

#include "base/PictureView.h"

namespace corvane::kernels {

// Converts a picture in PF_I420 in place, where its colours are others: all of Y, and width / 2 x height / 2 samples of
// Cb and Cr. An odd last row or column of Y uses the chroma before it, or none where there is none. The arithmetic is
// 16.16 fixed point by way of R, G and B, which are not clamped, with one rounding; results are clamped to 0 to 255.
void ToFullRangeBt601(const PictureView& picture);

}    // namespace corvane::kernels
