// Big-endian bits; 0 after the end.
#pragma once

#include "Unit.h"

namespace movarix {

class Bits {
public:
    explicit Bits(const View& bytes) : m_bytes(bytes) {}

    uint32_t Take(uint32_t count) {
        uint32_t value = 0;
        for (; count > 0; --count, ++m_at)
            value = value << 1 | (m_at / 8 < m_bytes.size ? m_bytes.data[m_at / 8] >> (7 - m_at % 8) & 1u : 0);
        return value;
    }
    // An Exp-Golomb code, unsigned.
    uint32_t Golomb() {
        uint32_t zeros = 0;
        while (zeros < 31 && !IsOver() && Take(1) == 0)
            ++zeros;
        return (1u << zeros) - 1 + Take(zeros);
    }
    bool IsOver() const { return m_at >= m_bytes.size * 8; }

private:
    const View m_bytes;
    size_t m_at = 0;
};

}    // namespace movarix
