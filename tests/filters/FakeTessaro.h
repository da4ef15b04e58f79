// What the test programs and their own Tessaro.so share: the switches of the library, its record of calls, and the
// plain form of what its object does to a picture.
#pragma once

#include <cstdint>

#include "filters/TessaroStage.h"

namespace corvane::test {

struct TessaroControl {
    // Set by the test. A width of 0 leaves the size as it is.
    uint32_t outWidth = 0, outHeight = 0;
    int32_t queryResult = 0, processResult = 0;
    bool throwEverywhere = false;
    // Told by the library.
    uint32_t version = 0;
    int made = 0, released = 0, updates = 0, framesEnded = 0;
    uint64_t lastValue = 0;    // the first of the lens record
};

// Nearest neighbour, with a number added to each sample.
inline void FakeDewarp(const TessaroImage& input, const TessaroImage& output, uint8_t addend = 3) {
    for (int plane = 0; plane < 3; ++plane) {
        const uint32_t shift = plane == 0 ? 0 : 1;
        for (uint32_t y = 0; y < output.height >> shift; ++y) {
            const uint32_t fromY = y * (input.height >> shift) / (output.height >> shift);
            for (uint32_t x = 0; x < output.width >> shift; ++x) {
                const uint32_t fromX = x * (input.width >> shift) / (output.width >> shift);
                const uint8_t sample = input.plane[plane][fromY * input.stride[plane] + fromX];
                output.plane[plane][y * output.stride[plane] + x] = static_cast<uint8_t>(sample + addend);
            }
        }
    }
}

}    // namespace corvane::test
