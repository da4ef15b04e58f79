// Every bound of the library that is not told by a format or a standard.
#pragma once

#include <cstdint>

namespace corvane::limits {

// One encoded frame with all that its record points at, in bytes.
inline constexpr uint64_t kMaxFrameBytes = 256ull << 20;

// One side of a picture in pixels, and all its pixels. Products of stride, height and 3/2 then fit 32 bits.
inline constexpr uint32_t kMaxPictureSide = 16384;
inline constexpr uint64_t kMaxPicturePixels = 1ull << 26;

// Bytes behind the last row of a picture buffer that a kernel may read or write in whole vectors.
inline constexpr uint32_t kPicturePadding = 64;

// Frames that a decoder may hold without an answer, beyond one a thread, before it counts as stuck.
inline constexpr uint32_t kInFlightSlack = 32;

}    // namespace corvane::limits
