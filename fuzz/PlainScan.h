// The scans of a JPEG stream in their plainest form: one block after the other from single samples, the plain kernel, a
// call of the packer for each code and one for each value. The encoder must write the same bytes, also where it fails.
#pragma once

#include <algorithm>
#include <cstdint>

#include "kernels/JpegBlocks.h"
#include "picture/jpeg/BitPacker.h"
#include "picture/jpeg/JpegScan.h"

namespace corvane {

class PlainScanWriter {
public:
    PlainScanWriter(BitPacker& packer, jpeg::Scan& scan) : m_packer(packer), m_scan(scan) {}

    Status Write() {
        const uint64_t mcus = uint64_t{m_scan.mcuColumns} * m_scan.mcuRows;
        for (uint64_t mcu = 0; mcu < mcus && Ok(m_status); ++mcu) {
            if (mcu != 0 && m_scan.restartInterval != 0 && mcu % m_scan.restartInterval == 0)
                Restart();
            for (uint32_t i = 0; i < m_scan.count; ++i)
                for (uint32_t block = 0; block < m_scan.components[i].rows * m_scan.components[i].columns; ++block) {
                    jpeg::ScanComponent& c = m_scan.components[i];
                    Block(c, (mcu % m_scan.mcuColumns * c.columns + block % c.columns) * 8,
                          (mcu / m_scan.mcuColumns * c.rows + block / c.columns) * 8);
                }
        }
        return m_status;
    }

private:
    void Put(uint32_t bits, uint32_t size) {
        if (Ok(m_status))
            m_status = m_packer.SpliceBits(size, bits);
    }
    void Symbol(uint32_t code, int32_t value = 0) {
        Put(code >> 8, code & 255);
        if (value != 0)
            Put(jpeg::ValueBits(value, jpeg::Category(value)), jpeg::Category(value));
    }

    void Restart() {
        m_status = m_packer.SpliceAlign();
        if (Ok(m_status))
            m_status = m_packer.SpliceBytes(2, 0xFFD0 + m_restarts++ % 8);
        for (jpeg::ScanComponent& component : m_scan.components)
            component.predictor = 0;
    }

    void Block(jpeg::ScanComponent& c, uint64_t left, uint64_t top) {
        uint8_t samples[64] = {};
        if (left < c.width && top < c.height)
            for (uint64_t i = 0; i < 64; ++i)
                samples[i] = c.samples[std::min<uint64_t>(top + i / 8, c.height - 1) * c.step +
                                       std::min<uint64_t>(left + i % 8, c.width - 1)];
        int16_t coefficients[64];
        uint64_t nonZero;    // not asked
        kernels::ref::QuantizeBlocks(samples, 8, 1, c.reciprocals, coefficients, &nonZero);
        jpeg::HuffmanSet unused, &counted = c.counted != nullptr ? *c.counted : unused;
        const auto difference = static_cast<int16_t>(coefficients[0] - c.predictor);
        c.predictor = coefficients[0];
        Symbol(c.codes->dc[jpeg::Category(difference)], difference);
        counted.CountDc(jpeg::Category(difference));
        uint32_t run = 0;
        for (uint32_t k = 1; k < 64; ++k, ++run) {
            const int16_t value = coefficients[kernels::kZigzag[k]];
            if (value == 0)
                continue;
            for (; run > 15; run -= 16) {
                Symbol(c.codes->ac[jpeg::kSixteenZeros]);
                counted.CountSixteenZeros();
            }
            Symbol(c.codes->ac[run * 16 + jpeg::Category(value)], value);
            counted.CountAc(run, jpeg::Category(value));
            run = UINT32_MAX;    // 0 with the next step
        }
        if (run > 0) {
            Symbol(c.codes->ac[0]);
            counted.CountEndOfBlock();
        }
    }

    BitPacker& m_packer;
    jpeg::Scan& m_scan;
    Status m_status = Status::Ok;
    uint32_t m_restarts = 0;
};

inline Status PlainScan(BitPacker& packer, jpeg::Scan& scan) {
    return PlainScanWriter(packer, scan).Write();
}

}    // namespace corvane
