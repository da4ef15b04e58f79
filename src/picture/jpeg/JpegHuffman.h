// The Huffman side of an encoder: which symbol has which code now, how often each came, and codes made ready for
// writing.
#pragma once

#include <cstdint>

#include "picture/jpeg/JpegTables.h"

namespace corvane::jpeg {

// One for luma, one for chroma. Lengths of codes never change: a symbol that came more often only takes a better place.
class HuffmanSet {
public:
    explicit HuffmanSet(uint32_t tables = 0);

    const std::array<uint8_t, 16>& DcBits() const { return kDcTables[m_tables].bits; }
    const std::array<uint8_t, 16>& AcBits() const { return kAcTables[m_tables].bits; }
    const std::array<uint8_t, kDcSymbols>& DcList() const { return m_dcList; }
    const std::array<uint8_t, kAcSymbols>& AcList() const { return m_acList; }

    // A code, its length in the low 8 bits. `category` up to 11; `symbol` below kAcSymbolRange and one of the list.
    uint32_t DcCode(uint32_t category) const {
        const uint32_t rank = m_dcRank[category];
        return uint32_t{kDcTables[m_tables].codes[rank]} << 8 | kDcTables[m_tables].lengths[rank];
    }
    uint32_t AcCode(uint32_t symbol) const {
        const uint32_t rank = m_acRank[symbol];
        return uint32_t{kAcTables[m_tables].codes[rank]} << 8 | kAcTables[m_tables].lengths[rank];
    }

    void ClearCounts();
    void CountDc(uint32_t category) { ++m_dcCounts[category]; }
    void CountAc(uint32_t run, uint32_t category) { ++m_acCounts[run * 10 + category]; }
    void CountEndOfBlock() { ++m_acCounts[0]; }
    void CountSixteenZeros() { ++m_acCounts[kAcSymbols - 1]; }
    // Gives the shortest codes to what was counted most. The sort is not stable and part of the format of the stream:
    // the same counts must always give the same lists.
    void SortByCounts();

private:
    void Rank();

    uint32_t m_tables;
    std::array<uint8_t, kDcSymbols> m_dcList;
    std::array<uint8_t, kAcSymbols> m_acList;
    std::array<uint8_t, kDcSymbols> m_dcRank;
    std::array<uint8_t, kAcSymbolRange> m_acRank;
    std::array<uint32_t, kDcSymbols> m_dcCounts;
    std::array<uint32_t, kAcSymbols> m_acCounts;
};

// The codes of a set for one frame, laid out for the inner loop. Entries have their length in the low 8 bits.
struct CodeTables {
    static constexpr int32_t kSmall = 32;

    uint32_t dc[kDcSymbols];
    uint32_t ac[256];
    // By run and coefficient from -kSmall to kSmall - 1: the code and the bits of the coefficient behind it.
    uint32_t acSmall[16][2 * kSmall];

    void Make(const HuffmanSet& set);
};

// Bits of the magnitude of `value`.
constexpr uint32_t Category(int32_t value) {
    const auto magnitude = static_cast<uint32_t>(value < 0 ? -value : value);
    return magnitude == 0 ? 0 : 32 - static_cast<uint32_t>(__builtin_clz(magnitude));
}

// What is written for a value behind the code of its category.
constexpr uint32_t ValueBits(int32_t value, uint32_t category) {
    return static_cast<uint32_t>(value < 0 ? value - 1 : value) & ((1u << category) - 1);
}

}    // namespace corvane::jpeg
