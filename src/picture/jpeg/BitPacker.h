// A bit-stream writer into a linear buffer or a circular pool. The operations are documented in corvane/bitpacker.h;
// here they are members, whose arguments were checked for null before.
//
// The object may lie on any 4-byte boundary, so its pointers are accessed only as members of this packed class, never
// through their address. `free` and `retries` are shared by the two threads and accessed as atomics; `readIndex`
// belongs to the reader, everything else to the writer.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "base/Status.h"
#include "corvane/bitpacker.h"

namespace corvane {

#pragma pack(push, 4)
class BitPacker {
public:
    static constexpr uint32_t kMaxFieldBits = 24;

    // Bytes for PBInitial::Memory; 0xFFFFFFFF where they exceed 32 bits.
    static uint32_t MemoryBytes(const PBInitial& initial) noexcept;
    // Whether PB_Initial accepts these values.
    static bool Accepts(const PBInitial& initial) noexcept;
    // Null where PB_Initial refuses the values.
    static BitPacker* Create(const PBInitial& initial) noexcept;
    static void Release(BitPacker* packer) noexcept;

    Status SetNewBuf(uint8_t* newBuffer, uint32_t size) noexcept;
    void FlushPool() noexcept;
    void Stop() noexcept { Shared(m_retries).store(0, std::memory_order_release); }
    void Continue() noexcept { Shared(m_retries).store(m_retryLimit, std::memory_order_release); }

    // `bits`: at most kMaxFieldBits; `value` has no bits above them.
    Status SpliceBits(uint32_t bits, uint32_t value) noexcept {
        const uint32_t total = m_bitPosition + bits;
        m_bitPosition = total & 7;
        if (total >= 8)
            return m_operations.spliceBits(*this, total, value);
        m_symbol |= value << (8 - m_bitPosition);
        return Status::Ok;
    }
    Status SpliceBytes(uint32_t byteCount, uint32_t value) noexcept {
        return m_operations.spliceBytes(*this, byteCount, value);
    }
    Status PutBytes(const uint8_t* source, uint32_t byteCount) noexcept {
        return m_operations.putBytes(*this, source, byteCount);
    }
    Status SpliceAlign() noexcept { return m_operations.spliceAlign(*this); }
    Status SpliceAlignOneBits() noexcept;
    Status SpliceStuffing() noexcept { return m_operations.spliceStuffing(*this); }
    uint64_t GetUnAlignBytes() noexcept { return m_operations.getUnAlignBytes(*this); }
    Status UpdateBytePosition(uint32_t byteCount) noexcept { return m_operations.updateBytePosition(*this, byteCount); }
    void UpdateByteCount() noexcept;
    void SetBookmark() noexcept;
    Status GotoBookmark() noexcept;

    Status GetBytes(uint8_t* destination, uint32_t byteCount) noexcept {
        return m_operations.getBytes(*this, destination, byteCount);
    }
    uint32_t Fullness() const noexcept { return m_mask - Free() + 1; }

    uint32_t EncBytes() const noexcept { return m_count; }
    uint32_t EncBits() const noexcept { return m_bitPosition + 8 * m_count; }
    uint32_t BitPosition() const noexcept { return m_bitPosition; }
    void SetBitPosition(uint32_t value) noexcept { m_bitPosition = value; }
    uint32_t Symbol() const noexcept { return m_symbol; }
    void SetSymbol(uint32_t value) noexcept { m_symbol = value; }
    const uint8_t* Buffer() const noexcept { return m_buffer; }
    uint32_t BufferSize() const noexcept { return m_mask + 1; }
    uint32_t WriteIndex() const noexcept { return m_writeIndex; }

    // For writers that put escaped bytes into the buffer themselves: the bytes from `next` up to `end` are free and lie
    // in one piece, so writing them cannot fail. Empty unless the mode escapes FF with 00.
    struct WritableSpan {
        uint8_t* next;
        uint8_t* end;
    };
    WritableSpan EscapedSpan() noexcept;
    // Accounts for the bytes that were written from WritableSpan::next up to `next`, and for the partial byte after
    // them.
    void TakeOver(const uint8_t* next, uint32_t symbol, uint32_t bitPosition) noexcept;

private:
    template <bool kPool, int kEscape>
    friend struct PackerOperations;

    struct Operations {
        Status (*setNewBuf)(BitPacker&, uint8_t*, uint32_t);
        Status (*spliceAlign)(BitPacker&);
        Status (*spliceBytes)(BitPacker&, uint32_t, uint32_t);
        Status (*spliceBits)(BitPacker&, uint32_t total, uint32_t value);
        Status (*putBytes)(BitPacker&, const uint8_t*, uint32_t);
        Status (*getBytes)(BitPacker&, uint8_t*, uint32_t);
        Status (*spliceStuffing)(BitPacker&);
        uint64_t (*getUnAlignBytes)(BitPacker&);
        Status (*updateBytePosition)(BitPacker&, uint32_t);
    };
    struct Mark {
        uint32_t count, writeIndex, bitPosition, symbol, valid;
    };

    static const Operations* OperationsOf(uint32_t mode) noexcept;
    static std::atomic_ref<uint32_t> Shared(uint32_t& word) noexcept { return std::atomic_ref<uint32_t>(word); }
    // Atomic references to const words came after C++20.
    uint32_t Free() const noexcept { return Shared(const_cast<uint32_t&>(m_free)).load(std::memory_order_acquire); }
    uint32_t Retries() const noexcept {
        return Shared(const_cast<uint32_t&>(m_retries)).load(std::memory_order_acquire);
    }
    // Room for new bytes. Exact also where `count` fell below 0 modulo 2^32, by bytes taken back after a commit.
    uint32_t Space() const noexcept { return Free() - m_count; }
    void Restart() noexcept;
    void Lock() noexcept { m_lockCallback(m_lockContext); }
    void Unlock() noexcept { m_unlockCallback(m_lockContext); }

    uint32_t m_free;
    uint32_t m_count;
    uint32_t m_writeIndex;
    uint32_t m_readIndex;
    uint32_t m_bitPosition;
    uint32_t m_symbol;
    uint32_t m_mask;
    uint32_t m_zeroRun;
    uint32_t m_retries;
    uint32_t m_retryLimit;
    Mark m_mark;
    uint32_t m_padding0;
    void* m_ownMemory;
    uint32_t m_foreign;
    uint32_t m_lockContext;
    uint32_t m_fullContext;
    uint32_t m_padding1;
    PBFullCallback m_fullCallback;
    PBLockCallback m_lockCallback;
    PBLockCallback m_unlockCallback;
    uint8_t* m_buffer;
    Operations m_operations;
};
#pragma pack(pop)

}    // namespace corvane
