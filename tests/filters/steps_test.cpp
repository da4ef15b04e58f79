#include <cmath>
#include <numbers>

#include "base/FailurePoint.h"
#include "filters/ChainFixture.h"
#include "filters/FilterDeInterlace.h"
#include "filters/FilterPixelFormatChange.h"
#include "filters/FilterResize.h"
#include "filters/RotateFilter.h"
#include "support/GuardedBytes.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

using QMRX::Filter::FilterDeInterlace;
using QMRX::Filter::FilterPixelFormatChange;
using QMRX::Filter::FilterResize;
using Bytes = std::vector<uint8_t>;

// Sample by sample as it is defined, on random pictures of all small heights and of widths around vectors; one filter
// in turn, as a chain uses it. Chroma of two rows cannot be smoothed. What lies beside the rows stays as it was.
TEST(DeInterlace, EqualsItsDefinition) {
    FilterDeInterlace filter;
    for (uint32_t run = 0; run < 4 * 37 * 6; ++run) {
        // Heights follow one another in one kind, so that what it keeps meets each of them.
        const bool weave = run / 37 % 4 > 1, smooth = run / 37 % 2 != 0;
        const uint32_t height = 4 + run % 37, width = 31 + run / 148 * 17;
        SCOPED_TRACE(testing::Message() << weave << smooth << " " << width << "x" << height);
        const Decoded from(width, height, false, run);
        Image to(width, height, PF_I420);
        filter.SetWeave(weave);
        filter.SetSmooth(smooth);
        FilterArgs args{&from.picture, &to.picture, width, height};
        const bool can = (weave || smooth) && (!smooth || height >= 6);
        ASSERT_EQ(filter.Process(&args), can ? 0 : -1);
        EXPECT_EQ(filter.ScratchBytes(), weave && smooth ? (width + 63) / 64 * 64 * height * 3 / 2 : 0);
        if (!can)
            continue;
        for (int i = 0; i < 3; ++i) {
            const uint32_t rows = i == 0 ? height : height / 2, columns = i == 0 ? width : width / 2;
            const auto woven = [&](uint32_t y, uint32_t x) -> uint32_t {
                const uint32_t odd = y % 2 == 0 ? 0 : rows / 2, last = rows - 1;
                const uint32_t row = !weave || (y == last && rows % 2 != 0) ? y : y / 2 + odd;
                return from.picture.plane[i][row * static_cast<uint32_t>(from.picture.stride[i]) + x];
            };
            for (uint32_t at = 0; at < rows * columns; ++at) {
                const uint32_t y = at / columns, x = at % columns;
                const bool edge = !smooth || y == 0 || y == rows - 1;
                const uint32_t wanted = edge ? woven(y, x) : (woven(y - 1, x) + woven(y + 1, x) + 2 * woven(y, x)) / 4;
                ASSERT_EQ(to.picture.plane[i][y * static_cast<uint32_t>(to.picture.stride[i]) + x], wanted)
                    << "plane " << i << " row " << y << " column " << x;
            }
            ASSERT_EQ(to.picture.plane[i][columns], 0);
        }
    }
}

int32_t Convert(const Picture& source, Picture destination, uint32_t width, uint32_t height,
                const std::optional<ColourSignal>& colours = {}) {
    FilterArgs args{&source, &destination, width, height};
    FilterPixelFormatChange change;
    change.SetColours(colours);
    return change.Process(&args);
}

