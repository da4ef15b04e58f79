// The rotate filter beside the chain: the chain writes into its intermediate buffer, Rotate carries that into the
// renderer's.
#pragma once

#include <cstdint>

#include "base/AlignedBuffer.h"

namespace corvane {

class RotateFilter {
public:
    explicit RotateFilter(double angleDegrees);
    void SetAngle(double angleDegrees);

    // Size of the box around a rotated picture of (width, height), each side rounded up to even.
    void OutputSize(uint32_t width, uint32_t height, uint32_t* outWidth, uint32_t* outHeight) const;

    // Lends the intermediate buffer: formats 1, 7, 8, 14, 16. -1 for others and without memory.
    int32_t Allocate(uint32_t width, uint32_t height, uint32_t format, uint8_t** buffer, uint32_t* stride);

    // Rotates the intermediate picture into `destination` of at most (outWidth, outHeight). Does nothing before
    // Allocate or with another format.
    void Rotate(uint8_t* destination, uint32_t stride, uint32_t format, uint32_t outWidth, uint32_t outHeight);

private:
    double m_angle;    // degrees, negated
    AlignedBuffer m_buffer;
    uint32_t m_stride = 0;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint32_t m_format = 0;
};

}    // namespace corvane
