#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "base/Limits.h"
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

// Letters are frames: P a picture; S parameter sets, s large ones; E to H what holds no picture, L a large one, X one
// that is too large to be kept; U what is not known. The units that come of them, each in brackets.
TEST(AccessUnitAssembler, WhatHoldsNoPictureWaits) {
    const struct {
        uint32_t streamType;
        std::string codes;    // behind the start codes of P, S, E, F, G, H
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

// Letters and frame numbers are units: t and b top and bottom fields, T and B with another parameter set, I and J in
// IDR pictures; f a frame. Of how many each unit of the result is.
TEST(AccessUnitAssembler, WhichFieldsBelongTogether) {
    const char* const rows[][2] = {{"t3b3", "2"}, {"b3t3", "2"}, {"I0b0", "2"},   {"t0J0", ""},   {"t3t3", ""},
                                   {"t3b4", ""},  {"t3B3", "2"}, {"t3f3b3", "1"}, {"t3b3b3", "2"}};
    for (const auto& [fields, wanted] : rows) {
        AccessUnitAssembler assembler;
        assembler.Add(MakeFrame(CORVANE_STREAM_H264, FieldParameterSets(), true, 0));
        size_t setBytes = FieldParameterSets().size();
        std::string units;
        for (const char* at = fields; *at != '\0'; at += 2) {
            const bool idr = std::strchr("IJ", *at) != nullptr, field = *at != 'f';
            BitWriter w;
            w.Ue(0).Ue(7).Ue(std::strchr("TB", *at) != nullptr).U(4, static_cast<uint64_t>(at[1] - '0')).U(1, field);
            w.U(field ? 1 : 0, std::strchr("bBJ", *at) != nullptr).U(idr ? 1 : 0, 1).U(idr ? 2 : 1, 0).Se(0);
            const Bytes bytes = w.Unit({static_cast<uint8_t>(idr ? 0x65 : 0x61)});
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

}    // namespace
}    // namespace corvane::test
