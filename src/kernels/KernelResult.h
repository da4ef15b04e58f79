// The results of kernels, and the rules for all of them.
//
// Sources and destinations do not overlap. Nothing is written outside the stated rectangle, not even padding, and
// nothing is read outside the source's, not even a byte after its rows. A kernel has no state but scratch memory of the
// call (without memory the plain form does the work), so any thread may run any kernel at any time. Each has a plain
// form, which is its definition, and forms by instruction set, chosen at the first call.
//
// Where a kernel takes two views, the size of the destination counts, and the source is as large.
#pragma once

#include <cstdint>

namespace corvane::kernels {

// Negative is a refusal: nothing was written.
inline constexpr int32_t kDone = 0;
inline constexpr int32_t kOddPartUnwritten = 1;    // all but the odd last row or column was written
inline constexpr int32_t kRefused = -1;            // a null pointer, a size or a format that the kernel does not take

}    // namespace corvane::kernels
