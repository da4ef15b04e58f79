#include <gtest/gtest.h>

#include <array>
#include <random>
#include <vector>

#include "decoders/FrameThinner.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

using Bytes = std::vector<uint8_t>;

class BitWriter {
public:
    BitWriter& U(unsigned count, uint32_t value) {
        while (count-- > 0)
            m_bits.push_back((value >> count & 1) != 0);
        return *this;
    }
    BitWriter& Ue(uint32_t value) {
        const uint64_t code = uint64_t{value} + 1;
        const auto width = static_cast<unsigned>(64 - __builtin_clzll(code));
        return U(width - 1, 0).U(width, static_cast<uint32_t>(code));
    }
    BitWriter& Se(int32_t value) {
        return Ue(value > 0 ? 2 * static_cast<uint32_t>(value) - 1 : static_cast<uint32_t>(-2 * int64_t{value}));
    }

    // A NAL unit with start code and emulation prevention.
    Bytes Unit(uint8_t header) {
        U(1, 1);
        U((8 - m_bits.size() % 8) % 8, 0);
        Bytes unit = {0, 0, 0, 1, header};
        int zeros = 0;
        for (size_t at = 0; at < m_bits.size(); at += 8) {
            uint8_t byte = 0;
            for (size_t bit = 0; bit < 8; ++bit)
                byte = static_cast<uint8_t>(byte << 1 | (m_bits[at + bit] ? 1 : 0));
            if (zeros == 2 && byte <= 3) {
                unit.push_back(3);
                zeros = 0;
            }
            unit.push_back(byte);
            zeros = byte == 0 ? zeros + 1 : 0;
        }
        return unit;
    }

private:
    std::vector<bool> m_bits;
};

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

struct Stream {
    uint32_t profile = 66, sps_id = 0, pps_id = 0;
    uint32_t order_type = 0;
    uint32_t cycle_size = 0;
    int32_t cycle[3] = {};
    int32_t non_ref_offset = 0, top_to_bottom = 0;
    uint32_t max_ref_frames = 3;
    bool gaps = true, frames_only = true, bottom_present = false;
    uint32_t weighted_bipred = 0;
    bool weighted_pred = false, redundant = false, slice_groups = false;

    Bytes Sps() const {
        BitWriter w;
        w.U(8, profile).U(16, 0).Ue(sps_id);
        if (profile == 100) {    // chroma format, depths, and a scaling matrix whose first list is given
            w.Ue(1).Ue(0).Ue(0).U(1, 0).U(1, 1).U(1, 1);
            for (int i = 0; i < 16; ++i)
                w.Se(i % 2 == 0 ? 5 : -3);
            w.U(1, 1).Se(-8).U(4, 0).U(1, 1);    // the second ends at once
            for (int i = 0; i < 64; ++i)
                w.Se(0);
            w.U(1, 0);
        }
        w.Ue(0).Ue(order_type);    // frame numbers modulo 16
        if (order_type == 0) {
            w.Ue(0);    // order counts modulo 16
        } else if (order_type == 1) {
            w.U(1, 0).Se(non_ref_offset).Se(top_to_bottom).Ue(cycle_size);
            for (uint32_t i = 0; i < cycle_size; ++i)
                w.Se(cycle[i]);
        }
        w.Ue(max_ref_frames).U(1, gaps).Ue(0).Ue(0).U(1, frames_only);
        if (!frames_only)
            w.U(1, 0);
        return w.U(1, 0).U(1, 1).Ue(1).Ue(2).Ue(3).Ue(4).Unit(0x67);
    }
    Bytes Pps() const {
        BitWriter w;
        w.Ue(pps_id).Ue(sps_id).U(1, 0).U(1, bottom_present);
        if (slice_groups)
            w.Ue(2).Ue(6).Ue(4).U(10, 0);    // three groups, five map units of two bits
        else
            w.Ue(0);
        w.Ue(1).Ue(0).U(1, weighted_pred).U(2, weighted_bipred).Se(0).Se(-1).Se(1).U(2, 0);
        return w.U(1, redundant).Unit(0x68);
    }
};

struct Slice {
    uint32_t frame_num = 0, lsb = 0;
    bool reference = true, idr = false;
    int32_t delta[2] = {0, 0};    // type 0: [0] is the bottom field's
    int field = 0;                // 1 top, 2 bottom
    uint32_t first_mb = 0;
};

