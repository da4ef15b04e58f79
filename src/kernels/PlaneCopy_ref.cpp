#include <cstring>

#include "kernels/KernelResult.h"
#include "kernels/PlaneCopy.h"

namespace corvane::kernels::ref {

int32_t PlaneCopy(const uint8_t* source, ptrdiff_t sourceStep, uint8_t* destination, ptrdiff_t destinationStep,
                  uint32_t width, uint32_t height) {
    if (width == 0 || height == 0)
        return kDone;
    if (source == nullptr || destination == nullptr)
        return kRefused;
    for (uint32_t row = 0; row < height; ++row) {
        const auto offset = static_cast<ptrdiff_t>(row);
        std::memcpy(destination + offset * destinationStep, source + offset * sourceStep, width);
    }
    return kDone;
}

}    // namespace corvane::kernels::ref