// A 2 x 2 picture of Y 100, 120 / 140, 160, U 200, V 50 in each format, worked by hand; the same from three planes and
// two. An odd height: 24 and 32 bit leave the last row unwritten and say so.
TEST(FormatChange, EveryFormat) {
    uint8_t y[] = {100, 120, 140, 160}, u[] = {200}, v[] = {50}, uv[] = {200, 50};
    const Picture planar{{y, u, v}, {2, 1, 1}, 2, PF_I420}, pairs{{y, uv, nullptr}, {2, 2, 0}, 2, PF_NV12};
    const struct {
        uint32_t format;
        int32_t odd;    // what 4 x 5 answers
        Bytes wanted;
    } rows[] = {
        {PF_I420, 0, {100, 120, 140, 160, 200, 50}},
        {PF_YV12, 0, {100, 120, 140, 160, 50, 200}},
        {PF_NV12, 0, {100, 120, 140, 160, 200, 50}},
        {PF_YUY2, 0, {100, 200, 120, 50, 140, 200, 160, 50}},
        {PF_UYVY, 0, {200, 100, 50, 120, 200, 140, 50, 160}},
        {PF_BGR24, -1, {228, 131, 0, 248, 151, 11, 255, 171, 31, 255, 191, 51}},
        {PF_BGR24_FLIP, -1, {255, 171, 31, 255, 191, 51, 228, 131, 0, 248, 151, 11}},
        {PF_RGB24, -1, {0, 131, 228, 11, 151, 248, 31, 171, 255, 51, 191, 255}},
        {PF_BGRA32, -1, {228, 131, 0, 0, 248, 151, 11, 0, 255, 171, 31, 0, 255, 191, 51, 0}},
        {PF_BGRA32_FLIP, -1, {255, 171, 31, 0, 255, 191, 51, 0, 228, 131, 0, 0, 248, 151, 11, 0}},
        {PF_RGBA32, -1, {0, 131, 228, 0, 11, 151, 248, 0, 31, 171, 255, 0, 51, 191, 255, 0}},
        // R G B 11 116 246, 31 136 255, 51 156 255, 71 176 255.
        {PF_RGB565, 0, {0xBE, 0x0B, 0x5F, 0x1C, 0xFF, 0x34, 0x9F, 0x45}},
        {PF_BGR565, 0, {0xA1, 0xF3, 0x43, 0xFC, 0xE6, 0xFC, 0x88, 0xFD}},
        {PF_RGB555, 0, {0xDE, 0x05, 0x3F, 0x0E, 0x7F, 0x1A, 0xDF, 0x22}},
        {PF_BGR555, 0, {0xC1, 0x79, 0x23, 0x7E, 0x66, 0x7E, 0xC8, 0x7E}},
    };
    const Bytes rgb565{0x1C, 0x04, 0xBF, 0x0C, 0x5F, 0x1D, 0xFF, 0x35};    // by full-range BT.601
    for (const auto& row : rows) {
        const bool planes = row.wanted.size() == 6, nv12 = row.format == PF_NV12;
        for (const Picture& source : {planar, pairs}) {
            Bytes got(row.wanted.size(), 0xCC);
            Picture to{{got.data(), nullptr, nullptr}, {static_cast<int32_t>(got.size() / 2), 0, 0}, 2, row.format};
            if (planes)
                to = {{got.data(), &got[4], nv12 ? nullptr : &got[5]}, {2, nv12 ? 2 : 1, nv12 ? 0 : 1}, 2, row.format};
            EXPECT_EQ(Convert(source, to, 2, 2), 0) << "format " << row.format << " from " << source.format;
            EXPECT_EQ(got, row.wanted) << "format " << row.format << " from " << source.format;
            EXPECT_EQ(Convert(source, to, 2, 2, ColourSignal()), 0);
            EXPECT_TRUE(row.format == PF_RGB565 ? got == rgb565 : got == row.wanted || got.size() == 8) << row.format;
            to.plane[0] = nullptr;
            EXPECT_EQ(Convert(source, to, 2, 2), -1) << row.format;
            EXPECT_EQ(Convert({{}, {2, 2, 2}, 2, source.format}, to, 2, 2), -1) << row.format;
        }
        Image to(8, 8, row.format);
        EXPECT_EQ(Convert(Decoded(5, 5, false).picture, to.picture, 4, 5), row.odd) << row.format;
    }
    for (const uint32_t bad : {0u, 2u, 10u, 18u}) {
        Picture to{{y, u, v}, {2, 1, 1}, 2, bad};
        EXPECT_EQ(Convert(to, planar, 2, 2), -1) << bad;
        EXPECT_EQ(Convert(planar, to, 2, 2), -1) << bad;
        EXPECT_EQ(Convert(pairs, to, 2, 2), -1) << bad;
    }
}

