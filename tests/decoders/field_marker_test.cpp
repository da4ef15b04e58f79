// The marker text of field pictures. Every payload ends at a page that cannot be read.
#include <gtest/gtest.h>

#include <string>

#include "decoders/FieldMarker.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

using std::string_literals::operator""s;

std::string App2(const std::string& text) {
    return "\xFF\xE2"s + '\0' + static_cast<char>(text.size() + 2) + text;
}

TEST(FieldMarker, FindsTheText) {
    constexpr int kLeft = -1;            // the mark stays as it was
    const std::string fill(14, '\0');    // the bytes that must follow a segment
    const std::string soi = "\xFF\xD8"s, both = App2("FL_IL Mode") + fill;
    const std::string start = "\0\0\1\xB0"s, user = "\0\0\1\xB2"s;
    const struct {
        const char* name;
        std::string payload;
        int field_l_mode, interlaced_mode;
    } rows[] = {
        {"set", soi + both, 1, 1},
        {"cleared", soi + App2("FM_PG Mode") + fill, 0, 0},
        {"unknown first half", soi + App2("FX_IL Mode") + fill, kLeft, 1},
        {"halves are not mixed", soi + App2("FL_IG Mode") + fill, 1, kLeft},
        {"wrong frame of the text", soi + App2("FL-IL Mode") + fill, kLeft, kLeft},
        {"wrong end of the text", soi + App2("FL_IL mode") + fill, kLeft, kLeft},
        {"longer segment", soi + App2("FL_IL Mode and more") + fill, 1, 1},
        {"segment too short", soi + App2("FL_IL Mod") + fill, kLeft, kLeft},
        {"13 bytes behind", soi + both.substr(0, both.size() - 1), kLeft, kLeft},
        {"last text counts", soi + App2("FL_IL Mode") + App2("FM_PG Mode") + fill, 0, 0},
        {"behind a table", soi + "\xFF\xDB\0\4ab"s + both, kLeft, kLeft},
        {"behind length 1", soi + "\xFF\xE0\0\1"s + both, kLeft, kLeft},
        {"behind length 2", soi + "\xFF\xEF\0\2"s + both, 1, 1},
        {"length beyond the end", soi + "\xFF\xE0\xFF\xFF"s + both, kLeft, kLeft},
        {"no picture start", "\xFF\xD9"s + both, kLeft, kLeft},
        {"another APP", soi + "\xFF\xE3\0\14FL_IL Mode"s + fill, kLeft, kLeft},
        {"mpeg4, 18 bytes", start + user + "FL_IL Mode", 1, 1},
        {"mpeg4, 17 bytes", start + user + "FL_IL Mod", kLeft, kLeft},
        {"mpeg4, text short", start + "x" + user + "FL_IL Mod", kLeft, kLeft},
        {"mpeg4, unaligned, more behind", start + "xyz\0"s + user + "FM_PG Mode" + fill, 0, 0},
        {"mpeg4, behind the visual object", start + "\0\0\1\xB5"s + user + "FL_IL Mode", kLeft, kLeft},
        {"mpeg4, first user data counts", start + user + "something else" + user + "FL_IL Mode", kLeft, kLeft},
        {"mpeg4, no sequence start", "\0\0\1\xB6\xF5"s + user + "FL_IL Mode", kLeft, kLeft},
    };
    for (const auto& row : rows)
        for (const bool before : {false, true})
            for (size_t size = 0; size <= row.payload.size(); ++size) {    // no prefix is left
                const test::GuardedBytes guarded(row.payload.data(), size);
                FieldMarks marks{before, before};
                const auto read = row.name[0] == 'm' ? &ReadMpeg4Marker : &ReadJpegMarker;
                read(guarded.Data(), static_cast<uint32_t>(size), marks);
                if (size < row.payload.size())
                    continue;
                EXPECT_EQ(marks.field_l_mode, row.field_l_mode == kLeft ? before : row.field_l_mode == 1) << row.name;
                EXPECT_EQ(marks.interlaced_mode, row.interlaced_mode == kLeft ? before : row.interlaced_mode == 1)
                    << row.name;
            }
}

}    // namespace
}    // namespace corvane
