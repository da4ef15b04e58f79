// Reads big-endian fields of 1 to 64 bits, most significant bit first, from a range of bytes that it never leaves.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace corvane {

class BitReader {
public:
    // The bytes must outlive the reader.
    BitReader(const uint8_t* data, size_t size) : m_data(data), m_end(uint64_t{size} * 8) {}

    // True until the position has reached or passed the end.
    bool HasMore() const { return m_position < m_end; }
    uint64_t BitsLeft() const { return HasMore() ? m_end - m_position : 0; }

    // The next `count` bits, 1 to 64, in the low bits of the result. Raises std::runtime_error("end of stream").
    uint64_t Bits(unsigned count) {
        const uint64_t value = PeekBits(count);
        m_position += count;
        return value;
    }
    uint64_t PeekBits(unsigned count) const {
        if (BitsLeft() < count)
            throw std::runtime_error("end of stream");
        uint64_t value = 0;
        for (uint64_t at = m_position; count > 0;) {
            const unsigned inByte = 8 - static_cast<unsigned>(at & 7);
            const unsigned take = std::min(inByte, count);
            const unsigned byte = m_data[at >> 3];
            value = value << take | ((byte >> (inByte - take)) & ((1u << take) - 1));
            at += take;
            count -= take;
        }
        return value;
    }
    uint8_t U8() { return static_cast<uint8_t>(Bits(8)); }
    uint16_t U16() { return static_cast<uint16_t>(Bits(16)); }
    uint32_t U32() { return static_cast<uint32_t>(Bits(32)); }
    uint64_t U64() { return Bits(64); }

    // Moves on, maybe beyond the end; only a read there fails. The position saturates.
    void SkipBits(uint64_t count) { m_position += std::min(count, UINT64_MAX - m_position); }
    void SkipBytes(uint64_t count) { SkipBits(count > UINT64_MAX / 8 ? UINT64_MAX : count * 8); }

    // Bits consumed, skipped ones included.
    uint64_t Position() const { return m_position; }
    // Where the next byte stands; the position must be a multiple of 8 and not beyond the end.
    const uint8_t* Bytes() const { return m_data + (m_position >> 3); }

private:
    const uint8_t* m_data;
    uint64_t m_end;    // bits
    uint64_t m_position = 0;
};

}    // namespace corvane
