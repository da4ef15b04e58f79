// 4:2:0 to 24 and 32 bit RGB: full-range BT.601 (ITU-R Recommendation BT.601 as JFIF uses it), without a luma offset;
// or by a matrix.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/ColourMatrix.h"
#include "kernels/Source420.h"

namespace corvane::kernels {

struct RgbLayout {
    uint32_t bytes = 3;       // a pixel: 3, or 4
    bool redFirst = false;    // bytes R G B; else B G R
    uint8_t fourth = 0;       // what the fourth byte is, where there is one
    // The destination is not read soon, by this processor at least: stores go past the cache, where `destination` and
    // its step are on whole vectors (64 bytes serve every processor).
    bool streaming = false;
    const ColourMatrix* matrix = nullptr;    // null: full-range BT.601 as below
};

// Writes width x height pixels, with one U and one V for each block of 2 x 2, in 16.16 fixed point, clamped to 0 to
// 255:
//   R = (65536 Y + 91880 V - 11727880) >> 16
//   G = (65536 Y - 22553 U - 46801 V + 8910128) >> 16
//   B = (65536 Y + 116128 U - 14831618) >> 16
// or as ColourMatrix::ToRgb has it, where the layout names a matrix.
// Width and height are at least 2. An odd last row or column is not written and gives kOddPartUnwritten.
// `destinationStep` is in bytes; negative with `destination` at the last row writes a bottom-up picture.
int32_t YCbCrToRGB(const Source420& source, uint8_t* destination, ptrdiff_t destinationStep, uint32_t width,
                   uint32_t height, RgbLayout layout);

namespace ref {
int32_t YCbCrToRGB(const Source420& source, uint8_t* destination, ptrdiff_t destinationStep, uint32_t width,
                   uint32_t height, RgbLayout layout);
}

}    // namespace corvane::kernels
