// Between three planes (I420) and two (NV12: Y, then U V pairs).
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::kernels {

// Width and height are rounded down to even and are at least 2 then. Steps are in bytes. Return 0, or negative for a
// null pointer or an empty size.
int32_t I420ToNV12(const uint8_t* y, ptrdiff_t yStep, const uint8_t* u, ptrdiff_t uStep, const uint8_t* v,
                   ptrdiff_t vStep, uint8_t* outY, ptrdiff_t outYStep, uint8_t* outUv, ptrdiff_t outUvStep,
                   uint32_t width, uint32_t height);

// All of Y, and (width + 1) / 2 samples of height / 2 chroma rows: a chroma row more would not fit a buffer of
// step x height x 3 / 2 bytes. Width and height are at least 1.
int32_t NV12ToI420(const uint8_t* y, ptrdiff_t yStep, const uint8_t* uv, ptrdiff_t uvStep, uint8_t* outY,
                   ptrdiff_t outYStep, uint8_t* outU, ptrdiff_t outUStep, uint8_t* outV, ptrdiff_t outVStep,
                   uint32_t width, uint32_t height);

namespace ref {
void MergeRow(const uint8_t* u, const uint8_t* v, uint8_t* uv, size_t pairs);
void SplitRow(const uint8_t* uv, uint8_t* u, uint8_t* v, size_t pairs);
}    // namespace ref

}    // namespace corvane::kernels
