// Picks bytes of a row by a table, which is all that scaling to the nearest sample does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/AlignedBuffer.h"

namespace corvane::kernels {

// A block of 16 lanes has one offset of its windows and, for each window, 16 indices; the index of a lane whose sample
// lies in another window has its top bit set. The last block ends with the row, so it may repeat lanes of the one
// before.
struct PickTables {
    size_t count = 0;    // bytes of a picked row
    size_t windows =
        0;    // windows of 16 bytes that hold the samples of a block; 0: samples are too far apart, or too few
    const uint32_t* columns = nullptr;    // `count` of them
    const uint32_t* offsets = nullptr;    // bytes from the start of the source row
    const uint8_t* lanes = nullptr;
};

// Keeps the tables of one choice, for all rows of all pictures of one size. Any number of threads may pick at a time.
class SamplePick {
public:
    // `columns`: for each byte of a picked row the byte of the source row; they rise or repeat, and the last is below
    // `sourceBytes`. False when there is no memory; Row must not be called then.
    [[nodiscard]] bool Make(std::span<const uint32_t> columns, size_t sourceBytes);

    // out[i] = source[columns[i]]; reads and writes nothing outside the two rows. `next`, a hint: the row to be picked
    // after this one, which is fetched meanwhile, since the processor does not prefetch over rows that are left out.
    void Row(const uint8_t* source, uint8_t* out, const uint8_t* next) const;

private:
    AlignedBuffer m_memory;    // what m_tables points at
    PickTables m_tables;
};

namespace ref {
void PickRow(const uint32_t* columns, size_t count, const uint8_t* source, uint8_t* out);
}    // namespace ref

}    // namespace corvane::kernels
