#include <cstring>

#include "kernels/Transpose.h"

namespace corvane::kernels::ref {

namespace {

// `next` and `below`: bytes between the source pixels of neighbouring columns and rows of the destination.
template <uint32_t kChannels>
void Place(const uint8_t* source, ptrdiff_t next, ptrdiff_t below, uint8_t* destination, ptrdiff_t destinationStride,
           uint32_t width, uint32_t height) {
    for (uint32_t y = 0; y < height; ++y, source += below, destination += destinationStride) {
        const uint8_t* from = source;
        for (uint32_t x = 0; x < width; ++x, from += next)
            std::memcpy(destination + size_t{x} * kChannels, from, kChannels);
    }
}

void Place(const uint8_t* source, ptrdiff_t next, ptrdiff_t below, uint8_t* destination, ptrdiff_t destinationStride,
           uint32_t width, uint32_t height, uint32_t channels) {
    constexpr decltype(&Place<1>) kPlace[] = {Place<1>, Place<2>, Place<3>, Place<4>};
    kPlace[channels - 1](source, next, below, destination, destinationStride, width, height);
}

}    // namespace

void Transpose(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
               uint32_t width, uint32_t height, uint32_t channels) {
    Place(source, sourceStride, static_cast<ptrdiff_t>(channels), destination, destinationStride, width, height,
          channels);
}

void Mirror(const uint8_t* source, ptrdiff_t sourceStride, uint8_t* destination, ptrdiff_t destinationStride,
            uint32_t width, uint32_t height, uint32_t channels) {
    if (width == 0)
        return;
    const auto pixel = static_cast<ptrdiff_t>(channels);
    Place(source + (static_cast<ptrdiff_t>(width) - 1) * pixel, -pixel, sourceStride, destination, destinationStride,
          width, height, channels);
}

}    // namespace corvane::kernels::ref
