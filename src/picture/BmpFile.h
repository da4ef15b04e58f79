// BMP files: reading whatever a bitmap file may hold, and writing the one form that grabs use.
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

// A file of 32 bits a pixel, bottom-up, with a 54 byte header.
constexpr uint32_t kBmpHeaderBytes = 54;
uint64_t BmpBytes(uint32_t width, uint32_t height);
// Writes BmpBytes of the picture to `out`; the fourth byte of each pixel is 0.
void WriteBmp(const RasterView& picture, uint8_t* out);

}    // namespace corvane
