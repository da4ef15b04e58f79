#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "picture/BmpFile.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

using Words = std::vector<uint32_t>;
using Bytes = std::vector<uint8_t>;

// A file put together from its parts, with what it must show: pixels 0x00RRGGBB, first row on top.
struct File {
    const char* name;
    uint32_t headerBytes, bits, compression;
    int32_t width, height;
    Words masks;
    Words palette;
    uint32_t stated;    // entries of the palette by the header
    Bytes pixels;
    Words wanted;
};

Bytes Build(const File& f) {
    Bytes out(14 + f.headerBytes);
    const auto put = [&](size_t at, uint32_t value, int count) { std::memcpy(&out[at], &value, count); };
    put(0, 0x4D42, 2);
    put(14, f.headerBytes, 4);
    if (f.headerBytes == 12) {
        put(18, static_cast<uint32_t>(f.width), 2);
        put(20, static_cast<uint32_t>(f.height), 2);
        put(24, f.bits, 2);
    } else {
        put(18, static_cast<uint32_t>(f.width), 4);
        put(22, static_cast<uint32_t>(f.height), 4);
        put(28, f.bits, 2);
        put(30, f.compression, 4);
        put(46, f.stated, 4);
    }
    for (size_t i = 0; i < f.masks.size(); ++i) {
        if (f.headerBytes == 40)
            out.resize(out.size() + 4);
        put(54 + 4 * i, f.masks[i], 4);
    }
    for (const uint32_t color : f.palette) {
        out.insert(out.end(),
                   {static_cast<uint8_t>(color), static_cast<uint8_t>(color >> 8), static_cast<uint8_t>(color >> 16)});
        if (f.headerBytes != 12)
            out.push_back(99);
    }
    put(10, static_cast<uint32_t>(out.size()), 4);
    out.insert(out.end(), f.pixels.begin(), f.pixels.end());
    return out;
}

constexpr uint32_t kR = 0xFF0000, kG = 0x00FF00, kB = 0x0000FF, kW = 0xFFFFFF;

std::vector<File> Files() {
    const Words four{0, kR, kG, kB};
    return {
        {"1 bit, odd width",
         40,
         1,
         0,
         9,
         2,
         {},
         {kG, kW},
         0,
         {0x80, 0x80, 0, 0, 0x41, 0x7F, 0, 0},
         {kG, kW, kG, kG, kG, kG, kG, kW, kG, kW, kG, kG, kG, kG, kG, kG, kG, kW}},
        {"4 bits, short palette", 40, 4, 0, 3, 1, {}, four, 4, {0x12, 0x9F, 0, 0}, {kR, kG, 0}},
        {"8 bits, old header", 12, 8, 0, 3, 2, {}, four, 0, {3, 2, 1, 0, 0, 1, 2, 0}, {0, kR, kG, kB, kG, kR}},
        {"8 bits, more entries than bits", 64, 8, 0, 1, 1, {}, Words(300, kB), 300, {255, 0, 0, 0}, {kB}},
        {"16 bits 5-5-5, top-down",
         56,
         16,
         0,
         2,
         -2,
         {},
         {},
         0,
         {0x00, 0x7C, 0x10, 0x42, 0xE0, 0x03, 0xFF, 0x7F},
         {kR, 0x848484, kG, kW}},
        {"16 bits 5-6-5",
         40,
         16,
         3,
         1,
         2,
         {0xF800, 0x07E0, 0x001F},
         {},
         0,
         {0x10, 0x84, 0, 0, 0x1F, 0xF8, 0, 0},
         {0xFF00FF, 0x848284}},
        {"16 bits, one bit, none, and 11 bits",
         52,
         16,
         3,
         2,
         1,
         {0x8000, 0, 0x07FF},
         {},
         0,
         {0, 0x84, 0xFF, 0x7F},
         {0xFF0080, 0x0000FF}},
        {"24 bits, old header", 12, 24, 0, 1, 2, {}, {}, 0, {1, 2, 3, 0, 4, 5, 6, 0}, {0x060504, 0x030201}},
        {"24 bits", 124, 24, 0, 3, 1, {}, {}, 0, {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0}, {0x030201, 0x060504, 0x090807}},
        {"32 bits", 40, 32, 0, 1, 1, {}, {}, 0, {1, 2, 3, 4}, {0x030201}},
        {"32 bits 10-10-10",
         108,
         32,
         3,
         2,
         1,
         {0x3FF00000, 0xFFC00, 0x3FF, 0},
         {},
         0,
         {0xFF, 0x03, 0x00, 0x20, 0x00, 0xFC, 0x0F, 0x00},
         {0x8000FF, 0x00FF00}},
        {"32 bits, alpha masks behind the header",
         40,
         32,
         6,
         1,
         1,
         {0xFF, 0xFF00, 0xFF0000, 0xFF000000},
         {},
         0,
         {1, 2, 3, 4},
         {0x010203}},
        {"RLE8 with all its codes",
         40,
         8,
         1,
         4,
         3,
         {},
         four,
         4,
         {3, 1, 0, 0,                 // 1 1 1 -
          0, 3, 2, 3, 1, 99, 1, 2,    // 2 3 1, padded, then 2
          0, 0, 0, 2, 2, 0,  9, 3,    // two to the right, then more than fit
          0, 1, 4, 1},
         {0, 0, kB, kB, kG, kB, kR, kG, kR, kR, kR, 0}},
        {"RLE4",
         64,
         4,
         2,
         5,
         2,
         {},
         four,
         4,
         {5, 0x12, 0, 0, 0, 5, 0x32, 0x10, 0x20, 99, 0, 1},
         {kB, kG, kR, 0, kG, kR, kG, kR, kG, kR}},
        {"RLE8, delta over the end", 40, 8, 1, 1, 2, {}, four, 4, {1, 1, 0, 2, 200, 200, 1, 2}, {0, kR}},
        {"RLE8, cut in a literal run", 40, 8, 1, 4, 1, {}, four, 4, {0, 4, 1, 2}, {kR, kG, 0, 0}},
        {"24 bits, cut in the second row",
         40,
         24,
         0,
         2,
         2,
         {},
         {},
         0,
         {1, 1, 1, 2, 2, 2, 0, 0, 3, 3, 3, 4},
         {0x030303, 0, 0x010101, 0x020202}},
    };
}

