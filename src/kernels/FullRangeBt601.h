// Planes of YCbCr 4:2:0 to full-range BT.601, which is what the JFIF standard means by YCbCr. For stills: it has one
// form, whose loops compilers make vectors of.
#pragma once

#include "base/PictureView.h"

namespace corvane::kernels {

// In place: all of Y, and width / 2 x height / 2 samples of Cb and Cr of a picture in PF_I420 that is to be in
// full-range BT.601 afterwards, where it has other colours. An odd last row or column of Y uses the chroma before it,
// or none where there is none. Through R, G and B, which are not clamped on the way, in 16.16 fixed point with one
// rounding, and clamped to 0 to 255.
void ToFullRangeBt601(const PictureView& picture);

}    // namespace corvane::kernels
