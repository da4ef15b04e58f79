// The rotate filter beside the chain: the chain writes into its intermediate buffer, Rotate carries that into the
// renderer's.
#pragma once

#include <cstdint>

#include "base/AlignedBuffer.h"
#include "base/PictureView.h"

namespace corvane {

class RotateFilter {
public:
    explicit RotateFilter(double angleDegrees);
    void SetAngle(double angleDegrees);

    // Size of the box around a rotated picture of (width, height), each side rounded up to even.
    PictureSize OutputSize(PictureSize size) const;

    // Lends the intermediate buffer: of three planes, or of 24 bits a pixel. Empty for another format and without
    // memory.
    PictureView Lend(PictureSize size, uint32_t format);

    // Rotates the intermediate picture into `destination`, whose size is at most OutputSize. Does nothing before Lend
    // and where the destination has another format.
    void Rotate(const PictureView& destination);

private:
    double m_angle;    // degrees, negated
    AlignedBuffer m_buffer;
    PictureView m_picture;    // in m_buffer
    uint32_t m_format = 0;    // that it was lent for
};

}    // namespace corvane
