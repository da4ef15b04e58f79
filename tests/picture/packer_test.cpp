#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <sstream>
#include <vector>

#include "corvane/bitpacker.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

struct Counted {
    uint32_t full = 0, locks = 0;
    std::function<uint32_t()> onFull;
};
Counted* counted;

PBInitial Initial(uint32_t mode, uint32_t pool = 0, uint32_t retries = 3) {
    PBInitial initial{};
    initial.Version = PB_VERSION;
    initial.Mode = mode;
    initial.PoolSize = pool;
    initial.RetryLimit = retries;
    initial.FullContext = 77;
    initial.LockContext = 78;
    initial.FullCallback = [](uint32_t context) -> uint32_t {
        ++counted->full;
        return context != 77 || (counted->onFull && counted->onFull() != 0);
    };
    initial.LockCallback = initial.UnlockCallback = [](uint32_t context) { counted->locks += context == 78; };
    return initial;
}

class Packer : public testing::Test {
protected:
    Packer() { counted = &m_counted; }
    ~Packer() override { PB_Release(&m_packer); }
    void Make(const PBInitial& initial) {
        PB_Release(&m_packer);
        ASSERT_EQ(PB_Initial(&m_packer, &initial), 0u);
    }
    void* m_packer = nullptr;
    Counted m_counted;
};

std::string Hex(const uint8_t* bytes, size_t size) {
    std::string hex;
    for (size_t i = 0; i < size; ++i) {
        hex += "0123456789ABCDEF"[bytes[i] >> 4];
        hex += "0123456789ABCDEF"[bytes[i] & 15];
    }
    return hex;
}

// One word of a script: b3:5 bits, y2:FFD8 bytes, p1234 PutBytes, a align, o align by ones, s stuffing, u take
// unaligned bytes back, m bookmark, g go to it, c commit, f flush; ! in front: fails.
uint32_t Step(void* packer, const std::string& word) {
    const size_t colon = word.find(':');
    const auto count = static_cast<uint32_t>(std::strtoul(word.c_str() + 1, nullptr, 10));
    const auto value =
        colon == std::string::npos ? 0 : static_cast<uint32_t>(std::strtoul(word.c_str() + colon + 1, nullptr, 16));
    const std::map<char, std::function<uint32_t()>> calls = {
        {'b', [&] { return PB_SpliceBits(packer, count, value); }},
        {'y', [&] { return PB_SpliceBytes(packer, count, value); }},
        {'p', [&] { return PB_PutBytes(packer, word.data() + 1, static_cast<uint32_t>(word.size() - 1)); }},
        {'a', [&] { return PB_SpliceAlign(packer); }},
        {'o', [&] { return PB_SpliceAlignOneBits(packer); }},
        {'s', [&] { return PB_SpliceStuffing(packer); }},
        {'u', [&] { return PB_GetUnAlignBytes(packer) == uint64_t{value} << 32 ? 0u : 1u; }},
        {'m', [&] { return PB_SetBookmark(packer); }},
        {'g', [&] { return PB_GotoBookmark(packer); }},
        {'f', [&] { return PB_FlushPool(packer); }},
        {'c', [&] { return PB_UpdateByteCount(packer); }},
    };
    return calls.at(word[0])();
}

