// Writes the syntax elements of a NAL unit by hand.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace corvane::test {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

class BitWriter {
public:
    // The low `count` bits; zeros in front of the 64 that a value has.
    BitWriter& U(unsigned count, uint64_t value) {
        while (count-- > 0)
            m_bits.push_back(count < 64 && (value >> count & 1) != 0);
        return *this;
    }
    // Exp-Golomb codes.
    BitWriter& Ue(uint64_t value) {
        const auto width = static_cast<unsigned>(64 - __builtin_clzll(value + 1));
        return U(width - 1, 0).U(width, value + 1);
    }
    BitWriter& Se(int64_t value) { return Ue(static_cast<uint64_t>(value > 0 ? 2 * value - 1 : -2 * value)); }

    BitWriter& Align() { return U((8 - m_bits.size() % 8) % 8, 0); }

    size_t Count() const { return m_bits.size(); }

    // The bits in bytes, zeros to the end of the last.
    Bytes Packed() const {
        Bytes bytes((m_bits.size() + 7) / 8);
        for (size_t at = 0; at < m_bits.size(); ++at)
            bytes[at / 8] |= static_cast<uint8_t>(m_bits[at] ? 0x80 >> at % 8 : 0);
        return bytes;
    }

    // The unit after a start code and its header, with a stop bit and emulation prevention.
    Bytes Unit(const Bytes& header) {
        U(1, 1).Align();
        Bytes unit = Bytes{0, 0, 0, 1} + header;
        int zeros = 0;
        for (size_t at = 0; at < m_bits.size(); at += 8) {
            unsigned byte = 0;
            for (size_t bit = 0; bit < 8; ++bit)
                byte = byte << 1 | (m_bits[at + bit] ? 1 : 0);
            if (zeros == 2 && byte <= 3) {
                unit.push_back(3);
                zeros = 0;
            }
            unit.push_back(static_cast<uint8_t>(byte));
            zeros = byte == 0 ? zeros + 1 : 0;
        }
        return unit;
    }

private:
    std::vector<bool> m_bits;
};

}    // namespace corvane::test
