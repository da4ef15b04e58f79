// Rotation of a finished picture. The chain writes into the filter's own buffer; Rotate writes the rotated picture into
// the renderer's.
#pragma once

#include <cstdint>

#include "base/AlignedBuffer.h"
#include "base/PictureView.h"

namespace corvane {

class RotateFilter {
public:
    explicit RotateFilter(double angleDegrees);
    void SetAngle(double angleDegrees);

    // The size of the box around a rotated picture of `size`, each side rounded up to even.
    PictureSize OutputSize(PictureSize size) const;

    // Lends the filter's buffer. Empty without memory, and for a format that has neither three planes nor 24 bits a
    // pixel.
    PictureView Lend(PictureSize size, uint32_t format);

    // Rotates the picture in the buffer into `destination`, whose size is at most OutputSize. Does nothing before Lend,
    // or where the destination has another format.
    void Rotate(const PictureView& destination);

private:
    double m_angle;    // degrees, negated
    AlignedBuffer m_buffer;
    PictureView m_picture;    // in m_buffer
    uint32_t m_format = 0;    // the argument of Lend
};

}    // namespace corvane
