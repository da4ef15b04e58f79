// Pictures of 32 bit pixels in memory (bytes B, G, R, X, first row on top) and what is drawn on them without a client:
// integer fills, copies and scaling. Whatever is written here has X = 0xFF. All operations clip to the raster; none
// allocates but where said. No locks: a raster belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>

#include "base/AlignedBuffer.h"
#include "base/Rectangle.h"

namespace corvane {

struct RasterView {
    uint8_t* data = nullptr;
    ptrdiff_t step = 0;    // bytes
    uint32_t width = 0;    // pixels
    uint32_t height = 0;

    explicit operator bool() const { return data != nullptr; }
    Rect Bounds() const { return {0, 0, width, height}; }
};

class Raster {
public:
    Raster() = default;
    Raster(Raster&& other) noexcept
        : m_memory(std::move(other.m_memory)), m_view(std::exchange(other.m_view, RasterView())) {}
    Raster& operator=(Raster&& other) noexcept {
        m_memory = std::move(other.m_memory);
        other.m_memory.Free();
        m_view = std::exchange(other.m_view, RasterView());
        return *this;
    }

    // Gives the raster this size; what it held is lost, all pixels are 0. False when there is no memory or the size is
    // out of the limits, and then the raster is empty.
    [[nodiscard]] bool Resize(uint32_t width, uint32_t height);
    // The same for what is written before it is read, and changes its size often: what it holds then is not said, and
    // memory of up to twice the need stays.
    [[nodiscard]] bool Reuse(uint32_t width, uint32_t height);
    void Free();

    const RasterView& View() const { return m_view; }
    explicit operator bool() const { return static_cast<bool>(m_view); }

private:
    AlignedBuffer m_memory;
    RasterView m_view;
};

// A finished picture of packed pixels that is to be shown. 64 bytes behind its last row in memory may be read.
struct PackedPicture {
    const uint8_t* data = nullptr;    // the top row
    ptrdiff_t step = 0;               // bytes, negative for a picture whose first row in memory is the bottom
    uint32_t width = 0;               // pixels
    uint32_t height = 0;
    uint32_t bytesPerPixel = 0;    // 3: B G R, 4: B G R X
};
PackedPicture AsPicture(const RasterView& raster);

// `color` is 0x00BBGGRR.
void Fill(const RasterView& to, const Rect& rect, uint32_t color);

// Copies `source` of `from` so that its top left corner comes to (x, y). The two do not overlap in memory.
void Blit(const RasterView& to, int64_t x, int64_t y, const RasterView& from, const Rect& source);

// Scales `source`, a part of `from`, into the whole of `destination`, of which only what lies on `to` is written. An
// empty source or destination draws nothing. False when there is no memory for the scaler's tables; nothing is drawn
// then.
bool Stretch(const RasterView& to, const Rect& destination, const PackedPicture& from, const Rect& source);

}    // namespace corvane
