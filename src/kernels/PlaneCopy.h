// Copies rows of bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::kernels {

enum PlaneCopyMode : uint32_t {
    kCopyStreamingStores = 1,    // the destination is not read soon
    kCopyStreamingLoads = 2,     // the source may be write-combined memory
};

// Copies `height` rows of `width` bytes. Steps are in bytes and may be negative; source and destination do not overlap.
// When both steps equal the width it is one copy. An empty size copies nothing. Returns 0, or negative for a null
// pointer.
//
// `mode` is a hint without influence on the result. It is not followed for memory of this process: a caller that copies
// a plane here has it read next, and the reader then pays what the writer has saved, or twice that where all was
// cached.
int32_t PlaneCopy(const uint8_t* source, ptrdiff_t sourceStep, uint8_t* destination, ptrdiff_t destinationStep,
                  uint32_t width, uint32_t height, uint32_t mode);

namespace ref {
int32_t PlaneCopy(const uint8_t* source, ptrdiff_t sourceStep, uint8_t* destination, ptrdiff_t destinationStep,
                  uint32_t width, uint32_t height);
}

}    // namespace corvane::kernels
