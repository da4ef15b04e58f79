// Lays what a client drew over a finished picture. Value 0 in the drawing (its fourth byte masked) is transparent, so pure
// black cannot be drawn.
#pragma once

#include <cstdint>

#include "platform/raster/Raster.h"

namespace corvane {

// `data`: the picture of the drawing's size, laid out as FillPicture says for (stride, height, format). PF_BGR24_FLIP and
// PF_I420; of any other format the drawing is lost, and false is returned. In PF_I420 a pixel counts as drawn where its
// luma is not 0, each block of 2x2 gets the mean chroma of its four pixels, and the last row and column of odd sizes are
// not touched.
bool BlendOverlay(const RasterView& drawing, uint8_t* data, uint32_t stride, uint32_t format);

}    // namespace corvane
