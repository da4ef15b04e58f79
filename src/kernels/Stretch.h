// Scaling of interleaved pictures into 32 bit pixels: the one scaler of what is put on windows.
//
// Each axis by itself: where the destination is smaller, a pixel is the mean of the source pixels that it covers, those
// at its edges counted by the part covered (box); where it is larger, the two nearest source pixels are mixed by the
// distance of centres, with the outermost repeated (bilinear); where both are equal the axis is copied.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::kernels {

// Rows of B, G, R (3 bytes) or B, G, R, X (4 bytes). `data` is the top row; `step` is negative for a picture whose
// first row in memory is the bottom. 64 bytes behind the last row in memory may be read.
struct StretchSource {
    const uint8_t* data;
    ptrdiff_t step;            // bytes
    uint32_t x, y;             // the part that is shown, pixels
    uint32_t width, height;    // at least 1 each
    uint32_t bytesPerPixel;    // 3 or 4
};

// The whole source part fills width x height pixels, of which only those from (clipX, clipY) on, clipWidth by
// clipHeight, are written: `data` is the pixel at (clipX, clipY). Nothing else is touched.
struct StretchDestination {
    uint8_t* data;
    ptrdiff_t step;    // bytes
    uint32_t width, height;
    uint32_t clipX, clipY;
    uint32_t clipWidth, clipHeight;
};

// Writes B, G, R, 0xFF for each pixel, within 2 levels of `ref::Stretch`, and equal to it where the size does not
// change. False when there is no memory for the tables and the row between the passes; nothing is written then.
[[nodiscard]] bool Stretch(const StretchSource& source, const StretchDestination& destination);

namespace ref {
// The definition, in floating point, rounded to the nearest at the end.
void Stretch(const StretchSource& source, const StretchDestination& destination);
}    // namespace ref

}    // namespace corvane::kernels
