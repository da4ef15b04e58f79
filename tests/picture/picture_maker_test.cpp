#include <gtest/gtest.h>

#include <cstring>
#include <span>
#include <vector>

#include "corvane/corvane.h"
#include "picture/BmpFile.h"
#include "picture/OverlayBlend.h"
#include "picture/PictureMaker.h"
#include "support/BareDecoder.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

struct Lent {
    uint8_t* data = nullptr;
    uint32_t stride = 0;
    uint32_t format = 0;
};

Lent Lend(IPictureMaker& maker, uint32_t width, uint32_t height) {
    Lent lent;
    EXPECT_EQ(maker.GetBuffer(width, height, &lent.data, &lent.stride, &lent.format), 0);
    return lent;
}

// Asked again it lends the same memory and gives the same out, and a size that is refused changes nothing.
void ExpectKept(IPictureMaker& maker, const Lent& lent, uint32_t width, uint32_t height) {
    const uint8_t* const output = maker.GetData();
    EXPECT_EQ(Lend(maker, width, height).data, lent.data);
    maker.Make();
    EXPECT_EQ(maker.GetData(), output);
    Lent none;
    for (const auto& [badWidth, badHeight] : {std::pair{16385u, 1u}, {0u, 16u}})
        EXPECT_EQ(maker.GetBuffer(badWidth, badHeight, &none.data, &none.stride, &none.format), -1);
    EXPECT_TRUE(maker.GetWidth() == width && maker.GetHeight() == height);
}

TEST(PictureMaker, RawFormatsLoseThePadding) {
    EXPECT_EQ(MakePicture(0), nullptr);
    EXPECT_EQ(MakePicture(19), nullptr);
    enum Planes { Packed, Planar, SemiPlanar };
    const struct {
        uint32_t number, format, rowAlignment, bytesPerPixel;
        Planes planes;
    } rows[] = {{1, PF_YUY2, 32, 2, Packed},     {2, PF_RGB565, 4, 2, Packed}, {3, PF_BGR24, 4, 3, Packed},
                {4, PF_BGRA32, 4, 4, Packed},    {9, PF_RGB555, 4, 2, Packed}, {11, PF_I420, 64, 1, Planar},
                {12, PF_BGR565, 4, 2, Packed},   {13, PF_RGB24, 4, 3, Packed}, {14, PF_RGBA32, 4, 4, Packed},
                {15, PF_BGR555, 4, 2, Packed},   {16, PF_YV12, 64, 1, Planar}, {17, PF_UYVY, 32, 2, Packed},
                {18, PF_NV12, 32, 1, SemiPlanar}};
    for (const auto& row : rows)
        for (const auto& [width, height] : {std::pair(1u, 1u), {7u, 5u}, {66u, 4u}, {33u, 3u}}) {
            SCOPED_TRACE(testing::Message() << row.number << " " << width << "x" << height);
            const PictureMakerPtr maker = MakePicture(row.number);
            ASSERT_NE(maker, nullptr);
            EXPECT_EQ(maker->GetData(), nullptr);
            const Lent lent = Lend(*maker, width, height);
            for (size_t i = 0; i < size_t{lent.stride} * height * (row.planes == Packed ? 2 : 3) / 2; ++i)
                lent.data[i] = static_cast<uint8_t>(i * 7 + i / 251 + 1);    // padding included
            EXPECT_EQ(lent.format, row.format);
            EXPECT_EQ(lent.stride,
                      (width * row.bytesPerPixel + row.rowAlignment - 1) / row.rowAlignment * row.rowAlignment);
            maker->SetPrefix(3);
            maker->Make();
            std::vector<uint8_t> wanted(3);
            const auto append = [&](size_t at, size_t step, size_t bytes, size_t count) {
                for (size_t y = 0; y < count; ++y)
                    wanted.insert(wanted.end(), lent.data + at + y * step, lent.data + at + y * step + bytes);
            };
            append(0, lent.stride, size_t{width} * row.bytesPerPixel,
                   row.planes == SemiPlanar ? height * 3 / 2 : height);
            if (row.planes == Planar)
                for (const size_t quarter : {4u, 5u})
                    append(lent.stride * height * quarter / 4, lent.stride / 2, width / 2, height / 2);
            if (row.planes != Packed)
                wanted.resize(3 + size_t{width} * height * 3 / 2);    // what an odd size leaves over
            EXPECT_EQ(std::vector<uint8_t>(maker->GetData(), maker->GetData() + maker->GetSize()), wanted);
            ExpectKept(*maker, lent, width, height);
        }
}

TEST(PictureMaker, BitmapFilesReadBack) {
    const struct {
        uint32_t number, header;
        std::vector<uint8_t> pixel;    // the top left one
        uint32_t color;                // 0x00RRGGBB
    } rows[] = {{5, 70, {0x1F, 0xFC}, 0xFF82FF},
                {10, 70, {0xF0, 0x7F}, 0xFFFF84},
                {6, 54, {1, 2, 3}, 0x030201},
                {7, 54, {4, 5, 6, 0}, 0x060504}};
    for (const auto& row : rows)
        for (const auto& [width, height] : {std::pair(1u, 1u), {5u, 3u}}) {
            SCOPED_TRACE(testing::Message() << row.number << " " << width << "x" << height);
            const PictureMakerPtr maker = MakePicture(row.number);
            const Lent lent = Lend(*maker, width, height);
            std::ranges::copy(row.pixel, lent.data + (row.header == 54 ? size_t{lent.stride} * (height - 1) : 0));
            maker->SetPrefix(16);
            maker->Make();
            const std::span out(maker->GetData(), maker->GetSize());
            const uint32_t image = lent.stride * height;
            ASSERT_EQ(out.size(), 16 + row.header + image);
            EXPECT_EQ(out[16 + 26], 1) << "plane";
            for (const auto& [at, wanted] : {std::pair(2, row.header + image), {14, row.header - 14}, {34, image}}) {
                uint32_t value;
                std::memcpy(&value, &out[static_cast<size_t>(16 + at)], 4);
                EXPECT_EQ(value, wanted) << at;
            }
            Raster read;
            ASSERT_EQ(ReadBmp(out.subspan(16), read), Status::Ok);
            EXPECT_EQ(read.View().width, width);
            uint32_t pixel;
            std::memcpy(&pixel, read.View().data, 4);
            EXPECT_EQ(pixel, row.color);
            ExpectKept(*maker, lent, width, height);
        }
}

