// A 4:2:0 picture of 8 bits a sample as the kernels read it, and what kernels return.
//
// All kernels: sources and destinations do not overlap; nothing is written outside the stated rectangle, not even
// padding, and nothing read outside the source's; no state but scratch memory of the call (without memory the plain
// form does the work), so any thread may run any kernel at any time. Each has a plain form, which is its definition,
// and forms by instruction set, chosen at run time at the first call.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::kernels {

// Steps are the bytes from one row to the next and may be negative. A picture of odd size has (size + 1) / 2 chroma
// samples. Kernels read exactly the samples of the size that they are given, never a byte behind a row.
struct Source420 {
    const uint8_t* y = nullptr;
    const uint8_t* u = nullptr;    // U; the plane of U V pairs when `v` is null
    const uint8_t* v = nullptr;
    ptrdiff_t yStep = 0;
    ptrdiff_t uStep = 0;
    ptrdiff_t vStep = 0;

    bool Planar() const { return v != nullptr; }
};

// What kernels return. Negative is a refusal: nothing was written.
inline constexpr int32_t kDone = 0;
inline constexpr int32_t kOddPartUnwritten = 1;    // all but the odd last row or column was written
inline constexpr int32_t kRefused = -1;            // null pointer or a size that the kernel does not take

}    // namespace corvane::kernels
