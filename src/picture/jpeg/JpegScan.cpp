#include "picture/jpeg/JpegScan.h"

#include <algorithm>
#include <cstring>

#include "kernels/JpegBlocks.h"
#include "picture/jpeg/JpegBits.h"

namespace corvane::jpeg {

namespace {

using kernels::kZigzag;

// Blocks of some MCUs of one row, quantised in long runs and then coded in the order of the stream.
struct Batch {
    static constexpr uint32_t kBlocks = 48;

    int16_t coefficients[kBlocks][64];
    uint64_t nonZero[kBlocks];
};

// Where the blocks of an MCU lie in a batch: that of MCU m at `first` + m `perMcu`.
struct Slot {
    uint32_t first, perMcu, component;
};

// One block through either writer of bits. `kCount`: symbols are counted.
template <bool kCount, class Bits>
inline void WriteBlock(Bits& bits, ScanComponent& component, const int16_t* coefficients, uint64_t nonZero) {
    const CodeTables& codes = *component.codes;
    const auto difference = static_cast<int16_t>(coefficients[0] - component.predictor);
    component.predictor = coefficients[0];
    const uint32_t dcCategory = Category(difference);
    bits.PutValue(codes.dc[dcCategory], difference, dcCategory);
    if constexpr (kCount)
        component.counted->CountDc(dcCategory);
    uint32_t last = 0;
    for (uint64_t left = nonZero & ~uint64_t{1}; left != 0; left &= left - 1) {
        const auto k = static_cast<uint32_t>(__builtin_ctzll(left));
        uint32_t run = k - last - 1;
        last = k;
        const int32_t value = coefficients[kZigzag[k]];
        for (; run > 15; run -= 16) {
            bits.PutCode(codes.ac[kSixteenZeros]);
            if constexpr (kCount)
                component.counted->CountSixteenZeros();
        }
        bits.PutCoefficient(codes, run, value);
        if constexpr (kCount)
            component.counted->CountAc(run, Category(value));
    }
    if (last != 63) {
        bits.PutCode(codes.ac[0]);
        if constexpr (kCount)
            component.counted->CountEndOfBlock();
    }
}

class ScanWriter {
public:
    ScanWriter(BitPacker& packer, Scan& scan) : m_packer(packer), m_scan(scan) {
        uint32_t blocks = 0;
        for (uint32_t i = 0; i < scan.count; ++i)
            blocks += scan.components[i].columns * scan.components[i].rows;
        m_batchMcus = Batch::kBlocks / blocks;
        uint32_t first = 0;
        for (uint32_t i = 0; i < scan.count; ++i) {
            const ScanComponent& component = scan.components[i];
            for (uint32_t row = 0; row < component.rows; ++row, first += m_batchMcus * component.columns)
                for (uint32_t column = 0; column < component.columns; ++column)
                    m_slots[m_slotCount++] = {first + column, component.columns, i};
        }
    }

    Status Write() {
        const uint64_t mcus = uint64_t{m_scan.mcuColumns} * m_scan.mcuRows;
        uint64_t done = 0;
        for (uint32_t row = 0; row < m_scan.mcuRows; ++row)
            for (uint32_t column = 0; column < m_scan.mcuColumns;) {
                const uint32_t interval = m_scan.restartInterval;
                uint32_t count = std::min(m_batchMcus, m_scan.mcuColumns - column);
                if (interval != 0)
                    count = std::min(count, static_cast<uint32_t>(interval - done % interval));
                Quantize(row, column, count);
                if (const Status status =
                        m_scan.components[0].counted != nullptr ? Code<true>(count) : Code<false>(count);
                    !Ok(status))
                    return status;
                column += count;
                done += count;
                if (interval != 0 && done % interval == 0 && done != mcus)
                    if (const Status status = Restart(); !Ok(status))
                        return status;
            }
        return Status::Ok;
    }

private:
    void Quantize(uint32_t mcuRow, uint32_t mcuColumn, uint32_t count) {
        for (uint32_t slot = 0; slot < m_slotCount;) {
            const ScanComponent& component = m_scan.components[m_slots[slot].component];
            for (uint32_t row = 0; row < component.rows; ++row, slot += component.columns)
                QuantizeRow(component, mcuRow * component.rows + row, mcuColumn * component.columns,
                            count * component.columns, m_slots[slot].first);
        }
    }

