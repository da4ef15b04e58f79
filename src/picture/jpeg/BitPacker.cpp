#include "picture/jpeg/BitPacker.h"

#include <cstring>
#include <new>

#include "picture/jpeg/BitPackerOperations.h"

namespace corvane {

namespace {

static_assert(sizeof(PBInitial) == 56 && offsetof(PBInitial, PoolSize) == 4 && offsetof(PBInitial, RetryLimit) == 8 &&
              offsetof(PBInitial, LockContext) == 12 && offsetof(PBInitial, FullContext) == 16 &&
              offsetof(PBInitial, Mode) == 20 && offsetof(PBInitial, FullCallback) == 24 &&
              offsetof(PBInitial, LockCallback) == 32 && offsetof(PBInitial, UnlockCallback) == 40 &&
              offsetof(PBInitial, Memory) == 48);
static_assert(sizeof(BitPacker) == 192 && alignof(BitPacker) == 4);

constexpr uint32_t kAlignmentSlack = alignof(BitPacker) - 1;

bool IsPool(uint32_t mode) {
    return mode == 2 || mode == 4 || mode == 6;
}

}    // namespace

const BitPacker::Operations* BitPacker::OperationsOf(uint32_t mode) noexcept {
    static constexpr Operations kOperations[] = {
        PackerOperations<false, kEscapeStuffed>::Table(), PackerOperations<true, kEscapeStuffed>::Table(),
        PackerOperations<false, kEscapeNone>::Table(),    PackerOperations<true, kEscapeNone>::Table(),
        PackerOperations<false, kEscapeVideo>::Table(),   PackerOperations<true, kEscapeVideo>::Table()};
    return mode >= 1 && mode <= 6 ? &kOperations[mode - 1] : nullptr;
}

uint32_t BitPacker::MemoryBytes(const PBInitial& initial) noexcept {
    const uint64_t bytes =
        uint64_t{sizeof(BitPacker) + kAlignmentSlack} + (IsPool(initial.Mode) ? initial.PoolSize : 0);
    return bytes > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(bytes);
}

bool BitPacker::Accepts(const PBInitial& initial) noexcept {
    return (initial.Version & 0xFF00FF) == 5 && (initial.Version & 0xFF00) <= 0x300 &&
           (initial.PoolSize & (initial.PoolSize - 1)) == 0 && OperationsOf(initial.Mode) != nullptr;
}

BitPacker* BitPacker::Create(const PBInitial& initial) noexcept {
    if (!Accepts(initial))
        return nullptr;
    const uint32_t bytes = MemoryBytes(initial);
    void* const block = initial.Memory != nullptr ? initial.Memory : ::operator new(bytes, std::nothrow);
    if (block == nullptr)
        return nullptr;
    std::memset(block, 0, bytes);
    const auto address = (reinterpret_cast<uintptr_t>(block) + kAlignmentSlack) & ~uintptr_t{kAlignmentSlack};
    auto* const packer = ::new (reinterpret_cast<void*>(address)) BitPacker();
    packer->m_ownMemory = initial.Memory != nullptr ? nullptr : block;
    packer->m_foreign = initial.Memory != nullptr ? 1 : 0;
    packer->m_lockContext = initial.LockContext;
    packer->m_fullContext = initial.FullContext;
    packer->m_fullCallback = initial.FullCallback != nullptr ? initial.FullCallback : [](uint32_t) { return 0u; };
    packer->m_lockCallback = initial.LockCallback != nullptr ? initial.LockCallback : [](uint32_t) {};
    packer->m_unlockCallback = initial.UnlockCallback != nullptr ? initial.UnlockCallback : [](uint32_t) {};
    packer->m_operations = *OperationsOf(initial.Mode);
    packer->m_retries = packer->m_retryLimit = initial.RetryLimit;
    packer->m_mask = initial.PoolSize - 1;
    packer->m_free = initial.PoolSize;
    if (IsPool(initial.Mode))
        packer->m_buffer = reinterpret_cast<uint8_t*>(packer + 1);
    return packer;
}

void BitPacker::Release(BitPacker* packer) noexcept {
    if (packer != nullptr && packer->m_foreign == 0)
        ::operator delete(packer->m_ownMemory);
}

void BitPacker::Restart() noexcept {
    Shared(m_free).store(m_mask + 1, std::memory_order_release);
    m_count = m_writeIndex = m_readIndex = m_bitPosition = m_symbol = m_zeroRun = 0;
}

Status BitPacker::SetNewBuf(uint8_t* newBuffer, uint32_t size) noexcept {
    m_mark.valid = 0;
    return m_operations.setNewBuf(*this, newBuffer, size);
}

void BitPacker::FlushPool() noexcept {
    m_mark.valid = 0;
    Restart();
    Continue();
}

Status BitPacker::SpliceAlignOneBits() noexcept {
    const uint32_t pending = m_bitPosition;
    if (pending == 0)
        return Status::Ok;
    m_bitPosition = 0;
    return m_operations.spliceBits(*this, 8, 255u >> pending);
}

void BitPacker::UpdateByteCount() noexcept {
    Lock();
    Shared(m_free).fetch_sub(m_count, std::memory_order_acq_rel);
    Unlock();
    m_count = 0;
    m_mark.valid = 0;
}

void BitPacker::SetBookmark() noexcept {
    m_mark = {m_count, m_writeIndex, m_bitPosition, m_symbol, 1};
}

Status BitPacker::GotoBookmark() noexcept {
    if (m_mark.valid != 1)
        return Status::Failed;
    m_count = m_mark.count;
    m_writeIndex = m_mark.writeIndex;
    m_bitPosition = m_mark.bitPosition;
    m_symbol = m_mark.symbol;
    return Status::Ok;
}

BitPacker::WritableSpan BitPacker::EscapedSpan() noexcept {
    const bool pool = m_operations.spliceBits == OperationsOf(2)->spliceBits;
    if ((!pool && m_operations.spliceBits != OperationsOf(1)->spliceBits) || m_buffer == nullptr ||
        (pool && Retries() == 0))
        return {nullptr, nullptr};
    const uint32_t space = Space();
    const uint32_t straight = pool ? m_mask - m_writeIndex + 1 : space;
    uint8_t* const next = m_buffer + m_writeIndex;
    return {next, next + (space < straight ? space : straight)};
}

void BitPacker::TakeOver(const uint8_t* next, uint32_t symbol, uint32_t bitPosition) noexcept {
    const auto written = static_cast<uint32_t>(next - (m_buffer + m_writeIndex));
    m_count += written;
    m_writeIndex += written;
    if (m_operations.spliceBits == OperationsOf(2)->spliceBits)
        m_writeIndex &= m_mask;
    m_symbol = symbol;
    m_bitPosition = bitPosition;
}

}    // namespace corvane
