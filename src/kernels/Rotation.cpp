#include "kernels/Rotation.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "kernels/Source420.h"

namespace corvane::kernels {

Rotation Rotation::About(double angleDegrees, double centerX, double centerY) {
    Rotation rotation;
    const double angle = std::isfinite(angleDegrees) ? std::remainder(angleDegrees, 360.0) : 0.0;
    const double quarters = angle / 90;
    if (quarters == std::round(quarters)) {    // sine and cosine of a double are never exactly 0 there
        const int turns = static_cast<int>(quarters) & 3;
        rotation.cosine = turns == 0 ? 1 : turns == 2 ? -1 : 0;
        rotation.sine = turns == 1 ? 1 : turns == 3 ? -1 : 0;
    } else {
        rotation.cosine = std::cos(angle * std::numbers::pi / 180);
        rotation.sine = std::sin(angle * std::numbers::pi / 180);
    }
    rotation.shiftX = centerX - rotation.cosine * centerX - rotation.sine * centerY;
    rotation.shiftY = centerY + rotation.sine * centerX - rotation.cosine * centerY;
    return rotation;
}

RotationBounds BoundsOf(const Rotation& rotation, uint32_t width, uint32_t height) {
    const double right = width - 1.0;
    const double bottom = height - 1.0;
    const double x[2] = {rotation.cosine * right, rotation.sine * bottom};
    const double y[2] = {-rotation.sine * right, rotation.cosine * bottom};
    RotationBounds bounds;
    bounds.minX = rotation.shiftX + std::min(x[0], 0.0) + std::min(x[1], 0.0);
    bounds.maxX = rotation.shiftX + std::max(x[0], 0.0) + std::max(x[1], 0.0);
    bounds.minY = rotation.shiftY + std::min(y[0], 0.0) + std::min(y[1], 0.0);
    bounds.maxY = rotation.shiftY + std::max(y[0], 0.0) + std::max(y[1], 0.0);
    return bounds;
}

namespace {

// Source coordinates in 1 / 2^32 pixels. A hair outside the edge counts as on it, since corners meet the edges in exact
// arithmetic only.
constexpr double kUnit = 4294967296.0;
constexpr int64_t kOne = int64_t{1} << 32;
constexpr int64_t kEdge = kOne >> 10;

struct Span {
    int64_t begin;
    int64_t end;    // at most begin: empty
};

int64_t FloorDivide(int64_t value, int64_t divisor) {
    return value / divisor - (value % divisor != 0 && (value < 0) != (divisor < 0));
}

// The part of `span` for which low <= start + i * step <= high.
Span Clip(Span span, int64_t start, int64_t step, int64_t low, int64_t high) {
    if (step < 0) {    // the same from the other side
        start = -start;
        step = -step;
        low = std::exchange(high, -low);
        low = -low;
    }
    if (step == 0)
        return low <= start && start <= high ? span : Span{span.begin, span.begin};
    return {std::max(span.begin, -FloorDivide(start - low, step)),
            std::min(span.end, FloorDivide(high - start, step) + 1)};
}

// One pixel from the four around it; `next` and `below` are the ways to the neighbours.
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

template <uint32_t kChannels>
void RotateRows(const ConstImage& source, const MutableImage& destination, const Rotation& rotation) {
    const int64_t lastX = (int64_t{source.width} - 1) * kOne;
    const int64_t lastY = (int64_t{source.height} - 1) * kOne;
    const int64_t stepX = std::llrint(rotation.cosine * kUnit);
    const int64_t stepY = std::llrint(rotation.sine * kUnit);
    for (uint32_t row = 0; row < destination.height; ++row) {
        uint8_t* out = destination.data + static_cast<ptrdiff_t>(row) * destination.step;
        const double dx = -rotation.shiftX;
        const double dy = row - rotation.shiftY;
        const int64_t rowX = std::llrint((rotation.cosine * dx - rotation.sine * dy) * kUnit);
        const int64_t rowY = std::llrint((rotation.sine * dx + rotation.cosine * dy) * kUnit);
        Span all{0, destination.width};
        all = Clip(all, rowX, stepX, -kEdge, lastX + kEdge);
        all = Clip(all, rowY, stepY, -kEdge, lastY + kEdge);
        // Within the inner span all four neighbours exist.
        Span inner = Clip(all, rowX, stepX, 0, lastX - 1);
        inner = Clip(inner, rowY, stepY, 0, lastY - 1);
        inner.begin = std::min(inner.begin, all.end);
        inner.end = std::max(inner.begin, inner.end);

        const auto atEdge = [&](int64_t column) {
            const int64_t x = std::clamp<int64_t>(rowX + column * stepX, 0, lastX);
            const int64_t y = std::clamp<int64_t>(rowY + column * stepY, 0, lastY);
            Interpolate<kChannels>(source.data + (y >> 32) * source.step + (x >> 32) * kChannels,
                                   x < lastX ? kChannels : 0, y < lastY ? source.step : 0, x, y,
                                   out + column * kChannels);
        };
        for (int64_t column = all.begin; column < inner.begin; ++column)
            atEdge(column);
        int64_t x = rowX + inner.begin * stepX;
        int64_t y = rowY + inner.begin * stepY;
        for (int64_t column = inner.begin; column < inner.end; ++column, x += stepX, y += stepY) {
            Interpolate<kChannels>(source.data + (y >> 32) * source.step + (x >> 32) * kChannels, kChannels,
                                   source.step, x, y, out + column * kChannels);
        }
        for (int64_t column = inner.end; column < all.end; ++column)
            atEdge(column);
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
