// The last drawn text: the runs of pixels in each row that are not black. Black, value 0 without the fourth byte, is
// transparent.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/raster/Raster.h"

namespace corvane {

class TextSpans {
public:
    // Copies the text on `drawn`. May raise std::bad_alloc; there is no text then.
    void Take(const ConstPictureView& drawn);
    void Clear();
    // Lays the text inside `source` on `to`, with the corner of `source` at (x, y). The fourth byte becomes 0xFF.
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
