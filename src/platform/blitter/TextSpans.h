// Text as it was drawn last: for each row the runs of pixels that are not black. Black, value 0, is where the picture
// shows; the byte that cairo uses beside the colours does not count.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/raster/Raster.h"

namespace corvane {

class TextSpans {
public:
    // Copies what `drawn` holds; may raise std::bad_alloc, and is empty then.
    void Take(const ConstPictureView& drawn);
    void Clear();
    // Lays the pixels of `source` on `to`, moved by (x, y); X becomes 0xFF.
    void Lay(const PictureView& to, const Rect& source, int64_t x, int64_t y) const;
    bool Empty() const { return m_spans.empty(); }

private:
    struct Span {
        uint32_t y;
        uint32_t left;
        uint32_t right;
        size_t pixels;    // where they begin in m_pixels
    };
    std::vector<Span> m_spans;    // by rows, then by columns
    std::vector<uint32_t> m_pixels;
};

}    // namespace corvane
