// The marker text of field pictures. Every payload ends at a page that cannot be read.
#include <gtest/gtest.h>

#include <string>

#include "decoders/FieldMarker.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

using std::string_literals::operator""s;

constexpr int kLeft = -1;    // the mark stays as it was

struct Row {
    const char* name;
    std::string payload;
    int field_l_mode;
    int interlaced_mode;
};

const std::string kFill(14, '\0');    // the bytes that must follow a segment
const std::string kSoi = "\xFF\xD8"s;
const std::string kApp0 = "\xFF\xE0\x00\x04JF"s;

std::string App2(const std::string& text) {
    return "\xFF\xE2"s + '\0' + static_cast<char>(text.size() + 2) + text;
}

const std::string kSequence = "\0\0\1\xB0\xF5"s;
const std::string kUserData = "\0\0\1\xB2"s;
const std::string kVisualObject = "\0\0\1\xB5"s;

void Check(const Row& row, void (*read)(const uint8_t*, uint32_t, FieldMarks&)) {
    SCOPED_TRACE(row.name);
    for (const bool before : {false, true}) {
        const test::GuardedBytes guarded(row.payload.data(), row.payload.size());
        FieldMarks marks{before, before};
        read(guarded.Data(), static_cast<uint32_t>(row.payload.size()), marks);
        EXPECT_EQ(marks.field_l_mode, row.field_l_mode == kLeft ? before : row.field_l_mode == 1);
        EXPECT_EQ(marks.interlaced_mode, row.interlaced_mode == kLeft ? before : row.interlaced_mode == 1);
    }
    // No prefix reads behind its end.
    for (size_t size = 0; size < row.payload.size(); ++size) {
        const test::GuardedBytes guarded(row.payload.data(), size);
        FieldMarks marks;
        read(guarded.Data(), static_cast<uint32_t>(size), marks);
    }
}

TEST(FieldMarker, Jpeg) {
    const Row rows[] = {
        {"both set", kSoi + App2("FL_IL Mode") + kFill, 1, 1},
        {"both cleared", kSoi + App2("FM_PG Mode") + kFill, 0, 0},
        {"behind another segment", kSoi + kApp0 + App2("FL_PG Mode") + kFill, 1, 0},
        {"unknown first half", kSoi + App2("FX_IL Mode") + kFill, kLeft, 1},
        {"unknown second half", kSoi + App2("FM_XX Mode") + kFill, 0, kLeft},
        {"halves are not mixed", kSoi + App2("FL_IG Mode") + kFill, 1, kLeft},
        {"wrong frame of the text", kSoi + App2("FL-IL Mode") + kFill, kLeft, kLeft},
        {"wrong end of the text", kSoi + App2("FL_IL mode") + kFill, kLeft, kLeft},
        {"longer segment", kSoi + App2("FL_IL Mode and more") + kFill, 1, 1},
        {"segment too short", kSoi + App2("FL_IL Mod") + kFill, kLeft, kLeft},
        {"13 bytes behind", kSoi + App2("FL_IL Mode") + kFill.substr(1), kLeft, kLeft},
        {"last text counts", kSoi + App2("FL_IL Mode") + App2("FM_PG Mode") + kFill, 0, 0},
        {"behind a table", kSoi + "\xFF\xDB\0\4ab"s + App2("FL_IL Mode") + kFill, kLeft, kLeft},
        {"length 1", kSoi + "\xFF\xE0\0\1"s + App2("FL_IL Mode") + kFill, kLeft, kLeft},
        {"length 2", kSoi + "\xFF\xE0\0\2"s + App2("FL_IL Mode") + kFill, 1, 1},
        {"length beyond the end", kSoi + "\xFF\xE0\xFF\xFF"s + App2("FL_IL Mode") + kFill, kLeft, kLeft},
        {"last APP", kSoi + "\xFF\xEF\0\2"s + App2("FL_IL Mode") + kFill, 1, 1},
        {"no picture start", "\xFF\xD9"s + App2("FL_IL Mode") + kFill, kLeft, kLeft},
        {"another APP", kSoi + "\xFF\xE3\0\14FL_IL Mode"s + kFill, kLeft, kLeft},
    };
    for (const Row& row : rows)
        Check(row, &ReadJpegMarker);
}

TEST(FieldMarker, Mpeg4) {
    const Row rows[] = {
        {"both set", kSequence + kUserData + "FL_IL Mode", 1, 1},
        {"both cleared, more behind", kSequence + kUserData + "FM_PG Mode" + kFill, 0, 0},
        {"unaligned", kSequence + "xyz" + kUserData + "FM_IL Mode", 0, 1},
        {"zeros in front of the code", kSequence + "\0\0"s + kUserData + "FL_IL Mode", 1, 1},
        {"one byte short", kSequence + kUserData + "FL_IL Mod", kLeft, kLeft},
        {"behind the visual object", kSequence + kVisualObject + kUserData + "FL_IL Mode", kLeft, kLeft},
        {"in front of the visual object", kSequence + kUserData + "FL_IL Mode" + kVisualObject, 1, 1},
        {"first user data counts", kSequence + kUserData + "something else" + kUserData + "FL_IL Mode", kLeft, kLeft},
        {"no sequence start", "\0\0\1\xB6\xF5"s + kUserData + "FL_IL Mode", kLeft, kLeft},
        {"17 bytes", "\0\0\1\xB0"s + kUserData + "FL_IL Mod", kLeft, kLeft},
        {"18 bytes", "\0\0\1\xB0"s + kUserData + "FL_IL Mode", 1, 1},
    };
    for (const Row& row : rows)
        Check(row, &ReadMpeg4Marker);
}

}    // namespace
}    // namespace corvane
