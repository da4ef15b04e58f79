#include "platform/blitter/VideoBlit.h"

#include <algorithm>

#include "kernels/YCbCrToRGB.h"

namespace corvane {

namespace {

// Rows of a band: with three planes of it and their source rows it stays in the second level of the cache.
constexpr uint32_t kBandRows = 32;
// From this size on what is drawn goes past the cache: it would only push out what the decoder needs.
constexpr int64_t kStreamingPixels = int64_t{512} << 10;

constexpr uint32_t Small(int64_t value) {
    return static_cast<uint32_t>(value);
}

uint8_t* PixelAt(const RasterView& raster, int64_t x, int64_t y) {
    return raster.data + static_cast<ptrdiff_t>(y) * raster.step + 4 * x;
}

bool IsEven(const Rect& rect) {
    return ((rect.left | rect.top | rect.right | rect.bottom) & 1) == 0;
}

// The planes from an even pixel on.
kernels::Source420 PlanesAt(const kernels::Source420& planes, int64_t x, int64_t y) {
    kernels::Source420 at = planes;
    at.y += static_cast<ptrdiff_t>(y) * at.yStep + x;
    at.u += static_cast<ptrdiff_t>(y / 2) * at.uStep + (at.Planar() ? x / 2 : x);
    if (at.Planar())
        at.v += static_cast<ptrdiff_t>(y / 2) * at.vStep + x / 2;
    return at;
}

// `part` is even, as is its size.
void Convert(const RasterView& to, int64_t x, int64_t y, const kernels::Source420& planes, uint32_t width,
             uint32_t height, const kernels::ColourMatrix* matrix, bool streaming) {
    kernels::YCbCrToRGB(planes, PixelAt(to, x, y), to.step, width, height,
                        {.bytes = 4, .fourth = 0xFF, .streaming = streaming, .matrix = matrix});
}

}    // namespace

bool VideoBlit::Draw(const RasterView& to, const Rect& destination, const VideoPicture& picture, const Rect& source) {
    const Rect shown = source.Intersected({0, 0, picture.width, picture.height});
    const Rect part = destination.Intersected(to.Bounds());
    if (!to || shown.Empty() || part.Empty() || destination.Width() > INT32_MAX || destination.Height() > INT32_MAX)
        return true;
    const bool same = shown.Width() == destination.Width() && shown.Height() == destination.Height();
    if (same && IsEven(shown) && IsEven(part.Moved(-destination.left, -destination.top))) {
        const Rect from = part.Moved(shown.left - destination.left, shown.top - destination.top);
        Convert(to, part.left, part.top, PlanesAt(picture.planes, from.left, from.top), Small(part.Width()),
                Small(part.Height()), picture.matrix, part.Width() * part.Height() >= kStreamingPixels);
        return true;
    }
    const bool shrinks = shown.Width() > destination.Width() || shown.Height() > destination.Height();
    return shrinks && IsEven(shown) ? DrawShrunk(to, destination, picture, shown)
                                    : DrawConverted(to, destination, picture, shown);
}

bool VideoBlit::EnsureBands(uint32_t width, bool planar) {
    const uint32_t step = (width + 1 + 63) & ~63u;
    if (!m_bands || m_bandStep != step) {
        // Luma, and as much again for both kinds of chroma.
        if (!m_bands.Allocate(size_t{2} * step * kBandRows)) {
            m_bandStep = 0;
            return false;
        }
        m_bandStep = step;
    }
    const auto rowStep = static_cast<ptrdiff_t>(step);
    m_band = {m_bands.Data(), m_bands.Data() + rowStep * kBandRows, nullptr, rowStep, rowStep, rowStep};
    if (planar)
        m_band.v = m_band.u + rowStep * (kBandRows / 2);
    return true;
}

bool VideoBlit::EnsureWhole(uint32_t width, uint32_t height) {
    return m_whole.Reuse(width, height);
}

bool VideoBlit::ShrinkBand(const kernels::Source420& planes, uint32_t row, uint32_t rows) {
    const auto step = static_cast<ptrdiff_t>(m_bandStep);
    m_luma.Rows(planes.y, planes.yStep, row, rows, m_bands.Data(), step);
    const uint32_t chromaRows = (rows + 1) / 2;
    uint8_t* const u = m_bands.Data() + step * kBandRows;
    m_chroma.Rows(planes.u, planes.uStep, row / 2, chromaRows, u, step);
    if (planes.Planar())
        m_chroma.Rows(planes.v, planes.vStep, row / 2, chromaRows, u + step * (kBandRows / 2), step);
    return true;
}

// Band by band: the rows of a band are converted while they are still near. An axis that grows is left for later, and
// then, as for sizes that are not even or are cut, the bands come together in memory first.
bool VideoBlit::DrawShrunk(const RasterView& to, const Rect& destination, const VideoPicture& picture,
                           const Rect& source) {
    const uint32_t width = Small(std::min(source.Width(), destination.Width()));
    const uint32_t height = Small(std::min(source.Height(), destination.Height()));
    const bool planar = picture.planes.Planar();
    const Rect part = destination.Intersected(to.Bounds());
    const bool direct = part == destination && ((width | height) & 1) == 0 && width == destination.Width() &&
                        height == destination.Height();
    const kernels::ShrinkSizes luma{Small(source.Width()), Small(source.Height()), width, height, 1};
    const kernels::ShrinkSizes chroma{luma.width / 2, luma.height / 2, (width + 1) / 2, (height + 1) / 2,
                                      planar ? 1u : 2u};
    if (!m_luma.Make(luma) || !m_chroma.Make(chroma) || !EnsureBands(width, planar))
        return false;
    if (direct)
        m_whole.Free();
    else if (!EnsureWhole((width + 1) & ~1u, (height + 1) & ~1u))
        return false;
    const kernels::Source420 planes = PlanesAt(picture.planes, source.left, source.top);
    const RasterView& target = direct ? to : m_whole.View();
    const int64_t left = direct ? part.left : 0;
    const int64_t top = direct ? part.top : 0;
    const bool streaming = direct && part.Width() * part.Height() >= kStreamingPixels;
    for (uint32_t row = 0; row < height; row += kBandRows) {
        const uint32_t rows = std::min(kBandRows, height - row);
        ShrinkBand(planes, row, rows);
        Convert(target, left, top + row, m_band, (width + 1) & ~1u, (rows + 1) & ~1u, picture.matrix, streaming);
    }
    return direct || Stretch(to, destination, AsPicture(m_whole.View()), {0, 0, width, height});
}

bool VideoBlit::DrawConverted(const RasterView& to, const Rect& destination, const VideoPicture& picture,
                              const Rect& source) {
    const Rect even{source.left & ~int64_t{1}, source.top & ~int64_t{1}, (source.right + 1) & ~int64_t{1},
                    (source.bottom + 1) & ~int64_t{1}};
    if (!EnsureWhole(Small(even.Width()), Small(even.Height())))
        return false;
    m_luma.Free();
    m_chroma.Free();
    m_bands.Free();
    Convert(m_whole.View(), 0, 0, PlanesAt(picture.planes, even.left, even.top), Small(even.Width()),
            Small(even.Height()), picture.matrix, false);
    return Stretch(to, destination, AsPicture(m_whole.View()), source.Moved(-even.left, -even.top));
}

size_t VideoBlit::Bytes() const {
    return m_bands.Size() + m_whole.View().height * static_cast<size_t>(m_whole.View().step);
}

}    // namespace corvane
