// Reading of a rotation's source, shared by the plain form and the fast form.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "kernels/Rotation.h"

namespace corvane::kernels {

// Source coordinates in 1 / 2^32 pixels. A place within kRotationEdge outside the edge counts as on it, since corners
// meet the edges only in exact arithmetic.
inline constexpr double kRotationUnit = 4294967296.0;
inline constexpr int64_t kRotationOne = int64_t{1} << 32;
inline constexpr int64_t kRotationEdge = kRotationOne >> 10;

struct RotationSteps {
    struct Place {
        int64_t x, y;
    };

    RotationSteps(const ConstPlaneView& source, const Rotation& by)
        : rotation(by),
          lastX((int64_t{source.size.width} - 1) * kRotationOne),
          lastY((int64_t{source.size.height} - 1) * kRotationOne),
          stepX(std::llrint(by.cosine * kRotationUnit)),
          stepY(std::llrint(by.sine * kRotationUnit)) {}

    // The source place of the first pixel of a destination row. Each column adds a step.
    Place RowStart(uint32_t row) const {
        const double dx = -rotation.shiftX;
        const double dy = row - rotation.shiftY;
        return {std::llrint((rotation.cosine * dx - rotation.sine * dy) * kRotationUnit),
                std::llrint((rotation.sine * dx + rotation.cosine * dy) * kRotationUnit)};
    }

    const Rotation& rotation;
    int64_t lastX, lastY;
    int64_t stepX, stepY;
};

// One pixel from the four around it. `next` and `below`: bytes to the neighbours.
template <uint32_t kChannels>
inline void Interpolate(const uint8_t* at, ptrdiff_t next, ptrdiff_t below, int64_t x, int64_t y, uint8_t* out) {
    const auto fractionX = static_cast<int32_t>(x >> 24 & 0xFF);
    const auto fractionY = static_cast<int32_t>(y >> 24 & 0xFF);
    for (uint32_t c = 0; c < kChannels; ++c, ++at) {
        const int32_t upper = at[0] * 256 + (at[next] - at[0]) * fractionX;
        const int32_t lower = at[below] * 256 + (at[below + next] - at[below]) * fractionX;
        out[c] = static_cast<uint8_t>((upper * 256 + (lower - upper) * fractionY + 32768) >> 16);
    }
}

// The same for a place within kRotationEdge of the source, whose last column and row have no neighbours after them.
template <uint32_t kChannels>
inline void InterpolateAtEdge(const ConstPlaneView& source, const RotationSteps& steps, int64_t x, int64_t y,
                              uint8_t* out) {
    x = std::clamp<int64_t>(x, 0, steps.lastX);
    y = std::clamp<int64_t>(y, 0, steps.lastY);
    Interpolate<kChannels>(source.data + (y >> 32) * source.stride + (x >> 32) * kChannels,
                           x < steps.lastX ? ptrdiff_t{kChannels} : 0, y < steps.lastY ? source.stride : 0, x, y, out);
}

// Samples of one channel from `place` on, where all four neighbours exist, and two more bytes after those of each row.
// Returns the number of samples written, at most `count`: those of whole vectors.
size_t InterpolateSamples(const ConstPlaneView& source, const RotationSteps& steps, RotationSteps::Place place,
                          uint8_t* out, size_t count);

// Calls `rows` with the number of channels as a constant.
template <class Rows>
inline int32_t ForChannels(const ConstPlaneView& source, const PlaneView& destination, const Rows& rows) {
    if (source.data == nullptr || destination.data == nullptr || source.size.Empty() || destination.size.Empty() ||
        source.pixelBytes != destination.pixelBytes)
        return kRefused;
    switch (source.pixelBytes) {
    case 1:
        rows.template operator()<1>();
        return kDone;
    case 2:
        rows.template operator()<2>();
        return kDone;
    case 3:
        rows.template operator()<3>();
        return kDone;
    case 4:
        rows.template operator()<4>();
        return kDone;
    default:
        return kRefused;
    }
}

}    // namespace corvane::kernels
