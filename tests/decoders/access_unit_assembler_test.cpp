#include <sstream>

#include "base/Limits.h"
#include "decoders/AccessUnitAssembler.h"
#include "decoders/StartCode.h"
#include "support/FieldStream.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

// A word is a frame, after k a key frame. With `codes`, its units, and the bytes after the start codes of P, S, E, F,
// G, H: P a picture, S parameter sets, E to H frames without a picture, s and L large ones, X one that is too large to
// be kept, U an unknown type. Without: S parameter sets, E supplemental data, and slices after s with parameter sets in
// front, by letter and frame_num: t and b top and bottom fields, m and n the same of no reference, T and B with another
// parameter set, I and J in IDR pictures; f frames.
Bytes BytesOf(const std::string& word, const std::string& codes) {
    const auto isOf = [](char letter, const char* letters) { return std::strchr(letters, letter) != nullptr; };
    const char last = word.back();
    if (!codes.empty() || last == 'E') {
        Bytes bytes;
        for (const char letter : word.substr(word[0] == 'k' ? 1 : 0)) {
            const size_t index = std::string("PSEFGHsLX").find(letter);
            const char code = letter == 'U'   ? '\x7E'
                              : codes.empty() ? '\6'
                                              : codes[index < 6    ? index
                                                      : index == 6 ? 1
                                                                   : 2];
            bytes = bytes + Bytes{0, 0, 1, static_cast<uint8_t>(code), 0xFF, static_cast<uint8_t>(letter)};
            bytes.resize(isOf(letter, "sL") ? 40000 : letter == 'X' ? 70000 : bytes.size(), 0x55);
        }
        return bytes;
    }
    if (last == 'S')
        return FieldParameterSets();
    const char letter = word[word.size() - 2];
    const bool idr = isOf(letter, "IJ"), field = letter != 'f', reference = !isOf(letter, "mn");
    BitWriter w;
    w.Ue(0).Ue(7).Ue(isOf(letter, "TB")).U(4, static_cast<uint64_t>(last - '0')).U(1, field);
    w.U(field ? 1 : 0, isOf(letter, "bBJn")).U(idr ? 1 : 0, 1).U(!reference ? 0 : idr ? 2 : 1, 0).Se(0);
    return (isOf('s', word.c_str()) ? FieldParameterSets() : Bytes()) +
           w.Unit({static_cast<uint8_t>(idr         ? 0x65
                                        : reference ? 0x61
                                                    : 0x01)});
}

// The inputs and bytes of the units of frames, both in decoding order. All units are kept until the last has come,
// since none may be overwritten. `counts` gets the number of units of each call of backward play, Finish last.
std::vector<std::pair<FramePtr, Bytes>> UnitsOf(std::vector<FramePtr> frames, bool backward, std::string& counts,
                                                uint64_t dropped = 0) {
    AccessUnitAssembler assembler(backward);
    std::vector<AccessUnitAssembler::Unit> units;
    const auto take = [&](AccessUnitAssembler::Unit unit) {
        const size_t before = units.size();
        for (; unit.input != nullptr; unit = assembler.Next())
            units.push_back(unit);
        counts += std::to_string(units.size() - before);
    };
    if (backward)
        std::ranges::reverse(frames);
    for (const FramePtr& frame : frames) {
        const bool completes = assembler.Completes(*frame);
        take(assembler.Add(frame));
        EXPECT_EQ(completes, !backward && counts.back() == '1' && units.back().input != frame);
    }
    take(assembler.Finish());
    EXPECT_EQ(assembler.Dropped(), dropped);
    std::vector<std::pair<FramePtr, Bytes>> result;
    for (const AccessUnitAssembler::Unit& unit : units) {
        const uint8_t* const end = unit.encoded.data + unit.encoded.size;
        EXPECT_EQ(std::count(end, end + limits::kPicturePadding, 0), limits::kPicturePadding);
        EXPECT_EQ(unit.encoded.data == unit.input->Payload(), unit.joined == nullptr) << "one frame is not copied";
        EXPECT_EQ(unit.encoded.type_or_count, unit.input->Header().frameType);
        result.insert(backward ? result.begin() : result.end(), {unit.input, {unit.encoded.data, end}});
    }
    return result;
}

