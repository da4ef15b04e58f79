#include "corvane/bitpacker.h"
#include "support/Digest.h"
#include "support/GuardedBytes.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using test::GuardedBytes;

// What the callbacks saw and do.
struct Counted {
    uint32_t full = 0, locks = 0, unlocks = 0;
    std::function<uint32_t()> onFull;
};
Counted* counted;

// Random calls on the client's memory, buffers and bytes, which touch a page that cannot be touched, or on memory of
// the packer's own. The digests are of all that comes back: results, counts, places, partial bytes, bytes, and how
// often each callback ran. They were taken while scripts and refusals that were worked out by hand gave what they had
// to.
TEST(Packer, AnswersStayTheSame) {
    // Of modes 0 to 7.
    constexpr uint64_t kDigests[] = {0x870F7E2CD41A3625, 0x66CBC315F3BD4D6C, 0x1A866CD4464B0E75, 0xDFE203D14233CCFA,
                                     0x46E03D7DB9F3DCCF, 0xE820C8D54C7A951A, 0x12BD0CE4258899C9, 0x870F7E2CD41A3625};
    for (uint32_t mode = 0; mode <= 7; ++mode) {
        test::Digest digest;
        std::mt19937 random(mode);
        const auto upTo = [&](uint32_t most) { return static_cast<uint32_t>(random()) % (most + 1); };
        for (uint32_t life = 0; life < 4000; ++life) {
            constexpr uint32_t kVersions[] = {PB_VERSION, 0x7F000205, 0x0005, 0x0405, 0x0306, 0x010305};
            PBInitial initial{};
            initial.Version = kVersions[upTo(9) == 0 ? upTo(5) : 0];
            initial.Mode = mode;
            initial.PoolSize = upTo(9) == 0 ? upTo(64) : 1u << upTo(5) & ~1u;
            initial.RetryLimit = upTo(3);
            initial.FullContext = 77;
            initial.LockContext = 78;
            if (upTo(9) != 0) {
                initial.FullCallback = [](uint32_t c) { return c == 77 ? ++counted->full, counted->onFull() : 2; };
                initial.LockCallback = [](uint32_t context) { counted->locks += context == 78; };
                initial.UnlockCallback = [](uint32_t context) { counted->unlocks += context == 78; };
            }
            const uint32_t size = PB_QueryMemSize(&initial), aside = upTo(7);
            digest.Note(size);
            const GuardedBytes memory(std::vector<uint8_t>(size + aside, 0x5A));
            const GuardedBytes buffer(std::vector<uint8_t>(64, 0xA5)), taken(std::vector<uint8_t>(64, 0xA5));
            std::vector<uint8_t> source(64);
            for (uint8_t& byte : source)
                byte = static_cast<uint8_t>(upTo(3) == 0 ? random() : upTo(3));
            const GuardedBytes given(source);
            initial.Memory = upTo(3) == 0 ? nullptr : memory.Data() + aside;
            void* packer = &initial;
            digest.Note(PB_Initial(&packer, &initial));
            digest.Note(packer != nullptr);
            if (packer == nullptr) {
                digest.NoteEach(std::span(memory.Data(), size));
                continue;
            }
            Counted callbacks;
            counted = &callbacks;
            uint32_t count = 0, value = 0;
            const auto get = [&] { return PB_GetBytes(packer, taken.Data() + 64 - std::min(count, 64u), count); };
            callbacks.onFull = [&] { return upTo(5) == 0 ? 1 : upTo(5) == 0 ? PB_Stop(packer) : 0 * get(); };
            const auto use = [&](uint32_t bytes) { return PB_SetNewBuf(packer, buffer.Data() + 64 - bytes, bytes); };
            const std::function<uint64_t()> calls[] = {
                [&] { return PB_SpliceBits(packer, count, value); },
                [&] { return PB_SpliceBits(packer, count % 25, value % 3 == 0 ? 0 : value); },
                [&] { return PB_SpliceBits(packer, 8, value % 5 == 0 ? 255 : value % 5); },
                [&] { return PB_SpliceBytes(packer, count % 6, value); },
                [&] { return PB_PutBytes(packer, given.Data() + 64 - std::min(count, 64u), std::min(count, 64u)); },
                [&] { return PB_PutBytes(packer, given.Data(), UINT32_MAX - count % 2); },
                [&] { return PB_SpliceAlign(packer); },
                [&] { return PB_SpliceAlignOneBits(packer); },
                [&] { return PB_SpliceStuffing(packer); },
                [&] { return PB_GetUnAlignBytes(packer); },
                [&] { return PB_UpdateBytePosition(packer, count); },
                [&] { return PB_UpdateByteCount(packer); },
                [&] { return PB_SetBookmark(packer); },
                [&] { return PB_GotoBookmark(packer); },
                [&] { return get(); },
                [&] { return count % 4 == 0   ? PB_FlushPool(packer)
                             : count % 4 == 1 ? use(1u << value % 7)
                                              : 0; },
                [&] { return value % 3 == 0 ? PB_Stop(packer) : PB_Continue(packer); },
                [&] { return count % 8 == 0 ? PB_SetNewBuf(packer, nullptr, value % 2) : use(count % 65); },
                [&] { return PB_SetBitPosition(packer, count) + 2 * PB_SetSymbol(packer, value % 260); },
            };
            digest.Note(mode % 2 == 0 ? 0 : use(1 + upTo(63)));
            for (uint32_t call = 0; call < 40; ++call) {
                count = upTo(7) == 0 ? upTo(66) : upTo(9);
                value = static_cast<uint32_t>(random());
                digest.Note(calls[upTo(std::size(calls) - 1)]());
                for (const auto query : {PB_GetEncBytes, PB_GetEncBits, PB_GetCurrAddr, PB_GetFullness, PB_GetSymbol,
                                         PB_GetBitPosition, PB_GetBufSize})
                    digest.Note(query(packer));
                digest.Note(callbacks.full, callbacks.locks, callbacks.unlocks);
            }
            digest.NoteEach(std::span(buffer.Data(), 64));
            digest.NoteEach(std::span(taken.Data(), 64));
            digest.Note(PB_Release(&packer));
        }
        EXPECT_EQ(digest.value, kDigests[mode]) << "mode " << mode;
    }
}

}    // namespace
}    // namespace corvane
