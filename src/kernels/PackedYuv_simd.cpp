#include "kernels/PackedYuv.h"

#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "kernels/PackedYuv_simd.cpp"
#include <hwy/foreach_target.h>
#include <hwy/highway.h>

#include <algorithm>

#include "base/AlignedBuffer.h"
#include "kernels/Interleave-inl.h"
#include "kernels/Source420.h"

HWY_BEFORE_NAMESPACE();
namespace corvane::kernels {
namespace HWY_NAMESPACE {

// `pairs` takes one row of U V pairs of `width` bytes; not used when the source has pairs.
void Pack(const Source420& source, uint8_t* destination, ptrdiff_t step, uint32_t width, uint32_t height,
          bool luma_second, uint8_t* pairs) {
    for (uint32_t row = 0; row < height; ++row) {
        const uint8_t* luma = source.y + static_cast<ptrdiff_t>(row) * source.y_step;
        const uint8_t* chroma = source.u + static_cast<ptrdiff_t>(row / 2) * source.u_step;
        if (source.Planar()) {
            if ((row & 1) == 0)
                InterleaveRow(chroma, source.v + static_cast<ptrdiff_t>(row / 2) * source.v_step, pairs, width / 2);
            chroma = pairs;
        }
        uint8_t* out = destination + static_cast<ptrdiff_t>(row) * step;
        if (luma_second)
            InterleaveRow(chroma, luma, out, width);
        else
            InterleaveRow(luma, chroma, out, width);
    }
}

}    // namespace HWY_NAMESPACE
}    // namespace corvane::kernels
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
namespace corvane::kernels {

HWY_EXPORT(Pack);

namespace {

int32_t ToPacked(const Source420& source, uint8_t* destination, ptrdiff_t step, uint32_t width, uint32_t height,
                 bool luma_second) {
    if (source.y == nullptr || source.u == nullptr || destination == nullptr || width < 2 || height < 2)
        return kRefused;
    AlignedBuffer pairs;
    if (source.Planar() && !pairs.Allocate(width)) {
        return ref::ToPacked(source.y, source.y_step, source.u, source.u_step, source.v, source.v_step, destination,
                             step, width, height, luma_second);
    }
    HWY_DYNAMIC_DISPATCH(Pack)(source, destination, step, width & ~1u, height & ~1u, luma_second, pairs.Data());
    return kDone;
}

}    // namespace

int32_t PlanarToYUY2(const uint8_t* y, ptrdiff_t y_step, const uint8_t* u, ptrdiff_t u_step, const uint8_t* v,
                     ptrdiff_t v_step, uint8_t* destination, ptrdiff_t destination_step, uint32_t width,
                     uint32_t height) {
    if (v == nullptr)
        return kRefused;
    return ToPacked({y, u, v, y_step, u_step, v_step}, destination, destination_step, width, height, false);
}

int32_t PlanarToUYVY(const uint8_t* y, ptrdiff_t y_step, const uint8_t* u, ptrdiff_t u_step, const uint8_t* v,
                     ptrdiff_t v_step, uint8_t* destination, ptrdiff_t destination_step, uint32_t width,
                     uint32_t height) {
    if (v == nullptr)
        return kRefused;
    return ToPacked({y, u, v, y_step, u_step, v_step}, destination, destination_step, width, height, true);
}

int32_t NV12ToYUY2(const uint8_t* y, ptrdiff_t y_step, const uint8_t* uv, ptrdiff_t uv_step, uint8_t* destination,
                   ptrdiff_t destination_step, uint32_t width, uint32_t height) {
    return ToPacked({y, uv, nullptr, y_step, uv_step, 0}, destination, destination_step, width, height, false);
}

int32_t NV12ToUYVY(const uint8_t* y, ptrdiff_t y_step, const uint8_t* uv, ptrdiff_t uv_step, uint8_t* destination,
                   ptrdiff_t destination_step, uint32_t width, uint32_t height) {
    return ToPacked({y, uv, nullptr, y_step, uv_step, 0}, destination, destination_step, width, height, true);
}

}    // namespace corvane::kernels
#endif
