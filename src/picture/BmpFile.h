// BMP files: reading of all kinds, and writing of stills and grabs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/Status.h"
#include "platform/raster/Raster.h"

namespace corvane {

// Decodes a whole file: 1, 4, 8, 16, 24 and 32 bits, RLE4 and RLE8, bit fields of any width, top-down, the 12 byte
// header as well as those of 40 bytes and more. X bytes of `out` are 0. Failed: no BMP file, a file without any pixels,
// or a size out of the limits; a bad run costs only its own pixels. OutOfMemory. Never reads outside `file`.
Status ReadBmp(std::span<const uint8_t> file, Raster& out);

// Headers of the files of pixels in PF_RGB555 and PF_RGB565 (top-down, with masks), PF_BGR24_FLIP, PF_BGRA32_FLIP.
// `image`: bytes of the pixels that follow.
uint32_t BmpHeaderBytes(uint32_t format);
void WriteBmpHeader(uint32_t format, uint32_t width, uint32_t height, uint32_t image, uint8_t* out);

// A whole file of 32 bits a pixel, bottom-up.
uint64_t BmpBytes(uint32_t width, uint32_t height);
// Writes BmpBytes bytes to `out`; the fourth byte of each pixel is 0.
void WriteBmp(const ConstPictureView& picture, uint8_t* out);

}    // namespace corvane