// Linear modes get `room` bytes in front of a page that cannot be touched, pool modes a pool of 16.
TEST_F(Packer, WritesAsItsModeSays) {
    const struct {
        const char* modes;
        uint32_t room;
        const char* script;
        const char* bytes;
        uint32_t symbol, position;
    } cases[] = {
        {"12", 16, "b3:5 b13:FFFF b24:FF00FF", "BFFF00FF0000FF00", 0, 0},
        {"34", 16, "b7:7F b24:ABCDEF b0:0", "FF579B", 0xDE, 7},
        {"123456", 16, "y2:FFD8 y0:0 y1:1 pAB", "FFD8014142", 0, 0},
        {"12", 16, "b3:5 !y1:1 !pA a y1:1 !y5:1 !b25:1", "A001", 0, 0},
        {"56", 16, "b20:0 b20:1 b24:3", "0000030000030100000303", 0, 0},
        {"56", 16, "b16:0 y1:FF b8:1", "0000FF0301", 0, 0},
        {"56", 16, "b16:0 b4:0 a b8:2", "0000030002", 0, 0},
        // Zero bytes of before count on after a step back, not after a flush.
        {"56", 16, "m b16:0 g b8:1", "0301", 0, 0},
        {"56", 16, "b16:0 f b8:1", "01", 0, 0},
        {"12", 16, "b5:1F s s", "FF00", 0, 0},
        {"34", 16, "b7:7F s", "FE", 0, 0},
        {"34", 16, "b3:7 s s", "EF7F", 0, 0},
        {"56", 16, "b3:7 !s", "", 0xE0, 3},
        {"12", 16, "b3:7 o o b3:5 o", "FF00BF", 0, 0},
        {"56", 16, "b16:0 b6:0 o", "00000303", 0, 0},
        {"123456", 16, "y4:1020304 y4:5060708 u y2:90A u:090A0000 y1:B", "01020304050607080B", 0, 0},
        {"12", 16, "b8:1 !g m b9:1FF g g b8:2 m c !g", "0102", 0, 0},
        {"12", 16, "b4:F m b8:1 g b4:E", "FE", 0, 0},
        // What must fit: two bytes a byte in 1 and 2, exactly what is written elsewhere.
        {"1", 1, "!b11:9", "", 0x20, 3},
        {"1", 3, "b5:1F !s", "", 0xF8, 5},
        {"1", 2, "b4:1 s", "1F", 0, 0},
        {"1", 1, "b4:1 a", "10", 0, 0},
        {"3", 1, "b8:1 !b8:2 !y1:3 !pA", "01", 0, 0},
        {"3", 1, "s !s", "7F", 0, 1},
        {"5", 3, "b16:0 !b8:1", "0000", 0x00, 0},
        {"5", 3, "b16:0 b8:4", "000004", 0, 0},
        {"5", 6, "b16:0 !b24:0", "0000", 0, 0},
        {"5", 1, "b4:0 !a", "", 0, 4},
    };
    for (const auto& c : cases)
        for (const char* mode = c.modes; *mode != 0; ++mode) {
            const auto number = static_cast<uint32_t>(*mode - '0');
            SCOPED_TRACE(std::string("mode ") + *mode + ": " + c.script);
            const test::GuardedBytes bytes(std::string(c.room, '\xA5').data(), c.room);
            Make(Initial(number, number % 2 == 0 ? 8 : 0));
            ASSERT_EQ(PB_SetNewBuf(m_packer, bytes.Data(), c.room), 0u);
            std::istringstream script(c.script);
            uint32_t committed = 0;
            for (std::string word; script >> word;) {
                committed += word == "c" ? PB_GetEncBytes(m_packer) : 0;
                EXPECT_EQ(Step(m_packer, word.substr(word[0] == '!')), word[0] == '!' ? PB_FAILED : 0) << word;
            }
            const uint32_t count = PB_GetEncBytes(m_packer) + committed;
            EXPECT_EQ(PB_GetCurrAddr(m_packer), count & (number % 2 == 0 ? 15 : 255));
            EXPECT_EQ(PB_GetEncBits(m_packer), 8 * PB_GetEncBytes(m_packer) + c.position);
            EXPECT_EQ(Hex(bytes.Data(), count), c.bytes);
            EXPECT_EQ(PB_GetSymbol(m_packer), c.symbol);
            EXPECT_EQ(PB_GetBitPosition(m_packer), c.position);
        }
}

