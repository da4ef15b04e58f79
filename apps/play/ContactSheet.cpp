#include "ContactSheet.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "PngFile.h"
#include "corvane/corvane.h"

namespace {

constexpr uint32_t kColumns = 4;
constexpr uint32_t kCells = 16;
constexpr uint32_t kCellWidth = 320;    // pixels
constexpr uint32_t kGap = 4;
constexpr uint32_t kGround = 0x181818;
constexpr double kTextSize = 14;    // pixels

uint8_t Clamped(int value) {
    return static_cast<uint8_t>(std::clamp(value, 0, 255));
}

// Reads single pixels of a picture as the callback delivers it.
struct PixelReader {
    const uint8_t* data;
    uint32_t width;
    uint32_t height;
    uint32_t kind;
    bool bottomUp;

    void Read(uint32_t x, uint32_t y, int rgb[3]) const {
        if (kind == CORVANE_PICTURE_I420) {
            const size_t stride = (width + 63) & ~63u;
            const uint8_t* u = data + stride * height;
            const uint8_t* v = u + stride / 2 * (height / 2);
            const size_t chroma = std::min<size_t>(y / 2, height / 2 - 1) * (stride / 2) + x / 2;
            const int luma = data[y * stride + x] * 65536;
            rgb[0] = Clamped((luma + 91880 * v[chroma] - 11727880) >> 16);
            rgb[1] = Clamped((luma - 22553 * u[chroma] - 46801 * v[chroma] + 8910128) >> 16);
            rgb[2] = Clamped((luma + 116128 * u[chroma] - 14831618) >> 16);
            return;
        }
        const uint32_t bytes = kind == CORVANE_PICTURE_BGR24 ? 3 : 4;
        const size_t stride =
            kind == CORVANE_PICTURE_BGR24 ? ((24 * size_t{width} + 31) >> 3) & ~size_t{3} : size_t{4} * width;
        const uint8_t* pixel = data + (bottomUp ? height - 1 - y : y) * stride + size_t{bytes} * x;
        rgb[0] = pixel[2];
        rgb[1] = pixel[1];
        rgb[2] = pixel[0];
    }
};

std::string LabelOf(uint64_t number, int64_t timeMs) {
    char text[64];
    std::snprintf(text, sizeof(text), "#%llu  %lld:%02lld.%03lld", static_cast<unsigned long long>(number),
                  static_cast<long long>(timeMs / 60000), static_cast<long long>(timeMs / 1000 % 60),
                  static_cast<long long>(timeMs % 1000));
    return text;
}

}    // namespace

ContactSheet::ContactSheet(int64_t spanMs) : m_stepMs(std::max<int64_t>(1, spanMs / kCells)), m_adapts(spanMs <= 0) {}

void ContactSheet::Offer(const uint8_t* data, uint32_t width, uint32_t height, uint32_t kind, bool bottomUp,
                         uint64_t number, int64_t timeMs) {
    if (data == nullptr || width < 2 || height < 2 || timeMs < m_nextMs)
        return;
    if (m_cells.size() == kCells) {
        if (!m_adapts)
            return;
        for (size_t i = 0; i < kCells / 2; ++i)    // keep every other cell and go on at half the density
            m_cells[i] = std::move(m_cells[2 * i]);
        m_cells.resize(kCells / 2);
        m_stepMs *= 2;
    }
    m_nextMs = timeMs + m_stepMs;
    const uint32_t cellWidth = std::min(width, kCellWidth);
    const uint32_t cellHeight = std::max(1u, static_cast<uint32_t>(uint64_t{height} * cellWidth / width));
    Cell cell{number, timeMs, cellWidth, cellHeight, std::vector<uint32_t>(size_t{cellWidth} * cellHeight)};
    const PixelReader reader{data, width, height, kind, bottomUp};
    for (uint32_t row = 0; row < cellHeight; ++row) {
        for (uint32_t column = 0; column < cellWidth; ++column) {
            // Mean of four samples of the cell's box.
            int sum[3] = {};
            for (uint32_t part = 0; part < 4; ++part) {
                int rgb[3];
                const uint32_t x = static_cast<uint32_t>((uint64_t{4} * column + 1 + 2 * (part & 1)) * width /
                                                         (uint64_t{4} * cellWidth));
                const uint32_t y = static_cast<uint32_t>((uint64_t{4} * row + 1 + 2 * (part >> 1)) * height /
                                                         (uint64_t{4} * cellHeight));
                reader.Read(std::min(x, width - 1), std::min(y, height - 1), rgb);
                for (int i = 0; i < 3; ++i)
                    sum[i] += rgb[i];
            }
            const auto mean = [&](int i) { return static_cast<uint32_t>(sum[i] / 4); };
            cell.pixels[size_t{row} * cellWidth + column] = mean(0) << 16 | mean(1) << 8 | mean(2);
        }
    }
    m_cells.push_back(std::move(cell));
}

bool ContactSheet::Write(const std::string& path) const {
    uint32_t cellWidth = 1;
    uint32_t cellHeight = 1;
    for (const Cell& cell : m_cells) {
        cellWidth = std::max(cellWidth, cell.width);
        cellHeight = std::max(cellHeight, cell.height);
    }
    const uint32_t count = static_cast<uint32_t>(m_cells.size());
    const uint32_t columns = std::clamp(count, 1u, kColumns);
    const uint32_t rows = std::max(1u, (count + kColumns - 1) / kColumns);
    Canvas sheet(columns * (cellWidth + kGap) + kGap, rows * (cellHeight + kGap) + kGap, kGround);
    std::vector<Label> labels;
    for (uint32_t i = 0; i < count; ++i) {
        const Cell& cell = m_cells[i];
        const size_t left = kGap + (i % kColumns) * (cellWidth + kGap);
        const size_t top = kGap + (i / kColumns) * (cellHeight + kGap);
        for (uint32_t row = 0; row < cell.height; ++row)
            std::memcpy(&sheet.pixels[(top + row) * sheet.width + left], &cell.pixels[size_t{row} * cell.width],
                        sizeof(uint32_t) * cell.width);
        labels.push_back({LabelOf(cell.number, cell.timeMs), static_cast<double>(left) + 4,
                          static_cast<double>(top) + kTextSize + 2, kTextSize});
    }
    return WritePng(path, sheet, labels);
}
