// Picks bytes of a row by a table: scaling to the nearest sample is a choice of samples, and nothing else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/AlignedBuffer.h"

namespace corvane::kernels {

// Keeps the tables of one choice, for all rows of all pictures of one size. Any number of threads may pick at a time.
class SamplePick {
public:
    // `columns`: for each byte of a picked row the byte of the source row; they rise or repeat, and the last is below
    // `sourceBytes`. False when there is no memory; nothing may be picked then.
    [[nodiscard]] bool Make(std::span<const uint32_t> columns, size_t sourceBytes);

    // out[i] = source[columns[i]]; reads and writes nothing outside the two rows. `next`, a hint: the row to be picked
    // after this one, which is fetched meanwhile, as the processor does not guess rows that are left out.
    void Row(const uint8_t* source, uint8_t* out, const uint8_t* next) const;

private:
    friend class SamplePickAccess;

    AlignedBuffer m_memory;
    size_t m_count = 0;
    size_t m_windows = 0;    // of 16 bytes, that the samples of 16 lanes lie in; 0: each is fetched by itself
    const uint32_t* m_columns = nullptr;
    const uint32_t* m_offsets = nullptr;
    const uint8_t* m_lanes = nullptr;
};

namespace ref {
void PickRow(const uint32_t* columns, size_t count, const uint8_t* source, uint8_t* out);
}    // namespace ref

}    // namespace corvane::kernels
