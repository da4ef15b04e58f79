// Between three planes (PF_I420) and two (PF_NV12: Y, then U V pairs).
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/PictureView.h"
#include "kernels/KernelResult.h"

namespace corvane::kernels {

// Width and height are rounded down to even and are at least 2 then. kDone or kRefused.
int32_t I420ToNV12(const ConstPictureView& source, const PictureView& destination);

// Writes all of Y, and (width + 1) / 2 samples of height / 2 chroma rows: one more chroma row would not fit a buffer of
// stride x height x 3 / 2 bytes. Width and height are at least 1. kDone or kRefused.
int32_t NV12ToI420(const ConstPictureView& source, const PictureView& destination);

namespace ref {
void MergeRow(const uint8_t* u, const uint8_t* v, uint8_t* uv, size_t pairs);
void SplitRow(const uint8_t* uv, uint8_t* u, uint8_t* v, size_t pairs);
}    // namespace ref

}    // namespace corvane::kernels
