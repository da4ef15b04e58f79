#include "platform/blitter/TextSpans.h"

#include <algorithm>
#include <cstring>

namespace corvane {

namespace {

constexpr uint32_t kColors = 0x00FFFFFFu;
constexpr uint32_t kOpaque = 0xFF000000u;

bool AnyColor(const uint32_t* row, uint32_t width) {
    uint32_t any = 0;
    for (uint32_t x = 0; x < width; ++x)
        any |= row[x];
    return (any & kColors) != 0;
}

}    // namespace

void TextSpans::Clear() {
    m_spans.clear();
    m_pixels.clear();
}

void TextSpans::Take(const ConstPictureView& drawn) {
    Clear();
    try {
        for (uint32_t y = 0; y < drawn.size.height; ++y) {
            const auto* row = reinterpret_cast<const uint32_t*>(drawn.Row(y));
            const uint32_t* const end = row + drawn.size.width;
            if (!AnyColor(row, drawn.size.width))
                continue;
            const auto isText = [](uint32_t pixel) { return (pixel & kColors) != 0; };
            for (const uint32_t* at = std::find_if(row, end, isText); at != end;) {
                const uint32_t* const stop = std::find_if_not(at, end, isText);
                m_spans.push_back(
                    {y, static_cast<uint32_t>(at - row), static_cast<uint32_t>(stop - row), m_pixels.size()});
                std::transform(at, stop, std::back_inserter(m_pixels), [](uint32_t pixel) { return pixel | kOpaque; });
                at = std::find_if(stop, end, isText);
            }
        }
    } catch (...) {
        Clear();
        throw;
    }
}

void TextSpans::Lay(const PictureView& to, const Rect& source, int64_t x, int64_t y) const {
    const Rect part = source.Intersected(to.Bounds().Moved(source.left - x, source.top - y));
    if (!to || part.Empty())
        return;
    const auto byRow = [](const Span& span, int64_t row) { return span.y < row; };
    for (auto span = std::lower_bound(m_spans.begin(), m_spans.end(), part.top, byRow);
         span != m_spans.end() && span->y < part.bottom; ++span) {
        const int64_t left = std::max<int64_t>(span->left, part.left);
        const int64_t right = std::min<int64_t>(span->right, part.right);
        if (left < right)
            std::memcpy(to.At(left - source.left + x, span->y - source.top + y),
                        &m_pixels[span->pixels + static_cast<size_t>(left - span->left)],
                        static_cast<size_t>(right - left) * 4);
    }
}

}    // namespace corvane
