// Every picture that a real decoder can give comes out, and in step with the inputs, whatever the encoder's settings
// and whatever is lost on the way.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <optional>
#include <random>
#include <vector>

#include "decoders/RbspReader.h"
#include "decoders/VideoDecoderHolder.h"
#include "support/BareDecoder.h"
#include "support/BitWriter.h"

namespace corvane {
namespace {

using test::BitWriter;
using test::Bytes;
using test::operator+;
using Stream = std::vector<test::EncodedPicture>;

constexpr uint32_t kJpeg = CORVANE_STREAM_JPEG, kMpeg4 = CORVANE_STREAM_MPEG4, kH264 = CORVANE_STREAM_H264,
                   kH265 = CORVANE_STREAM_H265;

Bytes::iterator FindCode(Bytes& bytes, const Bytes& code, size_t from = 0) {
    return std::search(bytes.begin() + static_cast<ptrdiff_t>(from), bytes.end(), code.begin(), code.end());
}

// Rewrites the sequence parameter set of an H.264 unit, if it has one: without VUI, or with a bitstream_restriction of
// so many reordered frames.
void RewriteVui(Bytes& unit, std::optional<uint32_t> reordered) {
    const auto begin = FindCode(unit, {0, 0, 1, 0x67});
    if (begin == unit.end())
        return;
    const auto end = FindCode(unit, {0, 0, 1}, static_cast<size_t>(begin - unit.begin()) + 4);
    RbspReader reader(&begin[4], static_cast<size_t>(end - begin - 4));
    BitWriter writer;
    const auto u = [&](unsigned count) {
        const uint32_t value = reader.Bits(count);
        writer.U(count, value);
        return value;
    };
    const auto ue = [&] {
        const uint32_t value = reader.Ue();
        writer.Ue(value);
        return value;
    };
    const uint32_t profile = u(8);
    u(16);
    ue();
    for (int i = 0; i < 3 && profile >= 100; ++i)
        ue();
    u(profile >= 100 ? 2 : 0);
    ue();
    if (ue() == 0)    // order count type
        ue();
    ue();
    u(1);
    ue();
    ue();
    u(u(1) == 0 ? 2 : 1);
    for (int i = u(1) != 0 ? 4 : 0; i > 0; --i)
        ue();
    writer.U(1, reordered ? 1 : 0);
    if (reordered)
        writer.U(8, 0).U(2, 3).Ue(0).Ue(0).Ue(10).Ue(10).Ue(*reordered).Ue(*reordered);
    const Bytes rest(end, unit.end());
    unit.erase(begin - 1, unit.end());
    unit = unit + writer.Unit({0x67}) + rest;
}

// As most cameras write them: the decoder learns by and by how many pictures it must hold for their order.
void RemoveVui(Stream& stream) {
    for (auto& picture : stream)
        RewriteVui(picture.bytes, std::nullopt);
}

// A picture of MPEG-4 that is not coded: the one before it is shown longer, or it came with that.
const Bytes kNotCoded = {0, 0, 1, 0xB6, 0x51, 0x4F};

// As some encoders of MPEG-4 send a B picture: with the picture that it needs, and one that is not coded in its place.
void Pack(Stream& stream) {
    const Bytes mark = Bytes{0, 0, 1, 0xB2} + Bytes{'D', 'i', 'v', 'X', '5', '0', '3', 'b', '1', '3', '9', '3', 'p'};
    for (size_t i = 0; i + 1 < stream.size(); ++i) {
        Bytes& bytes = stream[i].bytes;
        Bytes& next = stream[i + 1].bytes;
        if (stream[i].key)
            bytes.insert(FindCode(bytes, {0, 0, 1, 0xB6}), mark.begin(), mark.end());
        if (next[3] == 0xB6 && next[4] >> 6 == 2) {
            bytes = bytes + next;
            next = kNotCoded;
        }
    }
}

struct Result {
    size_t pictures = 0;
    size_t same = 0;                  // as libavcodec's, to the bit
    size_t expected = 0;              // of libavcodec before the end of the stream
    std::vector<size_t> mispaired;    // by their place among the pictures
    std::vector<uint32_t> outcomes = std::vector<uint32_t>(10);
};

uint32_t FrameThreads(uint32_t type, uint32_t threads) {
    return type == kH264 || type == kH265 ? threads : 1;
}

// Compares with libavcodec alone: the same pictures in the same order, the n-th paired with the n-th unit that has one.
Result DecodeAll(uint32_t type, const Stream& stream, uint32_t threads) {
    Result result;
    auto bare = test::BareDecode(type, stream, FrameThreads(type, threads), &result.expected);
    const auto isSame = [](const auto& one, const auto& other) { return one->pts == other->pts; };
    const auto end = std::unique(bare.begin(), bare.end(), isSame);    // MPEG-4 repeats one when its delay grows
    result.expected -= static_cast<size_t>(bare.end() - end);
    bare.erase(end, bare.end());
    std::vector<int64_t> units;
    for (const auto& picture : bare)
        units.push_back(picture->pts);
    std::sort(units.begin(), units.end());
    VideoDecoderHolder holder;
    holder.SetThreads(threads);
    for (size_t i = 0; i < stream.size(); ++i) {
        uint32_t got = 0;
        holder.Decode(test::MakeFrame(type, stream[i].bytes, stream[i].key, static_cast<int64_t>(i)), &got);
        ++result.outcomes[static_cast<size_t>(holder.LastOutcome())];
        FramePtr input;
        if (got == 0 || !holder.CurrentInput(input))
            continue;
        const size_t at = result.pictures++;
        if (at >= bare.size())
            return result;
        result.same += test::SamePicture(holder.CurrentFrame(), *bare[at]) ? 1 : 0;
        if (TimeMs(*input) != units[at])
            result.mispaired.push_back(at);
    }
    return result;
}

TEST(Pairing, EveryEncoderAndThreadCount) {
    const struct {
        const char* name;
        test::VideoSpec spec;
        size_t held;        // pictures that the decoder still has at the end, on one thread
        size_t lost = 0;    // that came too late to be shown in their place
        std::function<void(Stream&)> change = [](Stream&) {};
        bool plainFirst = false;    // behind a stream of the same size without B-frames
    } rows[] = {
        {"H.264", {}, 0},
        {"no VUI", {}, 0, 0, RemoveVui},
        {"B-frames", {.bFrames = 3}, 1},
        {"B-frames, no VUI", {.bFrames = 3}, 1, 0, RemoveVui},
        {"pyramid", {.bFrames = 5, .options = "b-pyramid=normal:ref=4"}, 2},
        {"pyramid, no VUI", {.bFrames = 5, .options = "b-pyramid=normal:ref=4"}, 2, 2, RemoveVui},
        {"B-frames behind none", {.bFrames = 3}, 1, 0, [](Stream&) {}, true},
        {"B-frames behind none, no VUI", {.bFrames = 3}, 1, 0, RemoveVui, true},
        {"open groups", {.bFrames = 3, .options = "b-pyramid=strict", .openGop = true}, 2},
        {"open groups, no VUI", {.bFrames = 3, .options = "b-pyramid=strict", .openGop = true}, 2, 1, RemoveVui},
        {"slices", {.bFrames = 2, .options = "slices=4:cabac=0"}, 1},
        {"intra refresh", {.options = "intra-refresh=1:ref=2", .openGop = true}, 0},
        {"interlaced, no VUI", {.bFrames = 2, .options = "tff=1", .interlaced = true}, 1, 0, RemoveVui},
        {"H.265", {.streamType = kH265}, 0},
        {"H.265, B-frames", {.streamType = kH265, .bFrames = 4, .options = "b-pyramid=1:rc-lookahead=9"}, 2},
        {"H.265, B-frames behind none", {.streamType = kH265, .bFrames = 2}, 2, 0, [](Stream&) {}, true},
        {"H.265, open groups", {.streamType = kH265, .bFrames = 3, .openGop = true}, 2},
        {"MPEG-4", {.streamType = kMpeg4}, 0},
        {"MPEG-4, B-frames", {.streamType = kMpeg4, .bFrames = 2}, 1},
        {"MPEG-4, B-frames behind none", {.streamType = kMpeg4, .bFrames = 2}, 1, 0, [](Stream&) {}, true},
        {"MPEG-4, packed", {.streamType = kMpeg4, .bFrames = 1}, 1, 0, Pack},
        {"JPEG", {.streamType = kJpeg}, 0},
    };
    for (auto row : rows) {
        row.spec.width = 96;
        row.spec.height = 64;
        row.spec.frames = 40;
        row.spec.gop = 10;
        Stream stream;
        if (row.plainFirst)
            stream = test::MakeVideo({.streamType = row.spec.streamType, .width = 96, .height = 64});
        const Stream own = test::MakeVideo(row.spec);
        stream.insert(stream.end(), own.begin(), own.end());
        row.change(stream);
        for (uint32_t threads = 1; threads <= 4; ++threads) {
            SCOPED_TRACE(testing::Message() << row.name << ", threads " << threads);
            const Result result = DecodeAll(row.spec.streamType, stream, threads);
            const size_t delay = row.held + FrameThreads(row.spec.streamType, threads) - 1;
            EXPECT_EQ(result.pictures, result.expected);
            EXPECT_EQ(result.pictures, stream.size() - row.lost - delay);
            EXPECT_EQ(result.same, result.pictures);
            EXPECT_EQ(result.outcomes[1], delay);
            EXPECT_LE(result.mispaired.size(), row.lost) << "which one was lost shows late";
        }
    }
}

// A damaged parameter set that asks for a delay of twelve: the next key frame ends it, at the cost of what is held.
TEST(Pairing, ADelayThatDamageMadeEnds) {
    Stream stream = test::MakeVideo({.width = 96, .height = 64, .frames = 40, .gop = 10});
    RemoveVui(stream);
    RewriteVui(stream[10].bytes, 12);
    VideoDecoderHolder holder;
    for (const auto& picture : stream) {
        uint32_t got = 0;
        FramePtr input;
        holder.Decode(test::MakeFrame(kH264, picture.bytes, picture.key, picture.number), &got);
        EXPECT_EQ(holder.CurrentInput(input), picture.number < 10 || picture.number >= 20);
        if (input)
            EXPECT_EQ(TimeMs(*input), picture.number);
    }
}

// One unit in ten of 300: nothing in it, noise, noise behind a header, one half, and for MPEG-4 a picture that is not
// coded. None shifts a later picture to another input, but for one picture where the delay grows on the way.
TEST(Pairing, OneUnitInTenDamaged) {
    const struct {
        const char* name;
        test::VideoSpec spec;
        size_t mispaired = 0;
        std::function<void(Stream&)> change = [](Stream&) {};
    } rows[] = {
        {"H.264", {}},
        {"H.264, B-frames", {.bFrames = 3, .options = "b-pyramid=normal:ref=3"}},
        {"H.264, B-frames, no VUI", {.bFrames = 3}, 1, RemoveVui},
        {"H.265", {.streamType = kH265}},
        {"H.265, B-frames", {.streamType = kH265, .bFrames = 3}},
        {"MPEG-4", {.streamType = kMpeg4}},
        {"MPEG-4, B-frames", {.streamType = kMpeg4, .bFrames = 2}},
        {"JPEG", {.streamType = kJpeg}},
    };
    for (auto row : rows) {
        const uint32_t type = row.spec.streamType;
        row.spec.width = 96;
        row.spec.height = 64;
        row.spec.frames = 300;
        row.spec.gop = 15;
        Stream stream = test::MakeVideo(row.spec);
        row.change(stream);
        std::minstd_rand random(11);
        for (size_t i = 6; i + 6 < stream.size(); i += 1 + random() % 19) {
            Bytes& bytes = stream[i].bytes;
            const auto kind = random() % 5;
            if (kind == 0)
                bytes.clear();
            else if (kind == 1)
                bytes.resize(bytes.size() / 2);
            else if (kind == 2 && type == kMpeg4)
                bytes = kNotCoded;
            else
                std::generate(bytes.begin() + std::min<ptrdiff_t>(kind == 3 ? 0 : 6, std::ssize(bytes)), bytes.end(),
                              [&] { return static_cast<uint8_t>(1 + random() % 255); });    // no start codes
        }
        for (uint32_t threads = 1; threads <= 4; ++threads) {
            SCOPED_TRACE(testing::Message() << row.name << ", threads " << threads);
            const Result result = DecodeAll(type, stream, threads);
            EXPECT_EQ(result.pictures, result.expected);
            EXPECT_LE(result.mispaired.size(), row.mispaired);
            EXPECT_GT(result.pictures, 240u);
            EXPECT_LT(result.pictures, 296u);
            EXPECT_LT(result.outcomes[1], threads + 6) << "those without a picture are told as such";
        }
    }
}

}    // namespace
}    // namespace corvane
