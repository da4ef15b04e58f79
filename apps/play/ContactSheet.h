// Collects small pictures spread over a stream and writes them side by side as one PNG, each with its number and time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class ContactSheet {
public:
    // `spanMs`: length of the stream, 0 when unknown: then the spread adapts as pictures come.
    explicit ContactSheet(int64_t spanMs);

    // Offers one picture, the `number`-th of the stream; `kind` and `bottomUp` as the callback was registered with.
    void Offer(const uint8_t* data, uint32_t width, uint32_t height, uint32_t kind, bool bottomUp, uint64_t number,
               int64_t timeMs);

    // False when the file cannot be written.
    bool Write(const std::string& path) const;

private:
    struct Cell {
        uint64_t number;
        int64_t timeMs;
        uint32_t width;
        uint32_t height;
        std::vector<uint32_t> pixels;    // 0x00RRGGBB
    };

    int64_t m_stepMs;
    bool m_adapts;
    int64_t m_nextMs = 0;
    std::vector<Cell> m_cells;
};
