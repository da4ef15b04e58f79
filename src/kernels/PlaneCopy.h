// Copies rows of bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::kernels {

enum PlaneCopyMode : uint32_t {
    kCopyStreamingStores = 1,    // the destination is not read soon
    kCopyStreamingLoads = 2,     // the source may be write-combined memory
};

// Copies `height` rows of `width` bytes. Strides are in bytes and may be negative; source and destination do not
// overlap. Where both strides equal the width the rows are copied as one run. An empty size copies nothing. kDone;
// kRefused for a null pointer.
//
// `mode` is a hint without influence on the result. The hint is ignored for memory of this process: the next step reads
// the copy, and that would cost the time that the writer saves, or twice that where the plane was cached.
int32_t PlaneCopy(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                  uint32_t width, uint32_t height, uint32_t mode);

namespace ref {
int32_t PlaneCopy(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
                  uint32_t width, uint32_t height);
}

}    // namespace corvane::kernels
