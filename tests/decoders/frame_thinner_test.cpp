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
    int32_t nonRefOffset = 0, topToBottom = 0;
    bool framesOnly = true, bottomPresent = false;
    uint32_t profile = 66, spsId = 0, ppsId = 0;

    Bytes Sps() const {
        BitWriter w;
        w.U(8, profile).U(16, 0).Ue(spsId);
        if (profile == 100) {    // chroma format, depths, and a scaling matrix whose first list is given
            w.Ue(1).Ue(0).Ue(0).U(1, 0).U(1, 1).U(1, 1);
            for (int i = 0; i < 16; ++i)
                w.Se(i % 2 == 0 ? 5 : -3);
            w.U(1, 1).Se(-8).U(4, 0).U(1, 1);    // the second ends at once
            w.U(64, ~uint64_t{0}).U(1, 0);       // the seventh is flat, in codes of one bit
        }
        w.Ue(0).Ue(orderType).U(orderType == 0 ? 1 : 0, 1);    // frame numbers and order counts modulo 16
        if (orderType == 1)
            w.U(1, 0).Se(nonRefOffset).Se(topToBottom).Ue(cycleSize);
        for (uint32_t i = 0; i < cycleSize; ++i)
            w.Se(cycle[i]);
        w.Ue(3).U(1, 1).Ue(0).Ue(0).U(framesOnly ? 1 : 2, framesOnly ? 1 : 0);
        return w.U(1, 0).U(1, 1).Ue(1).Ue(2).Ue(3).Ue(4).Unit({0x67});
    }
    Bytes Pps() const {
        BitWriter w;
        w.Ue(ppsId).Ue(spsId).U(1, 0).U(1, bottomPresent);
        w.Ue(0).Ue(1).Ue(0).U(3, 0).Se(0).Se(-1).Se(1).U(2, 0);
        return w.U(1, profile == 100).Unit({0x68});    // redundant pictures
    }
};

enum Kind { kRef, kNonRef, kIdr };
struct Slice {
    uint32_t frame_num = 0, lsb = 0;
    Kind kind = kRef;
    int32_t delta = 0, delta_bottom = 0;
    int field = 0;    // 1 top, 2 bottom
};

Bytes Write(const Stream& stream, const Slice& slice) {
    BitWriter w;
    w.Ue(slice.lsb == 3 ? 0x3FFFFF : 0).Ue(7).Ue(stream.ppsId).U(4, slice.frame_num);    // zeros to be escaped
    if (!stream.framesOnly)
        w.U(slice.field == 0 ? 1 : 2, slice.field == 0 ? 0 : 1 + slice.field);
    if (slice.kind == kIdr)
        w.Ue(9);
    w.U(stream.orderType == 0 ? 4 : 0, slice.lsb);
    if (stream.orderType == 1)
        w.Se(slice.delta);
    if (stream.orderType < 2 && stream.bottomPresent && slice.field == 0)
        w.Se(slice.delta_bottom);
    constexpr uint8_t kHeaders[] = {0x61, 0x01, 0x65};
    return w.U(stream.profile == 100 ? 1 : 0, 1).U(2, 0).Unit({kHeaders[slice.kind]});
}

// An IDR picture with its parameter sets in front of `slices`.
std::vector<Bytes> Encode(const Stream& stream, const std::vector<Slice>& slices) {
    std::vector<Bytes> frames = {stream.Sps() + stream.Pps() + Write(stream, {0, 0, kIdr})};
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
        {"low bits, over two wraps", {}, {{1, 7}, {2, 14}, {3, 5}, {4, 11}}, {0, 7, 6, 5, 3}},
        {"bottom field first", {.bottomPresent = true}, {{1, 6, kRef, 0, -3}, {2, 9, kRef, 0, 1}}, {0, 3, 1}},
        {"fields", {.framesOnly = false}, {{1, 4, kRef, 0, 0, 1}, {1, 5, kRef, 0, 0, 2}}, {0, 4, 5}},
        {"cycle of offsets", {1, 3, {1, 1, 2}, -1}, {{1}, {2}, {3, 0, kNonRef}, {3}}, {0, 1, 2, 1, 4}},
        {"gap and wrap: 16 pictures on", {1, 3, {1, 1, 2}}, {{7}, {0}, {1, 0, kRef, 2}}, {0, 1, 5, 0}},
        {"distance of fields",
         {1, 1, {3}, 0, 2, false},
         {{1, 0, kRef, 0, 0, 1}, {1, 0, kRef, 0, 0, 2}, {2}},
         {0, 3, 5, 6}},
        {"bottom field by its delta", {1, 1, {3}, 0, 1, true, true}, {{1, 0, kRef, 0, -3}}, {0, 1}},
        {"decoding order", {2}, {{1}, {2, 0, kNonRef}, {2}, {5, 0, kNonRef}}, {0, 2, 3, 4, 1}},
        {"another IDR begins anew", {1, 3, {1, 1, 2}}, {{9}, {0}, {0, 0, kIdr}, {1}}, {0, 4, 5, 0, 1}},
        {"escaped zeros", {}, {{1, 3}}, {0, 3}},
        {"headers to read over", {.profile = 100, .spsId = 31, .ppsId = 255}, {{1, 7}}, {0, 7}},
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
        {"start code alone", {0, 0, 0, 1}, false},
        {"slice of an unknown picture set", Write({.ppsId = 7}, {1})},
        {"picture set of an unknown sequence", Stream{.spsId = 3}.Pps()},
        {"sequence identifier 32", BitWriter().U(8, 66).U(16, 0).Ue(32).Unit({0x67})},
        {"order count type 3", Stream{.orderType = 3, .spsId = 9}.Sps()},
        {"endless code", {0, 0, 0, 1, 0x41, 0, 0, 3, 0, 0, 3, 0, 0, 3, 0}},
        {"slice without a byte", {0, 0, 0, 1, 0x41}},
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
