#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "decoders/FrameThinner.h"
#include "support/BitWriter.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

using test::BitWriter;
using test::Bytes;
using test::operator+;

struct Stream {
    uint32_t orderType = 0;
    uint32_t cycleSize = 0;
    int32_t cycle[3] = {};    // of offsets, for order type 1
    int32_t nonRefOffset = 0;
    bool bottomPresent = false;

    Bytes Sets(uint32_t spsId = 0) const {
        BitWriter sps, pps;
        sps.U(8, 66).U(16, 0).Ue(spsId).Ue(0).Ue(orderType).U(orderType == 0 ? 1 : 0, 1);    // numbers modulo 16
        if (orderType == 1)
            sps.U(1, 0).Se(nonRefOffset).Se(0).Ue(cycleSize);
        for (uint32_t i = 0; i < cycleSize; ++i)
            sps.Se(cycle[i]);
        sps.Ue(3).U(1, 1).Ue(0).Ue(0).U(1, 1).U(1, 0).U(1, 1).Ue(1).Ue(2).Ue(3).Ue(4);
        pps.Ue(0).Ue(0).U(1, 0).U(1, bottomPresent).Ue(0).Ue(1).Ue(0).U(3, 0).Se(0).Se(-1).Se(1).U(3, 0);
        return sps.Unit({0x67}) + pps.Unit({0x68});
    }
};

enum Kind { kRef, kNonRef, kIdr };
struct Slice {
    uint32_t frame_num = 0, lsb = 0;
    Kind kind = kRef;
    int32_t delta = 0;
    uint32_t ppsId = 0;
};

Bytes Write(const Stream& stream, const Slice& slice) {
    BitWriter w;
    w.Ue(slice.lsb == 3 ? 0x3FFFFF : 0).Ue(7).Ue(slice.ppsId).U(4, slice.frame_num);    // zeros to be escaped
    if (slice.kind == kIdr)
        w.Ue(9);
    w.U(stream.orderType == 0 ? 4 : 0, slice.lsb);
    if (stream.orderType == 1 || (stream.orderType == 0 && stream.bottomPresent))
        w.Se(slice.delta);
    constexpr uint8_t kHeaders[] = {0x61, 0x01, 0x65};
    return w.U(2, 0).Unit({kHeaders[slice.kind]});
}

// An IDR picture with its parameter sets in front of `slices`.
std::vector<Bytes> Encode(const Stream& stream, const std::vector<Slice>& slices) {
    std::vector<Bytes> frames = {stream.Sets() + Write(stream, {0, 0, kIdr})};
    for (const Slice& slice : slices)
        frames.push_back(Bytes{0, 0, 0, 1, 9, 0x10} + Write(stream, slice));
    return frames;
}

bool Ask(FrameThinner& thinner, const Bytes& payload, bool key, uint32_t level, uint32_t type = CORVANE_STREAM_H264) {
    const test::GuardedBytes guarded(payload.data(), payload.size());
    MediaFrameHeader frame{};
    frame.streamType = type;
    frame.frameType = key ? 0 : 1;
    frame.data = guarded.Data();
    frame.payloadSize = static_cast<uint32_t>(payload.size());
    return thinner.ShouldThin(frame, level);
}

constexpr int kOrderOfDropping[] = {7, 3, 5, 1, 6, 2, 4};    // level n drops the first n of these

// The low three bits of the order count of each frame, told by the lowest level that drops it.
TEST(FrameThinner, OrderCounts) {
    const struct {
        const char* name;
        Stream stream;
        std::vector<Slice> slices;
        std::vector<int> orders;
    } rows[] = {
        {"low bits, over two wraps", {}, {{1, 7}, {2, 14}, {3, 3}, {4, 11}}, {0, 7, 6, 3, 3}},
        {"bottom field first", {.bottomPresent = true}, {{1, 6, kRef, -3}, {2, 9, kRef, 1}}, {0, 3, 1}},
        {"cycle of offsets", {1, 3, {1, 1, 2}, -1}, {{1}, {2}, {3, 0, kNonRef}, {3}}, {0, 1, 2, 1, 4}},
        {"gap and wrap: 16 pictures on", {1, 3, {1, 1, 2}}, {{7}, {0}, {1, 0, kRef, 2}}, {0, 1, 5, 0}},
        {"decoding order", {2}, {{1}, {2, 0, kNonRef}, {2}, {5, 0, kNonRef}}, {0, 2, 3, 4, 1}},
        {"another IDR begins anew", {1, 3, {1, 1, 2}}, {{9}, {0}, {0, 0, kIdr}, {1}}, {0, 4, 5, 0, 1}},
    };
    for (const auto& row : rows) {
        std::array<FrameThinner, 8> thinners;
        std::vector<int> orders;
        for (const Bytes& frame : Encode(row.stream, row.slices)) {
            int order = 0;
            for (uint32_t level = 7; level > 0; --level)
                order = Ask(thinners[level], frame, orders.empty(), level) ? kOrderOfDropping[level - 1] : order;
            orders.push_back(order);
        }
        EXPECT_EQ(orders, row.orders) << row.name;
    }
}

// A frame that cannot be parsed is kept, and thinning stays off up to the next key frame.
TEST(FrameThinner, BadSyntaxAndLevelsUpToTheNextKeyFrame) {
    const auto frames = Encode({}, {{1, 7, kNonRef}});
    const struct {
        const char* name;
        Bytes payload;
        bool off = true;
    } rows[] = {
        {"nothing", {}, false},
        {"three-byte start code", {0, 0, 1, 0x41, 0x9A}, false},
        {"slice of an unknown picture set", Write({}, {.frame_num = 1, .ppsId = 7})},
        {"sequence identifier 32", Stream{}.Sets(32)},
        {"endless code", {0, 0, 0, 1, 0x41, 0, 0, 3, 0, 0, 3, 0, 0, 3, 0}},
    };
    FrameThinner thinner;
    EXPECT_FALSE(Ask(thinner, frames[0], true, 1, CORVANE_STREAM_H265));
    EXPECT_FALSE(Ask(thinner, frames[1], false, 1));    // no key frame yet
    for (const auto& row : rows) {
        Ask(thinner, frames[0], true, 1);
        EXPECT_TRUE(Ask(thinner, frames[1], false, 0)) << row.name;    // still at 1
        EXPECT_FALSE(Ask(thinner, frames[1], false, 1, CORVANE_STREAM_H265));
        EXPECT_FALSE(Ask(thinner, row.payload, false, 1)) << row.name;
        EXPECT_EQ(Ask(thinner, frames[1], false, 1), !row.off) << row.name;
    }
    Ask(thinner, frames[0], true, 0);
    EXPECT_FALSE(Ask(thinner, frames[1], false, 7));
}

}    // namespace
}    // namespace corvane
