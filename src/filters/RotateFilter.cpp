#include "filters/RotateFilter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "base/Limits.h"
#include "corvane/corvane.h"
#include "kernels/Rotation.h"

namespace corvane {

namespace {

bool IsPlanar(uint32_t format) {
    return format == PF_I420 || format == PF_YV12;
}

bool IsRgb24(uint32_t format) {
    return format == PF_BGR24 || format == PF_BGR24_FLIP || format == PF_RGB24;
}

// One side of the box around the rotated picture, rounded up to even.
uint32_t Side(double low, double high) {
    const auto whole = static_cast<uint32_t>(high - low + 1.0);
    return (whole + 1) & ~1u;
}

// All but the part from (0, 0) to (width, height).
void FillAround(const kernels::MutableImage& image, uint32_t channels, uint32_t width, uint32_t height, uint8_t fill) {
    for (uint32_t row = 0; row < image.height; ++row) {
        const uint32_t from = row < height ? width : 0;
        std::memset(image.data + static_cast<ptrdiff_t>(row) * image.step + size_t{from} * channels, fill,
                    size_t{image.width - from} * channels);
    }
}

// Rotates `source` about its centre so that its box begins at (0, 0), with `fill` around it.
void RotatePlane(const kernels::ConstImage& source, const kernels::MutableImage& destination, uint32_t channels,
                 double angle, uint8_t fill) {
    if (source.width == 0 || source.height == 0) {
        FillAround(destination, channels, 0, 0, fill);
        return;
    }
    auto rotation = kernels::Rotation::About(angle, source.width / 2.0, source.height / 2.0);
    const kernels::RotationBounds bounds = kernels::BoundsOf(rotation, source.width, source.height);
    rotation.shiftX -= bounds.minX;
    rotation.shiftY -= bounds.minY;
    const auto covered = [&](double low, double high, uint32_t most) {    // by the picture, with no gap
        return rotation.MovesOnly() ? std::min(most, static_cast<uint32_t>(high - low) + 1) : 0;
    };
    FillAround(destination, channels, covered(bounds.minX, bounds.maxX, destination.width),
               covered(bounds.minY, bounds.maxY, destination.height), fill);
    kernels::RotateBilinear(source, destination, channels, rotation);
}

}    // namespace

RotateFilter::RotateFilter(double angleDegrees) : m_angle(-angleDegrees) {}

void RotateFilter::SetAngle(double angleDegrees) {
    m_angle = -angleDegrees;
}

void RotateFilter::OutputSize(uint32_t width, uint32_t height, uint32_t* outWidth, uint32_t* outHeight) const {
    *outWidth = 0;
    *outHeight = 0;
    if (width == 0 || height == 0 || width > limits::kMaxPictureSide || height > limits::kMaxPictureSide)
        return;
    const auto rotation = kernels::Rotation::About(m_angle, width / 2.0, height / 2.0);
    const kernels::RotationBounds bounds = kernels::BoundsOf(rotation, width, height);
    *outWidth = Side(bounds.minX, bounds.maxX);
    *outHeight = Side(bounds.minY, bounds.maxY);
}

int32_t RotateFilter::Allocate(uint32_t width, uint32_t height, uint32_t format, uint8_t** buffer, uint32_t* stride) {
    if ((!IsPlanar(format) && !IsRgb24(format)) || width == 0 || height == 0 || width > limits::kMaxPictureSide ||
        height > limits::kMaxPictureSide || uint64_t{width} * height > limits::kMaxPicturePixels)
        return -1;
    if (!m_buffer || m_width != width || m_height != height || m_format != format) {
        const uint32_t rowBytes = IsPlanar(format) ? (width + 63) & ~63u : ((24 * width + 31) >> 3) & ~3u;
        const size_t size = size_t{rowBytes} * height;
        if (!m_buffer.Allocate(IsPlanar(format) ? size * 3 / 2 : size))
            return -1;
        m_stride = rowBytes;
        m_width = width;
        m_height = height;
        m_format = format;
    }
    *buffer = m_buffer.Data();
    *stride = m_stride;
    return 0;
}

void RotateFilter::Rotate(uint8_t* destination, uint32_t stride, uint32_t format, uint32_t outWidth,
                          uint32_t outHeight) {
    if (!m_buffer || format != m_format || destination == nullptr)
        return;
    // Bottom-up rows mirror the picture, and with it the sense of the angle.
    const double angle = format == PF_BGR24_FLIP ? -m_angle : m_angle;
    if (IsRgb24(format)) {
        RotatePlane({m_buffer.Data(), m_stride, m_width, m_height}, {destination, stride, outWidth, outHeight}, 3,
                    angle, 0);
        return;
    }
    RotatePlane({m_buffer.Data(), m_stride, m_width, m_height}, {destination, stride, outWidth, outHeight}, 1, angle,
                0);
    const size_t sourceLuma = size_t{m_stride} * m_height;
    const size_t destinationLuma = size_t{stride} * outHeight;
    for (size_t plane = 0; plane < 2; ++plane) {
        RotatePlane(
            {m_buffer.Data() + sourceLuma + plane * (sourceLuma / 4), m_stride / 2, m_width / 2, m_height / 2},
            {destination + destinationLuma + plane * (destinationLuma / 4), stride / 2, outWidth / 2, outHeight / 2}, 1,
            angle, 128);
    }
}

}    // namespace corvane
