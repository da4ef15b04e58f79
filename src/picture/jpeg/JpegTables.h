// Constant tables of the JPEG encoder. Those of T.81 are from its Annex K.
#pragma once

#include <array>
#include <cstdint>

#include "kernels/JpegBlocks.h"

namespace corvane::jpeg {

inline constexpr uint32_t kDcSymbols = 12;
inline constexpr uint32_t kAcSymbols = 162;
// AC symbols are bytes 0xRS, run and category: the highest is 0xFA.
inline constexpr uint32_t kAcSymbolRange = 252;
inline constexpr uint8_t kSixteenZeros = 0xF0;

// A Huffman table: how many codes there are of each length from 1 to 16, and the code and its length by rank, which is
// the place of a symbol in the table's list.
template <uint32_t kCount>
struct HuffmanTable {
    std::array<uint8_t, 16> bits;
    std::array<uint8_t, kCount> values;    // symbols by rank, as the standard has them
    std::array<uint16_t, kCount> codes{};
    std::array<uint8_t, kCount> lengths{};

    constexpr HuffmanTable(const std::array<uint8_t, 16>& bitsOf, const std::array<uint8_t, kCount>& valuesOf)
        : bits(bitsOf), values(valuesOf) {
        uint32_t code = 0;
        uint32_t rank = 0;
        for (uint32_t length = 1; length <= 16; ++length, code <<= 1)
            for (uint32_t i = 0; i < bits[length - 1]; ++i, ++rank, ++code) {
                codes[rank] = static_cast<uint16_t>(code);
                lengths[rank] = static_cast<uint8_t>(length);
            }
    }
};
using DcTable = HuffmanTable<kDcSymbols>;
using AcTable = HuffmanTable<kAcSymbols>;

// Index 0 luma, 1 chroma.
extern const DcTable kDcTables[2];    // K.3, K.4
extern const AcTable kAcTables[2];    // K.5, K.6

// Symbols in the order of their counters: 0x00, 0x01 to 0x0A, 0x11 to 0x1A, ... 0xFA, 0xF0.
constexpr std::array<uint8_t, kAcSymbols> NaturalAcSymbols() {
    std::array<uint8_t, kAcSymbols> symbols{};
    for (uint32_t run = 0; run < 16; ++run)
        for (uint32_t category = 1; category <= 10; ++category)
            symbols[run * 10 + category] = static_cast<uint8_t>(run * 16 + category);
    symbols[kAcSymbols - 1] = kSixteenZeros;
    return symbols;
}

// Divisors for quality 50 in natural order.
using DivisorTable = std::array<uint8_t, 64>;
const DivisorTable& LumaDivisors(uint32_t quantTable);
const DivisorTable& ChromaDivisors();

// 65536 / divisor to the nearest, but for two entries that are kept so that streams stay the same bytes.
constexpr uint16_t Reciprocal(uint32_t divisor) {
    if (divisor == 9)
        return 7281;
    if (divisor == 12)
        return 5462;
    return divisor < 2 ? 0 : static_cast<uint16_t>((65536 + divisor / 2) / divisor);
}

}    // namespace corvane::jpeg
