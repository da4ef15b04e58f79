// 4:2:0 to packed 4:2:2: each chroma row serves two output rows.
#pragma once

#include <cstdint>

#include "base/PictureView.h"
#include "kernels/KernelResult.h"

namespace corvane::kernels {

// From PF_I420 (Planar) or PF_NV12 to the bytes Y0 U Y1 V (PF_YUY2) or U Y0 V Y1 (PF_UYVY). Width and height are
// rounded down to even and are at least 2 then; the rest of an odd picture stays unwritten. kDone or kRefused.
int32_t PlanarToYUY2(const ConstPictureView& source, const PictureView& destination);
int32_t PlanarToUYVY(const ConstPictureView& source, const PictureView& destination);
int32_t NV12ToYUY2(const ConstPictureView& source, const PictureView& destination);
int32_t NV12ToUYVY(const ConstPictureView& source, const PictureView& destination);

namespace ref {
// All four, by the formats of the views.
int32_t ToPacked(const ConstPictureView& source, const PictureView& destination);
}    // namespace ref

}    // namespace corvane::kernels
