// Bilinear rotation of 8 bit planes about a point.
#pragma once

#include <cstdint>

#include "base/PictureView.h"
#include "kernels/KernelResult.h"

namespace corvane::kernels {

// x' = cosine x + sine y + shiftX, y' = -sine x + cosine y + shiftY, with y downwards: counter-clockwise for a
// positive angle. Coordinates are pixel centres: the first is (0, 0).
struct Rotation {
    double cosine = 1;
    double sine = 0;
    double shiftX = 0;
    double shiftY = 0;

    // Keeps the point (centerX, centerY) in place. Whole quarter turns are exact. An angle that is not finite counts as
    // 0.
    static Rotation About(double angleDegrees, double centerX, double centerY);

    // Whether the rotation is by whole quarter turns and puts pixels exactly on pixels.
    bool MovesOnly() const;
};

// The box around the rotated pixel centres of a picture of (width, height), both at least 1.
struct RotationBounds {
    double minX = 0;
    double minY = 0;
    double maxX = 0;
    double maxY = 0;
};
RotationBounds BoundsOf(const Rotation& rotation, uint32_t width, uint32_t height);

// Writes each destination pixel whose place lies inside the source, interpolated between its four neighbours with
// weights of 1/256 and rounded; all other pixels keep their values. A rotation that only moves pixels is as fast as a
// copy. kDone; kRefused for a null pointer, an empty size, and pixels that are not of the same 1 to 4 bytes on both
// sides.
int32_t RotateBilinear(const ConstPlaneView& source, const PlaneView& destination, const Rotation& rotation);

namespace ref {
int32_t RotateBilinear(const ConstPlaneView& source, const PlaneView& destination, const Rotation& rotation);
}

}    // namespace corvane::kernels
