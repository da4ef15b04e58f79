#include "kernels/Rotation.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "kernels/Source420.h"

namespace corvane::kernels {

Rotation Rotation::About(double angle_degrees, double center_x, double center_y) {
    Rotation rotation;
    const double angle = std::isfinite(angle_degrees) ? std::remainder(angle_degrees, 360.0) : 0.0;
    const double quarters = angle / 90;
    if (quarters == std::round(quarters)) {    // sine and cosine of a double are never exactly 0 there
        const int turns = static_cast<int>(quarters) & 3;
        rotation.cosine = turns == 0 ? 1 : turns == 2 ? -1 : 0;
        rotation.sine = turns == 1 ? 1 : turns == 3 ? -1 : 0;
    } else {
        rotation.cosine = std::cos(angle * std::numbers::pi / 180);
        rotation.sine = std::sin(angle * std::numbers::pi / 180);
    }
    rotation.shift_x = center_x - rotation.cosine * center_x - rotation.sine * center_y;
    rotation.shift_y = center_y + rotation.sine * center_x - rotation.cosine * center_y;
    return rotation;
}

RotationBounds BoundsOf(const Rotation& rotation, uint32_t width, uint32_t height) {
    const double right = width - 1.0;
    const double bottom = height - 1.0;
    const double x[2] = {rotation.cosine * right, rotation.sine * bottom};
    const double y[2] = {-rotation.sine * right, rotation.cosine * bottom};
    RotationBounds bounds;
    bounds.min_x = rotation.shift_x + std::min(x[0], 0.0) + std::min(x[1], 0.0);
    bounds.max_x = rotation.shift_x + std::max(x[0], 0.0) + std::max(x[1], 0.0);
    bounds.min_y = rotation.shift_y + std::min(y[0], 0.0) + std::min(y[1], 0.0);
    bounds.max_y = rotation.shift_y + std::max(y[0], 0.0) + std::max(y[1], 0.0);
    return bounds;
}

namespace {

// Source coordinates in 1 / 2^32 pixels. A hair outside the edge counts as on it, since corners meet the edges in exact
// arithmetic only.
constexpr double kUnit = 4294967296.0;
constexpr int64_t kOne = int64_t{1} << 32;
constexpr int64_t kEdge = kOne >> 10;

// True when `at` is inside 0 to `last` pixels; clamps what is within kEdge of it.
bool Inside(int64_t& at, int64_t last) {
    if (at < -kEdge || at > last * kOne + kEdge)
        return false;
    at = std::clamp<int64_t>(at, 0, last * kOne);
    return true;
}

template <uint32_t kChannels>
void RotateRows(const ConstImage& source, const MutableImage& destination, const Rotation& rotation) {
    const int64_t last_x = int64_t{source.width} - 1;
    const int64_t last_y = int64_t{source.height} - 1;
    const int64_t step_x = std::llrint(rotation.cosine * kUnit);
    const int64_t step_y = std::llrint(rotation.sine * kUnit);
    for (uint32_t row = 0; row < destination.height; ++row) {
        uint8_t* out = destination.data + static_cast<ptrdiff_t>(row) * destination.step;
        const double dx = -rotation.shift_x;
        const double dy = row - rotation.shift_y;
        int64_t row_x = std::llrint((rotation.cosine * dx - rotation.sine * dy) * kUnit);
        int64_t row_y = std::llrint((rotation.sine * dx + rotation.cosine * dy) * kUnit);
        for (uint32_t column = 0; column < destination.width;
             ++column, out += kChannels, row_x += step_x, row_y += step_y) {
            int64_t x = row_x;
            int64_t y = row_y;
            if (!Inside(x, last_x) || !Inside(y, last_y))
                continue;
            const auto fraction_x = static_cast<uint32_t>(x >> 24 & 0xFF);
            const auto fraction_y = static_cast<uint32_t>(y >> 24 & 0xFF);
            const int64_t left = x >> 32;
            const int64_t top = y >> 32;
            const uint8_t* upper = source.data + top * source.step + left * kChannels;
            // At the last column and row the second neighbour has no weight and does not exist.
            const uint8_t* lower = top < last_y ? upper + source.step : upper;
            const uint32_t next = left < last_x ? kChannels : 0;
            for (uint32_t c = 0; c < kChannels; ++c) {
                const uint32_t above = upper[c] * (256 - fraction_x) + upper[c + next] * fraction_x;
                const uint32_t below = lower[c] * (256 - fraction_x) + lower[c + next] * fraction_x;
                out[c] = static_cast<uint8_t>((above * (256 - fraction_y) + below * fraction_y + 32768) >> 16);
            }
        }
    }
}

}    // namespace

int32_t RotateBilinear(const ConstImage& source, const MutableImage& destination, uint32_t channels,
                       const Rotation& rotation) {
    if (source.data == nullptr || destination.data == nullptr || source.width == 0 || source.height == 0 ||
        destination.width == 0 || destination.height == 0)
        return kRefused;
    switch (channels) {
    case 1:
        RotateRows<1>(source, destination, rotation);
        return kDone;
    case 2:
        RotateRows<2>(source, destination, rotation);
        return kDone;
    case 3:
        RotateRows<3>(source, destination, rotation);
        return kDone;
    case 4:
        RotateRows<4>(source, destination, rotation);
        return kDone;
    default:
        return kRefused;
    }
}

}    // namespace corvane::kernels
