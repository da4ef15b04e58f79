#include "kernels/RotationSamples.h"

namespace corvane::kernels::ref {

int32_t RotateBilinear(const ConstPlaneView& source, const PlaneView& destination, const Rotation& rotation) {
    return ForChannels(source, destination, [&]<uint32_t kChannels>() {
        const RotationSteps steps(source, rotation);
        for (uint32_t row = 0; row < destination.size.height; ++row) {
            const RotationSteps::Place first = steps.RowStart(row);
            for (uint32_t column = 0; column < destination.size.width; ++column) {
                const int64_t x = first.x + column * steps.stepX;
                const int64_t y = first.y + column * steps.stepY;
                if (x >= -kRotationEdge && x <= steps.lastX + kRotationEdge && y >= -kRotationEdge &&
                    y <= steps.lastY + kRotationEdge)
                    InterpolateAtEdge<kChannels>(source, steps, x, y,
                                                 destination.data + static_cast<ptrdiff_t>(row) * destination.stride +
                                                     size_t{column} * kChannels);
            }
        }
    });
}

}    // namespace corvane::kernels::ref
