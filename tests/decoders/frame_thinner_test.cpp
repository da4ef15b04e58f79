#include "decoders/FrameThinner.h"
#include "support/GuardedBytes.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

struct Stream {
    uint32_t orderType = 0;
    int32_t nonRefOffset = 0;    // of order type 1, whose cycle of offsets is 1, 1, 2
    bool bottomPresent = false;
};

Bytes Sets(const Stream& stream, uint32_t spsId = 0) {
    BitWriter sps, pps;
    sps.U(8, 66).U(16, 0).Ue(spsId).Ue(0).Ue(stream.orderType);    // numbers and counts modulo 16
    if (stream.orderType == 1)
        sps.U(1, 0).Se(stream.nonRefOffset).Se(0).Ue(3).Se(1).Se(1).Se(2);
    sps.U(stream.orderType == 0 ? 1 : 0, 1).Ue(3).U(1, 1).Ue(0).Ue(0).U(1, 1).U(1, 0).U(1, 1).Ue(1).Ue(2).Ue(3).Ue(4);
    pps.Ue(0).Ue(0).U(2, stream.bottomPresent).Ue(0).Ue(1).Ue(0).U(3, 0).Se(0).Se(-1).Se(1).U(3, 0);
    return sps.Unit({0x67}) + pps.Unit({0x68});
}

enum Kind : uint8_t { kRef = 0x61, kNonRef = 0x01, kIdr = 0x65 };
struct Slice {
    uint32_t frame_num = 0, lsb = 0;
    Kind kind = kRef;
    int32_t delta = 0;
};

Bytes Write(const Stream& stream, const Slice& slice) {
    BitWriter w;
    w.Ue(slice.lsb == 3 ? 0x3FFFFF : 0).Ue(7).Ue(0).U(4, slice.frame_num);    // zeros to be escaped
    w.U(slice.kind == kIdr ? 1 : 0, 1).U(stream.orderType == 0 ? 4 : 0, slice.lsb);
    if (stream.orderType == 1 || stream.bottomPresent)
        w.Se(slice.delta);
    return w.U(2, 0).Unit({slice.kind});
}

// An IDR picture with its parameter sets in front of `slices`.
std::vector<Bytes> Encode(const Stream& stream, const std::vector<Slice>& slices) {
    std::vector<Bytes> frames = {Sets(stream) + Write(stream, {0, 0, kIdr})};
    for (const Slice& slice : slices)
        frames.push_back(Bytes{0, 0, 0, 1, 9, 0x10} + Write(stream, slice));
    return frames;
}

bool Ask(FrameThinner& thinner, const Bytes& payload, bool key, uint32_t level, uint32_t type = CORVANE_STREAM_H264) {
    const GuardedBytes guarded(payload.data(), payload.size());
    MediaFrameHeader frame = VideoHeader(type, payload, key, 0);
    frame.data = guarded.Data();
    return thinner.ShouldThin(frame, level);
}

constexpr int kOrderOfDropping[] = {7, 3, 5, 1, 6, 2, 4};    // level n drops the first n of these

// The low three bits of the order count of each frame, found by the lowest level that drops it.
TEST(FrameThinner, OrderCounts) {
    const struct {
        const char* name;
        Stream stream;
        std::vector<Slice> slices;
        std::vector<int> orders;
    } rows[] = {
        {"low bits, over two wraps", {}, {{1, 7}, {2, 14}, {3, 3}, {4, 11}}, {0, 7, 6, 3, 3}},
        {"bottom field first", {0, 0, true}, {{1, 6, kRef, -3}, {2, 9, kRef, 1}}, {0, 3, 1}},
        {"cycle of offsets", {1, -1}, {{1}, {2}, {3, 0, kNonRef}, {3}}, {0, 1, 2, 1, 4}},
        {"gap, wrap, IDR", {1}, {{7}, {0}, {1, 0, kRef, 2}, {0, 0, kIdr}, {1}}, {0, 1, 5, 0, 0, 1}},
        {"decoding order", {2}, {{1}, {2, 0, kNonRef}, {2}, {5, 0, kNonRef}}, {0, 2, 3, 4, 1}},
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

// A frame that cannot be parsed is kept, and thinning stays off up to the next key frame, as does a new level.
TEST(FrameThinner, BadSyntaxAndLevelsUpToTheNextKeyFrame) {
    const auto frames = Encode({}, {{1, 7, kNonRef}});
    const Bytes bad[] = {{0, 0, 0, 1, 0x41, 0x88, 0x40}, Sets({}, 32), {0, 0, 0, 1, 0x41, 0, 0, 3, 0}};
    FrameThinner thinner;
    EXPECT_FALSE(Ask(thinner, frames[0], true, 1, CORVANE_STREAM_H265));
    EXPECT_FALSE(Ask(thinner, frames[1], false, 1));    // no key frame yet
    for (const Bytes& payload : bad) {
        Ask(thinner, frames[0], true, 1);
        EXPECT_TRUE(Ask(thinner, frames[1], false, 0));    // still at 1
        EXPECT_FALSE(Ask(thinner, frames[1], false, 1, CORVANE_STREAM_H265));
        EXPECT_FALSE(Ask(thinner, {0, 0, 1, 0x41, 0x9A}, false, 1));    // no start code of four bytes
        EXPECT_TRUE(Ask(thinner, frames[1], false, 1));
        EXPECT_FALSE(Ask(thinner, payload, false, 1));
        EXPECT_FALSE(Ask(thinner, frames[1], false, 1)) << &payload - bad;
    }
}

}    // namespace
}    // namespace corvane::test
