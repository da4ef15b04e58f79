#include "platform/raster/Raster.h"

#include <algorithm>
#include <cstring>

#include "base/Limits.h"
#include "kernels/Stretch.h"

namespace corvane {

namespace {

constexpr int64_t kPixelBytes = 4;
constexpr uint32_t kOpaque = 0xFF000000u;

uint8_t* PixelAt(const RasterView& raster, int64_t x, int64_t y) {
    return raster.data + static_cast<ptrdiff_t>(y) * raster.step + x * kPixelBytes;
}

// As many 64 bit coordinates as there are, so that moving and scaling by them cannot overflow.
constexpr int64_t kFarthest = int64_t{1} << 40;
bool Near(const Rect& rect) {
    return std::min({rect.left, rect.top, rect.right, rect.bottom}) > -kFarthest &&
           std::max({rect.left, rect.top, rect.right, rect.bottom}) < kFarthest;
}

}    // namespace

bool Raster::Resize(uint32_t width, uint32_t height) {
    Free();
    return Reuse(width, height);
}

bool Raster::Reuse(uint32_t width, uint32_t height) {
    if (m_view.width == width && m_view.height == height)
        return static_cast<bool>(m_view);
    m_view = {};
    // Rows on 64 bytes, for whole aligned vectors.
    const uint64_t step = (uint64_t{width} * kPixelBytes + 63) & ~uint64_t{63};
    const size_t bytes = limits::FitsPicture(width, height) ? step * height : 0;
    const size_t before = m_memory.Size();
    // In the place of memory that is too small comes an eighth more: a size that grows may go on so.
    if (bytes == 0 || ((before < bytes || before / 2 > bytes) &&
                       !m_memory.Allocate(bytes + (before != 0 && before < bytes ? bytes / 8 : 0)))) {
        Free();
        return false;
    }
    m_view = {m_memory.Data(), static_cast<ptrdiff_t>(step), width, height};
    return true;
}

void Raster::Free() {
    m_memory.Free();
    m_view = {};
}

PackedPicture AsPicture(const RasterView& raster) {
    return {raster.data, raster.step, raster.width, raster.height, 4};
}

void Fill(const RasterView& to, const Rect& rect, uint32_t color) {
    const Rect part = rect.Intersected(to.Bounds());
    if (!to || part.Empty())
        return;
    const uint32_t pixel = kOpaque | (color & 0xFF) << 16 | (color & 0xFF00) | (color >> 16 & 0xFF);
    for (int64_t y = part.top; y < part.bottom; ++y)
        std::fill_n(reinterpret_cast<uint32_t*>(PixelAt(to, part.left, y)), part.Width(), pixel);
}

void Blit(const RasterView& to, int64_t x, int64_t y, const RasterView& from, const Rect& source) {
    if (!to || !from || !Near(source) || !Near({x, y, x, y}))
        return;
    const int64_t right = x - source.left;    // how far the pixels move
    const int64_t down = y - source.top;
    const Rect part = source.Intersected(from.Bounds()).Moved(right, down).Intersected(to.Bounds());
    if (part.Empty())
        return;
    const auto width = static_cast<uint32_t>(part.Width());
    const auto height = static_cast<uint32_t>(part.Height());
    // Copying needs no tables, so it cannot fail.
    (void)kernels::Stretch({PixelAt(from, part.left - right, part.top - down), from.step, 0, 0, width, height, 4},
                           {PixelAt(to, part.left, part.top), to.step, width, height, 0, 0, width, height});
}

bool Stretch(const RasterView& to, const Rect& destination, const PackedPicture& from, const Rect& source) {
    const Rect shown = source.Intersected({0, 0, from.width, from.height});
    if (!to || from.data == nullptr || shown.Empty() || !Near(destination))
        return true;
    const Rect part = destination.Intersected(to.Bounds());
    if (part.Empty() || destination.Width() > UINT32_MAX || destination.Height() > UINT32_MAX)
        return true;
    const auto small = [](int64_t value) { return static_cast<uint32_t>(value); };
    return kernels::Stretch({from.data, from.step, small(shown.left), small(shown.top), small(shown.Width()),
                             small(shown.Height()), from.bytesPerPixel},
                            {PixelAt(to, part.left, part.top), to.step, small(destination.Width()),
                             small(destination.Height()), small(part.left - destination.left),
                             small(part.top - destination.top), small(part.Width()), small(part.Height())});
}

}    // namespace corvane
