// BMP files: reading whatever a bitmap file may hold, and writing those of stills and grabs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/Status.h"
#include "platform/raster/Raster.h"

namespace corvane {

// Decodes a whole file: 1, 4, 8, 16, 24 and 32 bits, RLE4 and RLE8, bit fields of any width, top-down, the 12 byte
// header as well as those of 40 bytes and more. X bytes of `out` are 0. Failed: not such a file, cut short where pixels
// are missing altogether, or out of the limits; single bad runs only lose themselves. OutOfMemory. Never reads outside
// `file`.
Status ReadBmp(std::span<const uint8_t> file, Raster& out);

// Headers of the files of pixels in PF_RGB555 and PF_RGB565 (top-down, with masks), PF_BGR24_FLIP, PF_BGRA32_FLIP.
// `image` is what follows, in bytes.
uint32_t BmpHeaderBytes(uint32_t format);
void WriteBmpHeader(uint32_t format, uint32_t width, uint32_t height, uint32_t image, uint8_t* out);

// A whole file of 32 bits a pixel, bottom-up.
uint64_t BmpBytes(uint32_t width, uint32_t height);
// Writes BmpBytes of the picture to `out`; the fourth byte of each pixel is 0.
void WriteBmp(const ConstPictureView& picture, uint8_t* out);

}    // namespace corvane
