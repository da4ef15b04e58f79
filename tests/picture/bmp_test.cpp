#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <vector>

#include "picture/BmpFile.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

using Words = std::vector<uint32_t>;
using Bytes = std::vector<uint8_t>;

struct Head {
    uint32_t bytes, bits, compression;
    int32_t width, height;
};

// A file put together from its parts, with what it must show: pixels 0x00RRGGBB, first row on top. Both in hexadecimal.
struct File {
    const char* name;
    Head head;
    Words masks;
    Words palette;
    const char* pixels;
    const char* wanted;
};

Words Parsed(const char* text) {
    std::istringstream stream(text);
    Words words;
    for (uint32_t word; stream >> std::hex >> word;)
        words.push_back(word);
    return words;
}

Bytes Build(const File& f) {
    const bool old = f.head.bytes == 12;
    Bytes out(14 + f.head.bytes);
    const auto put = [&](size_t at, auto value, size_t count) { std::memcpy(&out[at], &value, count); };
    put(0, 0x4D42, 2);
    put(14, f.head.bytes, 4);
    put(18, f.head.width, old ? 2 : 4);
    put(old ? 20 : 22, f.head.height, old ? 2 : 4);
    put(old ? 24 : 28, f.head.bits, 2);
    if (!old) {
        put(30, f.head.compression, 4);
        put(46, f.palette.size() == 1u << f.head.bits % 32 ? 0 : f.palette.size(), 4);    // 0 means all
    }
    for (size_t i = 0; i < f.masks.size(); ++i) {
        if (f.head.bytes == 40)
            out.resize(out.size() + 4);
        put(54 + 4 * i, f.masks[i], 4);
    }
    for (const uint32_t color : f.palette) {
        out.resize(out.size() + (old ? 3 : 4), 99);
        put(out.size() - (old ? 3 : 4), color, 3);
    }
    put(10, out.size(), 4);
    for (const uint32_t byte : Parsed(f.pixels))
        out.push_back(static_cast<uint8_t>(byte));
    return out;
}

std::vector<File> Files() {
    const Words four{0, 0xF0, 0xF1, 0xF2};
    return {
        {"1 bit", {40, 1, 0, 9, 2}, {}, {0xA, 0xB}, "80 80 0 0 41 7F 0 0", "A B A A A A A B A B A A A A A A A B"},
        {"4 bits, short palette", {40, 4, 0, 3, 1}, {}, four, "12 9F 0 0", "F0 F1 0"},
        {"8 bits, old header", {12, 8, 0, 3, 2}, {}, four, "3 2 1 0 0 1 2 0", "0 F0 F1 F2 F1 F0"},
        {"8 bits, more entries than bits", {64, 8, 0, 1, 1}, {}, Words(300, 0x123456), "FF 0 0 0", "123456"},
        {"5-5-5, top-down", {56, 16, 0, 2, -2}, {}, {}, "0 7C 10 42 E0 3 FF 7F", "FF0000 848484 FF00 FFFFFF"},
        {"5-6-5", {40, 16, 3, 1, 2}, {0xF800, 0x7E0, 0x1F}, {}, "10 84 0 0 1F F8 0 0", "FF00FF 848284"},
        {"1, 0 and 11 bits", {52, 16, 3, 2, 1}, {0x8000, 0, 0x7FF}, {}, "0 84 FF 7F", "FF0080 FF"},
        {"24 bits", {124, 24, 0, 3, 1}, {}, {}, "1 2 3 4 5 6 7 8 9 0 0 0", "30201 60504 90807"},
        {"10-10-10", {108, 32, 3, 2, 1}, {0x3FF00000, 0xFFC00, 0x3FF, 0}, {}, "FF 3 0 20 0 FC F 0", "8000FF FF00"},
        {"4 masks behind", {40, 32, 6, 1, 1}, {0xFF, 0xFF00, 0xFF0000, 0xFF000000}, {}, "1 2 3 4", "10203"},
        // A run, a row's end, a literal run and its padding, a jump, a run that is too long, the end.
        {"RLE8",
         {40, 8, 1, 4, 3},
         {},
         four,
         "3 1 0 0 0 3 2 3 1 63 1 2 0 0 0 2 2 0 9 3 0 1 4 1",
         "0 0 F2 F2 F1 F2 F0 F1 F0 F0 F0 0"},
        {"RLE4", {64, 4, 2, 5, 2}, {}, four, "5 12 0 0 0 5 32 10 20 63 0 1", "F2 F1 F0 0 F1 F0 F1 F0 F1 F0"},
        {"RLE8, run beyond its row",
         {40, 8, 1, 16, 2},
         {},
         four,
         "0 0 63 1 0 1",
         "F0 F0 F0 F0 F0 F0 F0 F0 F0 F0 F0 F0 F0 F0 F0 F0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0"},
        {"RLE8, jump beyond the end", {40, 8, 1, 1, 2}, {}, four, "1 1 0 2 C8 C8 1 2", "0 F0"},
        {"RLE8, cut in a literal run", {40, 8, 1, 4, 1}, {}, four, "0 4 1 2", "F0 F1 0 0"},
        {"24 bits, cut in a row", {40, 24, 0, 2, 2}, {}, {}, "1 1 1 2 2 2 0 0 3 3 3 4", "30303 0 10101 20202"},
    };
}

