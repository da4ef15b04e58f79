// Rotation of pictures by quarters: pixels change their places only.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::kernels {

// `width` and `height` are those of the destination in pixels of `channels` bytes, 1 to 4. Strides are in bytes and may
// be negative; with negative strides these two functions give all rotations by quarters. Nothing outside the pixels is
// read or written; source and destination do not overlap.

// destination(x, y) = source(y, x)
void Transpose(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
               uint32_t width, uint32_t height, uint32_t channels);

// destination(x, y) = source(width - 1 - x, y)
void Mirror(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
            uint32_t width, uint32_t height, uint32_t channels);

namespace ref {
void Transpose(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
               uint32_t width, uint32_t height, uint32_t channels);
void Mirror(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
            uint32_t width, uint32_t height, uint32_t channels);
}    // namespace ref

}    // namespace corvane::kernels
