#include "kernels/PackedYuv.h"

namespace corvane::kernels::ref {

int32_t ToPacked(const ConstPictureView& source, const PictureView& destination) {
    const auto [width, height] = destination.size;
    if (!source.Complete() || !destination || width < 2 || height < 2)
        return kRefused;
    const bool planar = source.ThreePlanes();
    const size_t chromaStep = planar ? 1 : 2;
    const size_t lumaAt = destination.format == PF_UYVY ? 1 : 0;
    for (uint32_t row = 0; row < (height & ~1u); ++row) {
        const auto pair = static_cast<ptrdiff_t>(row / 2);
        const uint8_t* luma = source.Row(row);
        const uint8_t* blue = source.plane[1] + pair * source.stride[1];
        const uint8_t* red = planar ? source.plane[2] + pair * source.stride[2] : blue + 1;
        uint8_t* out = destination.Row(row);
        for (size_t x = 0; x < width / 2; ++x, out += 4) {
            out[lumaAt] = luma[2 * x];
            out[lumaAt + 2] = luma[2 * x + 1];
            out[1 - lumaAt] = blue[x * chromaStep];
            out[3 - lumaAt] = red[x * chromaStep];
        }
    }
    return kDone;
}

}    // namespace corvane::kernels::ref
