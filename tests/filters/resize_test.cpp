#include <gtest/gtest.h>

#include <cstring>

#include "base/FailurePoint.h"
#include "filters/ChainFixture.h"
#include "filters/FilterResize.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

using namespace test;
using QMRX::Filter::FilterResize;

int32_t Scale(FilterResize& resize, Decoded& from, Image& to) {
    resize.SetSize(to.width, to.height);
    FilterArgs args{&from.picture, &to.picture, from.frame.width, from.frame.height};
    return resize.Process(&args);
}

TEST(FilterResize, Types) {
    FilterResize resize;
    const struct { uint32_t set, then; } rows[] = {{0, 0}, {3, 3}, {4, 3}, {UINT32_MAX, 3}, {1, 1}, {2, 2}, {0, 0}};
    for (const auto& row : rows) {
        resize.SetType(row.set);
        EXPECT_EQ(resize.GetType(), row.then);
    }

    // A step from black to white, twice as wide: only the nearest neighbour keeps it a step, and the four differ.
    Decoded from(64, 16, false);
    for (uint32_t y = 0; y < 16; ++y)
        for (uint32_t x = 0; x < 64; ++x)
            from.frame.planes[0][y * from.frame.strides[0] + x] = x < 32 ? 0 : 255;
    std::vector<std::vector<uint8_t>> results;
    for (uint32_t type = 0; type < 4; ++type) {
        resize.SetType(type);
        Image to(160, 16, PF_I420);
        ASSERT_EQ(Scale(resize, from, to), 0);
        results.push_back(to.Visible());
        bool between = false;
        for (uint32_t x = 0; x < 160; ++x)
            between |= to.memory.Data()[x] > 8 && to.memory.Data()[x] < 247;
        EXPECT_EQ(between, type != 0);
        for (uint32_t other = 0; other < type; ++other)
            EXPECT_NE(results[other], results[type]) << other << " " << type;
    }
}

TEST(FilterResize, RefusesWhatItCannotScale) {
    FilterResize resize;
    Decoded from(64, 48, false);
    Image to(32, 24, PF_I420);
    from.picture.format = PF_BGR24;
    EXPECT_EQ(Scale(resize, from, to), -1);
    from.picture.format = PF_I420;
    EXPECT_EQ(Scale(resize, from, to), 0);
    failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), 1, false);
    EXPECT_EQ(Scale(resize, from, to), -1);
    failure::Disarm();
    EXPECT_EQ(Scale(resize, from, to), 0);
    for (const auto& [width, height] : {std::pair{0u, 24u}, {32u, 0u}, {16385u, 2u}, {UINT32_MAX, UINT32_MAX}}) {
        FilterArgs args{&from.picture, &to.picture, 64, 48};
        resize.SetSize(width, height);
        EXPECT_EQ(resize.Process(&args), -1);
        FilterArgs hostile{&from.picture, &to.picture, width, height};
        resize.SetSize(32, 24);
        EXPECT_EQ(resize.Process(&hostile), -1);
    }
}

// A picture that lies unaligned comes out as the same picture that lies aligned.
TEST(FilterResize, AlignmentChangesNothing) {
    for (const bool nv12 : {false, true}) {
        for (uint32_t type = 0; type < 4; ++type) {
            SCOPED_TRACE(testing::Message() << nv12 << " " << type);
            FilterResize resize;
            resize.SetType(type);
            Decoded aligned(70, 50, nv12, 5);
            Decoded tight(70, 50, nv12, 5, 0);
            for (int i = 0; i < (nv12 ? 2 : 3); ++i) {
                const uint32_t row = i == 0 || nv12 ? 70 : 35;
                for (uint32_t y = 0; y < (i == 0 ? 50u : 25u); ++y)
                    std::memcpy(tight.frame.planes[i] + size_t{y} * tight.frame.strides[i],
                                aligned.frame.planes[i] + size_t{y} * aligned.frame.strides[i], row);
            }
            const uint32_t format = nv12 ? uint32_t{PF_NV12} : uint32_t{PF_I420};
            Image expected(42, 34, format);
            ASSERT_EQ(Scale(resize, aligned, expected), 0);
            EXPECT_EQ(resize.ScratchBytes(), 0u);
            Image from_tight(42, 34, format);
            ASSERT_EQ(Scale(resize, tight, from_tight), 0);
            EXPECT_GT(resize.ScratchBytes(), 0u);
            EXPECT_EQ(from_tight.Visible(), expected.Visible());
            ASSERT_EQ(Scale(resize, aligned, expected), 0);
            EXPECT_EQ(resize.ScratchBytes(), 0u);
        }
    }
}

// Tight rows and odd heights: not a byte behind the picture is touched, and the terminal stays empty.
TEST(FilterResize, StaysInsideThePicture) {
    testing::internal::CaptureStderr();
    const uint32_t sides[] = {1, 2, 3, 17, 40, 63};
    for (const bool nv12 : {false, true}) {
        for (const uint32_t width : sides) {
            for (const uint32_t height : sides) {
                const uint32_t row = width + width % 2;
                const std::vector<uint8_t> zeros(size_t{row} * height + (nv12 ? row : row / 2 * 2) * (height / 2), 0);
                const GuardedBytes guarded(zeros.data(), zeros.size());
                Picture to{};
                const auto step = static_cast<int32_t>(row);
                uint8_t* chroma = guarded.Data() + size_t{row} * height;
                if (nv12)
                    to = {{guarded.Data(), chroma, nullptr}, {step, step, 0}, height, PF_NV12};
                else
                    to = {{guarded.Data(), chroma, chroma + size_t{row / 2} * (height / 2)},
                          {step, step / 2, step / 2},
                          height,
                          PF_I420};
                for (uint32_t type = 0; type < 4; ++type) {
                    FilterResize resize;
                    resize.SetType(type);
                    resize.SetSize(width, height);
                    Decoded from(33, 21, nv12);
                    for (int i = 0; i < (nv12 ? 2 : 3); ++i)    // the samples that count; the row behind them does not
                        std::memset(from.frame.planes[i], 200, size_t{from.frame.strides[i]} * (i == 0 ? 21 : 10));
                    FilterArgs args{&from.picture, &to, 33, 21};
                    ASSERT_EQ(resize.Process(&args), 0);
                    for (int i = 0; i < 3 && to.plane[i] != nullptr; ++i) {
                        const uint32_t columns = i == 0 ? width : width / 2 * (nv12 ? 2 : 1);
                        for (uint32_t y = 0; y < (i == 0 ? height : height / 2); ++y)
                            for (uint32_t x = 0; x < columns; ++x)
                                ASSERT_NEAR(to.plane[i][ptrdiff_t{to.stride[i]} * y + x], 200, 1)
                                    << width << "x" << height << " plane " << i << " at " << x << ", " << y;
                    }
                }
            }
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}    // namespace
}    // namespace corvane
