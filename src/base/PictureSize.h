// The size of a picture.
#pragma once

#include <cstdint>

namespace corvane {

struct PictureSize {
    uint32_t width = 0;    // pixels
    uint32_t height = 0;

    bool Empty() const { return width == 0 || height == 0; }
    bool operator==(const PictureSize&) const = default;
};

}    // namespace corvane