int32_t Scale(FilterResize& resize, const Decoded& from, Picture& to, uint32_t width, uint32_t height) {
    resize.SetSize(width, height);
    FilterArgs args{&from.picture, &to, from.view.size.width, from.view.size.height};
    return resize.Process(&args);
}

// The four kinds differ, and a picture that lies unaligned comes out as the same picture that lies aligned.
TEST(FilterResize, TypesAndAlignment) {
    for (const bool nv12 : {false, true}) {
        FilterResize resize;
        const Decoded aligned(70, 50, nv12, 4), tight(70, 50, nv12, 4, false);
        std::vector<Bytes> results;
        for (const uint32_t type : {0u, 1u, 2u, 3u, 4u}) {    // 4 changes nothing
            resize.SetType(type);
            Image to(42, 34, aligned.picture.format), fromTight(42, 34, aligned.picture.format);
            ASSERT_EQ(Scale(resize, tight, fromTight.picture, 42, 34), 0);
            ASSERT_EQ(Scale(resize, aligned, to.picture, 42, 34), 0);
            EXPECT_EQ(fromTight.Visible(), to.Visible());
            const auto equal = std::ranges::find(results, to.Visible());
            EXPECT_EQ(equal - results.begin(), std::min(type, 3u)) << nv12 << type;
            results.push_back(to.Visible());
        }
        Image to(32, 24, aligned.picture.format);
        for (const auto& [width, height] : {std::pair{0u, 24u}, {32u, 0u}, {16385u, 2u}, {UINT32_MAX, UINT32_MAX}})
            EXPECT_EQ(Scale(resize, aligned, to.picture, width, height), -1);
    }
}

// The nearest sample is libswscale's choice, to the byte: growing and shrinking, by whole numbers and not.
TEST(FilterResize, NearestIsTheScalersChoice) {
    std::mt19937 random(1);
    const auto side = [&](uint32_t most) { return 1 + static_cast<uint32_t>(random()) % most; };
    std::vector<std::array<uint32_t, 4>> sizes = {{1920, 1080, 960, 540}, {1920, 1080, 480, 270}, {16384, 2, 4001, 2},
                                                  {300, 16384, 20, 777},  {64, 4, 16384, 2},      {70, 50, 70, 48}};
    while (sizes.size() < 150)
        sizes.push_back({side(300), 2 * side(99), side(random() % 2 == 0 ? 40 : 500), 2 * side(150)});
    for (const auto& [width, height, toWidth, toHeight] : sizes)
        for (const bool nv12 : {false, true}) {
            const Decoded from(width, height, nv12, width);
            Image got(toWidth, toHeight, from.picture.format), wanted(toWidth, toHeight, from.picture.format);
            FilterResize resize;
            ASSERT_EQ(Scale(resize, from, got.picture, toWidth, toHeight), 0);
            failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), 1, false);    // no tables: the scaler
            ASSERT_EQ(Scale(resize, from, wanted.picture, toWidth, toHeight), 0);
            failure::Disarm();
            ASSERT_EQ(got.Visible(), wanted.Visible())
                << width << "x" << height << " to " << toWidth << "x" << toHeight << (nv12 ? " pairs" : "");
        }
}

