// Pixels in memory: planes, their strides, size and format. It owns nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/PictureSize.h"

namespace corvane {

struct PictureView {
    uint8_t* plane[3] = {};      // Y, U, V; Y and U V pairs; or one of whole pixels, the top row first
    ptrdiff_t stride[3] = {};    // bytes from a row to the one below; negative where the bottom row is first in memory
    PictureSize size;
    uint32_t format = 0;    // PF_*; planes lie as PF_I420 says where they are three
};

}    // namespace corvane
