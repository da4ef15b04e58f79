// Pictures that come from cairo: a client's image surface, a PNG file.
#pragma once

#include <cstdint>
#include <span>

#include "base/Status.h"
#include "platform/raster/Raster.h"

struct _cairo_surface;

namespace corvane {

// Copies an image surface (RGB24, ARGB32 over black, RGB16_565, RGB30, A8 and A1 as grey) into `out`, whose X bytes are
// 0. No reference is kept. Failed: not an image surface, finished, empty, or out of the limits. OutOfMemory.
Status CopySurface(struct _cairo_surface* surface, Raster& out);

// Decodes a whole PNG file likewise. Failed where it is none. Never reads outside `file`.
Status ReadPng(std::span<const uint8_t> file, Raster& out);

}    // namespace corvane
