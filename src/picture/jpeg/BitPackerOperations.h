// The packer's operations that depend on its mode, once for each kind of buffer and each escape rule.
#pragma once

#include <algorithm>
#include <cstring>

#include "picture/jpeg/BitPacker.h"

namespace corvane {

enum : int { kEscapeNone, kEscapeStuffed, kEscapeVideo };

template <bool kPool, int kEscape>
struct PackerOperations {
    static constexpr BitPacker::Operations Table() {
        return {SetNewBuf, SpliceAlign,    SpliceBytes,     SpliceBits,        PutBytes,
                GetBytes,  SpliceStuffing, GetUnAlignBytes, UpdateBytePosition};
    }

private:
    static Status SetNewBuf(BitPacker& p, uint8_t* buffer, uint32_t size) {
        if ((buffer == nullptr && size != 0) || (kPool && (size == 0 || (size & (size - 1)) != 0)))
            return Status::Failed;
        p.m_buffer = buffer;
        p.m_mask = size - 1;
        p.Restart();
        return Status::Ok;
    }

    // Waits for room in a pool, by way of the client's callback.
    static bool MakeRoom(BitPacker& p, uint32_t need) {
        if constexpr (!kPool)
            return p.m_buffer != nullptr && p.Space() >= need;
        if (p.Retries() == 0)
            return false;
        for (uint32_t turn = 1; p.Space() < need; ++turn) {
            if (p.m_fullCallback(p.m_fullContext) != 0 || turn >= p.Retries())
                return false;
        }
        return true;
    }

    static void Advance(BitPacker& p, uint32_t count) {
        p.m_writeIndex = kPool ? (p.m_writeIndex + count) & p.m_mask : p.m_writeIndex + count;
        p.m_count += count;
    }

    static void Put(BitPacker& p, uint8_t byte) {
        p.m_buffer[p.m_writeIndex] = byte;
        Advance(p, 1);
    }

    static void PutEscaped(BitPacker& p, uint8_t byte) {
        if constexpr (kEscape == kEscapeVideo) {
            if (p.m_zeroRun == 2 && byte < 4) {
                Put(p, 3);
                p.m_zeroRun = 0;
            }
            p.m_zeroRun = byte == 0 ? p.m_zeroRun + 1 : 0;
        }
        Put(p, byte);
        if constexpr (kEscape == kEscapeStuffed) {
            if (byte == 0xFF)
                Put(p, 0);
        }
    }

    static uint8_t ByteOf(uint32_t word, uint32_t bytes, uint32_t k) {
        return static_cast<uint8_t>(word >> ((bytes - k) * 8));
    }

    static uint32_t EscapedBytes(const BitPacker& p, uint32_t word, uint32_t bytes) {
        if constexpr (kEscape == kEscapeStuffed)
            return 2 * bytes;
        uint32_t need = bytes;
        if constexpr (kEscape == kEscapeVideo) {
            uint32_t zeroRun = p.m_zeroRun;
            for (uint32_t k = 0; k < bytes; ++k) {
                const uint8_t byte = ByteOf(word, bytes, k);
                if (zeroRun == 2 && byte < 4) {
                    ++need;
                    zeroRun = 0;
                }
                zeroRun = byte == 0 ? zeroRun + 1 : 0;
            }
        }
        return need;
    }

    // `total` bits, 8 to 31, are those of the partial byte and the new ones; the position behind them is set already.
    static Status SpliceBits(BitPacker& p, uint32_t total, uint32_t value) {
        const uint32_t word = (value << (8 - p.m_bitPosition)) | (p.m_symbol << (total & 24));
        const uint32_t bytes = total / 8;
        p.m_symbol = word & 255;
        if (!MakeRoom(p, EscapedBytes(p, word, bytes)))
            return Status::Failed;
        for (uint32_t k = 0; k < bytes; ++k)
            PutEscaped(p, ByteOf(word, bytes, k));
        return Status::Ok;
    }

