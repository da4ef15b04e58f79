// Weaving and smoothing of pictures that were captured field by field.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::kernels {

// One plane that holds its top field in the upper half and its bottom field in the lower half: row i of the upper half
// goes to row 2 i, row i of the lower half to row 2 i + 1, for `fieldRows` rows each. The lower half begins at source
// row `fieldRows`. Strides are in bytes. kDone; kRefused for a null pointer.
int32_t WeavePlane(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                   uint32_t width, uint32_t fieldRows);

// Vertical three-tap filter over one plane. For every row but the first and the last, which are copied,
//   out[y][x] = ((in[y-1][x] + in[y+1][x]) * ((256 - weight) >> 1) + in[y][x] * weight) >> 8
// with `weight` capped at 256. Not in place. kDone; kRefused for a null pointer, no column, or fewer than 3 rows.
int32_t SmoothPlane(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                    uint32_t width, uint32_t height, uint32_t weight);

namespace ref {
void SmoothRow(const uint8_t* above, const uint8_t* row, const uint8_t* below, uint8_t* out, size_t width,
               uint32_t weight);
}

}    // namespace corvane::kernels
