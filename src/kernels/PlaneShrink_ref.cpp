#include <algorithm>
#include <cmath>

#include "kernels/PlaneShrink.h"

namespace corvane::kernels::ref {

namespace {

// The part of each source sample that a destination sample covers along one axis.
struct Cover {
    Cover(uint32_t source, uint32_t destination, uint32_t at)
        : scale(static_cast<double>(source) / destination), from(at * scale), first(static_cast<uint32_t>(from)) {
        first = std::min(first, source - 1);
        // Rounding of the last digit must not add a sample.
        last = std::clamp(static_cast<uint32_t>(std::ceil(from + scale - 1e-6)) - 1, first, source - 1);
    }
    double Weight(uint32_t at) const { return (std::min(at + 1.0, from + scale) - std::max<double>(at, from)) / scale; }
    double scale;
    double from;
    uint32_t first;
    uint32_t last;
};

}    // namespace

void ShrinkRows(const ShrinkSizes& sizes, const uint8_t* source, ptrdiff_t stride, uint32_t row, uint32_t count,
                uint8_t* out, ptrdiff_t outStride) {
    for (uint32_t line = 0; line < count; ++line) {
        const Cover down(sizes.height, sizes.toHeight, row + line);
        uint8_t* to = out + static_cast<ptrdiff_t>(line) * outStride;
        for (uint32_t x = 0; x < sizes.toWidth * sizes.channels; ++x) {
            const Cover across(sizes.width, sizes.toWidth, x / sizes.channels);
            double sum = 0;
            for (uint32_t y = down.first; y <= down.last; ++y)
                for (uint32_t at = across.first; at <= across.last; ++at)
                    sum +=
                        down.Weight(y) * across.Weight(at) *
                        source[static_cast<ptrdiff_t>(y) * stride + size_t{at} * sizes.channels + x % sizes.channels];
            to[x] = static_cast<uint8_t>(std::clamp(sum + 0.5, 0.0, 255.0));
        }
    }
}

}    // namespace corvane::kernels::ref
