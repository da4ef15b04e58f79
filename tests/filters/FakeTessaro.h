// What the test programs and their own Tessaro.so share: the switches of the library, its record of calls, and the
// plain form of what its object does to a picture.
#pragma once

#include <cstdint>

#include "filters/TessaroStage.h"

namespace corvane::test {

struct TessaroControl {
    // Set by the test. A width of 0 leaves the size as it is.
    uint32_t out_width = 0;
    uint32_t out_height = 0;
    int32_t query_result = 0;
    int32_t process_result = 0;
    bool make_no_object = false;
    bool throw_everywhere = false;
    // Told by the library.
    uint32_t version = 0;
    int made = 0;
    int released = 0;
    int updates = 0;
    int frames_ended = 0;
    uint64_t last_value = 0;    // the first of the lens record
    uint8_t* last_output = nullptr;
};

// Nearest neighbour, with 3 added to each sample.
inline void FakeDewarp(const TessaroImage& input, const TessaroImage& output) {
    for (int plane = 0; plane < 3; ++plane) {
        const uint32_t shift = plane == 0 ? 0 : 1;
        const uint32_t in_width = input.width >> shift, in_height = input.height >> shift;
        const uint32_t out_width = output.width >> shift, out_height = output.height >> shift;
        for (uint32_t y = 0; y < out_height; ++y) {
            const uint8_t* from = input.plane[plane] + uint64_t{y * in_height / out_height} * input.stride[plane];
            uint8_t* to = output.plane[plane] + uint64_t{y} * output.stride[plane];
            for (uint32_t x = 0; x < out_width; ++x)
                to[x] = static_cast<uint8_t>(from[x * in_width / out_width] + 3);
        }
    }
}

}    // namespace corvane::test
