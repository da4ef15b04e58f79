// Calls of the bit packer from the input, on the client's memory and buffers, which stand between pages that cannot be
// touched.
//
// Input: byte 0 chooses the mode, byte 1 the pool and the retries; then calls of two bytes: which, and its argument.
#include <cstdint>
#include <cstdlib>

#include "Fenced.h"
#include "corvane/bitpacker.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Fenced memory(4096), buffer(4096), other(4096);
    if (size < 2)
        return 0;
    PBInitial initial{};
    initial.Version = PB_VERSION;
    initial.Mode = 1 + data[0] % 6;
    initial.PoolSize = (1u << data[1] % 11) & ~1u;
    initial.RetryLimit = data[1] >> 5;
    const uint32_t bytes = PB_QueryMemSize(&initial);
    initial.Memory = memory.At(bytes, (data[0] & 0x80) != 0);
    void* packer = nullptr;
    if (PB_Initial(&packer, &initial) != 0)
        std::abort();
    for (size_t at = 2; at + 1 < size; at += 2) {
        const uint32_t argument = data[at + 1];
        const uint32_t count = argument * (argument > 200 ? 16 : 1);
        const bool atEnd = (data[at] & 0x80) != 0;
        switch (data[at] % 16) {
        // clang-format off
        case 0: PB_SetNewBuf(packer, buffer.At(count, atEnd), count); break;
        case 1: PB_SetNewBuf(packer, buffer.At(1u << argument % 13, atEnd), 1u << argument % 13); break;
        case 2: PB_SpliceBytes(packer, argument % 6, 0x01FF0003); break;
        case 3: PB_PutBytes(packer, other.At(count, atEnd), count); break;
        case 4: PB_SpliceAlign(packer); break;
        case 5: PB_SpliceAlignOneBits(packer); break;
        case 6: PB_SpliceStuffing(packer); break;
        case 7: PB_GetBytes(packer, other.At(count, atEnd), count); break;
        case 8: PB_GetUnAlignBytes(packer); break;
        case 9: PB_UpdateBytePosition(packer, count); break;
        case 10: PB_UpdateByteCount(packer); break;
        case 11: (argument % 2 != 0 ? PB_SetBookmark : PB_GotoBookmark)(packer); break;
        case 12: (argument % 3 == 0 ? PB_Stop : argument % 3 == 1 ? PB_Continue : PB_FlushPool)(packer); break;
        case 13: PB_SetBitPosition(packer, argument); break;
        case 14: PB_SetSymbol(packer, argument); break;
        default: PB_SpliceBits(packer, argument % 26, argument * 0x01010101u); break;
            // clang-format on
        }
    }
    PB_Release(&packer);
    return 0;
}