// On every alignment of the client's memory, which ends with the pool.
TEST_F(Packer, PoolGoesRoundAndWaits) {
    for (uint32_t offset = 0; offset < 8; ++offset) {
        PBInitial initial = Initial(4, 16, 2);
        ASSERT_EQ(PB_QueryMemSize(&initial), 195u + 16);
        const test::GuardedBytes memory(std::string(195 + 16 + offset, '\0').data(), 195 + 16 + offset);
        initial.Memory = memory.Data() + offset;
        Make(initial);
        uint8_t out[16] = {};
        for (uint8_t round = 0; round < 5; ++round) {
            const uint8_t bytes[11] = {round, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
            ASSERT_EQ(PB_PutBytes(m_packer, bytes, 11), 0u);
            EXPECT_EQ(PB_GetFullness(m_packer), 0u);
            PB_UpdateByteCount(m_packer);
            ASSERT_EQ(PB_GetFullness(m_packer), 11u);
            ASSERT_EQ(PB_GetBytes(m_packer, out, 11), 0u);
            EXPECT_EQ(Hex(out, 11), Hex(bytes, 11));
        }
        EXPECT_EQ(PB_GetBytes(m_packer, out, 17), PB_FAILED);
        EXPECT_EQ(std::exchange(m_counted.locks, 0u), 5u * 6);
        PB_Release(&m_packer);
    }

    const std::vector<uint8_t> zeros(16);
    uint8_t taken[16];
    const auto take = [&] { return PB_GetBytes(m_packer, taken, 4); };
    const struct {
        const char* what;
        uint32_t retries;
        std::function<uint32_t()> onFull;
        uint32_t result, calls;
    } cases[] = {
        {"nobody reads", 3, [] { return 0u; }, PB_FAILED, 3},
        {"no look behind the last call", 1, take, PB_FAILED, 1},
        {"room after the first call", 2, take, 0, 1},
        {"given up", 3, [] { return 1u; }, PB_FAILED, 1},
        {"stopped while waiting", 9, [&] { return PB_Stop(m_packer); }, PB_FAILED, 1},
        {"never waits", 0, take, PB_FAILED, 0},
    };
    for (const auto& c : cases) {
        Make(Initial(2, 16, std::max(c.retries, 1u)));
        ASSERT_EQ(PB_PutBytes(m_packer, zeros.data(), 16), 0u);
        PB_UpdateByteCount(m_packer);
        if (c.retries == 0)
            PB_Stop(m_packer);
        m_counted.full = 0;
        m_counted.onFull = c.onFull;
        EXPECT_EQ(PB_SpliceBytes(m_packer, 4, 1), c.result) << c.what;
        EXPECT_EQ(m_counted.full, c.calls) << c.what;
        PB_FlushPool(m_packer);
        EXPECT_EQ(PB_SpliceBits(m_packer, 8, 1), 0u) << c.what;
    }
    PB_Stop(m_packer);
    EXPECT_EQ(PB_SpliceBits(m_packer, 3, 1), 0u) << "inside one byte";
    EXPECT_EQ(PB_SpliceBits(m_packer, 8, 1), PB_FAILED);
    PB_Continue(m_packer);
    EXPECT_EQ(PB_SpliceBits(m_packer, 8, 1), 0u);
}

TEST_F(Packer, Refusals) {
    const struct {
        const char* what;
        void (*change)(PBInitial&);
        bool accepted;
        uint32_t words = 2;    // that are taken
    } cases[] = {
        {"older revision", [](PBInitial& i) { i.Version = 0x7F000205; }, true},
        {"newer revision", [](PBInitial& i) { i.Version = 0x405; }, false},
        {"other number", [](PBInitial& i) { i.Version = 6; }, false},
        {"third byte", [](PBInitial& i) { i.Version = 0x010305; }, false},
        {"mode 0", [](PBInitial& i) { i.Mode = 0; }, false},
        {"mode 7", [](PBInitial& i) { i.Mode = 7; }, false},
        {"two bits", [](PBInitial& i) { i.PoolSize = 24; }, false},
        {"no pool", [](PBInitial& i) { i.PoolSize = 0; }, true, 0},
        {"no buffer, whatever PoolSize says", [](PBInitial& i) { i.Mode = 1; }, true, 0},
        {"no callbacks", [](PBInitial& i) { i.FullCallback = nullptr, i.LockCallback = i.UnlockCallback = nullptr; },
         true},
    };
    for (const auto& c : cases) {
        PBInitial initial = Initial(2, 8);
        c.change(initial);
        EXPECT_EQ(PB_Initial(&m_packer, &initial) == 0, c.accepted) << c.what;
        EXPECT_EQ(m_packer != nullptr, c.accepted) << c.what;
        for (uint32_t word = 0; c.accepted && word < 3; ++word)
            EXPECT_EQ(PB_SpliceBytes(m_packer, 4, 1), word < c.words ? 0 : PB_FAILED) << c.what;
        PB_Release(&m_packer);
    }
    uint8_t bytes[64];
    Make(Initial(1));
    EXPECT_EQ(PB_SetNewBuf(m_packer, nullptr, 8), PB_FAILED);
    EXPECT_EQ(PB_SetNewBuf(m_packer, bytes, 3), 0u);
    EXPECT_EQ(PB_UpdateBytePosition(m_packer, 4), PB_FAILED);
    EXPECT_EQ(PB_UpdateBytePosition(m_packer, 3), 0u);
    EXPECT_EQ(PB_GetBytes(m_packer, bytes, 0), PB_FAILED);
    EXPECT_EQ(PB_PutBytes(m_packer, bytes, UINT32_MAX - 1), PB_FAILED);
    EXPECT_EQ(PB_SetBitPosition(m_packer, 8), PB_FAILED);
    EXPECT_EQ(PB_SetSymbol(m_packer, 256), PB_FAILED);
    Make(Initial(4, 16));
    EXPECT_EQ(PB_SetNewBuf(m_packer, bytes, 24), PB_FAILED);
    EXPECT_EQ(PB_SetNewBuf(m_packer, bytes, 0), PB_FAILED);
    EXPECT_EQ(PB_SetNewBuf(m_packer, bytes, 64), 0u);
    EXPECT_EQ(PB_UpdateBytePosition(m_packer, 40), 0u);
    PB_UpdateByteCount(m_packer);
    EXPECT_EQ(PB_GetBytes(m_packer, bytes, 40), 0u);
    EXPECT_EQ(PB_UpdateBytePosition(m_packer, 64), 0u);
    EXPECT_EQ(PB_GetCurrAddr(m_packer), 40u);
}

}    // namespace
}    // namespace corvane
