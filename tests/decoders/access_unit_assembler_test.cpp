#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/Limits.h"
#include "decoders/StartCode.h"
#include "decoders/VideoDecoderHolder.h"
#include "support/FieldStream.h"
#include "support/StreamMaker.h"

namespace corvane::test {
namespace {

// The numbers of the pictures that show, each with both its fields and the time of its first.
std::vector<int> Shown(const FieldStream& stream, uint32_t threads) {
    VideoDecoderHolder holder;
    holder.SetThreads(threads);
    std::vector<int> shown;
    for (const FieldUnit& field : stream) {
        uint32_t got = 0;
        FramePtr input;
        const bool had = holder.CurrentInput(input);
        const bool key = field.picture % kFieldGop == 0 && !field.bottom;
        holder.Decode(MakeFrame(CORVANE_STREAM_H264, field.bytes, key, 40 * field.picture + (field.bottom ? 20 : 0)),
                      &got);
        const bool has = holder.CurrentInput(input);
        EXPECT_TRUE(has == had || got != 0 || field.bottom);    // a field that waits ends no picture
        if (got == 0)
            continue;
        const int picture = static_cast<int>(TimeMs(*input) / 40);
        EXPECT_EQ(TimeMs(*input) % 40, 0);
        EXPECT_EQ(input->IsKeyFrame(), picture % kFieldGop == 0);
        const DecodedFrame& frame = holder.CurrentFrame();
        for (uint32_t row = 0; row < 32; ++row)
            EXPECT_EQ(frame.planes[0][row * frame.strides[0] + 31], FieldValue(picture, row % 2 != 0))
                << picture << row;
        shown.push_back(picture);
    }
    return shown;
}

TEST(AccessUnitAssembler, FieldsBecomePictures) {
    const auto joined = [](FieldStream& s) {
        for (auto at = s.begin(); at != s.end(); s.erase(++at))
            at->bytes = at->bytes + at[1].bytes;
    };
    const auto delimited = [](FieldStream& s) {
        for (size_t i = 2 * kFieldPictures; i-- > 0;)
            s.insert(s.begin() + static_cast<ptrdiff_t>(i), {s[i].picture, true, {0, 0, 0, 1, 9, 0xF0}});
    };
    const struct {
        const char* name;
        std::function<void(FieldStream&)> change;
        std::vector<int> lost;
    } rows[] = {
        {"all fields", [](FieldStream&) {}, {}},
        {"both in one unit", joined, {}},
        {"delimiters by themselves", delimited, {}},
        {"two second fields lost", [](FieldStream& s) { s.erase(s.erase(s.begin() + 11) + 3); }, {5, 7}},
        {"a first field lost", [](FieldStream& s) { s.erase(s.begin() + 10); }, {5}},
        {"a key frame's second field lost", [](FieldStream& s) { s.erase(s.begin() + 9); }, {4, 5, 6}},
    };
    for (const auto& row : rows)
        for (const uint32_t threads : {1u, 3u}) {
            SCOPED_TRACE(testing::Message() << row.name << ", threads " << threads);
            FieldStream stream = MakeFields();
            row.change(stream);
            std::vector<int> wanted;
            for (int picture = 0; picture < kFieldPictures; ++picture)
                if (std::ranges::count(row.lost, picture) == 0)
                    wanted.push_back(picture);
            wanted.resize(wanted.size() - (threads - 1));
            EXPECT_EQ(Shown(stream, threads), wanted);
        }
}

// Letters are frames: P a picture; S parameter sets, s large ones; E to H frames without a picture, L a large one, X one
// that is too large to be kept; U an unknown type. `units`: the resulting units, each in brackets.
TEST(AccessUnitAssembler, WhatHoldsNoPictureWaits) {
    const struct {
        uint32_t streamType;
        std::string codes;    // the bytes after the start codes of P, S, E, F, G, H
        const char *frames, *units;
    } rows[] = {
        {CORVANE_STREAM_H264, "\x41\x67\x06\x09\x0C\x0A", "EPFSPGHPP", "[EP][FSP][GHP][P]"},
        {CORVANE_STREAM_H264, "\x65\x68\x0B\x6E\x0F\x0D", "EFPGHPS", "[EFP][GHP]"},
        {CORVANE_STREAM_H265, "\x02\x40\x46\x48\x4A\x4C", "SEFGHPP", "[SEFGHP][P]"},
        {CORVANE_STREAM_H265, "\x2A\x44\x4E\x50\x46\x48", "SEFGHPUP", "[SEFGHP][U][P]"},
        {CORVANE_STREAM_MPEG4, "\xB6\x20\xB0\xB2\xB3\xB5", "SEFGHPUP", "[SEFGHP][U][P]"},
        {CORVANE_STREAM_H264, "\x41\x67\x06", "SLELEPsELsSPsLEPSEXP", "[SLEP][sSP][sEP][SEP]"},
    };
    for (const auto& row : rows) {
        const auto bytesOf = [&](char letter) {
            const size_t index = std::string("PSEFGH").find(letter == 's'                    ? 'S'
                                                            : letter == 'L' || letter == 'X' ? 'E'
                                                                                             : letter);
            const uint8_t code = index == std::string::npos ? 0x7E : static_cast<uint8_t>(row.codes[index]);
            Bytes bytes{0, 0, 1, code, 0xFF, static_cast<uint8_t>(letter)};
            bytes.resize(letter == 's' || letter == 'L' ? 40000 : letter == 'X' ? 70000 : bytes.size(), 0x55);
            return bytes;
        };
        AccessUnitAssembler assembler;
        std::string units;
        for (const char* at = row.frames; *at != '\0'; ++at) {
            const FramePtr frame = MakeFrame(row.streamType, bytesOf(*at), false, 0);
            const AccessUnitAssembler::Unit unit = assembler.Add(frame);
            if (unit.input == nullptr)
                continue;
            EXPECT_EQ(unit.input, frame);
            units += '[';
            for (uint32_t i = 0; i + 5 < unit.encoded.size;) {
                units += static_cast<char>(unit.encoded.data[i + 5]);
                i += static_cast<uint32_t>(bytesOf(units.back()).size());
            }
            units += ']';
            for (uint32_t i = 0; i < limits::kPicturePadding; ++i)
                EXPECT_EQ(unit.encoded.data[unit.encoded.size + i], 0);
        }
        EXPECT_EQ(units, row.units) << row.frames;
    }
}

// A slice header of the streams of FieldParameterSets. t and b: top and bottom field, m and n the same of no reference,
// T and B with another parameter set, I and J in IDR pictures; f a frame.
Bytes HeaderOf(char letter, char frameNum) {
    const auto isOf = [&](const char* letters) { return std::strchr(letters, letter) != nullptr; };
    const bool idr = isOf("IJ"), field = letter != 'f';
    BitWriter w;
    w.Ue(0).Ue(7).Ue(isOf("TB")).U(4, static_cast<uint64_t>(frameNum - '0')).U(1, field);
    w.U(field ? 1 : 0, isOf("bBJn")).U(idr ? 1 : 0, 1).U(isOf("mn") ? 0 : idr ? 2 : 1, 0).Se(0);
    return w.Unit({static_cast<uint8_t>(idr ? 0x65 : isOf("mn") ? 0x01 : 0x61)});
}

// Slices as HeaderOf names them, and the number of slices in each resulting unit.
TEST(AccessUnitAssembler, WhichFieldsBelongTogether) {
    const char* const rows[][2] = {{"t3b3", "2"}, {"b3t3", "2"}, {"I0b0", "2"},   {"t0J0", ""},   {"t3t3", ""},
                                   {"t3b4", ""},  {"t3B3", "2"}, {"t3f3b3", "1"}, {"t3b3b3", "2"}};
    for (const auto& [fields, wanted] : rows) {
        AccessUnitAssembler assembler;
        assembler.Add(MakeFrame(CORVANE_STREAM_H264, FieldParameterSets(), true, 0));
        size_t setBytes = FieldParameterSets().size();
        std::string units;
        for (const char* at = fields; *at != '\0'; at += 2) {
            const Bytes bytes = HeaderOf(at[0], at[1]);
            const FramePtr frame = MakeFrame(CORVANE_STREAM_H264, bytes, false, 0);
            const bool completes = assembler.Completes(*frame);
            const AccessUnitAssembler::Unit unit = assembler.Add(frame);
            EXPECT_EQ(completes, unit.input != nullptr && unit.input != frame) << fields;
            if (unit.input != nullptr)
                units += static_cast<char>('0' + (unit.encoded.size - std::exchange(setBytes, 0)) / bytes.size());
        }
        EXPECT_EQ(units, wanted) << fields;
    }
}

using Unit = AccessUnitAssembler::Unit;

// The units of frames that are given in decoding order, in that order. All are kept until the last has come, since
// none may be overwritten. `counts` gets the number of units of each call of backward play, Finish last.
std::vector<Unit> UnitsOf(const std::vector<FramePtr>& frames, bool backward, std::string* counts = nullptr) {
    AccessUnitAssembler assembler(backward);
    std::vector<Unit> units;
    const auto take = [&](Unit unit) {
        const size_t before = units.size();
        for (; unit.input != nullptr; unit = assembler.Next())
            units.push_back(unit);
        if (counts != nullptr)
            *counts += std::to_string(units.size() - before);
    };
    for (size_t i = 0; i < frames.size(); ++i) {
        const FramePtr& frame = frames[backward ? frames.size() - 1 - i : i];
        EXPECT_FALSE(backward && assembler.Completes(*frame));
        take(assembler.Add(frame));
    }
    if (backward) {
        take(assembler.Finish());
        std::ranges::reverse(units);
    }
    for (const Unit& unit : units) {
        EXPECT_TRUE(std::ranges::all_of(unit.encoded.data + unit.encoded.size,
                                        unit.encoded.data + unit.encoded.size + limits::kPicturePadding,
                                        [](uint8_t byte) { return byte == 0; }));
        EXPECT_EQ(unit.encoded.data == unit.input->Payload(), unit.joined == nullptr) << "one frame is not copied";
    }
    return units;
}

Bytes BytesOf(const Unit& unit) {
    return {unit.encoded.data, unit.encoded.data + unit.encoded.size};
}

// Frames in decoding order: slices as HeaderOf names them, S parameter sets, E supplemental data, k in front: a key
// frame, s: parameter sets in the same frame. `counts`: the units of each call of backward play.
TEST(AccessUnitAssembler, BackwardGivesTheSameUnits) {
    const struct {
        const char *frames, *units, *counts;
    } rows[] = {
        {"ksI0 b0 t1 b1 ksI0 b0 t1 b1", "[ksI0 b0][t1 b1][ksI0 b0][t1 b1]", "000200020"},
        {"ksJ0 t0 b1 t1 b2 t2", "[ksJ0 t0][b1 t1][b2 t2]", "0000030"},
        {"S kI0 b0 t1 b1 S kI0 b0", "[S kI0 b0][t1 b1][S kI0 b0]", "000100002"},
        {"kS E kI0 b0 E t1 b1 kS kI0 b0", "[kS E kI0 b0][E t1 b1][kS kI0 b0]", "00010000002"},
        {"kS I0 b0 t1 b1 kS I0 b0", "[kS I0 b0][t1 b1][kS I0 b0]", "000100002"},
        {"S kI0 kb0 t1 b1 S kI0 kb0", "[S kI0 kb0][t1 b1][S kI0 kb0]", "000100002"},
        {"ksI0 kb0 t1 b1 ksI0 kb0", "[ksI0 kb0][t1 b1][ksI0 kb0]", "0100020"},
        {"ksI0 b0 m1 n1 kt1 b1 ksI0 b0", "[ksI0 b0][m1 n1][kt1 b1][ksI0 b0]", "010010020"},
        {"S kI0 b0 t1 b1 kI0 b0 t1 b1", "[S kI0 b0][t1 b1][kI0 b0][t1 b1]", "0000000004"},
        {"ksI0 E b0 t1 E S b1", "[ksI0 E b0][t1 E S b1]", "00000002"},
        {"ksI0 b0 t1 t2 b2 ksI0 b0", "[ksI0 b0][t2 b2][ksI0 b0]", "01000020"},
        {"ksI0 b0 f1 t2 b2 f3", "[ksI0 b0][f1][t2 b2][f3]", "0000040"},
        {"E ksI0 b0 E t1 b1 E ksI0 b0 E t1 b1", "[E ksI0 b0][E t1 b1][E ksI0 b0][E t1 b1]", "0000002000002"},
        {"ksI0 b0 b1 ksI0 b0 t1", "[ksI0 b0][ksI0 b0]", "0010010"},
        {"ksf0 kf1 ksf0", "[ksf0][kf1][ksf0]", "1020"},
        {"ksf0 f1 kE f2", "[ksf0][f1][kE f2]", "00003"},
        {"S kI0 E kb0 t1 b1 S kI0 kb0", "[S kI0 E kb0][t1 b1][S kI0 kb0]", "0001000002"},
        // Where the directions differ: single fields, and the first frame without a picture, whose unit was complete.
        {"ksI0 ksI0 ksI0 ksI0 ksI0", "", "001110"},
        {"ksf0 E ksf0", "", "1001"},
        {"ksf0 f1 ksf0 ksf0", "[ksf0][f1][ksf0][ksf0]", "11020"},
    };
    const auto isKey = [](const std::string& word) { return word.find('k') != std::string::npos; };
    const auto bytesOf = [](const std::string& word) {
        if (word.back() == 'E')
            return Bytes{0, 0, 1, 6, 0xFF, 0x80};
        const Bytes sets = word.find_first_of("Ss") != std::string::npos ? FieldParameterSets() : Bytes();
        return word.back() == 'S' ? sets : sets + HeaderOf(word[word.size() - 2], word.back());
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.frames);
        std::vector<FramePtr> frames;
        std::istringstream given(row.frames);
        for (std::string word; given >> word;)
            frames.push_back(MakeFrame(CORVANE_STREAM_H264, bytesOf(word), isKey(word), 0));
        std::vector<Bytes> wanted;
        std::string spaced;
        for (const char* at = row.units; *at != '\0'; ++at)
            spaced += *at == '[' || *at == ']' ? std::string{' ', *at, ' '} : std::string{*at};
        std::istringstream units(spaced);
        for (std::string word; units >> word;) {
            if (word == "[")
                wanted.emplace_back();
            else if (word != "]")
                wanted.back() = wanted.back() + bytesOf(word);
        }
        std::string counts;
        const std::vector<Unit> forward = UnitsOf(frames, false), backward = UnitsOf(frames, true, &counts);
        EXPECT_EQ(counts, row.counts);
        if (wanted.empty())
            continue;
        ASSERT_EQ(forward.size(), wanted.size());
        ASSERT_EQ(backward.size(), wanted.size());
        for (size_t i = 0; i < wanted.size(); ++i) {
            EXPECT_EQ(BytesOf(forward[i]), wanted[i]) << i;
            EXPECT_EQ(BytesOf(backward[i]), wanted[i]) << i;
            EXPECT_EQ(backward[i].input, forward[i].input) << i;
            EXPECT_EQ(backward[i].encoded.type_or_count, forward[i].input->Header().frameType) << i;
            EXPECT_EQ(forward[i].encoded.type_or_count, forward[i].input->Header().frameType) << i;
        }
    }
}

// Streams of real encoders, with all that precedes a picture in frames of its own: the units are the packets.
TEST(AccessUnitAssembler, BackwardRestoresRealPackets) {
    for (VideoSpec spec : {VideoSpec{.interlaced = true}, VideoSpec{.streamType = kH265, .bFrames = 2},
                           VideoSpec{.streamType = kMpeg4, .interlaced = true}, VideoSpec{.openGop = true}}) {
        SCOPED_TRACE(spec.streamType);
        const std::vector<EncodedPicture> video = MakeVideo(spec);
        std::vector<FramePtr> frames;
        for (const EncodedPicture& packet : video) {
            const uint8_t* const end = packet.bytes.data() + packet.bytes.size();
            const uint8_t* from = packet.bytes.data();
            for (const uint8_t* at = AfterStartCode(from, end); at < end;) {
                const bool picture = spec.streamType == kMpeg4  ? *at == 0xB6
                                     : spec.streamType == kH264 ? (*at & 31) == 1 || (*at & 31) == 5
                                                                : *at >> 1 < 32;
                const uint8_t* next = picture ? end : AfterStartCode(at, end);
                if (spec.streamType == kMpeg4 && next != end && *next < 0x20)    // no header by itself
                    next = AfterStartCode(next, end);
                const uint8_t* const to = next == end ? end : next - 3;
                frames.push_back(MakeFrame(spec.streamType, {from, to}, packet.key, packet.ptsMs));
                from = to;
                at = next;
            }
        }
        ASSERT_GT(frames.size(), video.size());
        for (const bool backward : {false, true}) {
            const std::vector<Unit> units = UnitsOf(frames, backward);
            ASSERT_EQ(units.size(), video.size()) << backward;
            for (size_t i = 0; i < units.size(); ++i)
                EXPECT_EQ(BytesOf(units[i]), video[i].bytes) << backward << i;
        }
    }
}

// Frames that no key frame follows are dropped, the newest ones, and older ones are kept.
TEST(AccessUnitAssembler, BackwardKeepsNoMoreThanItsBounds) {
    const auto slice = [](size_t size) {
        Bytes bytes = HeaderOf('f', '1');
        bytes.resize(size, 0x55);
        return bytes;
    };
    const struct {
        size_t frames, size;
        uint64_t dropped;
        size_t units;    // of the rest, with its key frame
    } rows[] = {
        {limits::kMaxGopFrames - 1, 20, 0, limits::kMaxGopFrames},
        {limits::kMaxGopFrames, 20, limits::kMaxGopFrames, 1},
        {3, limits::kMaxGopBytes / 4, 0, 4},
        {4, limits::kMaxGopBytes / 4, 3, 2},
    };
    for (const auto& row : rows) {
        AccessUnitAssembler assembler(true);
        const FramePtr frame = MakeFrame(CORVANE_STREAM_H264, slice(row.size), false, 0);
        for (size_t i = 0; i < row.frames; ++i)
            EXPECT_EQ(assembler.Add(frame).input, nullptr);
        EXPECT_EQ(assembler.Finish().input, nullptr) << "without its key frame";
        const FramePtr key = MakeFrame(CORVANE_STREAM_H264, FieldParameterSets() + slice(20), true, 0);
        size_t units = 0;
        for (Unit unit = assembler.Add(key); unit.input != nullptr; unit = assembler.Next())
            EXPECT_EQ(unit.input, ++units == row.units ? key : frame);
        EXPECT_EQ(units, row.units);
        EXPECT_EQ(assembler.Dropped(), row.dropped);
        EXPECT_EQ(assembler.Finish().input, nullptr);
    }
    // Other codecs need no parameter sets that were seen, and some have none.
    AccessUnitAssembler h263(true), h265(true);
    EXPECT_NE(h263.Add(MakeFrame(CORVANE_STREAM_H263, {1}, true, 0)).input, nullptr);
    EXPECT_EQ(h265.Add(MakeFrame(CORVANE_STREAM_H265, {0, 0, 1, 0x2A}, true, 0)).input, nullptr);
    EXPECT_NE(h265.Add(MakeFrame(CORVANE_STREAM_H265, {0, 0, 1, 0x02}, false, 0)).input, nullptr);
}

}    // namespace
}    // namespace corvane::test
