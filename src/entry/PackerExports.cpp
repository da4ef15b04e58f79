// Exports of the bit packer: null tests and bounds of arguments, then the object.
#include "corvane/bitpacker.h"
#include "entry/Handle.h"
#include "picture/jpeg/BitPacker.h"

namespace {

using corvane::BitPacker;
using corvane::Status;

uint32_t Word(Status status) {
    return static_cast<uint32_t>(status);
}

template <class Body>
uint32_t OnPacker(void* object, Body&& body) noexcept {
    auto* const own = corvane::PlainObjectOf<BitPacker>(object);
    if (own == nullptr)
        return PB_FAILED;
    BitPacker& packer = *own;
    using Result = decltype(body(packer));
    if constexpr (std::is_void_v<Result>) {
        body(packer);
        return 0;
    } else if constexpr (std::is_same_v<Result, Status>) {
        return Word(body(packer));
    } else {
        return body(packer);
    }
}

}    // namespace

extern "C" {

uint32_t PB_QueryMemSize(const PBInitial* initial) {
    return initial == nullptr ? PB_FAILED : BitPacker::MemoryBytes(*initial);
}

uint32_t PB_Initial(void** object, const PBInitial* initial) {
    if (object == nullptr)
        return PB_FAILED;
    *object = initial == nullptr ? nullptr : BitPacker::Create(*initial);
    return *object == nullptr ? PB_FAILED : 0;
}

uint32_t PB_Release(void** object) {
    if (object != nullptr) {
        BitPacker::Release(corvane::PlainObjectOf<BitPacker>(*object));
        *object = nullptr;
    }
    return 0;
}

uint32_t PB_SetNewBuf(void* object, void* buffer, uint32_t size) {
    return OnPacker(object, [&](BitPacker& p) { return p.SetNewBuf(static_cast<uint8_t*>(buffer), size); });
}

uint32_t PB_FlushPool(void* object) {
    return OnPacker(object, [](BitPacker& p) { p.FlushPool(); });
}

uint32_t PB_Stop(void* object) {
    return OnPacker(object, [](BitPacker& p) { p.Stop(); });
}

uint32_t PB_Continue(void* object) {
    return OnPacker(object, [](BitPacker& p) { p.Continue(); });
}

uint32_t PB_SpliceBits(void* object, uint32_t bits, uint32_t value) {
    return OnPacker(object, [&](BitPacker& p) {
        return bits > BitPacker::kMaxFieldBits ? Status::Failed : p.SpliceBits(bits, value & ((1u << bits) - 1));
    });
}

uint32_t PB_SpliceBytes(void* object, uint32_t count, uint32_t value) {
    return OnPacker(object, [&](BitPacker& p) { return p.SpliceBytes(count, value); });
}

uint32_t PB_PutBytes(void* object, const void* source, uint32_t count) {
    if (source == nullptr && count != 0)
        return PB_FAILED;
    return OnPacker(object, [&](BitPacker& p) { return p.PutBytes(static_cast<const uint8_t*>(source), count); });
}

uint32_t PB_SpliceAlign(void* object) {
    return OnPacker(object, [](BitPacker& p) { return p.SpliceAlign(); });
}

uint32_t PB_SpliceAlignOneBits(void* object) {
    return OnPacker(object, [](BitPacker& p) { return p.SpliceAlignOneBits(); });
}

uint32_t PB_SpliceStuffing(void* object) {
    return OnPacker(object, [](BitPacker& p) { return p.SpliceStuffing(); });
}

uint64_t PB_GetUnAlignBytes(void* object) {
    auto* const packer = corvane::PlainObjectOf<BitPacker>(object);
    return packer == nullptr ? UINT64_MAX : packer->GetUnAlignBytes();
}

uint32_t PB_UpdateBytePosition(void* object, uint32_t count) {
    return OnPacker(object, [&](BitPacker& p) { return p.UpdateBytePosition(count); });
}

uint32_t PB_UpdateByteCount(void* object) {
    return OnPacker(object, [](BitPacker& p) { p.UpdateByteCount(); });
}

uint32_t PB_SetBookmark(void* object) {
    return OnPacker(object, [](BitPacker& p) { p.SetBookmark(); });
}

uint32_t PB_GotoBookmark(void* object) {
    return OnPacker(object, [](BitPacker& p) { return p.GotoBookmark(); });
}

uint32_t PB_GetBytes(void* object, void* destination, uint32_t count) {
    if (destination == nullptr && count != 0)
        return PB_FAILED;
    return OnPacker(object, [&](BitPacker& p) { return p.GetBytes(static_cast<uint8_t*>(destination), count); });
}

uint32_t PB_GetFullness(void* object) {
    return OnPacker(object, [](BitPacker& p) { return p.Fullness(); });
}

uint32_t PB_GetEncBytes(void* object) {
    return OnPacker(object, [](BitPacker& p) { return p.EncBytes(); });
}

uint32_t PB_GetEncBits(void* object) {
    return OnPacker(object, [](BitPacker& p) { return p.EncBits(); });
}

uint32_t PB_GetBitPosition(void* object) {
    return OnPacker(object, [](BitPacker& p) { return p.BitPosition(); });
}

uint32_t PB_SetBitPosition(void* object, uint32_t value) {
    return value > 7 ? PB_FAILED : OnPacker(object, [&](BitPacker& p) { p.SetBitPosition(value); });
}

uint32_t PB_GetSymbol(void* object) {
    return OnPacker(object, [](BitPacker& p) { return p.Symbol(); });
}

uint32_t PB_SetSymbol(void* object, uint32_t value) {
    return value > 255 ? PB_FAILED : OnPacker(object, [&](BitPacker& p) { p.SetSymbol(value); });
}

uint32_t PB_GetBaseAddr(void* object) {
    return OnPacker(object,
                    [](BitPacker& p) { return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(p.Buffer())); });
}

uint32_t PB_GetBufSize(void* object) {
    return OnPacker(object, [](BitPacker& p) { return p.BufferSize(); });
}

uint32_t PB_GetCurrAddr(void* object) {
    return OnPacker(object, [](BitPacker& p) { return p.WriteIndex(); });
}

uint32_t PB_GetVersionInfo(uint8_t* a, uint8_t* b, uint8_t* c, uint8_t* d) {
    if (a == nullptr || b == nullptr || c == nullptr || d == nullptr)
        return PB_FAILED;
    *a = 5;
    *b = 3;
    *c = *d = 0;
    return 0;
}

}    // extern "C"
