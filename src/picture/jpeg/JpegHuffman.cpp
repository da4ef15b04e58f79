#include "picture/jpeg/JpegHuffman.h"

#include <numeric>
#include <utility>

namespace corvane::jpeg {

namespace {

// Quicksort by falling counts, the symbols moving with them; the pivot is the first of the range. `last` is inside.
void Sort(uint8_t* symbols, uint32_t* counts, int32_t first, int32_t last) {
    while (first < last) {
        const uint32_t pivot = counts[first];
        int32_t left = first;
        int32_t right = last;
        while (left < right) {
            while (left < last && counts[left] >= pivot)
                ++left;
            while (counts[right] < pivot)
                --right;
            if (left < right) {
                std::swap(counts[left], counts[right]);
                std::swap(symbols[left], symbols[right]);
            }
        }
        std::swap(counts[first], counts[right]);
        std::swap(symbols[first], symbols[right]);
        Sort(symbols, counts, first, right - 1);
        first = right + 1;
    }
}

}    // namespace

HuffmanSet::HuffmanSet(uint32_t tables)
    : m_tables(tables),
      m_dcList(kDcTables[tables].values),
      m_acList(kAcTables[tables].values),
      m_dcRank{},
      m_acRank{},
      m_dcCounts{},
      m_acCounts{} {
    Rank();
}

void HuffmanSet::Rank() {
    for (uint8_t rank = 0; rank < kDcSymbols; ++rank)
        m_dcRank[m_dcList[rank]] = rank;
    for (uint8_t rank = 0; rank < kAcSymbols; ++rank)
        m_acRank[m_acList[rank]] = rank;
}

void HuffmanSet::ClearCounts() {
    m_dcCounts.fill(0);
    m_acCounts.fill(0);
}

void HuffmanSet::SortByCounts() {
    std::iota(m_dcList.begin(), m_dcList.end(), uint8_t{0});
    m_acList = NaturalAcSymbols();
    Sort(m_dcList.data(), m_dcCounts.data(), 0, kDcSymbols - 1);
    Sort(m_acList.data(), m_acCounts.data(), 0, kAcSymbols - 1);
    Rank();
}

void CodeTables::Make(const HuffmanSet& set) {
    for (uint32_t category = 0; category < kDcSymbols; ++category)
        dc[category] = set.DcCode(category);
    for (const uint8_t symbol : set.AcList())
        ac[symbol] = set.AcCode(symbol);
    for (uint32_t run = 0; run < 16; ++run)
        for (int32_t value = -kSmall; value < kSmall; ++value) {
            uint32_t& entry = acSmall[run][value + kSmall];
            entry = 0;
            if (value == 0)
                continue;
            const uint32_t category = Category(value);
            const uint32_t code = ac[run * 16 + category];
            entry = (code >> 8 << category | ValueBits(value, category)) << 8 | ((code & 255) + category);
        }
}

}    // namespace corvane::jpeg