TEST(AccessUnitAssembler, BothDirectionsGiveTheSameUnits) {
    const struct {
        const char *frames, *units, *counts;    // units null: the directions differ; counts null: not asked
        std::string codes = {};
        uint32_t streamType = kH264;
    } rows[] = {
        {"E kP F S P G H P P", "E kP | F S P | G H P | P", nullptr, "\x41\x67\x06\x09\x0C\x0A"},
        {"E F kP G H P S", "E F kP | G H P", nullptr, "\x65\x68\x0B\x6E\x0F\x0D"},
        {"S E F G H kP P", "S E F G H kP | P", nullptr, "\x02\x40\x46\x48\x4A\x4C", kH265},
        {"S E F G H kP U P", "S E F G H kP | U | P", nullptr, "\x2A\x44\x4E\x50\x46\x48", kH265},
        {"S E F G H kP U P", "S E F G H kP | U | P", nullptr, "\xB6\x20\xB0\xB2\xB3\xB5", kMpeg4},
        {"S L E L E kP s E L s S P s L E P S E X P", "S L E kP | s S P | s E P | S E P", nullptr, "\x41\x67\x06"},
        // The first set of each key frame by itself.
        {"E kSP P E kSP", "E kSP | P | E kSP", "001002", "\x41\x68\x67"},
        {"E kSP P E kSP", "E kSP | P | E kSP", "001002", "\x02\x42\x40", kH265},
        {"E kSP P E kSP", "E kSP | P | E kSP", "001002", "\xB6\x20\xB0", kMpeg4},
        {"kP P kP", "kP | P | kP", "1020", "\x41", kH263},
        {"kP P kP P", "kP | P | kP | P", "00202", "\x02", kH265},    // no parameter sets at all
        {"S kb3 t3", "S kb3 t3", nullptr},
        {"S kt0 J0", "", nullptr},
        {"S kt3 t3", "", nullptr},
        {"S kt3 b4", "", nullptr},
        {"S kt3 B3", "S kt3 B3", nullptr},
        {"S kt3 f3 b3", "S f3", nullptr},
        {"S kt3 b3 b3", "S kt3 b3", nullptr},
        {"ksI0 b0 t1 b1 ksI0 b0 t1 b1", "ksI0 b0 | t1 b1 | ksI0 b0 | t1 b1", "000200020"},
        {"S kI0 b0 t1 b1 S kI0 b0", "S kI0 b0 | t1 b1 | S kI0 b0", "000100002"},
        {"kS E kI0 b0 E t1 b1 kS kI0 b0", "kS E kI0 b0 | E t1 b1 | kS kI0 b0", "00010000002"},
        {"kS I0 b0 t1 b1 kS I0 b0", "kS I0 b0 | t1 b1 | kS I0 b0", "000100002"},
        {"S kI0 E kb0 t1 b1 S kI0 kb0", "S kI0 E kb0 | t1 b1 | S kI0 kb0", "0001000002"},
        {"ksI0 kb0 t1 b1 ksI0 kb0", "ksI0 kb0 | t1 b1 | ksI0 kb0", "0100020"},
        {"ksI0 b0 m1 n1 kt1 b1 ksI0 b0", "ksI0 b0 | m1 n1 | kt1 b1 | ksI0 b0", "010010020"},
        {"S kI0 b0 t1 b1 kI0 b0 t1 b1", "S kI0 b0 | t1 b1 | kI0 b0 | t1 b1", "0000000004"},
        {"ksI0 E b0 t1 E S b1", "ksI0 E b0 | t1 E S b1", "00000002"},
        {"ksI0 b0 t1 t2 b2 ksI0 b0", "ksI0 b0 | t2 b2 | ksI0 b0", "01000020"},
        {"ksI0 b0 t1 t2 b2 t3 t4 b4", "ksI0 b0 | t2 b2 | t4 b4", nullptr},
        {"E ksI0 b0 E t1 b1 E ksI0 b0 E t1 b1", "E ksI0 b0 | E t1 b1 | E ksI0 b0 | E t1 b1", "0000002000002"},
        {"ksI0 b0 b1 ksI0 b0 t1", "ksI0 b0 | ksI0 b0", "0010010"},
        {"ksf0 kf1 ksf0", "ksf0 | kf1 | ksf0", "1020"},
        {"ksf0 f1 kE f2", "ksf0 | f1 | kE f2", "00003"},
        {"f1 f2", nullptr, "000"},                          // without a key frame
        {"ksI0 ksI0 ksI0 ksI0 ksI0", nullptr, "001110"},    // single fields
        {"ksf0 E ksf0", nullptr, "1001"},                   // E comes after its unit was complete
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.frames);
        std::vector<FramePtr> frames;
        std::istringstream given(row.frames);
        for (std::string word; given >> word;)
            frames.push_back(MakeFrame(row.streamType, BytesOf(word, row.codes), word.front() == 'k', 0));
        std::string calls, counts;
        const auto forward = UnitsOf(frames, false, calls), backward = UnitsOf(frames, true, counts);
        EXPECT_TRUE(row.counts == nullptr || counts == row.counts) << counts;
        if (row.units == nullptr)
            continue;
        EXPECT_EQ(backward, forward);
        std::vector<Bytes> wanted(*row.units != '\0');
        std::istringstream units(row.units);
        for (std::string word; units >> word;)
            word == "|" ? wanted.emplace_back() : wanted.back() = wanted.back() + BytesOf(word, row.codes);
        EXPECT_TRUE(std::ranges::equal(forward, wanted, {}, &std::pair<FramePtr, Bytes>::second));
    }
}

// Without a key frame the newest frames are dropped; older ones can still be decoded when it comes.
TEST(AccessUnitAssembler, BackwardKeepsNoMoreThanItsBounds) {
    const struct {
        size_t frames, size, kept;
    } rows[] = {{limits::kMaxGopFrames - 1, 20, limits::kMaxGopFrames - 1},
                {limits::kMaxGopFrames, 20, 0},
                {3, limits::kMaxGopBytes / 4, 3},
                {4, limits::kMaxGopBytes / 4, 1}};
    for (const auto& [count, size, kept] : rows) {
        Bytes bytes = BytesOf("f1", "");
        bytes.resize(size, 0x55);
        std::vector<FramePtr> frames(count + 1, MakeFrame(kH264, bytes, false, 0));
        frames[0] = MakeFrame(kH264, BytesOf("sf1", ""), true, 0);
        std::string counts;
        EXPECT_EQ(UnitsOf(frames, true, counts, count - kept).size(), kept + 1);
    }
}

}    // namespace
}    // namespace corvane::test