    // `count` blocks of one row of blocks, those inside the picture straight from the plane.
    void QuantizeRow(const ScanComponent& component, uint32_t row, uint32_t column, uint32_t count, uint32_t to) {
        const auto step = static_cast<ptrdiff_t>(component.step);
        const uint32_t whole = component.width / 8;
        const uint32_t inside = component.height / 8 <= row || whole <= column ? 0 : std::min(count, whole - column);
        if (inside > 0) {
            const uint8_t* const samples = component.samples + size_t{row} * 8 * component.step + size_t{column} * 8;
            kernels::QuantizeBlocks(samples, step, inside, component.reciprocals, m_batch.coefficients[to],
                                    m_batch.nonZero + to);
        }
        for (uint32_t i = inside; i < count; ++i) {
            uint8_t block[64];
            FetchEdge(component, row, column + i, block);
            kernels::QuantizeBlocks(block, 8, 1, component.reciprocals, m_batch.coefficients[to + i],
                                    m_batch.nonZero + to + i);
        }
    }

    static void FetchEdge(const ScanComponent& component, uint32_t row, uint32_t column, uint8_t* block) {
        const size_t left = size_t{column} * 8;
        const size_t top = size_t{row} * 8;
        if (left >= component.width || top >= component.height) {
            std::memset(block, 0, 64);
            return;
        }
        const size_t columns = std::min<size_t>(8, component.width - left);
        const size_t rows = std::min<size_t>(8, component.height - top);
        for (size_t y = 0; y < 8; ++y, block += 8) {
            if (y < rows) {
                std::memcpy(block, component.samples + (top + y) * component.step + left, columns);
                std::memset(block + columns, block[columns - 1], 8 - columns);
            } else {
                std::memcpy(block, block - 8, 8);
            }
        }
    }

    // On a cache line's boundary by itself: where other code decides how its branches lie, it costs up to 7 percent.
    template <bool kCount>
    [[gnu::noinline, gnu::aligned(64)]] Status Code(uint32_t count) {
        WordBits bits(m_packer);
        for (uint32_t mcu = 0; mcu < count; ++mcu)
            for (uint32_t i = 0; i < m_slotCount; ++i) {
                ScanComponent& component = m_scan.components[m_slots[i].component];
                const uint32_t block = m_slots[i].first + mcu * m_slots[i].perMcu;
                if (bits.HasBlockRoom()) [[likely]] {
                    WriteBlock<kCount>(bits, component, m_batch.coefficients[block], m_batch.nonZero[block]);
                    continue;
                }
                if (bits.Started())
                    bits.End(m_packer);
                if (const Status status = Splice<kCount>(component, block); !Ok(status))
                    return status;
                bits.Begin(m_packer);
            }
        if (bits.Started())
            bits.End(m_packer);
        return Status::Ok;
    }

    // Apart from the loop above, whose words stay in registers.
    template <bool kCount>
    [[gnu::noinline]] Status Splice(ScanComponent& component, uint32_t block) {
        SplicedBits bits(m_packer);
        WriteBlock<kCount>(bits, component, m_batch.coefficients[block], m_batch.nonZero[block]);
        return bits.Result();
    }

    Status Restart() {
        if (const Status status = m_packer.SpliceAlign(); !Ok(status))
            return status;
        if (const Status status = m_packer.SpliceBytes(2, 0xFFD0 + m_restarts++ % 8); !Ok(status))
            return status;
        for (ScanComponent& component : m_scan.components)
            component.predictor = 0;
        return Status::Ok;
    }

    BitPacker& m_packer;
    Scan& m_scan;
    uint32_t m_batchMcus = 0;
    uint32_t m_restarts = 0;
    uint32_t m_slotCount = 0;
    Slot m_slots[6];
    Batch m_batch;
};

}    // namespace

Status WriteScan(BitPacker& packer, Scan& scan) {
    ScanWriter writer(packer, scan);
    return writer.Write();
}

}    // namespace corvane::jpeg
