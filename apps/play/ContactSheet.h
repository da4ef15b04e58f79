// Collects small pictures spread over a stream and writes them side by side as one PNG.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class ContactSheet {
public:
    // `spanMs`: length of the stream, 0 when unknown: then the spread adapts as pictures come.
    explicit ContactSheet(int64_t spanMs);

    // Offers one picture; `kind` and `bottomUp` as the callback was registered with.
    void Offer(const uint8_t* data, uint32_t width, uint32_t height, uint32_t kind, bool bottomUp, int64_t timeMs);

    // False when the file cannot be written.
    bool Write(const std::string& path) const;

    size_t Count() const { return m_cells.size(); }

private:
    struct Cell {
        int64_t timeMs;
        uint32_t width;
        uint32_t height;
        std::vector<uint8_t> rgb;
    };

    int64_t m_stepMs;
    bool m_adapts;
    int64_t m_nextMs = 0;
    std::vector<Cell> m_cells;
};
