#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numbers>
#include <vector>

#include "corvane/corvane.h"
#include "filters/RotateFilter.h"

namespace corvane {
namespace {

TEST(Rotate, OutputSize) {
    struct {
        double angle;
        uint32_t width, height, out_width, out_height;
    } const rows[] = {
        {0, 1920, 1080, 1920, 1080},
        {90, 1920, 1080, 1080, 1920},
        {-450, 1920, 1080, 1080, 1920},
        {180, 101, 51, 102, 52},
        {45, 100, 100, 142, 142},
        {30, 200, 100, 222, 186},
        {1e-9, 640, 480, 640, 480},
        {360, 640, 480, 640, 480},
        {45, 1, 1, 2, 2},
        {std::numeric_limits<double>::quiet_NaN(), 640, 480, 640, 480},
        {std::numeric_limits<double>::infinity(), 640, 480, 640, 480},
        {10, 0, 480, 0, 0},
        {10, 1u << 31, 480, 0, 0},
    };
    for (const auto& row : rows) {
        uint32_t width = 7, height = 7;
        RotateFilter(row.angle).OutputSize(row.width, row.height, &width, &height);
        EXPECT_EQ(width, row.out_width) << row.angle;
        EXPECT_EQ(height, row.out_height) << row.angle;
    }
}

TEST(Rotate, AllocateRefusesKeepsAndReplaces) {
    RotateFilter filter(90);
    uint8_t pixel = 5;
    uint8_t* buffer = nullptr;
    uint32_t stride = 0;
    filter.Rotate(&pixel, 1, PF_I420, 1, 1);    // nothing to rotate yet
    EXPECT_EQ(pixel, 5);
    for (const uint32_t format : {0u, 3u, 9u, 15u, 17u, uint32_t{PF_NV12}})
        EXPECT_EQ(filter.Allocate(64, 48, format, &buffer, &stride), -1) << format;
    EXPECT_EQ(filter.Allocate(0, 48, PF_I420, &buffer, &stride), -1);
    EXPECT_EQ(filter.Allocate(64, 1u << 30, PF_I420, &buffer, &stride), -1);
    for (const uint32_t format : {PF_I420, PF_YV12, PF_BGR24, PF_BGR24_FLIP, PF_RGB24}) {
        ASSERT_EQ(filter.Allocate(65, 48, format, &buffer, &stride), 0) << format;
        EXPECT_EQ(stride, format == PF_I420 || format == PF_YV12 ? 128u : 196u);
        buffer[0] = 77;
        uint8_t* again = nullptr;
        ASSERT_EQ(filter.Allocate(65, 48, format, &again, &stride), 0);
        EXPECT_EQ(again, buffer);
        EXPECT_EQ(again[0], 77);
    }
}

// A quarter turn of a positive angle is clockwise and exact, also where the rows stand bottom-up.
TEST(Rotate, QuarterTurnsOfRgb) {
    struct {
        double angle;
        std::vector<int> wanted;    // first bytes of the pixels, in reading order
    } const rows[] = {{0, {1, 2, 3, 4, 5, 6, 7, 8}},
                      {1e-6, {1, 2, 3, 4, 5, 6, 7, 8}},
                      {90, {5, 1, 6, 2, 7, 3, 8, 4}},
                      {180, {8, 7, 6, 5, 4, 3, 2, 1}},
                      {-90, {4, 8, 3, 7, 2, 6, 1, 5}}};
    for (const auto& row : rows) {
        for (const bool flip : {false, true}) {
            const uint32_t format = flip ? PF_BGR24_FLIP : PF_RGB24;
            RotateFilter filter(33);
            filter.SetAngle(row.angle);
            uint8_t* buffer = nullptr;
            uint32_t stride = 0, width = 0, height = 0;
            ASSERT_EQ(filter.Allocate(4, 2, format, &buffer, &stride), 0);
            for (uint32_t i = 0; i < 8; ++i) {
                const uint32_t y = flip ? 1 - i / 4 : i / 4;
                buffer[y * stride + i % 4 * 3] = static_cast<uint8_t>(i + 1);
                buffer[y * stride + i % 4 * 3 + 2] = static_cast<uint8_t>(100 + i);
            }
            filter.OutputSize(4, 2, &width, &height);
            std::vector<uint8_t> out(16 * 5, 99);
            filter.Rotate(out.data(), 16, PF_BGR24, width, height);    // another format: nothing
            EXPECT_EQ(out, std::vector<uint8_t>(16 * 5, 99));
            filter.Rotate(out.data(), 16, format, width, height);
            for (uint32_t i = 0; i < 8; ++i) {
                const uint32_t y = flip ? height - 1 - i / width : i / width;
                EXPECT_EQ(out[y * 16 + i % width * 3], row.wanted[i])
                    << row.angle << " flip " << flip << " pixel " << i;
                EXPECT_EQ(out[y * 16 + i % width * 3 + 2], row.wanted[i] + 99);
            }
            EXPECT_EQ(out[width * 3], 99);
            EXPECT_EQ(out[16 * height], 99);
        }
    }
}

// Bilinear interpolation keeps a plane of constant slope: every pixel can be worked out from the angle alone.
TEST(Rotate, SlopesOfAllPlanes) {
    for (const double angle : {-170.0, -45.0, 10.0, 60.0, 117.3}) {
        RotateFilter filter(angle);
        uint8_t* buffer = nullptr;
        uint32_t stride = 0, width = 0, height = 0;
        constexpr uint32_t kWidth = 80, kHeight = 60;
        ASSERT_EQ(filter.Allocate(kWidth, kHeight, PF_I420, &buffer, &stride), 0);
        for (uint32_t y = 0; y < kHeight * 3 / 2; ++y) {
            for (uint32_t x = 0; x < stride; ++x) {
                const uint32_t column = y < kHeight ? x : x % (stride / 2);
                const uint32_t row = y < kHeight ? y : ((y - kHeight) * 2 + x / (stride / 2)) % (kHeight / 2);
                buffer[y * stride + x] = static_cast<uint8_t>(column + 2 * row);
            }
        }
        filter.OutputSize(kWidth, kHeight, &width, &height);
        const uint32_t out_stride = (width + 63) & ~63u;
        std::vector<uint8_t> out(size_t{out_stride} * height * 3 / 2, 7);
        filter.Rotate(out.data(), out_stride, PF_I420, width, height);
        for (const uint32_t half : {1u, 2u}) {
            const uint8_t* plane = half == 1 ? out.data() : out.data() + size_t{out_stride} * height * 5 / 4;    // Y, V
            const double right = kWidth / half - 1, bottom = kHeight / half - 1;
            const double sine = std::sin(angle * std::numbers::pi / 180),
                         cosine = std::cos(angle * std::numbers::pi / 180);
            const double left_edge = std::min({0.0, cosine * right, -sine * bottom, cosine * right - sine * bottom});
            const double top_edge = std::min({0.0, sine * right, cosine * bottom, sine * right + cosine * bottom});
            uint32_t inside = 0;
            for (uint32_t y = 0; y < height / half; ++y) {
                for (uint32_t x = 0; x < width / half; ++x) {
                    const double source_x = cosine * (x + left_edge) + sine * (y + top_edge);
                    const double source_y = -sine * (x + left_edge) + cosine * (y + top_edge);
                    const int got = plane[y * (out_stride / half) + x];
                    const double outside = std::max({-source_x, source_x - right, -source_y, source_y - bottom});
                    if (outside < -0.01) {
                        ASSERT_NEAR(got, source_x + 2 * source_y, 0.6)
                            << angle << " at " << x << ", " << y << " of 1/" << half;
                        ++inside;
                    } else if (outside > 0.01) {
                        ASSERT_EQ(got, half == 1 ? 0 : 128) << angle << " at " << x << ", " << y << " of 1/" << half;
                    }
                }
            }
            EXPECT_GT(inside, kWidth * kHeight / half / half * 9 / 10) << angle;
        }
    }
}

}    // namespace
}    // namespace corvane
