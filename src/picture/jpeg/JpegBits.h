// Two writers of the bits of a block. WordBits writes 64-bit words into the packer's buffer as long as a whole block is
// certain to fit. After that SplicedBits continues at the same bit with the packer's own operations, which wait for
// room and may fail.
#pragma once

#include <cstdint>
#include <cstring>

#include "picture/jpeg/BitPacker.h"
#include "picture/jpeg/JpegHuffman.h"

namespace corvane::jpeg {

class WordBits {
public:
    // Bytes; more than a block of 8x8 needs in the worst case: 64 codes of up to 27 bits after a word that is nearly
    // full, and an escape for every byte.
    static constexpr ptrdiff_t kBlockRoom = 512;
    static_assert(kBlockRoom >= 2 * (64 * 27 + 63) / 8);

    // Begins at the write position of the packer.
    explicit WordBits(BitPacker& packer) { Begin(packer); }

    void Begin(BitPacker& packer) {
        const BitPacker::WritableSpan span = packer.EscapedSpan();
        m_next = span.next;
        m_end = span.end;
        m_free = 64 - static_cast<int32_t>(packer.BitPosition());
        m_word = packer.BitPosition() == 0 ? 0 : (packer.Symbol() & 255) >> (8 - packer.BitPosition());
    }

    // False where the packer has no room: nothing was written, and End must not be called.
    bool Started() const { return m_next != nullptr; }
    bool HasBlockRoom() const { return m_end - m_next >= kBlockRoom; }

    // Appends the low `size` bits of `bits`, 1 to 27, with none above them.
    void Put(uint32_t bits, uint32_t size) {
        m_free -= static_cast<int32_t>(size);
        if (m_free < 0) [[unlikely]] {
            const auto over = static_cast<uint32_t>(-m_free);
            Flush(m_word << (size - over) | bits >> over);
            m_free += 64;
            m_word = bits;
        } else {
            m_word = m_word << size | bits;
        }
    }
    // A code with its length in the low 8 bits.
    void PutCode(uint32_t code) { Put(code >> 8, code & 255); }
    // The code of a category, and a value of it.
    void PutValue(uint32_t code, int32_t value, uint32_t category) {
        Put((code >> 8) << category | ValueBits(value, category), (code & 255) + category);
    }
    void PutCoefficient(const CodeTables& codes, uint32_t run, int32_t value) {
        const auto small = static_cast<uint32_t>(value + CodeTables::kSmall);
        if (small < 2 * CodeTables::kSmall) [[likely]] {
            PutCode(codes.acSmall[run][small]);
            return;
        }
        const uint32_t category = Category(value);
        PutValue(codes.ac[run * 16 + category], value, category);
    }

    // Hands the packer all whole bytes, and the partial byte after them.
    void End(BitPacker& packer) {
        auto pending = static_cast<uint32_t>(64 - m_free);
        for (; pending >= 8; pending -= 8)
            PutByte(static_cast<uint8_t>(m_word >> (pending - 8)));
        packer.TakeOver(m_next, pending == 0 ? 0 : static_cast<uint32_t>(m_word << (8 - pending)) & 255, pending);
    }

private:
    void PutByte(uint8_t byte) {
        *m_next++ = byte;
        if (byte == 0xFF)
            *m_next++ = 0;
    }
    void Flush(uint64_t word) {
        // Adding 1 to every byte clears the top bit of a byte of FF, and now and then of an FE above one: both take the
        // slow path.
        if ((word & 0x8080808080808080 & ~(word + 0x0101010101010101)) != 0) [[unlikely]] {
            for (int shift = 56; shift >= 0; shift -= 8)
                PutByte(static_cast<uint8_t>(word >> shift));
            return;
        }
        word = __builtin_bswap64(word);
        std::memcpy(m_next, &word, 8);
        m_next += 8;
    }

    uint64_t m_word;
    int32_t m_free;    // of 64
    uint8_t* m_next;
    uint8_t* m_end;
};

// A code and its value are two operations, so that the bytes of a block that does not fit are always the same. After an
// operation that failed nothing more is written.
class SplicedBits {
public:
    explicit SplicedBits(BitPacker& packer) : m_packer(packer) {}

    Status Result() const { return m_status; }

    void PutCode(uint32_t code) { Put(code >> 8, code & 255); }
    void PutValue(uint32_t code, int32_t value, uint32_t category) {
        PutCode(code);
        Put(ValueBits(value, category), category);
    }
    void PutCoefficient(const CodeTables& codes, uint32_t run, int32_t value) {
        const uint32_t category = Category(value);
        PutValue(codes.ac[run * 16 + category], value, category);
    }

private:
    void Put(uint32_t bits, uint32_t size) {
        if (Ok(m_status))
            m_status = m_packer.SpliceBits(size, bits);
    }

    BitPacker& m_packer;
    Status m_status = Status::Ok;
};

}    // namespace corvane::jpeg
