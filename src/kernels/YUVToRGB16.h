// 4:2:0 to 16 bit RGB, with the analogue U V matrix; or by another one.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kernels/ColourMatrix.h"
#include "kernels/Source420.h"

namespace corvane::kernels {

struct Rgb16Layout {
    uint32_t greenBits = 6;                  // 5 or 6
    bool redHigh = true;                     // red in the upper bits and blue at bit 0; else exchanged
    const ColourMatrix* matrix = nullptr;    // null: the analogue matrix
};

// Writes width x height pixels, both at least 1, with u = U - 128 and v = V - 128, clamped to 0 to 255:
//   R = (65536 Y + 74711 v) >> 16
//   G = (65536 Y - 38076 v - 25821 u) >> 16
//   B = (65536 Y + 133169 u) >> 16
// or as ColourMatrix::ToRgb has it, where the layout names a matrix;
// and packed with R >> 3, G >> 3 or G >> 2, B >> 3. Little-endian words; bit 15 is 0 with 5 bit green. The last row and
// column of an odd size use the chroma sample of their half block. `destinationStep` is in words of 16 bits.
int32_t YUVToRGB16(const Source420& source, uint16_t* destination, ptrdiff_t destinationStep, uint32_t width,
                   uint32_t height, Rgb16Layout layout);

namespace ref {
int32_t YUVToRGB16(const Source420& source, uint16_t* destination, ptrdiff_t destinationStep, uint32_t width,
                   uint32_t height, Rgb16Layout layout);
}

}    // namespace corvane::kernels
