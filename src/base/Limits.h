// Every bound of the library that does not come from a format or a standard.
#pragma once

#include <cstdint>

namespace corvane::limits {

// One encoded frame with all that its record points at, in bytes.
inline constexpr uint64_t kMaxFrameBytes = 256ull << 20;

// One side of a picture in pixels, and all its pixels. Products of stride, height and 3/2 then fit 32 bits.
inline constexpr uint32_t kMaxPictureSide = 16384;
inline constexpr uint64_t kMaxPicturePixels = 1ull << 26;

constexpr bool FitsPicture(uint64_t width, uint64_t height) {
    return width > 0 && height > 0 && width <= kMaxPictureSide && height <= kMaxPictureSide &&
           width * height <= kMaxPicturePixels;
}

// A picture file in bytes: the largest picture of 4 bytes a pixel and room for its headers.
inline constexpr uint64_t kMaxPictureFileBytes = 4 * kMaxPicturePixels + (1 << 20);

// What a sound device is opened with: samples per second, channels. SDL never answers to some other values, and claims
// to play others.
constexpr bool FitsSound(uint64_t rate, uint64_t channels) {
    return rate >= 1000 && rate <= 192'000 && channels >= 1 && channels <= 8;
}

// Samples that one frame of sound is decoded to, in bytes: 3 s of 48,000 Hz in two channels.
inline constexpr uint32_t kSoundBytes = 576'000;

// Frames of sound that may wait where none is dropped: the doubling of the ring ends here.
inline constexpr uint32_t kMaxSoundFrames = 43 << 6;

// Bytes after the last row of a picture buffer that a kernel may read or write in whole vectors.
inline constexpr uint32_t kPicturePadding = 64;

// Frames that a decoder may hold without an answer, beyond one a thread, before it counts as stuck.
inline constexpr uint32_t kInFlightSlack = 32;

// Frames, and bytes of their blocks, that backward play keeps of a group of pictures until its key frame arrives.
inline constexpr uint32_t kMaxGopFrames = 1024;
inline constexpr uint64_t kMaxGopBytes = 64ull << 20;

}    // namespace corvane::limits
