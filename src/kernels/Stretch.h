// Scaling of packed pictures into 32 bit pixels; the scaler of all pictures that are put on windows.
//
// Each axis is worked by itself. Where the destination is smaller, a pixel is the mean of the source pixels that it
// covers, where those at the edges count by the part covered (box). Where it is larger, the two nearest source pixels
// are mixed by the distance of centres, with the outermost repeated (bilinear). Where both are equal the axis is
// copied.
#pragma once

#include "base/PictureView.h"

namespace corvane::kernels {

// Scales all of `source` (PF_BGR24 or PF_BGRA32, at least one pixel) so that it fills `whole`, a rectangle in pixels of
// `destination` (PF_BGRA32), which lies inside it. Writes B, G, R, 0xFF for each pixel of `destination`, within 2
// levels of `ref::Stretch`, and equal to it where the size does not change. 64 bytes after the last row of the source
// in memory may be read. False when there is no memory for the tables and the row between the passes; nothing is
// written then.
[[nodiscard]] bool Stretch(const ConstPictureView& source, const PictureView& destination, const Rect& whole);

namespace ref {
// The definition, in floating point, rounded to the nearest at the end.
void Stretch(const ConstPictureView& source, const PictureView& destination, const Rect& whole);
}    // namespace ref

}    // namespace corvane::kernels
