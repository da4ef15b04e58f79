// Lays a client's drawing over a finished picture. A pixel with the value 0 (without its fourth byte) is transparent,
// so pure black cannot be drawn.
#pragma once

#include "base/PictureView.h"

namespace corvane {

// `drawing` (PF_BGRA32) and `picture` (PF_BGR24 or PF_I420) have one size. In PF_I420 a pixel counts as drawn where its
// luma is not 0, each block of 2x2 gets the mean chroma of its four pixels, and the last row and column of odd sizes
// are not touched.
void BlendOverlay(const ConstPictureView& drawing, const PictureView& picture);

}    // namespace corvane