// Tight rows and odd heights: not a byte behind the picture is touched, and the terminal stays empty. One row has no
// colour.
TEST(FilterResize, StaysInsideThePicture) {
    testing::internal::CaptureStderr();
    const uint32_t sides[] = {1, 2, 3, 17, 40, 63};
    for (uint32_t run = 0; run < 6 * 6 * 16; ++run) {
        const bool nv12 = run % 2 != 0;
        const uint32_t width = sides[run / 16 % 6], height = sides[run / 96], row = width + width % 2;
        const uint32_t fromHeight = run / 8 % 2 == 0 ? 21 : 1;
        const Bytes zeros(size_t{row} * height + row * (height / 2), 0);
        const GuardedBytes guarded(zeros.data(), zeros.size());
        Picture to = RecordOf(LayOut(guarded.Data(), row, {width, height}, nv12 ? PF_NV12 : PF_I420));
        to.plane[2] = nv12 ? nullptr : to.plane[1] + size_t{row / 2} * (height / 2);
        FilterResize resize;
        resize.SetType(run / 2 % 4);
        const Decoded from(33, fromHeight, nv12);
        for (int i = 0; i < (nv12 ? 2 : 3); ++i)    // the samples that count; the row behind them does not
            for (uint32_t y = 0; y < (i == 0 ? fromHeight : fromHeight / 2); ++y)
                std::memset(from.view.plane[i] + y * from.view.stride[i], 200, nv12 || i == 0 ? 33 + i : 17);
        ASSERT_EQ(Scale(resize, from, to, width, height), 0);
        for (int i = 0; i < (nv12 ? 2 : 3); ++i) {
            const uint32_t columns = i == 0 ? width : width / 2 * (nv12 ? 2 : 1);
            for (uint32_t at = 0; at < columns * (i == 0 ? height : height / 2); ++at)
                ASSERT_NEAR(to.plane[i][at / columns * static_cast<uint32_t>(to.stride[i]) + at % columns],
                            i > 0 && fromHeight == 1 ? 128 : 200, 1)
                    << width << "x" << height << " plane " << i << " at " << at;
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Rotate, OutputSizeAndRefusals) {
    const std::tuple<double, PictureSize, PictureSize> rows[] = {
        {-450, {1920, 1080}, {1080, 1920}}, {180, {101, 51}, {102, 52}}, {45, {100, 100}, {142, 142}},
        {30, {200, 100}, {222, 186}},       {45, {1, 1}, {2, 2}},        {10, {1u << 31, 480}, {0, 0}}};
    for (const auto& [angle, size, out] : rows)
        EXPECT_EQ(RotateFilter(angle).OutputSize(size), out) << angle;
    RotateFilter filter(33);
    for (const uint32_t format : {0u, 3u, 9u, 15u, 17u, uint32_t{PF_NV12}})
        EXPECT_FALSE(filter.Lend({64, 48}, format)) << format;
    EXPECT_FALSE(filter.Lend({0, 48}, PF_I420) || filter.Lend({16384, 4097}, PF_I420));
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
        const PictureView lent = filter.Lend({width, height}, format);
        ASSERT_TRUE(lent);
        const auto [outWidth, outHeight] = filter.OutputSize({width, height});
        const uint32_t bytes = planar ? 1 : 3;
        const GuardedBytes out(std::vector<uint8_t>(PictureBytes(format, outWidth, outHeight), 77));
        PictureView room = LayOut(out.Data(), RowBytes(format, outWidth), {outWidth, outHeight}, format);
        const bool flipped = format == PF_BGR24_FLIP;
        const Picture from = RecordOf(flipped ? lent.Reversed() : lent);    // as rows lie
        const Picture to = RecordOf(flipped ? room.Reversed() : room);
        for (int plane = 0; plane < (planar ? 3 : 1); ++plane)
            for (int at = 0, row = from.stride[plane]; at < static_cast<int>(height) / (plane > 0 ? 2 : 1) * row;
                 ++at) {
                const int i = at % row, unit = static_cast<int>(bytes), slope = i / unit + i % unit * 10 + at / row * 2;
                from.plane[plane][at] = static_cast<uint8_t>((whole ? at * 7 + at / 251 : slope) + 20 * plane);
            }
        PictureView other = room;
        other.format = planar ? PF_NV12 : PF_BGRA32;
        filter.Rotate(other);    // nothing
        EXPECT_EQ(out.Data()[0], 77);
        filter.Rotate(room);
        ASSERT_EQ(filter.Lend({width, height}, format).plane[0], lent.plane[0]);    // the same keeps its picture
        const double turn = (flipped ? -angle : angle) * std::numbers::pi / 180;    // as rows lie
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

}    // namespace
}    // namespace corvane::test