Status Read(const Bytes& file, Raster& out) {
    const test::GuardedBytes guarded(file.data(), file.size());
    return ReadBmp({guarded.Data(), file.size()}, out);
}

Words PixelsOf(const RasterView& picture) {
    Words pixels;
    for (uint32_t y = 0; y < picture.height; ++y) {
        const auto* row = reinterpret_cast<const uint32_t*>(picture.data + static_cast<ptrdiff_t>(y) * picture.step);
        pixels.insert(pixels.end(), row, row + picture.width);
    }
    return pixels;
}

TEST(Bmp, EachKind) {
    for (const File& file : Files()) {
        Raster out;
        ASSERT_EQ(Read(Build(file), out), Status::Ok) << file.name;
        EXPECT_EQ(out.View().width, static_cast<uint32_t>(file.width)) << file.name;
        EXPECT_EQ(PixelsOf(out.View()), file.wanted) << file.name;
    }
}

TEST(Bmp, DamagedFiles) {
    Raster out;
    for (const File& file : Files()) {    // cut anywhere: a picture or none, nothing else
        const Bytes whole = Build(file);
        const size_t header = whole.size() - file.pixels.size();
        for (size_t size = 0; size < whole.size(); ++size)
            EXPECT_EQ(Ok(Read(Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size)), out)), size > header)
                << file.name << " cut at " << size;
    }
    const File plain{"", 40, 24, 0, 1, 1, {}, {}, 0, {1, 2, 3, 0}, {}};
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
                {"pixels behind the end", 10, 0x7FFFFFFF, Status::Failed},
                {"pixels not told", 10, 0, Status::Ok}};
    for (const auto& row : rows) {
        Bytes bytes = Build(plain);
        std::memcpy(&bytes[row.at], &row.value, row.at == 0 || row.at == 28 ? 2 : 4);
        EXPECT_EQ(Read(bytes, out), row.status) << row.what;
    }
}

TEST(Bmp, WrittenFilesByTheByte) {
    uint8_t pixels[] = {1, 2, 3, 255, 4, 5, 6, 255, 7, 8, 9, 255, 10, 11, 12, 255};
    ASSERT_EQ(BmpBytes(2, 2), 70u);
    ASSERT_EQ(BmpBytes(16384, 16384), 54 + (uint64_t{1} << 30));
    Bytes out(70);
    WriteBmp({pixels, 8, 2, 2}, out.data());
    const Bytes wanted{'B', 'M', 70, 0, 0,  0, 0, 0, 0, 0, 54, 0,  0,  0, 40, 0, 0, 0, 2, 0, 0, 0, 2, 0,
                       0,   0,   1,  0, 32, 0, 0, 0, 0, 0, 16, 0,  0,  0, 0,  0, 0, 0, 0, 0, 0, 0, 0, 0,
                       0,   0,   0,  0, 0,  0, 7, 8, 9, 0, 10, 11, 12, 0, 1,  2, 3, 0, 4, 5, 6, 0};
    EXPECT_EQ(out, wanted);
}

}    // namespace
}    // namespace corvane