    static Status SpliceAlign(BitPacker& p) {
        if (p.m_bitPosition == 0)
            return Status::Ok;
        if (!MakeRoom(p, kEscape == kEscapeVideo ? 2 : 1))
            return Status::Failed;
        if constexpr (kEscape == kEscapeVideo)
            PutEscaped(p, static_cast<uint8_t>(p.m_symbol));
        else
            Put(p, static_cast<uint8_t>(p.m_symbol));
        p.m_bitPosition = p.m_symbol = 0;
        return Status::Ok;
    }

    static Status SpliceBytes(BitPacker& p, uint32_t count, uint32_t value) {
        if (count > 4)
            return Status::Failed;
        uint8_t bytes[4];
        for (uint32_t k = 0; k < count; ++k)
            bytes[k] = static_cast<uint8_t>(value >> ((count - 1 - k) * 8));
        return PutBytes(p, bytes, count);
    }

    static Status PutBytes(BitPacker& p, const uint8_t* source, uint32_t count) {
        if (p.m_bitPosition != 0 || !MakeRoom(p, count))
            return Status::Failed;
        while (count > 0) {
            const uint32_t piece = kPool ? std::min(count, p.m_mask - p.m_writeIndex + 1) : count;
            std::memcpy(p.m_buffer + p.m_writeIndex, source, piece);
            Advance(p, piece);
            source += piece;
            count -= piece;
        }
        return Status::Ok;
    }

    static Status GetBytes(BitPacker& p, uint8_t* destination, uint32_t count) {
        if constexpr (!kPool)
            return Status::Failed;
        if (count > p.BufferSize())
            return Status::Failed;
        const uint32_t first = std::min(count, p.BufferSize() - p.m_readIndex);
        if (count > 0) {
            std::memcpy(destination, p.m_buffer + p.m_readIndex, first);
            std::memcpy(destination + first, p.m_buffer, count - first);
        }
        p.Lock();
        p.m_readIndex = (p.m_readIndex + count) & p.m_mask;
        p.Unlock();
        p.Lock();
        BitPacker::Shared(p.m_free).fetch_add(count, std::memory_order_acq_rel);
        p.Unlock();
        return Status::Ok;
    }

    static Status SpliceStuffing(BitPacker& p) {
        if constexpr (kEscape == kEscapeVideo)
            return Status::Failed;
        else if constexpr (kEscape == kEscapeStuffed)
            return StuffOnes(p);
        else
            return StuffZeroAndOnes(p);
    }

    static Status StuffOnes(BitPacker& p) {
        if (kPool && p.Retries() == 0)
            return Status::Failed;
        if (p.m_bitPosition == 0)
            return Status::Ok;
        const uint32_t byte = p.m_symbol | (255u >> p.m_bitPosition);
        if (!MakeRoom(p, byte < 0xFF ? 2 : 4))
            return Status::Failed;
        PutEscaped(p, static_cast<uint8_t>(byte));
        p.m_bitPosition = p.m_symbol = 0;
        return Status::Ok;
    }

    static Status StuffZeroAndOnes(BitPacker& p) {
        const uint32_t total = p.m_bitPosition + 1;
        p.m_bitPosition = total & 7;
        if (total == 8)
            return SpliceBits(p, total, 0);
        if (!MakeRoom(p, 1))
            return Status::Failed;
        Put(p, static_cast<uint8_t>(p.m_symbol | (127u >> (p.m_bitPosition - 1))));
        p.m_bitPosition = p.m_symbol = 0;
        return Status::Ok;
    }

    static uint64_t GetUnAlignBytes(BitPacker& p) {
        const uint32_t count = p.m_writeIndex % 8;
        if (p.m_buffer == nullptr)
            return 0;
        p.m_writeIndex -= count;
        p.m_count -= count;
        uint64_t bytes = 0;
        for (uint32_t k = 0; k < count; ++k)
            bytes |= uint64_t{p.m_buffer[p.m_writeIndex + k]} << (56 - 8 * k);
        return bytes;
    }

    static Status UpdateBytePosition(BitPacker& p, uint32_t count) {
        if (count > p.Space())
            return Status::Failed;
        Advance(p, count);
        return Status::Ok;
    }
};

}    // namespace corvane
