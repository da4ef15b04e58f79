// Reads the syntax elements of one NAL unit and removes emulation prevention.
#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>

namespace QMRX::SDK::Utility {

// The bytes of the unit have run out.
class NALUParserException : public std::exception {
public:
    const char* what() const noexcept override { return "NAL unit ends early"; }
};

// Hands out the bytes of a NAL unit without each 0x03 that follows two zero bytes.
class NALUtoRBSP {
public:
    NALUtoRBSP(const uint8_t* data, size_t size) : m_next(data), m_end(data + size) {}

    // False at the end.
    bool Read(uint8_t& byte) {
        while (m_next != m_end) {
            byte = *m_next++;
            m_last = (m_last << 8 | byte) & 0xFFFFFF;
            if (m_last != 0x000003)
                return true;
        }
        return false;
    }

private:
    const uint8_t* m_next;
    const uint8_t* m_end;
    uint32_t m_last = 0xFFFFFF;    // the last three bytes
};

}    // namespace QMRX::SDK::Utility

namespace corvane {

// Bits most significant first, and the Exp-Golomb codes of ITU-T H.264, 9.1. Every read raises NALUParserException at
// the end of the unit. Only the bytes that are asked for are touched.
class RbspReader {
public:
    RbspReader(const uint8_t* data, size_t size) : m_bytes(data, size) {}

    // 0 to 32 bits.
    uint32_t Bits(unsigned count) {
        if (m_filled < count)
            Refill(count);
        m_filled -= count;
        return static_cast<uint32_t>(m_window >> m_filled & ((uint64_t{1} << count) - 1));
    }
    bool Flag() { return Bits(1) != 0; }

    // ue(v). A code of more than 31 leading zeros counts as the end.
    uint32_t Ue() {
        unsigned zeros = 0;
        while (!Flag()) {
            if (++zeros > 31)
                throw QMRX::SDK::Utility::NALUParserException();
        }
        return static_cast<uint32_t>((uint64_t{1} << zeros) - 1 + Bits(zeros));
    }
    // se(v)
    int32_t Se() {
        const uint32_t code = Ue();
        const auto magnitude = static_cast<int32_t>(code / 2 + (code & 1));
        return (code & 1) != 0 ? magnitude : -magnitude;
    }

private:
    void Refill(unsigned needed) {
        uint8_t byte;
        while (m_filled <= 48 && m_bytes.Read(byte)) {
            m_window = m_window << 8 | byte;
            m_filled += 8;
        }
        if (m_filled < needed)
            throw QMRX::SDK::Utility::NALUParserException();
    }

    QMRX::SDK::Utility::NALUtoRBSP m_bytes;
    uint64_t m_window = 0;    // the next bits in its low `m_filled`
    unsigned m_filled = 0;    // at most 56
};

}    // namespace corvane
