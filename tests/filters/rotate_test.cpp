#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

#include "corvane/corvane.h"
#include "filters/RotateFilter.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

TEST(Rotate, OutputSize) {
    const std::array<double, 5> rows[] = {
        {-450, 1920, 1080, 1080, 1920}, {180, 101, 51, 102, 52}, {45, 100, 100, 142, 142},
        {30, 200, 100, 222, 186},       {45, 1, 1, 2, 2},        {10, 1u << 31, 480, 0, 0}};
    for (const auto& [angle, width, height, outWidth, outHeight] : rows) {
        uint32_t w = 7, h = 7;
        RotateFilter(angle).OutputSize(static_cast<uint32_t>(width), static_cast<uint32_t>(height), &w, &h);
        EXPECT_EQ(std::pair(w, h), std::pair(static_cast<uint32_t>(outWidth), static_cast<uint32_t>(outHeight)))
            << angle;
    }
}

// A quarter turn of a positive angle is clockwise and exact, also where the rows stand bottom-up.
TEST(Rotate, QuarterTurnsAndRefusals) {
    const struct {
        double angle;
        std::vector<int> wanted;    // first bytes of the pixels, in reading order
    } rows[] = {{1e-6, {1, 2, 3, 4, 5, 6, 7, 8}},
                {90, {5, 1, 6, 2, 7, 3, 8, 4}},
                {180, {8, 7, 6, 5, 4, 3, 2, 1}},
                {-90, {4, 8, 3, 7, 2, 6, 1, 5}}};
    RotateFilter filter(33);
    uint8_t* buffer = nullptr;
    uint32_t stride = 0;
    std::vector<uint8_t> out(16 * 5, 99);
    for (const auto& row : rows) {
        for (const uint32_t format : {PF_BGR24_FLIP, PF_RGB24}) {
            SCOPED_TRACE(testing::Message() << row.angle << " format " << format);
            filter.SetAngle(row.angle);
            ASSERT_EQ(filter.Allocate(4, 2, format, &buffer, &stride), 0);
            const auto at = [&](uint32_t i, uint32_t width, uint32_t step) {    // of pixel i
                return (format == PF_RGB24 ? i / width : 8 / width - 1 - i / width) * step + i % width * 3;
            };
            for (uint32_t i = 0; i < 8; ++i)
                buffer[at(i, 4, stride)] = buffer[at(i, 4, stride) + 2] = static_cast<uint8_t>(i + 1);
            uint32_t width = 0, height = 0;
            filter.OutputSize(4, 2, &width, &height);
            std::fill(out.begin(), out.end(), 99);
            filter.Rotate(out.data(), 16, PF_BGR24, width, height);    // another format: nothing
            EXPECT_EQ(out, std::vector<uint8_t>(16 * 5, 99));
            filter.Rotate(out.data(), 16, format, width, height);
            for (uint32_t i = 0; i < 8; ++i)
                EXPECT_EQ(out[at(i, width, 16)] * 100 + out[at(i, width, 16) + 2], row.wanted[i] * 101) << i;
            EXPECT_EQ(out[width * 3] + out[16 * height], 198);
            ASSERT_EQ(filter.Allocate(4, 2, format, &buffer, &stride), 0);    // the same keeps its picture
            EXPECT_EQ(buffer[at(7, 4, stride)], 8);
        }
    }
    for (const uint32_t format : {0u, 3u, 9u, 15u, 17u, uint32_t{PF_NV12}})
        EXPECT_EQ(filter.Allocate(64, 48, format, &buffer, &stride), -1) << format;
    EXPECT_EQ(filter.Allocate(0, 48, PF_I420, &buffer, &stride), -1);
    EXPECT_EQ(filter.Allocate(16384, 4097, PF_I420, &buffer, &stride), -1);
}

