#include <algorithm>
#include <cmath>

#include "kernels/Stretch.h"

namespace corvane::kernels::ref {

namespace {

// The source pixels of one destination pixel along an axis.
class Taps {
public:
    Taps(uint32_t source, uint32_t destination, uint32_t pixel)
        : m_box(destination < source), m_scale(static_cast<double>(source) / destination) {
        if (m_box) {
            m_from = pixel * m_scale;
            first = std::min(static_cast<uint32_t>(m_from), source - 1);
            // Rounding of the last digit must not add a tap.
            last = std::clamp(static_cast<uint32_t>(std::ceil(m_from + m_scale - 1e-6)) - 1, first, source - 1);
        } else {
            m_from = std::clamp((pixel + 0.5) * m_scale - 0.5, 0.0, source - 1.0);
            first = static_cast<uint32_t>(m_from);
            last = std::min(first + (source == destination ? 0 : 1), source - 1);
        }
    }
    double Weight(uint32_t at) const {
        if (m_box)
            return (std::min(at + 1.0, m_from + m_scale) - std::max<double>(at, m_from)) / m_scale;
        if (first == last)
            return 1;
        return at == first ? 1 - (m_from - first) : m_from - first;
    }

    uint32_t first;
    uint32_t last;

private:
    bool m_box;
    double m_scale;
    double m_from;
};

}    // namespace

void Stretch(const ConstPictureView& source, const PictureView& destination, const Rect& whole) {
    const auto width = static_cast<uint32_t>(whole.Width());
    const auto height = static_cast<uint32_t>(whole.Height());
    const uint32_t pixelBytes = source.PixelBytes();
    for (uint32_t row = 0; row < destination.size.height; ++row) {
        const Taps down(source.size.height, height, static_cast<uint32_t>(row - whole.top));
        uint8_t* out = destination.Row(row);
        for (uint32_t column = 0; column < destination.size.width; ++column, out += 4) {
            const Taps across(source.size.width, width, static_cast<uint32_t>(column - whole.left));
            double sum[3] = {};
            for (uint32_t y = down.first; y <= down.last; ++y) {
                const uint8_t* pixel = source.Row(y) + size_t{across.first} * pixelBytes;
                for (uint32_t x = across.first; x <= across.last; ++x, pixel += pixelBytes) {
                    const double weight = across.Weight(x) * down.Weight(y);
                    for (int channel = 0; channel < 3; ++channel)
                        sum[channel] += weight * pixel[channel];
                }
            }
            for (int channel = 0; channel < 3; ++channel)
                out[channel] = static_cast<uint8_t>(std::clamp(sum[channel] + 0.5, 0.0, 255.0));
            out[3] = 0xFF;
        }
    }
}

}    // namespace corvane::kernels::ref
