// The preparation of one call of the scaler: the weights of each axis, and the tables of the horizontal pass, laid out
// for vectors of a given number of 16 byte blocks.
#pragma once

#include <cstddef>
#include <cstdint>

#include "base/AlignedBuffer.h"
#include "kernels/Stretch.h"

namespace corvane::kernels {

// The taps of the pixels along one axis. Weights have 16 bits. Their sum is 65536; a single tap has 65535, a difference
// that rounding removes.
class StretchAxis {
public:
    // Up to this many taps a pixel, products of 16 bits that are truncated to 1/256 level keep the accuracy of 2
    // levels.
    static constexpr uint32_t kMaxTaps = 96;

    StretchAxis(uint32_t source, uint32_t destination) : m_source(source), m_destination(destination) {}

    bool Same() const { return m_source == m_destination; }
    // The most taps of any pixel.
    uint64_t Taps() const;

    struct Span {
        uint32_t first;    // source pixel of the first weight
        uint32_t count;    // at least 1, at most Taps()
    };
    // Fills `weights`, kMaxTaps of which `count` are set. Only where Taps() <= kMaxTaps.
    Span At(uint32_t pixel, uint16_t* weights) const;

private:
    Span Box(uint32_t pixel, uint16_t* weights) const;
    Span Bilinear(uint32_t pixel, uint16_t* weights) const;

    uint64_t m_source;
    uint64_t m_destination;
};

enum class HorizontalPass { Copy, Pairs, Singles };

// Destination pixels are worked in groups with 4 pixels a block: block b of a group holds pixels 4b .. 4b+3.
//
// Pairs: a vector holds two pixels a block, each of up to 3 taps that lie in one window of 16 bytes. Each half of a
// group (pixels 0, 1 and then 2, 3 of the blocks) has `blocks` offsets of windows and, in vectors, the byte index of
// the first tap for each 16 bit lane and the weights: one vector where there are 2 taps, else three.
//
// Singles: a vector holds one pixel a block, and takes windows of 4 taps, `chunks` in a row. Each of the 4 pixels has
// `blocks` offsets and, for each chunk, two vectors of weights: taps 0 and 1, taps 2 and 3.
struct HorizontalTables {
    HorizontalPass pass = HorizontalPass::Copy;
    uint32_t taps = 1;
    uint32_t chunks = 1;
    size_t groups = 0;
    const uint32_t* offsets = nullptr;    // bytes from the first needed column of a row
    const uint8_t* vectors = nullptr;
};

class StretchPlan {
public:
    // Room after a row between the passes, for the last vector stored and the window that begins in it.
    static constexpr size_t kRowSlack = 128;

    // False when there is no memory. `blocks`: 16 byte blocks of a vector.
    [[nodiscard]] bool Make(const ConstPictureView& source, const PictureView& destination, const Rect& whole,
                            size_t blocks);

    // The first needed column of source row `row`.
    const uint8_t* Row(uint32_t row) const { return m_source + static_cast<ptrdiff_t>(row) * m_stride; }
    ptrdiff_t SourceStride() const { return m_stride; }
    uint32_t PixelBytes() const { return m_pixelBytes; }
    size_t RowBytes() const { return m_rowBytes; }    // of the needed columns
    const StretchAxis& Vertical() const { return m_vertical; }
    const HorizontalTables& Horizontal() const { return m_tables; }
    // Two rows between the passes.
    uint8_t* Scratch(size_t which) const { return m_scratch + which * m_scratchStride; }

private:
    struct Columns;
    void FillPairs(const Columns& columns, size_t blocks, uint32_t* offsets, uint8_t* vectors) const;
    void FillSingles(const Columns& columns, size_t blocks, uint32_t* offsets, uint8_t* vectors) const;

    AlignedBuffer m_memory;
    const uint8_t* m_source = nullptr;
    ptrdiff_t m_stride = 0;
    uint32_t m_pixelBytes = 0;
    size_t m_rowBytes = 0;
    StretchAxis m_vertical{1, 1};
    HorizontalTables m_tables;
    uint8_t* m_scratch = nullptr;
    size_t m_scratchStride = 0;
};

}    // namespace corvane::kernels
