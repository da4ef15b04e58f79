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

// A positive angle turns clockwise, also where the rows stand bottom-up, and whole quarters only move pixels. Sides of
// odd length leave a last column or row of the even box over, which is black or without colour.
TEST(Rotate, WholeQuarters) {
    struct Plane {
        uint32_t at, to, step, outStep, width, height, bytes;
        int around;
    };
    for (const auto& [width, height] : {std::pair(101u, 51u), {64u, 33u}, {7u, 1u}, {1u, 2u}})
        for (const int angle : {90, 180, 270})
            for (const uint32_t format : {PF_YV12, PF_RGB24, PF_BGR24_FLIP}) {
                SCOPED_TRACE(testing::Message() << width << "x" << height << " by " << angle << ", format " << format);
                RotateFilter filter(33);
                filter.SetAngle(angle);
                uint8_t* buffer = nullptr;
                uint32_t step = 0, outWidth = 0, outHeight = 0;
                ASSERT_EQ(filter.Allocate(width, height, format, &buffer, &step), 0);
                const bool planar = format == PF_YV12;
                for (uint32_t i = 0; i < step * height * 3 / (planar ? 2 : 3); ++i)
                    buffer[i] = static_cast<uint8_t>(i * 7 + i / 251);
                filter.OutputSize(width, height, &outWidth, &outHeight);
                const uint32_t outStep = RowBytes(format, outWidth);
                const test::GuardedBytes out(std::vector<uint8_t>(PictureBytes(format, outWidth, outHeight), 77));
                filter.Rotate(out.Data(), outStep, PF_BGR24, outWidth, outHeight);    // another format: nothing
                EXPECT_EQ(out.Data()[0], 77);
                filter.Rotate(out.Data(), outStep, format, outWidth, outHeight);
                ASSERT_EQ(filter.Allocate(width, height, format, &buffer, &step), 0);    // the same keeps its picture
                const uint32_t luma = step * height, outLuma = outStep * outHeight;
                std::vector<Plane> planes{{0, 0, step, outStep, width, height, planar ? 1u : 3u, 0}};
                for (const uint32_t quarter : {4u, 5u})
                    if (planar)
                        planes.push_back({luma * quarter / 4, outLuma * quarter / 4, step / 2, outStep / 2, width / 2,
                                          height / 2, 1, 128});
                const bool flip = format == PF_BGR24_FLIP;
                const int turn = flip ? 360 - angle : angle;    // as the rows lie in memory
                for (const Plane& p : planes)
                    for (uint32_t y = 0; y < (p.around == 0 ? outHeight : outHeight / 2); ++y)
                        for (uint32_t i = 0; i < (p.around == 0 ? outWidth : outWidth / 2) * p.bytes; ++i) {
                            const uint32_t x = i / p.bytes;
                            const uint32_t fromX = turn == 90 ? y : turn == 180 ? p.width - 1 - x : p.width - 1 - y;
                            const uint32_t fromY = turn == 90 ? p.height - 1 - x : turn == 180 ? p.height - 1 - y : x;
                            const bool inside = fromX < p.width && fromY < p.height;
                            ASSERT_EQ(out.Data()[p.to + y * p.outStep + i],
                                      inside ? buffer[p.at + fromY * p.step + fromX * p.bytes + i % p.bytes] : p.around)
                                << x << ", " << y;
                        }
            }
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
