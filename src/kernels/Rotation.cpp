#include "kernels/Rotation.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>
#include <utility>

#include "kernels/PlaneCopy.h"
#include "kernels/RotationSamples.h"
#include "kernels/Transpose.h"

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

bool Rotation::MovesOnly() const {
    constexpr double kMost = 1 << 30;
    const auto isWhole = [](double value) { return std::abs(value) <= kMost && value == std::round(value); };
    return isWhole(cosine) && isWhole(sine) && isWhole(shiftX) && isWhole(shiftY);
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

struct Span {
    int64_t begin;
    int64_t end;    // not above begin: empty
};

int64_t FloorDivide(int64_t value, int64_t divisor) {
    return value / divisor - (value % divisor != 0 && (value < 0) != (divisor < 0));
}

// The part of `span` for which low <= start + i * step <= high. An empty span stays empty.
Span Clip(Span span, int64_t start, int64_t step, int64_t low, int64_t high) {
    if (step < 0) {    // mirrored, so that steps are positive
        start = -start;
        step = -step;
        low = std::exchange(high, -low);
        low = -low;
    }
    if (step == 0)
        return low <= start && start <= high ? span : Span{span.begin, std::min(span.begin, span.end)};
    return {std::max(span.begin, -FloorDivide(start - low, step)),
            std::min(span.end, FloorDivide(high - start, step) + 1)};
}

template <uint32_t kChannels>
void RotateRows(const ConstPlaneView& source, const PlaneView& destination, const Rotation& rotation) {
    const RotationSteps steps(source, rotation);
    for (uint32_t row = 0; row < destination.size.height; ++row) {
        uint8_t* out = destination.data + static_cast<ptrdiff_t>(row) * destination.stride;
        const RotationSteps::Place first = steps.RowStart(row);
        Span all{0, destination.size.width};
        all = Clip(all, first.x, steps.stepX, -kRotationEdge, steps.lastX + kRotationEdge);
        all = Clip(all, first.y, steps.stepY, -kRotationEdge, steps.lastY + kRotationEdge);
        // Within the inner span all four neighbours exist.
        Span inner = Clip(all, first.x, steps.stepX, 0, steps.lastX - 1);
        inner = Clip(inner, first.y, steps.stepY, 0, steps.lastY - 1);
        inner.begin = std::min(inner.begin, all.end);
        inner.end = std::max(inner.begin, inner.end);

        const auto atEdge = [&](int64_t column) {
            InterpolateAtEdge<kChannels>(source, steps, first.x + column * steps.stepX, first.y + column * steps.stepY,
                                         out + column * kChannels);
        };
        for (int64_t at = all.begin; at < inner.begin; ++at)
            atEdge(at);
        const auto inside = [&](int64_t column, int64_t end) {
            int64_t x = first.x + column * steps.stepX;
            int64_t y = first.y + column * steps.stepY;
            for (; column < end; ++column, x += steps.stepX, y += steps.stepY) {
                Interpolate<kChannels>(source.data + (y >> 32) * source.stride + (x >> 32) * kChannels, kChannels,
                                       source.stride, x, y, out + column * kChannels);
            }
        };
        int64_t column = inner.begin;
        if constexpr (kChannels == 1) {
            const Span wide = Clip(inner, first.x, steps.stepX, 0, steps.lastX - 2 * kRotationOne - 1);
            if (wide.begin < wide.end) {
                inside(column, wide.begin);
                column = wide.begin +
                         static_cast<int64_t>(InterpolateSamples(
                             source, steps, {first.x + wide.begin * steps.stepX, first.y + wide.begin * steps.stepY},
                             out + wide.begin, static_cast<size_t>(wide.end - wide.begin)));
            }
        }
        inside(column, inner.end);
        for (int64_t at = inner.end; at < all.end; ++at)
            atEdge(at);
    }
}

// One axis of the destination, for a rotation that puts pixels on pixels: place i shows place sign (i - shift) of an
// axis of the source.
struct TurnedAxis {
    TurnedAxis(double signOf, double shiftOf, uint32_t sourceSize, uint32_t size)
        : sign(static_cast<int64_t>(signOf)), shift(static_cast<int64_t>(shiftOf)) {
        const int64_t first = sign > 0 ? shift : shift - sourceSize + 1;
        begin = std::max<int64_t>(first, 0);
        end = std::min<int64_t>(first + sourceSize, size);
    }
    // The lowest place of the source that is shown, and the place that the first place of the destination shows.
    int64_t Lowest() const { return sign * ((sign > 0 ? begin : end - 1) - shift); }
    int64_t First() const { return sign * (begin - shift); }
    uint32_t Size() const { return static_cast<uint32_t>(end - begin); }

    int64_t sign, shift;
    int64_t begin, end;    // the places of the destination that show the source
};

void Turn(const ConstPlaneView& source, const PlaneView& destination, const Rotation& rotation) {
    const bool upright = rotation.sine == 0;
    const TurnedAxis columns(upright ? rotation.cosine : rotation.sine, rotation.shiftX,
                             upright ? source.size.width : source.size.height, destination.size.width);
    const TurnedAxis rows(upright ? rotation.cosine : -rotation.sine, rotation.shiftY,
                          upright ? source.size.height : source.size.width, destination.size.height);
    if (columns.begin >= columns.end || rows.begin >= rows.end)
        return;
    const uint32_t channels = source.pixelBytes;
    const auto pixel = static_cast<ptrdiff_t>(channels);
    const auto from = [&](int64_t x, int64_t y) { return source.data + y * source.stride + x * pixel; };
    uint8_t* const to = destination.data + rows.begin * destination.stride + columns.begin * pixel;
    if (upright && rows.sign > 0) {
        PlaneCopy(from(columns.First(), rows.First()), source.stride, to, destination.stride, columns.Size() * channels,
                  rows.Size(), 0);
    } else if (upright) {
        Mirror(from(columns.Lowest(), rows.First()), -source.stride, to, destination.stride, columns.Size(),
               rows.Size(), channels);
    } else {
        // Source rows become columns of the destination. Where its rows run against the source's columns, rows are
        // written upwards.
        const bool upwards = rows.sign < 0;
        Transpose(from(rows.Lowest(), columns.First()), columns.sign * source.stride,
                  upwards ? to + (ptrdiff_t{rows.Size()} - 1) * destination.stride : to,
                  upwards ? -destination.stride : destination.stride, columns.Size(), rows.Size(), channels);
    }
}

}    // namespace

int32_t RotateBilinear(const ConstPlaneView& source, const PlaneView& destination, const Rotation& rotation) {
    return ForChannels(source, destination, [&]<uint32_t kChannels>() {
        if (rotation.MovesOnly())
            Turn(source, destination, rotation);
        else
            RotateRows<kChannels>(source, destination, rotation);
    });
}

}    // namespace corvane::kernels
