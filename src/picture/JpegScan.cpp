#include "picture/JpegScan.h"

#include <algorithm>
#include <cstring>

#include "kernels/JpegBlocks.h"
#include "picture/JpegBits.h"

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

// One block with the packer's own operations, a call for each code and each value.
class PackedBlock {
public:
    PackedBlock(BitPacker& packer, ScanComponent& component) : m_packer(packer), m_component(component) {}

    Status Write(const int16_t* coefficients) {
        const auto difference = static_cast<int16_t>(coefficients[0] - m_component.predictor);
        m_component.predictor = coefficients[0];
        const uint32_t category = Category(difference);
        if (const Status status = Symbol(m_component.codes->dc[category], difference, category); !Ok(status))
            return status;
        if (m_component.counted != nullptr)
            m_component.counted->CountDc(category);
        uint32_t run = 0;
        for (uint32_t k = 1; k < 64; ++k) {
            const int16_t value = coefficients[kZigzag[k]];
            if (value == 0) {
                ++run;
                continue;
            }
            if (const Status status = Coefficient(run, value); !Ok(status))
                return status;
            run = 0;
        }
        if (run == 0)
            return Status::Ok;
        const Status status = Symbol(m_component.codes->ac[0], 0, 0);
        if (Ok(status) && m_component.counted != nullptr)
            m_component.counted->CountEndOfBlock();
        return status;
    }

private:
    Status Coefficient(uint32_t run, int16_t value) {
        for (; run > 15; run -= 16) {
            if (const Status status = Symbol(m_component.codes->ac[kSixteenZeros], 0, 0); !Ok(status))
                return status;
            if (m_component.counted != nullptr)
                m_component.counted->CountSixteenZeros();
        }
        const uint32_t category = Category(value);
        const Status status = Symbol(m_component.codes->ac[run * 16 + category], value, category);
        if (Ok(status) && m_component.counted != nullptr)
            m_component.counted->CountAc(run, category);
        return status;
    }

    Status Symbol(uint32_t code, int32_t value, uint32_t category) {
        const Status status = m_packer.SpliceBits(code & 255, code >> 8);
        return category == 0 || !Ok(status) ? status : m_packer.SpliceBits(category, ValueBits(value, category));
    }

    BitPacker& m_packer;
    ScanComponent& m_component;
};

// The same in words. `kCount`: symbols are counted.
template <bool kCount>
inline void WriteBlock(WordBits& bits, ScanComponent& component, const int16_t* coefficients, uint64_t nonZero) {
    const CodeTables& codes = *component.codes;
    const auto difference = static_cast<int16_t>(coefficients[0] - component.predictor);
    component.predictor = coefficients[0];
    const uint32_t dcCategory = Category(difference);
    const uint32_t dcCode = codes.dc[dcCategory];
    bits.Put((dcCode >> 8) << dcCategory | ValueBits(difference, dcCategory), (dcCode & 255) + dcCategory);
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
        const auto small = static_cast<uint32_t>(value + CodeTables::kSmall);
        if (small < 2 * CodeTables::kSmall) [[likely]] {
            bits.PutCode(codes.acSmall[run][small]);
        } else {
            const uint32_t category = Category(value);
            const uint32_t code = codes.ac[run * 16 + category];
            bits.Put((code >> 8) << category | ValueBits(value, category), (code & 255) + category);
        }
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
                if (const Status status = m_scan.components[0].counted != nullptr ? Code<true>(count)
                                                                                   : Code<false>(count);
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
        const auto run = m_scan.plain ? kernels::ref::QuantizeBlocks : kernels::QuantizeBlocks;
        const auto step = static_cast<ptrdiff_t>(component.step);
        const uint32_t whole = component.width / 8;
        const uint32_t inside = component.height / 8 <= row || whole <= column ? 0 : std::min(count, whole - column);
        if (inside > 0) {
            const uint8_t* const samples = component.samples + size_t{row} * 8 * component.step + size_t{column} * 8;
            run(samples, step, inside, component.reciprocals, m_batch.coefficients[to], m_batch.nonZero + to);
        }
        for (uint32_t i = inside; i < count; ++i) {
            uint8_t block[64];
            FetchEdge(component, row, column + i, block);
            run(block, 8, 1, component.reciprocals, m_batch.coefficients[to + i], m_batch.nonZero + to + i);
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

    template <bool kCount>
    Status Code(uint32_t count) {
        if (m_scan.plain) {
            for (uint32_t mcu = 0; mcu < count; ++mcu)
                for (uint32_t slot = 0; slot < m_slotCount; ++slot)
                    if (const Status status = CodePacked(mcu, m_slots[slot]); !Ok(status))
                        return status;
            return Status::Ok;
        }
        WordBits bits(m_packer);
        for (uint32_t mcu = 0; mcu < count; ++mcu)
            for (uint32_t i = 0; i < m_slotCount; ++i) {
                const Slot& slot = m_slots[i];
                const uint32_t block = slot.first + mcu * slot.perMcu;
                if (bits.HasBlockRoom()) [[likely]] {
                    WriteBlock<kCount>(bits, m_scan.components[slot.component], m_batch.coefficients[block],
                                       m_batch.nonZero[block]);
                    continue;
                }
                if (bits.Started())
                    bits.End(m_packer);
                if (const Status status = CodePacked(mcu, slot); !Ok(status))
                    return status;
                bits.Begin(m_packer);
            }
        if (bits.Started())
            bits.End(m_packer);
        return Status::Ok;
    }

    Status CodePacked(uint32_t mcu, const Slot& slot) {
        PackedBlock block(m_packer, m_scan.components[slot.component]);
        return block.Write(m_batch.coefficients[slot.first + mcu * slot.perMcu]);
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
