// The marker text of field pictures. Every payload ends at a page that cannot be read.
#include <gtest/gtest.h>

#include <string>

#include "decoders/FieldMarker.h"
#include "support/GuardedBytes.h"

namespace corvane::test {
namespace {

using std::string_literals::operator""s;

std::string App2(const std::string& text) {
    return "\xFF\xE2"s + '\0' + static_cast<char>(text.size() + 2) + text;
}

TEST(FieldMarker, FindsTheText) {
    const std::string fill(14, '\0');    // the bytes that must follow a segment
    const std::string soi = "\xFF\xD8"s, both = App2("FL_IL Mode") + fill;
    const std::string start = "\0\0\1\xB0"s, user = "\0\0\1\xB2"s;
    const struct {
        std::string payload;
        const char* marks;    // field mode and interlaced mode: 1 set, 0 cleared, - left as it was
    } rows[] = {
        {soi + both, "11"},
        {soi + App2("FM_PG Mode") + fill, "00"},
        {soi + App2("FX_IL Mode") + fill, "-1"},
        {soi + App2("FL_IG Mode") + fill, "1-"},
        {soi + App2("FL-IL Mode") + fill, "--"},
        {soi + App2("FL_IL mode") + fill, "--"},
        {soi + App2("FL_IL Mode and more") + fill, "11"},
        {soi + App2("FL_IL Mod") + fill, "--"},
        {soi + both.substr(0, both.size() - 1), "--"},    // 13 bytes behind it
        {soi + App2("FL_IL Mode") + App2("FM_PG Mode") + fill, "00"},
        {soi + "\xFF\xDB\0\4ab"s + both, "--"},    // behind a table
        {soi + "\xFF\xEF\0\2"s + both, "11"},      // behind a length of 2
        {soi + "\xFF\xE0\xFF\xFF"s + both, "--"},
        {"\xFF\xD9"s + both, "--"},
        {soi + "\xFF\xE3\0\14FL_IL Mode"s + fill, "--"},    // another segment
        {start + user + "FL_IL Mode", "11"},
        {start + "x" + user + "FL_IL Mod", "--"},
        {start + "xyz\0"s + user + "FM_PG Mode" + fill, "00"},
        {start + "\0\0\1\xB5"s + user + "FL_IL Mode", "--"},    // behind the visual object
        {start + user + "something else" + user + "FL_IL Mode", "--"},
        {"\0\0\1\xB6\xF5"s + user + "FL_IL Mode", "--"},
    };
    for (const auto& row : rows)
        for (const bool before : {false, true})
            for (size_t size = 0; size <= row.payload.size(); ++size) {    // no prefix is left
                const GuardedBytes guarded(row.payload.data(), size);
                FieldMarks marks{before, before};
                const auto read = row.payload[0] == '\0' ? &ReadMpeg4Marker : &ReadJpegMarker;
                read(guarded.Data(), static_cast<uint32_t>(size), marks);
                if (size < row.payload.size())
                    continue;
                const auto wanted = [&](char mark) { return mark == '-' ? before : mark == '1'; };
                EXPECT_EQ(marks.field_l_mode, wanted(row.marks[0])) << &row - rows;
                EXPECT_EQ(marks.interlaced_mode, wanted(row.marks[1])) << &row - rows;
            }
}

}    // namespace
}    // namespace corvane::test
