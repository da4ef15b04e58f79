// Rectangles of pixels, half open. Coordinates have 64 bits, so that no sum or product of a client's 32 bit values
// overflows.
#pragma once

#include <algorithm>
#include <cstdint>

namespace corvane {

struct Rect {
    int64_t left = 0;
    int64_t top = 0;
    int64_t right = 0;     // first column after it
    int64_t bottom = 0;    // first row after it

    int64_t Width() const { return right - left; }
    int64_t Height() const { return bottom - top; }
    bool Empty() const { return left >= right || top >= bottom; }

    Rect Moved(int64_t x, int64_t y) const { return {left + x, top + y, right + x, bottom + y}; }
    // The part that both have; empty where they do not meet.
    Rect Intersected(const Rect& other) const {
        return {std::max(left, other.left), std::max(top, other.top), std::min(right, other.right),
                std::min(bottom, other.bottom)};
    }
    bool Contains(const Rect& other) const {
        return left <= other.left && top <= other.top && right >= other.right && bottom >= other.bottom;
    }

    bool operator==(const Rect&) const = default;
};

}    // namespace corvane
