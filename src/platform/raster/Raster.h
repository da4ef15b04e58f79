// Pictures of 32 bit pixels in memory (PF_BGRA32) and what is drawn on them without a client: integer fills, copies and
// scaling. The fourth byte of each pixel that is written here is 0xFF. All operations clip to the picture; none
// allocates but where said. No locks: a picture belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <utility>

#include "base/AlignedBuffer.h"
#include "base/PictureView.h"

namespace corvane {

class Raster {
public:
    Raster() = default;
    Raster(Raster&& other) noexcept
        : m_memory(std::move(other.m_memory)), m_view(std::exchange(other.m_view, PictureView())) {}
    Raster& operator=(Raster&& other) noexcept {
        m_memory = std::move(other.m_memory);
        other.m_memory.Free();
        m_view = std::exchange(other.m_view, PictureView());
        return *this;
    }

    // Sets the size; all pixels become 0. False when there is no memory or the size is out of the limits; the raster is
    // then empty.
    [[nodiscard]] bool Resize(uint32_t width, uint32_t height);
    // Sets the size, for pictures that are written before they are read and often change their size. The contents are
    // undefined, and up to twice the memory needed is kept.
    [[nodiscard]] bool Reuse(uint32_t width, uint32_t height);
    void Free();

    const PictureView& View() const { return m_view; }
    explicit operator bool() const { return static_cast<bool>(m_view); }

private:
    AlignedBuffer m_memory;
    PictureView m_view;
};

// `color` is 0x00BBGGRR.
void Fill(const PictureView& to, const Rect& rect, uint32_t color);

// Copies `source` of `from` so that its top left corner comes to (x, y). The two do not overlap in memory.
void Blit(const PictureView& to, int64_t x, int64_t y, const ConstPictureView& from, const Rect& source);

// Scales `source`, a part of `from` (PF_BGRA32 or PF_BGR24), into the whole of `destination`, of which only what lies
// on `to` is written. 64 bytes after the last row of `from` in memory may be read. An empty source or destination draws
// nothing. False when there is no memory for the scaler's tables; nothing is drawn then.
bool Stretch(const PictureView& to, const Rect& destination, const ConstPictureView& from, const Rect& source);

}    // namespace corvane