// The colours of flat pictures of any size survive, the odd last row and column included.
TEST(PictureMaker, JpegOfOddSizes) {
    for (const auto& [width, height] : {std::pair(1u, 1u), {2u, 1u}, {17u, 9u}, {64u, 16u}, {65u, 31u}}) {
        const PictureMakerPtr maker = MakePicture(8);
        const Lent lent = Lend(*maker, width, height);
        const size_t luma = size_t{lent.stride} * height, chroma = lent.stride / 2 * size_t{height / 2};
        std::memset(lent.data, 90, luma);
        std::memset(lent.data + luma, 60, chroma);
        std::memset(lent.data + luma * 5 / 4, 200, chroma);
        maker->SetPrefix(5);
        maker->Make();
        ASSERT_GT(maker->GetSize(), 600u);
        const auto pictures = test::BareDecode(
            CORVANE_STREAM_JPEG, {{{maker->GetData() + 5, maker->GetData() + maker->GetSize()}, true, 0, 0}});
        ASSERT_EQ(pictures.size(), 1u);
        ExpectKept(*maker, lent, width, height);
        const AVFrame& picture = *pictures[0];
        ASSERT_TRUE(picture.width == static_cast<int>(width) && picture.height == static_cast<int>(height));
        const int wanted[3] = {90, chroma == 0 || width < 2 ? 128 : 60, chroma == 0 || width < 2 ? 128 : 200};
        for (int plane = 0; plane < 3; ++plane)
            for (int y = 0; y < (plane == 0 ? picture.height : (picture.height + 1) / 2); ++y)
                for (int x = 0; x < (plane == 0 ? picture.width : (picture.width + 1) / 2); ++x)
                    ASSERT_NEAR(picture.data[plane][y * picture.linesize[plane] + x], wanted[plane], 2)
                        << width << "x" << height << ": plane " << plane << " at " << x << ", " << y;
    }
}

TEST(OverlayBlend, DrawnPixelsReplace) {
    Raster drawing;
    ASSERT_TRUE(drawing.Resize(5, 3));    // odd: the last row and column of PF_I420 are not touched
    const auto draw = [&](uint32_t x, uint32_t y, uint32_t pixel) {
        std::memcpy(drawing.View().data + static_cast<ptrdiff_t>(y) * drawing.View().step + 4 * x, &pixel, 4);
    };
    draw(0, 0, 0xFFFF0000);    // red
    draw(1, 0, 0xFF000000);    // black with cairo's alpha: nothing drawn
    draw(3, 1, 0xFF00FF00);    // green
    draw(2, 1, 0xFF000001);    // drawn, but too dark for the luma
    draw(4, 1, 0xFFFFFFFF);    // in the column and the row that odd sizes lose
    draw(3, 2, 0xFFFFFFFF);

    std::vector<uint8_t> bgr(16 * 3, 9), wanted = bgr;
    const auto put = [&](size_t x, size_t y, std::vector<uint8_t> color) {
        std::ranges::copy(color, wanted.begin() + static_cast<ptrdiff_t>((2 - y) * 16 + 3 * x));
    };
    put(0, 0, {0, 0, 255});
    put(3, 1, {0, 255, 0});
    put(2, 1, {1, 0, 0});
    put(4, 1, {255, 255, 255});
    put(3, 2, {255, 255, 255});
    const auto blended = [&](const std::vector<uint8_t>& picture, uint32_t stride, uint32_t format) {
        const test::GuardedBytes memory(picture);
        EXPECT_EQ(BlendOverlay(drawing.View(), memory.Data(), stride, format), format != PF_YV12);
        return std::vector<uint8_t>(memory.Data(), memory.Data() + picture.size());
    };
    EXPECT_EQ(blended(bgr, 16, PF_BGR24_FLIP), wanted);

    const size_t u = 64 * 3, v = u + 48;
    std::vector<uint8_t> planes(v + 48, 103);
    std::fill(planes.begin() + v, planes.end(), uint8_t{60});
    wanted = planes;
    wanted[0] = 76;
    wanted[64 + 3] = 150;
    wanted[u] = (85 + 3 * 103) / 4;    // the means leave remainders of 2 and 3
    wanted[v] = (255 + 3 * 60) / 4;
    wanted[u + 1] = (44 + 3 * 103) / 4;
    wanted[v + 1] = (21 + 3 * 60) / 4;
    EXPECT_EQ(blended(planes, 64, PF_I420), wanted);
    EXPECT_EQ(blended(planes, 64, PF_YV12), planes);
}

}    // namespace
}    // namespace corvane
