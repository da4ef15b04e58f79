#include "platform/blitter/VideoBlit.h"

#include <algorithm>

#include "kernels/YCbCrToRGB.h"

namespace corvane {

namespace {

// Rows of a band. The band's planes and their source rows stay in the second-level cache.
constexpr uint32_t kBandRows = 32;
// From this size on pixels are stored past the cache, where they would displace the decoder's data.
constexpr int64_t kStreamingPixels = int64_t{512} << 10;

constexpr uint32_t Small(int64_t value) {
    return static_cast<uint32_t>(value);
}

bool IsEven(const Rect& rect) {
    return ((rect.left | rect.top | rect.right | rect.bottom) & 1) == 0;
}

// All sides are even.
void Convert(const PictureView& to, const ConstPictureView& picture, bool streaming) {
    kernels::YCbCrToRGB(picture, to, {.fourth = 0xFF, .streaming = streaming});
}

}    // namespace

bool VideoBlit::Draw(const PictureView& to, const Rect& destination, const ConstPictureView& picture,
                     const Rect& source) {
    const Rect shown = source.Intersected(picture.Bounds());
    const Rect part = destination.Intersected(to.Bounds());
    if (!to || shown.Empty() || part.Empty() || destination.Width() > INT32_MAX || destination.Height() > INT32_MAX)
        return true;
    const bool same = shown.Width() == destination.Width() && shown.Height() == destination.Height();
    if (same && IsEven(shown) && IsEven(part.Moved(-destination.left, -destination.top))) {
        const Rect from = part.Moved(shown.left - destination.left, shown.top - destination.top);
        Convert(to.Part(part), picture.Part(from), part.Width() * part.Height() >= kStreamingPixels);
        return true;
    }
    const bool shrinks = shown.Width() > destination.Width() || shown.Height() > destination.Height();
    return shrinks && IsEven(shown) ? DrawShrunk(to, destination, picture, shown)
                                    : DrawConverted(to, destination, picture, shown);
}

bool VideoBlit::EnsureBands(uint32_t width, bool planar) {
    const uint32_t step = (width + 1 + 63) & ~63u;
    if (!m_bands || m_bandStep != step) {
        // Luma, and as much again for U and V.
        if (!m_bands.Allocate(size_t{2} * step * kBandRows)) {
            m_bandStep = 0;
            return false;
        }
        m_bandStep = step;
    }
    const auto stride = static_cast<ptrdiff_t>(step);
    uint8_t* const chroma = m_bands.Data() + stride * kBandRows;
    m_band = {.plane = {m_bands.Data(), chroma, planar ? chroma + stride * (kBandRows / 2) : nullptr},
              .stride = {stride, stride, stride},
              .size = {(width + 1) & ~1u, kBandRows},
              .format = planar ? uint32_t{PF_I420} : uint32_t{PF_NV12}};
    return true;
}

bool VideoBlit::EnsureWhole(uint32_t width, uint32_t height) {
    return m_whole.Reuse(width, height);
}

void VideoBlit::ShrinkBand(const ConstPictureView& shown, uint32_t row, uint32_t rows) {
    m_luma.Rows(shown.plane[0], shown.stride[0], row, rows, m_band.plane[0], m_band.stride[0]);
    for (int i = 1; i < shown.PlaneCount(); ++i)
        m_chroma.Rows(shown.plane[i], shown.stride[i], row / 2, (rows + 1) / 2, m_band.plane[i], m_band.stride[i]);
}

// Works in bands, whose rows are converted while they are cached. Where one axis grows, where sizes are odd, and where
// the destination is clipped, the bands are converted into a picture in memory, which is scaled afterwards.
bool VideoBlit::DrawShrunk(const PictureView& to, const Rect& destination, const ConstPictureView& picture,
                           const Rect& source) {
    const uint32_t width = Small(std::min(source.Width(), destination.Width()));
    const uint32_t height = Small(std::min(source.Height(), destination.Height()));
    const bool planar = picture.ThreePlanes();
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
    const ConstPictureView shown = picture.Part(source);
    m_band.colours = picture.colours;
    const PictureView target = direct ? to.Part(part) : m_whole.View();
    const bool streaming = direct && part.Width() * part.Height() >= kStreamingPixels;
    for (uint32_t row = 0; row < height; row += kBandRows) {
        const uint32_t rows = std::min(kBandRows, height - row);
        ShrinkBand(shown, row, rows);
        const Rect band{0, 0, m_band.size.width, (rows + 1) & ~1u};
        Convert(target.Part(band.Moved(0, row)), m_band.Part(band), streaming);
    }
    return direct || Stretch(to, destination, m_whole.View(), {0, 0, width, height});
}

bool VideoBlit::DrawConverted(const PictureView& to, const Rect& destination, const ConstPictureView& picture,
                              const Rect& source) {
    const Rect even{source.left & ~int64_t{1}, source.top & ~int64_t{1}, (source.right + 1) & ~int64_t{1},
                    (source.bottom + 1) & ~int64_t{1}};
    if (!EnsureWhole(Small(even.Width()), Small(even.Height())))
        return false;
    m_luma.Free();
    m_chroma.Free();
    m_bands.Free();
    Convert(m_whole.View(), picture.Part(even), false);
    return Stretch(to, destination, m_whole.View(), source.Moved(-even.left, -even.top));
}

size_t VideoBlit::Bytes() const {
    return m_bands.Size() + m_whole.View().size.height * static_cast<size_t>(m_whole.View().stride[0]);
}

}    // namespace corvane
