// 4:2:0 to packed 4:2:2: each chroma row serves two output rows.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::kernels {

// Width and height are rounded down to even and are at least 2 then; the rest of an odd picture stays unwritten. Steps
// are in bytes and may be negative. Return 0, or negative for a null pointer or an empty size. YUY2 has the bytes Y0 U
// Y1 V, UYVY the bytes U Y0 V Y1.
int32_t PlanarToYUY2(const uint8_t* y, ptrdiff_t yStep, const uint8_t* u, ptrdiff_t uStep, const uint8_t* v,
                     ptrdiff_t vStep, uint8_t* destination, ptrdiff_t destinationStep, uint32_t width, uint32_t height);
int32_t PlanarToUYVY(const uint8_t* y, ptrdiff_t yStep, const uint8_t* u, ptrdiff_t uStep, const uint8_t* v,
                     ptrdiff_t vStep, uint8_t* destination, ptrdiff_t destinationStep, uint32_t width, uint32_t height);
int32_t NV12ToYUY2(const uint8_t* y, ptrdiff_t yStep, const uint8_t* uv, ptrdiff_t uvStep, uint8_t* destination,
                   ptrdiff_t destinationStep, uint32_t width, uint32_t height);
int32_t NV12ToUYVY(const uint8_t* y, ptrdiff_t yStep, const uint8_t* uv, ptrdiff_t uvStep, uint8_t* destination,
                   ptrdiff_t destinationStep, uint32_t width, uint32_t height);

namespace ref {
// All four: from U V pairs when `v` is null; UYVY when `lumaSecond`.
int32_t ToPacked(const uint8_t* y, ptrdiff_t yStep, const uint8_t* u, ptrdiff_t uStep, const uint8_t* v,
                 ptrdiff_t vStep, uint8_t* destination, ptrdiff_t destinationStep, uint32_t width, uint32_t height,
                 bool lumaSecond);
}    // namespace ref

}    // namespace corvane::kernels