Bytes Write(const Stream& stream, const Slice& slice) {
    BitWriter w;
    w.Ue(slice.first_mb).Ue(7).Ue(stream.pps_id).U(4, slice.frame_num);
    if (!stream.frames_only) {
        w.U(1, slice.field != 0);
        if (slice.field != 0)
            w.U(1, slice.field == 2);
    }
    if (slice.idr)
        w.Ue(9);
    const bool second = stream.bottom_present && slice.field == 0;
    if (stream.order_type == 0)
        w.U(4, slice.lsb);
    if (stream.order_type == 0 && second)
        w.Se(slice.delta[0]);
    if (stream.order_type == 1)
        w.Se(slice.delta[0]);
    if (stream.order_type == 1 && second)
        w.Se(slice.delta[1]);
    if (stream.redundant)
        w.Ue(0);
    return w.U(2, 0).Unit(static_cast<uint8_t>((slice.reference ? 0x60 : 0) | (slice.idr ? 5 : 1)));
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

// The low three bits of the order count that the thinner gave each frame of a stream with three reference frames, told
// by the lowest level that drops it.
std::vector<int> OrderOf(const std::vector<Bytes>& frames) {
    constexpr int kBitsOfLevel[] = {-1, 7, 3, 5, 1, 6, 2, 4};
    std::array<FrameThinner, 8> thinners;
    std::vector<int> orders;
    for (size_t i = 0; i < frames.size(); ++i) {
        int order = 0;
        for (uint32_t level = 7; level > 0; --level) {
            if (Ask(thinners[level], frames[i], i == 0, level))
                order = kBitsOfLevel[level];
        }
        orders.push_back(order);
    }
    return orders;
}

std::vector<Bytes> Encode(const Stream& stream, const std::vector<Slice>& slices) {
    std::vector<Bytes> frames;
    for (const Slice& slice : slices)
        frames.push_back((frames.empty() ? stream.Sps() + stream.Pps() : Bytes{0, 0, 0, 1, 9, 0x10}) +
                         Write(stream, slice));
    return frames;
}

TEST(FrameThinner, LevelsDropLayers) {
    const int order_of_dropping[] = {7, 3, 5, 1, 6, 2, 4};    // level n drops the first n of these
    const size_t usable[] = {0, 4, 6, 7, 0};                  // by the number of reference frames
    for (uint32_t references = 0; references < 5; ++references) {
        for (const bool gaps : {true, false}) {
            for (uint32_t level = 0; level < 8; ++level) {
                Stream stream;
                stream.max_ref_frames = references;
                stream.gaps = gaps;
                FrameThinner thinner;
                EXPECT_FALSE(Ask(thinner, Encode(stream, {{.idr = true}})[0], true, level));
                for (uint32_t order = 1; order < 8; ++order) {
                    bool dropped = false;
                    for (size_t i = 0; i < level; ++i)
                        dropped |= order_of_dropping[i] == static_cast<int>(order);
                    // Fewer reference frames: fewer layers, whose pictures are never dropped.
                    dropped &= gaps && usable[references] > 0;
                    dropped &= references == 3 || order % 2 == 1 || (references == 2 && order != 4);
                    const Bytes frame = Encode(stream, {{}, {.frame_num = 1, .lsb = order, .reference = false}})[1];
                    EXPECT_EQ(Ask(thinner, frame, false, level), dropped)
                        << references << " references, gaps " << gaps << ", level " << level << ", order " << order;
                }
            }
        }
    }
}

TEST(FrameThinner, OrderCounts) {
    const struct {
        const char* name;
        Stream stream;
        std::vector<Slice> slices;
        std::vector<int> orders;
    } rows[] = {
        {"by low bits, over two wraps",
         {},
         {{.idr = true},
          {.frame_num = 1, .lsb = 7},
          {.frame_num = 2, .lsb = 14},
          {.frame_num = 3, .lsb = 5},
          {.frame_num = 4, .lsb = 11}},
         {0, 7, 6, 5, 3}},
        {"bottom field first",
         {.bottom_present = true},
         {{.idr = true}, {.frame_num = 1, .lsb = 6, .delta = {-3, 0}}, {.frame_num = 2, .lsb = 9, .delta = {1, 0}}},
         {0, 3, 1}},
        {"fields",
         {.frames_only = false},
         {{.idr = true}, {.frame_num = 1, .lsb = 4, .field = 1}, {.frame_num = 1, .lsb = 5, .field = 2}},
         {0, 4, 5}},
        {"from a cycle of offsets",
         {.order_type = 1, .cycle_size = 3, .cycle = {1, 1, 2}, .non_ref_offset = -1},
         {{.idr = true}, {.frame_num = 1}, {.frame_num = 2}, {.frame_num = 3, .reference = false}, {.frame_num = 3}},
         {0, 1, 2, 1, 4}},
        {"offsets over a gap and a wrap of numbers: 16 pictures on",
         {.order_type = 1, .cycle_size = 3, .cycle = {1, 1, 2}},
         {{.idr = true}, {.frame_num = 7}, {.frame_num = 0}, {.frame_num = 1, .delta = {2, 0}}},
         {0, 1, 5, 0}},
        {"fields and their distance",
         {.order_type = 1, .cycle_size = 1, .cycle = {3}, .top_to_bottom = 2, .frames_only = false},
         {{.idr = true}, {.frame_num = 1, .field = 1}, {.frame_num = 1, .field = 2}, {.frame_num = 2}},
         {0, 3, 5, 6}},
        {"bottom field of a frame by its delta",
         {.order_type = 1, .cycle_size = 1, .cycle = {3}, .top_to_bottom = 1, .bottom_present = true},
         {{.idr = true}, {.frame_num = 1, .delta = {0, -3}}},
         {0, 1}},
        {"in decoding order",
         {.order_type = 2},
         {{.idr = true},
          {.frame_num = 1},
          {.frame_num = 2, .reference = false},
          {.frame_num = 2},
          {.frame_num = 5, .reference = false}},
         {0, 2, 3, 4, 1}},
        {"another IDR begins anew",
         {.order_type = 1, .cycle_size = 3, .cycle = {1, 1, 2}},
         {{.idr = true}, {.frame_num = 9}, {.frame_num = 0}, {.idr = true}, {.frame_num = 1}},
         {0, 4, 5, 0, 1}},
        {"zeros that need an emulation byte",
         {},
         {{.idr = true}, {.frame_num = 1, .lsb = 3, .first_mb = 0x3FFFFF}},
         {0, 3}},
        {"other identifiers and headers to read over",
         {.profile = 100, .sps_id = 31, .pps_id = 255, .redundant = true, .slice_groups = true},
         {{.idr = true}, {.frame_num = 1, .lsb = 7}},
         {0, 7}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(OrderOf(Encode(row.stream, row.slices)), row.orders) << row.name;
}

TEST(FrameThinner, LevelChangesWithAKeyFrame) {
    const auto frames = Encode({}, {{.idr = true}, {.frame_num = 1, .lsb = 7, .reference = false}});
    FrameThinner thinner;
    EXPECT_FALSE(Ask(thinner, frames[0], true, 1, CORVANE_STREAM_H265));
    EXPECT_FALSE(Ask(thinner, frames[1], false, 1));    // no key frame yet
    Ask(thinner, frames[0], true, 1);
    EXPECT_TRUE(Ask(thinner, frames[1], false, 0));    // still at 1
    EXPECT_FALSE(Ask(thinner, frames[1], false, 1, CORVANE_STREAM_H265));
    Ask(thinner, frames[0], true, 0);
    EXPECT_FALSE(Ask(thinner, frames[1], false, 7));
}

// A frame that cannot be parsed is kept, and thinning stays off up to the next key frame.
TEST(FrameThinner, BadSyntaxKeepsTheFrame) {
    const Stream good;
    const auto frames = Encode(good, {{.idr = true}, {.frame_num = 1, .lsb = 7, .reference = false}});
    Stream other;
    other.pps_id = 7;
    Stream foreign_sps;
    foreign_sps.sps_id = 3;
    const struct {
        const char* name;
        Bytes payload;
        bool off;
    } rows[] = {
        {"nothing", {}, false},
        {"no start code", {1, 2, 3, 4, 5, 6}, false},
        {"three-byte start code", {0, 0, 1, 0x41, 0x9A}, false},
        {"start code alone", {0, 0, 0, 1}, false},
        {"slice of an unknown picture set", Write(other, {.frame_num = 1}), true},
        {"picture set of an unknown sequence", foreign_sps.Pps(), true},
        {"sequence identifier 32", BitWriter().U(8, 66).U(16, 0).Ue(32).Unit(0x67), true},
        {"picture identifier 256", BitWriter().Ue(256).Unit(0x68), true},
        {"order count type 3", Stream{.sps_id = 9, .order_type = 3}.Sps(), true},
        {"endless code", {0, 0, 0, 1, 0x41, 0, 0, 3, 0, 0, 3, 0, 0, 3, 0}, true},
        {"slice without a byte", {0, 0, 0, 1, 0x41}, true},
    };
    for (const auto& row : rows) {
        FrameThinner thinner;
        Ask(thinner, frames[0], true, 1);
        EXPECT_TRUE(Ask(thinner, frames[1], false, 1));
        EXPECT_FALSE(Ask(thinner, row.payload, false, 1)) << row.name;
        EXPECT_EQ(Ask(thinner, frames[1], false, 1), !row.off) << row.name;
        Ask(thinner, frames[0], true, 1);
        EXPECT_TRUE(Ask(thinner, frames[1], false, 1)) << row.name;
    }
}

// P and B slices with all that stands between the order count and the end of the header: whole, the frame is dropped;
// cut anywhere before the end, it is kept.
TEST(FrameThinner, SliceHeaderIsReadToItsEnd) {
    const Stream stream{.weighted_bipred = 1, .weighted_pred = true};
    const Bytes sets = Encode(stream, {{.idr = true}})[0];
    for (const char type : {'P', 'B'}) {
        BitWriter w;
        w.Ue(0).Ue(type == 'P' ? 0 : 6).Ue(0).U(4, 1).U(4, 7);
        if (type == 'B')
            w.U(1, 1);
        w.U(1, 1).Ue(1);    // two entries in list 0, one in list 1
        if (type == 'B')
            w.Ue(0);
        w.U(1, 1).Ue(0).Ue(4).Ue(2).Ue(1).Ue(3);    // list 0 modified
        if (type == 'B')
            w.U(1, 0);
        w.Ue(5).Ue(5).U(1, 1).Se(-3).Se(7).U(1, 1).Se(1).Se(2).Se(3).Se(4).U(2, 0);
        if (type == 'B')
            w.U(2, 1).Se(1).Se(1).Se(1).Se(1);
        w.U(1, 1).Ue(1).Ue(0).Ue(3).Ue(0).Ue(9).Ue(5).Ue(1).Ue(9).Ue(0);    // marking
        const Bytes whole = w.Unit(0x41);
        for (size_t size = 5; size <= whole.size(); ++size) {
            FrameThinner thinner;
            Ask(thinner, sets, true, 1);
            const Bytes cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
            // The last byte may hold nothing but the stop bit.
            const bool dropped = Ask(thinner, cut, false, 1);
            EXPECT_TRUE(size + 1 >= whole.size() || !dropped) << type << " " << size;
            EXPECT_TRUE(size < whole.size() || dropped) << type;
        }
    }
}

TEST(FrameThinner, DamageNeverEscapes) {
    std::mt19937 random(3);
    const Stream streams[] = {{},
                              {.profile = 100,
                               .order_type = 1,
                               .cycle_size = 3,
                               .cycle = {INT32_MAX, -INT32_MAX, 7},
                               .top_to_bottom = -INT32_MAX,
                               .slice_groups = true}};
    for (int round = 0; round < 5'000; ++round) {
        const auto frames =
            Encode(streams[round % 2], {{.idr = true}, {.frame_num = 15}, {.frame_num = 3, .reference = false}});
        FrameThinner thinner;
        for (size_t i = 0; i < frames.size(); ++i) {
            Bytes damaged = frames[i];
            for (uint32_t flips = random() % 4; flips > 0; --flips)
                damaged[random() % damaged.size()] ^= static_cast<uint8_t>(1u << random() % 8);
            damaged.resize(random() % 8 == 0 ? random() % damaged.size() : damaged.size());
            Ask(thinner, damaged, i == 0, 7);
        }
    }
}

}    // namespace
}    // namespace corvane
