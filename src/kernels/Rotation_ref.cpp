#include "kernels/RotationSamples.h"

namespace corvane::kernels::ref {

int32_t RotateBilinear(const ConstImage& source, const MutableImage& destination, uint32_t channels,
                       const Rotation& rotation) {
    return ForChannels(source, destination, channels, [&]<uint32_t kChannels>() {
        const RotationSteps steps(source, rotation);
        for (uint32_t row = 0; row < destination.height; ++row) {
            const RotationSteps::Place first = steps.RowStart(row);
            for (uint32_t column = 0; column < destination.width; ++column) {
                const int64_t x = first.x + column * steps.stepX;
                const int64_t y = first.y + column * steps.stepY;
                if (x >= -kRotationEdge && x <= steps.lastX + kRotationEdge && y >= -kRotationEdge &&
                    y <= steps.lastY + kRotationEdge)
                    InterpolateAtEdge<kChannels>(
                        source, steps, x, y,
                        destination.data + static_cast<ptrdiff_t>(row) * destination.step + size_t{column} * kChannels);
            }
        }
    });
}

}    // namespace corvane::kernels::ref