// Sides of odd length leave a last column or row of the even box over, which is black or without colour.
TEST(Rotate, TurnsOfOddSizes) {
    for (const auto& [width, height] : {std::pair(101u, 51u), {64u, 33u}, {7u, 1u}, {1u, 2u}})
        for (const int angle : {90, 180, 270}) {
            SCOPED_TRACE(testing::Message() << width << "x" << height << " by " << angle);
            RotateFilter filter(angle);
            uint8_t* buffer = nullptr;
            uint32_t stride = 0, outWidth = 0, outHeight = 0;
            ASSERT_EQ(filter.Allocate(width, height, PF_YV12, &buffer, &stride), 0);
            for (uint32_t i = 0; i < stride * height * 3 / 2; ++i)
                buffer[i] = static_cast<uint8_t>(i * 7 + i / 251);
            filter.OutputSize(width, height, &outWidth, &outHeight);
            const uint32_t outStride = (outWidth + 63) & ~63u;
            const test::GuardedBytes out(std::vector<uint8_t>(size_t{outStride} * outHeight * 3 / 2, 77));
            filter.Rotate(out.Data(), outStride, PF_YV12, outWidth, outHeight);
            for (uint32_t plane = 0; plane < 3; ++plane) {
                const uint32_t half = plane == 0 ? 1 : 2, part = plane == 0 ? 0 : 3 + plane;    // quarters in front
                const uint8_t* const from = buffer + stride * height * part / 4;
                const uint8_t* const to = out.Data() + outStride * outHeight * part / 4;
                const uint32_t columns = width / half, rows = height / half;
                for (uint32_t y = 0; y < outHeight / half; ++y)
                    for (uint32_t x = 0; x < outWidth / half; ++x) {
                        const uint32_t fromX = angle == 90 ? y : angle == 180 ? columns - 1 - x : columns - 1 - y;
                        const uint32_t fromY = angle == 90 ? rows - 1 - x : angle == 180 ? rows - 1 - y : x;
                        const bool inside = fromX < columns && fromY < rows;
                        ASSERT_EQ(to[y * (outStride / half) + x], inside       ? from[fromY * (stride / half) + fromX]
                                                                  : plane == 0 ? 0
                                                                               : 128)
                            << "plane " << plane << " at " << x << ", " << y;
                    }
            }
        }
}

// Bilinear interpolation keeps a plane of constant slope: every pixel can be worked out from the angle alone.
TEST(Rotate, SlopesOfAllPlanes) {
    constexpr uint32_t kWidth = 80, kHeight = 60, kStride = 128;
    for (const double angle : {-170.0, -45.0, 10.0, 60.0, 117.3}) {
        RotateFilter filter(angle);
        uint8_t* buffer = nullptr;
        uint32_t stride = 0, width = 0, height = 0;
        ASSERT_EQ(filter.Allocate(kWidth, kHeight, PF_I420, &buffer, &stride), 0);
        ASSERT_EQ(stride, kStride);
        for (uint32_t i = 0; i < kStride * kHeight; ++i)    // Y, and V at half its size
            buffer[i] = static_cast<uint8_t>(i % kStride + 2 * (i / kStride));
        for (uint32_t i = 0; i < kStride * kHeight / 4; ++i)
            buffer[kStride * kHeight * 5 / 4 + i] = static_cast<uint8_t>(i % (kStride / 2) + 2 * (i / (kStride / 2)));
        filter.OutputSize(kWidth, kHeight, &width, &height);
        const uint32_t outStride = (width + 63) & ~63u;
        std::vector<uint8_t> out(size_t{outStride} * height * 3 / 2, 7);
        filter.Rotate(out.data(), outStride, PF_I420, width, height);
        for (const uint32_t half : {1u, 2u}) {
            const uint8_t* plane = half == 1 ? out.data() : out.data() + size_t{outStride} * height * 5 / 4;
            const double right = kWidth / half - 1, bottom = kHeight / half - 1;
            const double s = std::sin(angle * std::numbers::pi / 180), c = std::cos(angle * std::numbers::pi / 180);
            const double leftEdge = std::min({0.0, c * right, -s * bottom, c * right - s * bottom});
            const double topEdge = std::min({0.0, s * right, c * bottom, s * right + c * bottom});
            for (uint32_t at = 0; at < height / half * (width / half); ++at) {
                const uint32_t x = at % (width / half), y = at / (width / half);
                const double fromX = c * (x + leftEdge) + s * (y + topEdge);
                const double fromY = -s * (x + leftEdge) + c * (y + topEdge);
                const double outside = std::max({-fromX, fromX - right, -fromY, fromY - bottom});
                if (std::abs(outside) < 0.01)
                    continue;
                ASSERT_NEAR(plane[y * (outStride / half) + x],
                            outside < 0 ? fromX + 2 * fromY
                            : half == 1 ? 0
                                        : 128,
                            0.6)
                    << angle << " at " << x << ", " << y << " of 1/" << half;
            }
        }
    }
}

}    // namespace
}    // namespace corvane
