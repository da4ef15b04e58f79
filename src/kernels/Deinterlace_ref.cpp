#include "kernels/Deinterlace.h"
#include "kernels/PlaneCopy.h"
#include "kernels/Source420.h"

namespace corvane::kernels {

int32_t WeavePlane(const uint8_t* source, ptrdiff_t source_step, uint8_t* destination, ptrdiff_t destination_step,
                   uint32_t width, uint32_t field_rows) {
    const int32_t top =
        PlaneCopy(source, source_step, destination, 2 * destination_step, width, field_rows, kCopyStreamingStores);
    if (top != kDone || width == 0 || field_rows == 0)
        return top;
    return PlaneCopy(source + static_cast<ptrdiff_t>(field_rows) * source_step, source_step,
                     destination + destination_step, 2 * destination_step, width, field_rows, kCopyStreamingStores);
}

namespace ref {

void SmoothRow(const uint8_t* above, const uint8_t* row, const uint8_t* below, uint8_t* out, size_t width,
               uint32_t weight) {
    for (size_t x = 0; x < width; ++x)
        out[x] = static_cast<uint8_t>(((above[x] + below[x]) * ((256 - weight) >> 1) + row[x] * weight) >> 8);
}

}    // namespace ref

}    // namespace corvane::kernels
