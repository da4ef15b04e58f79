// Bilinear rotation of 8 bit planes about a point.
#pragma once

#include <cstddef>
#include <cstdint>

namespace corvane::kernels {

// x' = cosine x + sine y + shift_x, y' = -sine x + cosine y + shift_y, with y downwards: counter-clockwise for a
// positive angle. Coordinates are pixel centres: the first is (0, 0).
struct Rotation {
    double cosine = 1;
    double sine = 0;
    double shift_x = 0;
    double shift_y = 0;

    // Keeps the point (center_x, center_y) where it is. Whole quarter turns are exact. An angle that is not finite is
    // 0.
    static Rotation About(double angle_degrees, double center_x, double center_y);
};

// The box around the rotated pixel centres of a picture of (width, height), both at least 1.
struct RotationBounds {
    double min_x = 0;
    double min_y = 0;
    double max_x = 0;
    double max_y = 0;
};
RotationBounds BoundsOf(const Rotation& rotation, uint32_t width, uint32_t height);

// One interleaved image of `channels` bytes a pixel. Steps are in bytes.
struct ConstImage {
    const uint8_t* data;
    ptrdiff_t step;
    uint32_t width;
    uint32_t height;
};
struct MutableImage {
    uint8_t* data;
    ptrdiff_t step;
    uint32_t width;
    uint32_t height;
};

// Writes each destination pixel that comes from within the source, interpolated between its four neighbours with
// weights of 1/256 and rounded; the others keep what they hold. Returns 0, or negative for a null pointer, an empty
// size or channels other than 1 to 4.
int32_t RotateBilinear(const ConstImage& source, const MutableImage& destination, uint32_t channels,
                       const Rotation& rotation);

}    // namespace corvane::kernels
