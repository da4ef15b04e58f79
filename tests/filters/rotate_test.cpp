#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

#include "corvane/corvane.h"
#include "filters/FilterChain.h"
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

// A positive angle turns clockwise, also where the rows stand bottom-up. Whole quarters only move pixels; else bilinear
// interpolation keeps a plane of constant slope, so that every pixel can be worked out from the angle alone. What the
// even box leaves over is black or without colour.
TEST(Rotate, EveryPixelComesFromItsPlace) {
    const auto check = [](uint32_t width, uint32_t height, double angle, uint32_t format) {
        SCOPED_TRACE(testing::Message() << width << "x" << height << " by " << angle << ", format " << format);
        const bool planar = format == PF_YV12, whole = std::fmod(angle, 90) == 0;
        RotateFilter filter(33);
        filter.SetAngle(angle);
        uint8_t* buffer = nullptr;
        uint32_t step = 0, outWidth = 0, outHeight = 0;
        ASSERT_EQ(filter.Allocate(width, height, format, &buffer, &step), 0);
        filter.OutputSize(width, height, &outWidth, &outHeight);
        const uint32_t outStep = RowBytes(format, outWidth), bytes = planar ? 1 : 3;
        const test::GuardedBytes out(std::vector<uint8_t>(PictureBytes(format, outWidth, outHeight), 77));
        QMRX::Filter::Picture from, to;
        FillPicture(from, buffer, step, height, format);
        FillPicture(to, out.Data(), outStep, outHeight, format);
        for (int plane = 0; plane < (planar ? 3 : 1); ++plane)
            for (int at = 0, row = from.stride[plane]; at < static_cast<int>(height) / (plane > 0 ? 2 : 1) * row;
                 ++at) {
                const int i = at % row, unit = static_cast<int>(bytes), slope = i / unit + i % unit * 10 + at / row * 2;
                from.plane[plane][at] = static_cast<uint8_t>((whole ? at * 7 + at / 251 : slope) + 20 * plane);
            }
        filter.Rotate(out.Data(), outStep, PF_BGR24, outWidth, outHeight);    // another format: nothing
        EXPECT_EQ(out.Data()[0], 77);
        filter.Rotate(out.Data(), outStep, format, outWidth, outHeight);
        ASSERT_EQ(filter.Allocate(width, height, format, &buffer, &step), 0);    // the same keeps its picture
        const double turn = (format == PF_BGR24_FLIP ? -angle : angle) * std::numbers::pi / 180;    // as rows lie
        const double s = std::sin(turn), c = std::cos(turn);
        for (int plane = 0; plane < (planar ? 3 : 1); ++plane) {
            const uint32_t half = plane > 0 ? 2 : 1, row = outWidth / half * bytes;
            const double right = width / half - 1.0, bottom = height / half - 1.0;
            const double leftEdge = std::min({0.0, c * right, -s * bottom, c * right - s * bottom});
            const double topEdge = std::min({0.0, s * right, c * bottom, s * right + c * bottom});
            for (uint32_t at = 0; at < outHeight / half * row; ++at) {
                const uint32_t y = at / row, i = at % row, x = i / bytes;
                const double fromX = c * (x + leftEdge) + s * (y + topEdge);
                const double fromY = -s * (x + leftEdge) + c * (y + topEdge);
                const double outside = std::max({-fromX, fromX - right, -fromY, fromY - bottom});
                const int got = to.plane[plane][y * static_cast<uint32_t>(to.stride[plane]) + i];
                const auto place = std::lround(fromY) * from.stride[plane] + std::lround(fromX) * bytes + i % bytes;
                if (outside > 0.01)
                    ASSERT_EQ(got, plane > 0 ? 128 : 0) << x << ", " << y;
                else if (whole)
                    ASSERT_EQ(got, from.plane[plane][place]) << x << ", " << y;
                else if (outside < -0.01)
                    ASSERT_NEAR(got, fromX + 2 * fromY + i % bytes * 10 + 20 * plane, 0.6) << x << ", " << y;
            }
        }
    };
    for (const auto& [width, height] : {std::pair(101u, 51u), {64u, 33u}, {7u, 1u}, {1u, 2u}, {80u, 60u}})
        for (const double angle : {90.0, 180.0, 270.0, -170.0, -45.0, 10.0, 60.0, 117.3})
            for (const uint32_t format : {PF_YV12, PF_RGB24, PF_BGR24_FLIP})
                ASSERT_NO_FATAL_FAILURE(check(width, height, angle, format));
}

TEST(Rotate, Refusals) {
    RotateFilter filter(33);
    uint8_t* buffer = nullptr;
    uint32_t stride = 0;
    for (const uint32_t format : {0u, 3u, 9u, 15u, 17u, uint32_t{PF_NV12}})
        EXPECT_EQ(filter.Allocate(64, 48, format, &buffer, &stride), -1) << format;
    EXPECT_EQ(filter.Allocate(0, 48, PF_I420, &buffer, &stride), -1);
    EXPECT_EQ(filter.Allocate(16384, 4097, PF_I420, &buffer, &stride), -1);
}

}    // namespace
}    // namespace corvane