Status Read(const Bytes& file, Raster& out) {
    const test::GuardedBytes guarded(file.data(), file.size());
    return ReadBmp({guarded.Data(), file.size()}, out);
}

TEST(Bmp, EachKindWholeAndCut) {
    for (const File& file : Files()) {
        Raster out;
        Bytes whole = Build(file);
        const size_t header = whole.size() - Parsed(file.pixels).size();
        for (size_t size = 0; size < whole.size(); ++size)    // a picture or none, nothing else
            EXPECT_EQ(Ok(Read(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)), out)), size > header)
                << file.name << " cut at " << size;
        for (const bool told : {true, false}) {    // where the pixels begin
            if (!told && file.head.bytes != 12)
                std::memset(&whole[10], 0, 4);
            ASSERT_EQ(Read(whole, out), Status::Ok) << file.name;
            const RasterView& view = out.View();
            Words pixels;
            for (uint32_t y = 0; y < view.height; ++y) {
                const auto* row = reinterpret_cast<const uint32_t*>(view.data + static_cast<ptrdiff_t>(y) * view.step);
                pixels.insert(pixels.end(), row, row + view.width);
            }
            EXPECT_EQ(view.width, static_cast<uint32_t>(file.head.width)) << file.name;
            EXPECT_EQ(pixels, Parsed(file.wanted)) << file.name;
        }
    }
}

TEST(Bmp, DamagedFiles) {
    Raster out;
    const File plain{"", {40, 24, 0, 1, 1}, {}, {}, "1 2 3 0", ""};
    const struct {
        const char* what;
        size_t at;
        uint32_t value;
        Status status;
    } rows[] = {{"nothing wrong", 0, 0x4D42, Status::Ok},
                {"other letters", 0, 0x4142, Status::Failed},
                {"header of 16 bytes", 14, 16, Status::Failed},
                {"header beyond the file", 14, 0xFFFFFFFF, Status::Failed},
                {"no width", 18, 0, Status::Failed},
                {"negative width", 18, 0xFFFFFFFF, Status::Failed},
                {"too wide", 18, 16385, Status::Failed},
                {"no height", 22, 0, Status::Failed},
                {"the most negative height", 22, 0x80000000, Status::Failed},
                {"2 bits", 28, 2, Status::Failed},
                {"RLE8 of 24 bits", 30, 1, Status::Failed},
                {"JPEG inside", 30, 4, Status::Failed},
                {"pixels behind the end", 10, 0x7FFFFFFF, Status::Failed}};
    for (const auto& row : rows) {
        Bytes bytes = Build(plain);
        std::memcpy(&bytes[row.at], &row.value, row.at == 0 || row.at == 28 ? 2 : 4);
        EXPECT_EQ(Read(bytes, out), row.status) << row.what;
    }
}

}    // namespace
}    // namespace corvane
