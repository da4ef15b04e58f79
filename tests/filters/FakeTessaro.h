// What the test programs and their own Tessaro.so share: the switches of the library, its record of calls, and the
// plain form of what its object does to a picture.
#pragma once

#include <cstdint>

#include "filters/TessaroStage.h"

namespace corvane::test {

struct TessaroControl {
    // Set by the test. A width of 0 leaves the size as it is.
    uint32_t out_width = 0, out_height = 0;
    int32_t query_result = 0, process_result = 0;
    bool make_no_object = false, throw_everywhere = false;
    // Told by the library.
    uint32_t version = 0;
    int made = 0, released = 0, updates = 0, frames_ended = 0;
    uint64_t last_value = 0;    // the first of the lens record
    uint8_t* last_output = nullptr;
};

// Nearest neighbour, with a number added to each sample.
inline void FakeDewarp(const TessaroImage& input, const TessaroImage& output, uint8_t addend = 3) {
    for (int plane = 0; plane < 3; ++plane) {
        const uint32_t shift = plane == 0 ? 0 : 1;
        for (uint32_t y = 0; y < output.height >> shift; ++y) {
            const uint32_t from_y = y * (input.height >> shift) / (output.height >> shift);
            for (uint32_t x = 0; x < output.width >> shift; ++x) {
                const uint32_t from_x = x * (input.width >> shift) / (output.width >> shift);
                const uint8_t sample = input.plane[plane][from_y * input.stride[plane] + from_x];
                output.plane[plane][y * output.stride[plane] + x] = static_cast<uint8_t>(sample + addend);
            }
        }
    }
}

}    // namespace corvane::test
