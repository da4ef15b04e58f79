// How pictures lie in memory that this library allocates, by the tables of corvane.h.
#pragma once

#include <cstdint>

#include "base/PictureView.h"

namespace corvane {

// A picture over a block of memory whose rows have `stride` bytes. `format`: any of PF_*.
PictureView LayOut(uint8_t* memory, uint32_t stride, PictureSize size, uint32_t format);
inline ConstPictureView LayOut(const uint8_t* memory, uint32_t stride, PictureSize size, uint32_t format) {
    return LayOut(const_cast<uint8_t*>(memory), stride, size, format);
}

// Row bytes and whole size. 0 for an unknown format or a size beyond the limits.
uint32_t RowBytes(uint32_t format, uint32_t width);
uint64_t PictureBytes(uint32_t format, uint32_t width, uint32_t height);

}    // namespace corvane
