#include "platform/raster/Raster.h"

#include <algorithm>
#include <cstring>

#include "base/Limits.h"
#include "kernels/Stretch.h"

namespace corvane {

namespace {

constexpr int64_t kPixelBytes = 4;
constexpr uint32_t kOpaque = 0xFF000000u;

// Larger coordinates are ignored, so that moving and scaling cannot overflow.
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
    if (m_view.size == PictureSize{width, height})
        return static_cast<bool>(m_view);
    m_view = {};
    // Rows begin on 64 bytes, for aligned vectors.
    const uint64_t step = (uint64_t{width} * kPixelBytes + 63) & ~uint64_t{63};
    const size_t bytes = limits::FitsPicture(width, height) ? step * height : 0;
    const size_t before = m_memory.Size();
    // Memory that replaces a smaller block has an eighth more, since a size that grows may grow again.
    if (bytes == 0 || ((before < bytes || before / 2 > bytes) &&
                       !m_memory.Allocate(bytes + (before != 0 && before < bytes ? bytes / 8 : 0)))) {
        Free();
        return false;
    }
    m_view = {.plane = {m_memory.Data()},
              .stride = {static_cast<ptrdiff_t>(step)},
              .size = {width, height},
              .format = PF_BGRA32};
    return true;
}

void Raster::Free() {
    m_memory.Free();
    m_view = {};
}

void Fill(const PictureView& to, const Rect& rect, uint32_t color) {
    const Rect part = rect.Intersected(to.Bounds());
    if (!to || part.Empty())
        return;
    const uint32_t pixel = kOpaque | (color & 0xFF) << 16 | (color & 0xFF00) | (color >> 16 & 0xFF);
    for (int64_t y = part.top; y < part.bottom; ++y)
        std::fill_n(reinterpret_cast<uint32_t*>(to.At(part.left, y)), part.Width(), pixel);
}

void Blit(const PictureView& to, int64_t x, int64_t y, const ConstPictureView& from, const Rect& source) {
    if (!to || !from || !Near(source) || !Near({x, y, x, y}))
        return;
    const int64_t right = x - source.left;    // the distance that pixels move
    const int64_t down = y - source.top;
    const Rect part = source.Intersected(from.Bounds()).Moved(right, down).Intersected(to.Bounds());
    if (part.Empty())
        return;
    // Copying needs no tables, so it cannot fail.
    const PictureView target = to.Part(part);
    (void)kernels::Stretch(from.Part(part.Moved(-right, -down)), target, target.Bounds());
}

bool Stretch(const PictureView& to, const Rect& destination, const ConstPictureView& from, const Rect& source) {
    const Rect shown = source.Intersected(from.Bounds());
    if (!to || !from || shown.Empty() || !Near(destination))
        return true;
    const Rect part = destination.Intersected(to.Bounds());
    if (part.Empty() || destination.Width() > UINT32_MAX || destination.Height() > UINT32_MAX)
        return true;
    return kernels::Stretch(from.Part(shown), to.Part(part), destination.Moved(-part.left, -part.top));
}

}    // namespace corvane
