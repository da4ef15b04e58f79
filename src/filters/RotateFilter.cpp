#include "filters/RotateFilter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/Limits.h"
#include "base/PictureLayout.h"
#include "kernels/Rotation.h"

namespace corvane {

namespace {

// One side of the box around the rotated picture, rounded up to even.
uint32_t Side(double low, double high) {
    const auto whole = static_cast<uint32_t>(high - low + 1.0);
    return (whole + 1) & ~1u;
}

// Fills all but the part from (0, 0) to (width, height).
void FillAround(const PlaneView& plane, uint32_t width, uint32_t height, uint8_t fill) {
    for (uint32_t row = 0; row < plane.size.height; ++row) {
        const uint32_t from = row < height ? width : 0;
        std::memset(plane.data + static_cast<ptrdiff_t>(row) * plane.stride + size_t{from} * plane.pixelBytes, fill,
                    size_t{plane.size.width - from} * plane.pixelBytes);
    }
}

// Rotates `source` about its centre so that its box begins at (0, 0), with `fill` around it.
void RotatePlane(const ConstPlaneView& source, const PlaneView& destination, double angle, uint8_t fill) {
    const auto [width, height] = source.size;
    if (source.size.Empty()) {
        FillAround(destination, 0, 0, fill);
        return;
    }
    auto rotation = kernels::Rotation::About(angle, width / 2.0, height / 2.0);
    const kernels::RotationBounds bounds = kernels::BoundsOf(rotation, width, height);
    rotation.shiftX -= bounds.minX;
    rotation.shiftY -= bounds.minY;
    // Columns or rows that the picture covers completely.
    const auto covered = [&](double low, double high, uint32_t most) {
        return rotation.MovesOnly() ? std::min(most, static_cast<uint32_t>(high - low) + 1) : 0;
    };
    FillAround(destination, covered(bounds.minX, bounds.maxX, destination.size.width),
               covered(bounds.minY, bounds.maxY, destination.size.height), fill);
    kernels::RotateBilinear(source, destination, rotation);
}

}    // namespace

RotateFilter::RotateFilter(double angleDegrees) : m_angle(-angleDegrees) {}

void RotateFilter::SetAngle(double angleDegrees) {
    m_angle = -angleDegrees;
}

PictureSize RotateFilter::OutputSize(PictureSize size) const {
    const auto [width, height] = size;
    if (size.Empty() || width > limits::kMaxPictureSide || height > limits::kMaxPictureSide)
        return {};
    const auto rotation = kernels::Rotation::About(m_angle, width / 2.0, height / 2.0);
    const kernels::RotationBounds bounds = kernels::BoundsOf(rotation, width, height);
    return {Side(bounds.minX, bounds.maxX), Side(bounds.minY, bounds.maxY)};
}

PictureView RotateFilter::Lend(PictureSize size, uint32_t format) {
    const bool planar = format == PF_I420 || format == PF_YV12;
    if ((!planar && PixelBytes(format) != 3) || !limits::FitsPicture(size.width, size.height))
        return {};
    if (!m_buffer || m_picture.size != size || m_format != format) {
        m_picture = {};
        if (!m_buffer.Allocate(PictureBytes(format, size.width, size.height)))
            return {};
        m_picture = LayOut(m_buffer.Data(), RowBytes(format, size.width), size, format);
        m_format = format;
    }
    return m_picture;
}

void RotateFilter::Rotate(const PictureView& destination) {
    if (!m_picture || destination.format != m_picture.format || !destination)
        return;
    if (destination.ThreePlanes()) {
        for (int i = 0; i < 3; ++i)
            RotatePlane(m_picture.Plane(i), destination.Plane(i), m_angle, i == 0 ? 0 : 128);
        return;
    }
    // The box begins with the first row in memory. Where that is the bottom row, the rows are rotated in the order of
    // memory: the picture is mirrored then, and so is the angle.
    if (destination.stride[0] < 0)
        RotatePlane(m_picture.Reversed().Plane(0), destination.Reversed().Plane(0), -m_angle, 0);
    else
        RotatePlane(m_picture.Plane(0), destination.Plane(0), m_angle, 0);
}

}    // namespace corvane
