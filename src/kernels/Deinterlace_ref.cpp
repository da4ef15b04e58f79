#include "kernels/Deinterlace.h"
#include "kernels/KernelResult.h"
#include "kernels/PlaneCopy.h"

namespace corvane::kernels {

int32_t WeavePlane(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                   uint32_t width, uint32_t fieldRows) {
    const int32_t top =
        PlaneCopy(source, sourceStride, destination, 2 * destinationStride, width, fieldRows, kCopyStreamingStores);
    if (top != kDone || width == 0 || fieldRows == 0)
        return top;
    return PlaneCopy(source + static_cast<ptrdiff_t>(fieldRows) * sourceStride, sourceStride,
                     destination + destinationStride, 2 * destinationStride, width, fieldRows, kCopyStreamingStores);
}

namespace ref {

void SmoothRow(const uint8_t* above, const uint8_t* row, const uint8_t* below, uint8_t* out, size_t width,
               uint32_t weight) {
    for (size_t x = 0; x < width; ++x)
        out[x] = static_cast<uint8_t>(((above[x] + below[x]) * ((256 - weight) >> 1) + row[x] * weight) >> 8);
}

}    // namespace ref

}    // namespace corvane::kernels
