#include <cstring>

#include "kernels/KernelResult.h"
#include "kernels/PlaneCopy.h"

namespace corvane::kernels::ref {

int32_t PlaneCopy(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                  uint32_t width, uint32_t height) {
    if (width == 0 || height == 0)
        return kDone;
    if (source == nullptr || destination == nullptr)
        return kRefused;
    for (uint32_t row = 0; row < height; ++row) {
        const auto offset = static_cast<ptrdiff_t>(row);
        std::memcpy(destination + offset * destinationStride, source + offset * sourceStride, width);
    }
    return kDone;
}

}    // namespace corvane::kernels::ref
