#include <hwy/highway.h>
#include <hwy/targets.h>

#include "base/AlignedBuffer.h"
#include "kernels/Deinterlace.h"
#include "kernels/FullRangeBt601.h"
#include "kernels/JpegBlocks.h"
#include "kernels/PackedYuv.h"
#include "kernels/PlaneCopy.h"
#include "kernels/PlaneShrink.h"
#include "kernels/Rotation.h"
#include "kernels/SemiPlanar.h"
#include "kernels/Stretch.h"
#include "kernels/YCbCrToRGB.h"
#include "kernels/YUVToRGB16.h"
#include "support/Plane.h"
#include "support/Testing.h"

namespace corvane::kernels {
namespace {

using test::Fill;
using test::PoisonedPlane;
using test::SourcePlane;
using At = test::GuardedBytes::At;

struct Sources {
    Sources(uint32_t width, uint32_t height, uint32_t gap, Fill fill, At at, uint32_t seed)
        : size{width, height},
          y(width, height, gap, fill, seed, at),
          u((width + 1) / 2, (height + 1) / 2, gap, fill, seed + 1, at),
          v((width + 1) / 2, (height + 1) / 2, 2 * gap, fill, seed + 2, at),
          uv((width + 1) / 2 * 2, (height + 1) / 2, 3 * gap, fill, seed + 3, at) {}
    PictureView View(bool planar, const std::optional<ColourSignal>& colours = {}) {
        if (planar)
            return {{y.Data(), u.Data(), v.Data()}, {y.Step(), u.Step(), v.Step()}, size, PF_I420, colours};
        return {{y.Data(), uv.Data()}, {y.Step(), uv.Step()}, size, PF_NV12, colours};
    }
    PictureSize size;
    SourcePlane y, u, v, uv;
};

PictureView To(PoisonedPlane& plane, uint32_t width, uint32_t height, uint32_t format) {
    return {{plane.Data()}, {plane.Step()}, {width, height}, format};
}

// To RGB of any format, with 0x5A in bytes to spare.
int32_t ToRgb(bool plain, const ConstPictureView& from, const PictureView& to, bool streaming = false) {
    if (PixelBytes(to.format) == 2)
        return (plain ? &ref::YUVToRGB16 : &YUVToRGB16)(from, to);
    return (plain ? &ref::YCbCrToRGB : &YCbCrToRGB)(from, to, {0x5A, streaming});
}

// One kernel in both forms, into one plane of `pixelBytes` a pixel.
struct Kernel {
    uint32_t pixelBytes;
    std::function<int32_t(bool plain, Sources&, PoisonedPlane&, uint32_t w, uint32_t h)> run;
};

std::vector<Kernel> Kernels() {
    std::vector<Kernel> kernels;
    const auto add = [&](uint32_t pixelBytes, auto run) { kernels.push_back({pixelBytes, run}); };
    constexpr ColourSignal kSignal{ColourSignal::Matrix::Bt2020, false};
    for (const bool planar : {true, false}) {
        for (const auto& colours : {std::optional<ColourSignal>(), std::optional(kSignal)})
            for (const uint32_t format :
                 {PF_BGR24, PF_RGB24, PF_BGRA32, PF_RGBA32, PF_RGB555, PF_RGB565, PF_BGR555, PF_BGR565})
                add(PixelBytes(format), [=](bool plain, Sources& s, PoisonedPlane& out, uint32_t w, uint32_t h) {
                    PictureView to = To(out, w, h, format);
                    if (PixelBytes(format) == 2)    // words begin at even addresses
                        to.plane[0] -= reinterpret_cast<uintptr_t>(to.plane[0]) & 1;
                    return ToRgb(plain, s.View(planar, colours), to);
                });
        for (const uint32_t format : {PF_YUY2, PF_UYVY})
            add(2, [=](bool plain, Sources& s, PoisonedPlane& out, uint32_t w, uint32_t h) {
                const auto convert = plain               ? &ref::ToPacked
                                     : format == PF_YUY2 ? (planar ? &PlanarToYUY2 : &NV12ToYUY2)
                                                         : (planar ? &PlanarToUYVY : &NV12ToUYVY);
                return convert(s.View(planar), To(out, w, h, format));
            });
    }
    for (const uint32_t weight : {0u, 1u, 128u, 256u, 999u})
        add(1, [=](bool plain, Sources& s, PoisonedPlane& out, uint32_t w, uint32_t h) {
            if (!plain)
                return SmoothPlane(s.y.Data(), s.y.Step(), out.Data(), out.Step(), w, h, weight);
            for (uint32_t y = 0; y < h && h >= 3; ++y)
                if (y == 0 || y + 1 == h)
                    std::copy_n(s.y.Row(y), w, out.Row(y));
                else
                    ref::SmoothRow(s.y.Row(y - 1), s.y.Row(y), s.y.Row(y + 1), out.Row(y), w, std::min(weight, 256u));
            return h < 3 ? kRefused : kDone;
        });
    add(1, [](bool plain, Sources& s, PoisonedPlane& out, uint32_t w, uint32_t h) {
        return plain ? ref::PlaneCopy(s.y.Data(), s.y.Step(), out.Data(), out.Step(), w, h)
                     : PlaneCopy(s.y.Data(), s.y.Step(), out.Data(), out.Step(), w, h, 0);
    });
    // Between three planes and two, which lie side by side, one at twice the step.
    add(4, [](bool plain, Sources& s, PoisonedPlane& out, uint32_t w, uint32_t h) {
        uint8_t *const u = out.Data() + 2 * w, *const v = u + w;
        if (!plain)
            return NV12ToI420(s.View(false),
                              {{out.Data(), u, v}, {out.Step(), 2 * out.Step(), out.Step()}, {w, h}, PF_I420});
        for (uint32_t y = 0; y < h / 2; ++y)
            ref::SplitRow(s.uv.Row(y), out.Row(2 * y) + 2 * w, out.Row(y) + 3 * w, (w + 1) / 2);
        return ref::PlaneCopy(s.y.Data(), s.y.Step(), out.Data(), out.Step(), w, h);
    });
    add(4, [](bool plain, Sources& s, PoisonedPlane& out, uint32_t w, uint32_t h) {
        if (!plain)
            return I420ToNV12(s.View(true),
                              {{out.Data(), out.Data() + 2 * w}, {out.Step(), 2 * out.Step()}, {w, h}, PF_NV12});
        ref::PlaneCopy(s.y.Data(), s.y.Step(), out.Data(), out.Step(), w & ~1u, h & ~1u);
        for (uint32_t y = 0; y < h / 2; ++y)
            ref::MergeRow(s.u.Row(y), s.v.Row(y), out.Row(2 * y) + 2 * w, w / 2);
        return w < 2 || h < 2 ? kRefused : kDone;
    });
    return kernels;
}

void Compare(const Kernel& kernel, Sources& sources, uint32_t width, uint32_t height, uint32_t gap, bool aligned) {
    PoisonedPlane got(width * kernel.pixelBytes, height, gap, aligned), wanted = got;
    const int32_t result = kernel.run(false, sources, got, width, height);
    EXPECT_EQ(result, kernel.run(true, sources, wanted, width, height));
    EXPECT_TRUE(got.Equals(wanted)) << kernel.pixelBytes << " bytes a pixel, " << width << "x" << height;
}

// By the instruction sets that this processor has.
class EachTarget : public testing::TestWithParam<int64_t> {
protected:
    void SetUp() override { hwy::SetSupportedTargetsForTest(GetParam()); }
    void TearDown() override { hwy::SetSupportedTargetsForTest(0); }
};

INSTANTIATE_TEST_SUITE_P(Targets, EachTarget, testing::ValuesIn(hwy::SupportedAndGeneratedTargets()),
                         [](const auto& target) { return std::string(hwy::TargetName(target.param)); });

TEST_P(EachTarget, FastFormsEqualPlainForms) {
    // Up to two vectors of 64 bytes and one more, and the seams of the blocks that long rows are worked in.
    std::vector<std::pair<uint32_t, uint32_t>> sizes = {{66, 1},   {66, 2},   {66, 3},   {66, 4},   {66, 5},
                                                        {2047, 3}, {2048, 3}, {2049, 3}, {2050, 3}, {4099, 3}};
    for (uint32_t width = 1; width <= 129; ++width)
        sizes.emplace_back(width, 1 + width % 5);
    const std::vector<Kernel> kernels = Kernels();
    for (const auto& [width, height] : sizes)
        for (const auto& [fill, at] : {std::pair{Fill::Random, At::End}, {Fill::Extremes, At::Begin}}) {
            Sources sources(width, height, width % 4, fill, at, width * 8 + height);
            for (const Kernel& kernel : kernels)
                // An even step also where pixels are words.
                Compare(kernel, sources, width, height, (width & 1) == 0 ? 0 : 6, false);
        }
    // Rows on vectors' boundaries, which planes of a mebibyte leave past the cache, but for a last vector; tight rows,
    // which are copied as one run.
    for (const auto& [width, height] : {std::pair{1056u, 995u}, {1088u, 966u}}) {
        Sources sources(width, height, width % 64, Fill::Random, At::End, width);
        for (const Kernel& kernel : kernels)
            Compare(kernel, sources, width, height, width % 64 * kernel.pixelBytes % 64, true);
    }
    uint8_t byte = 0;
    for (const ptrdiff_t step : {1, 2}) {    // one run, and rows
        EXPECT_EQ(PlaneCopy(nullptr, step, &byte, step, 1, 1, 0), kRefused);
        EXPECT_EQ(PlaneCopy(&byte, step, nullptr, step, 1, 1, 0), kRefused);
        EXPECT_EQ(PlaneCopy(nullptr, step, nullptr, step, 1, 0, 0), kDone);
    }
}

// Rows of up to 21 blocks; divisors from 2 on.
TEST_P(EachTarget, BlocksOfTheJpegEncoder) {
    std::mt19937 random(3);
    for (uint32_t turn = 0; turn < 300; ++turn) {
        const uint32_t count = 1 + turn % 21;
        SourcePlane samples(8 * count, 8, turn % 3, turn % 2 == 0 ? Fill::Random : Fill::Extremes, turn,
                            turn % 4 < 2 ? At::End : At::Begin);
        if (turn % 7 == 0)    // of one level: magnitudes that end in eight zeros
            std::fill(samples.Data(), samples.Row(7) + 8 * count, static_cast<uint8_t>(turn / 7 * 32));
        uint16_t reciprocals[64];
        for (uint16_t& r : reciprocals)
            r = static_cast<uint16_t>(65536 / (turn % 5 == 0 ? 2 : 2 + random() % 254));
        std::vector<int16_t> got(64 * count), wanted(got.size());
        std::vector<uint64_t> gotBits(count), wantedBits(count);
        QuantizeBlocks(samples.Data(), samples.Step(), count, reciprocals, got.data(), gotBits.data());
        ref::QuantizeBlocks(samples.Data(), samples.Step(), count, reciprocals, wanted.data(), wantedBits.data());
        ASSERT_TRUE(got == wanted && gotBits == wantedBits) << "turn " << turn;
    }
}

// Every (Y, U, V): the split arithmetic of the fast forms has no value left out.
TEST_P(EachTarget, EveryTripleOfSamples) {
    constexpr uint32_t kSide = 512;
    std::vector<uint8_t> y(kSide * kSide), u(256 * 256), v(256 * 256);
    for (uint32_t i = 0; i < 256 * 256; ++i) {
        u[i] = static_cast<uint8_t>(i);
        v[i] = static_cast<uint8_t>(i >> 8);
    }
    PictureView source{{y.data(), u.data(), v.data()}, {kSide, 256, 256}, {kSide, kSide}, PF_I420};
    std::vector<uint8_t> wanted(kSide * kSide * 4);
    AlignedBuffer got;    // stores past the cache need whole vectors
    ASSERT_TRUE(got.Allocate(wanted.size()));
    for (uint32_t base = 0; base < 256; base += 4) {
        for (uint32_t i = 0; i < kSide * kSide; ++i)
            y[i] = static_cast<uint8_t>(base + i % 2 + i / kSide % 2 * 2);
        for (const uint32_t format : {PF_BGR24, PF_BGRA32, PF_RGB565})
            for (uint32_t kind = format == PF_BGR24 ? 0 : 5; kind < 7; ++kind) {
                source.colours.reset();
                if (kind < 6)
                    source.colours = {static_cast<ColourSignal::Matrix>(kind / 2), kind % 2 != 0};
                const uint32_t step = kSide * PixelBytes(format);
                for (uint8_t* const out : {got.Data(), wanted.data()})
                    ToRgb(out != got.Data(), source, {{out}, {step}, source.size, format}, true);
                ASSERT_TRUE(std::equal(got.Data(), got.Data() + kSide * step, wanted.begin())) << format << kind;
            }
    }
}

// R, G and B by the equations of a Recommendation, in integers, and what is 1 there.
std::array<int64_t, 4> ExactRgb(const ColourSignal& signal, int64_t y, int64_t u, int64_t v) {
    constexpr int64_t kWeights[3][2] = {{2990, 1140}, {2126, 722}, {2627, 593}};    // in 1/10000
    const auto [red, blue] = kWeights[static_cast<size_t>(signal.matrix)];
    const int64_t green = 10000 - red - blue, one = int64_t{219} * 112 * 10000 * green;
    const int64_t luma = signal.fullRange ? y * one : (y - 16) * 255 * (one / 219);
    const int64_t half = signal.fullRange ? 2 * 219 * 112 : 255 * 219;
    const int64_t toRed = half * (10000 - red) * (v - 128), toBlue = half * (10000 - blue) * (u - 128);
    return {luma + toRed * green, luma - red * toRed - blue * toBlue, luma + toBlue * green, one};
}
bool IsNear(uint8_t got, int64_t exact, int64_t one) {
    return std::abs(got * one - std::clamp<int64_t>(exact, 0, 255 * one)) <= one / 100 * 53;
}

// Every triple to RGB; planes of odd sizes and of more than one block to full-range BT.601.
TEST(Colours, KeepToTheRecommendations) {
    constexpr uint32_t kSizes[][2] = {{1, 1}, {1, 4}, {5, 1}, {3, 3}, {64, 64}, {1023, 4}, {1025, 5}, {2049, 3}};
    for (uint32_t kind = 0; kind < 6; ++kind) {
        const ColourSignal signal{static_cast<ColourSignal::Matrix>(kind / 2), kind % 2 != 0};
        for (int32_t i = 0; i < 1 << 24; ++i) {
            const auto [red, green, blue, one] = ExactRgb(signal, i >> 16, i >> 8 & 255, i & 255);
            const Rgb rgb = MatrixOf(signal).ToRgb(i >> 16, i >> 8 & 255, i & 255);
            const bool good = IsNear(rgb.red, red, one) && IsNear(rgb.green, green, one) && IsNear(rgb.blue, blue, one);
            ASSERT_TRUE(good) << i;
        }
        for (const auto& [width, height] : kSizes) {
            Sources from(width, height, 1, Fill::Random, At::End, kind),
                to(width, height, 1, Fill::Random, At::End, kind);
            ToFullRangeBt601(to.View(true, signal));
            const bool grey = width < 2 || height < 2;
            for (uint32_t i = 0; i < width * height; ++i) {
                const uint32_t x = grey ? 0 : std::min(i % width / 2, width / 2 - 1);
                const uint32_t y = grey ? 0 : std::min(i / width / 2, height / 2 - 1);
                const auto [red, green, blue, one] =
                    ExactRgb(signal, from.y.Row(i / width)[i % width], grey ? 128 : from.u.Row(y)[x],
                             grey ? 128 : from.v.Row(y)[x]);
                const int64_t luma = 299 * red + 587 * green + 114 * blue;
                ASSERT_TRUE(IsNear(to.y.Row(i / width)[i % width], luma, 1000 * one))
                    << width << "x" << height << ": " << i;
                ASSERT_TRUE(grey || IsNear(to.u.Row(y)[x], 1000 * blue - luma + 128 * 1772 * one, 1772 * one));
                ASSERT_TRUE(grey || IsNear(to.v.Row(y)[x], 1000 * red - luma + 128 * 1402 * one, 1402 * one));
            }
        }
    }
}

struct Scaling {
    uint32_t width, height, toWidth, toHeight, clipX, clipY, columns, rows;
};

// 64 bytes behind the source may be read, of what is only copied none; none in front of it, where it is turned over.
void CheckScaling(const Scaling& s, uint32_t bytes, bool bottomUp, Fill fill) {
    const uint32_t left = bytes == 3 ? 2 : 0;
    const uint32_t step = (s.width + left) * bytes + (bytes == 3 ? 5 : 0);
    const bool same = s.width == s.toWidth && s.height == s.toHeight;
    const SourcePlane pixels(step, s.height, 0, fill, s.width + s.toWidth * 3 + bytes, bottomUp ? At::Begin : At::End,
                             bytes == 4 && same ? 0 : 64);
    const uint8_t* const top = bottomUp ? pixels.Row(s.height - 1) : pixels.Data();
    const ConstPictureView source{{top + left * bytes},
                                  {bottomUp ? -ptrdiff_t{step} : ptrdiff_t{step}},
                                  {s.width, s.height},
                                  bytes == 3 ? PF_BGR24 : PF_BGRA32};
    PoisonedPlane got(s.columns * 4, s.rows, 7), wanted = got;
    PoisonedPlane aligned(s.columns * 4, s.rows, -(s.columns * 4) & 63, true);    // stored past the cache
    const Rect whole = Rect{0, 0, s.toWidth, s.toHeight}.Moved(-int64_t{s.clipX}, -int64_t{s.clipY});
    const auto to = [&](PoisonedPlane& plane) { return To(plane, s.columns, s.rows, PF_BGRA32); };
    ASSERT_TRUE(Stretch(source, to(got), whole) && Stretch(source, to(aligned), whole));
    ref::Stretch(source, to(wanted), whole);
    for (uint32_t y = 0; y < s.rows; ++y)
        for (uint32_t x = 0; x < s.columns * 4; ++x) {
            ASSERT_LE(std::abs(got.At(x, y) - wanted.At(x, y)), x % 4 == 3 || same ? 0 : 2) << x << ", " << y;
            ASSERT_EQ(aligned.At(x, y), got.At(x, y)) << x << ", " << y;
            got.Row(y)[x] = wanted.At(x, y);
        }
    ASSERT_TRUE(got.Equals(wanted));    // what is left to differ is what lies around
}

TEST_P(EachTarget, ScalingKeepsToItsDefinition) {
    std::vector<Scaling> scalings = {{67, 5, 67, 5, 13, 1, 3, 4},
                                     {90, 61, 59, 40, 5, 3, 50, 30},
                                     {200, 100, 10, 5, 3, 2, 6, 2},
                                     {61, 41, 90, 60, 31, 7, 33, 9},
                                     {13, 6, 300, 2, 250, 0, 50, 2},
                                     {9, 1, 9, 70, 2, 69, 7, 1},
                                     {2, 2, 4000000000u, 4000000000u, 1999999990u, 1999999990u, 20, 20}};
    constexpr uint32_t kWhole[][4] = {
        {1, 1, 1, 1},           {67, 5, 67, 5},         {90, 60, 60, 40},  {71, 9, 67, 8},   {97, 30, 51, 15},
        {33, 7, 16, 14},        {99, 33, 33, 11},       {120, 40, 29, 11}, {41, 41, 2, 3},   {400, 3, 4, 3},
        {3, 390, 5, 4},         {50, 20, 1, 1},         {300, 250, 1, 1},  {60, 40, 90, 60}, {60, 7, 61, 7},
        {60, 7, 60, 8},         {20, 1, 20, 6},         {1, 9, 70, 9},     {1, 1, 40, 3},    {70, 40, 70, 13},
        {1030, 700, 1030, 700}, {1500, 1050, 1024, 700}};    // past the cache
    for (const auto& [width, height, toWidth, toHeight] : kWhole)
        scalings.push_back({width, height, toWidth, toHeight, 0, 0, toWidth, toHeight});
    for (const Scaling& s : scalings)
        for (uint32_t kind = 0; kind < 8; ++kind) {
            const bool bottomUp = (kind & 1) != 0, extremes = (kind & 2) != 0;
            if (s.columns > 1000 && bottomUp == extremes)
                continue;    // the plain form takes long
            SCOPED_TRACE(testing::Message() << "row " << &s - scalings.data() << ", kind " << kind);
            ASSERT_NO_FATAL_FAILURE(CheckScaling(s, 3 + kind / 4, bottomUp, extremes ? Fill::Extremes : Fill::Random));
        }
}

// Worked in bands, as callers do.
TEST_P(EachTarget, PlanesShrinkByTheirDefinition) {
    constexpr uint32_t kSizes[][4] = {{67, 5, 67, 5},   {90, 60, 60, 40}, {97, 30, 51, 15},  {33, 9, 32, 9},
                                      {128, 9, 64, 9},  {99, 33, 33, 11}, {120, 40, 29, 11}, {400, 3, 4, 3},
                                      {3, 390, 3, 4},   {70, 40, 1, 1},   {1, 1, 1, 1},      {640, 20, 366, 11},
                                      {641, 7, 367, 6}, {300, 8, 45, 8},  {130, 66, 129, 65}};
    for (const auto& [width, height, toWidth, toHeight] : kSizes)
        for (uint32_t kind = 0; kind < 8; ++kind) {
            const uint32_t channels = 1 + kind / 4;
            const SourcePlane pixels(width * channels, height, 3, kind % 2 == 0 ? Fill::Random : Fill::Extremes,
                                     width + toWidth, kind / 2 % 2 == 0 ? At::End : At::Begin);
            const ShrinkSizes sizes{width, height, toWidth, toHeight, channels};
            const uint32_t step = (toWidth * channels + 63) / 64 * 64;
            std::vector<uint8_t> got(size_t{step} * toHeight + 1, 7), wanted(got);
            PlaneShrink shrink;
            ASSERT_TRUE(shrink.Make(sizes));
            for (uint32_t row = 0; row < toHeight; row += 3)
                shrink.Rows(pixels.Data(), pixels.Step(), row, std::min(3u, toHeight - row), &got[row * size_t{step}],
                            step);
            ref::ShrinkRows(sizes, pixels.Data(), pixels.Step(), 0, toHeight, wanted.data(), step);
            const int tolerance = width == toWidth && height == toHeight ? 0 : 2;
            for (size_t i = 0; i < got.size(); ++i)
                if (i % step < toWidth * channels || i + 1 == got.size())
                    ASSERT_LE(std::abs(got[i] - wanted[i]), tolerance) << toWidth << "x" << toHeight << " at " << i;
        }
}

// Whole quarters, as a picture is turned (pixels on pixels) and a bit aside, and any other angle; into rooms that are
// too small, too large and shifted.
TEST_P(EachTarget, RotationsEqualThePlainForm) {
    std::mt19937 random(7);
    const auto upTo = [&](uint32_t most) { return static_cast<uint32_t>(random()) % (most + 1); };
    for (uint32_t turn = 0; turn < 1500; ++turn) {
        const uint32_t channels = turn % 2 == 0 ? 1 : 1 + upTo(3), most = turn % 8 == 0 ? 150 : 45;
        const uint32_t width = 1 + upTo(most), height = 1 + upTo(most), kind = upTo(9);
        const double angle = kind < 8 ? upTo(8) * 90.0 - 360 : upTo(719999) / 1000.0 - 360;
        Rotation rotation = Rotation::About(angle, width / 2.0, height / 2.0);
        const RotationBounds bounds = BoundsOf(rotation, width, height);
        rotation.shiftX += (kind == 0 ? upTo(20) - 10.0 : 0) + (kind == 1 ? upTo(8) / 8.0 : 0) - bounds.minX;
        rotation.shiftY += (kind == 0 ? upTo(20) - 10.0 : 0) + (kind == 2 ? upTo(8) / 8.0 : 0) - bounds.minY;
        const auto side = [&](double low, double high) {
            return static_cast<uint32_t>(std::max(1.0, high - low + 1 + (kind == 3 ? upTo(9) - 4.0 : upTo(2))));
        };
        const uint32_t outWidth = side(bounds.minX, bounds.maxX), outHeight = side(bounds.minY, bounds.maxY);
        const SourcePlane source(width * channels, height, upTo(2), turn % 3 == 0 ? Fill::Extremes : Fill::Random, turn,
                                 upTo(1) == 0 ? At::End : At::Begin);
        PoisonedPlane got(outWidth * channels, outHeight, upTo(3)), wanted = got;
        const ConstPlaneView from{source.Data(), source.Step(), {width, height}, channels};
        const auto to = [&](PoisonedPlane& plane) {
            return PlaneView{plane.Data(), plane.Step(), {outWidth, outHeight}, channels};
        };
        ASSERT_EQ(RotateBilinear(from, to(got), rotation), kDone);
        ASSERT_EQ(ref::RotateBilinear(from, to(wanted), rotation), kDone);
        ASSERT_TRUE(got.Equals(wanted)) << turn << ": " << angle << " of " << width << "x" << height << " by "
                                        << channels << " to " << outWidth << "x" << outHeight;
    }
}

// The definitions themselves, on rows worked by hand; the other axis takes the same steps.
TEST(Stretch, DefinitionByHand) {
    const struct {
        std::vector<uint8_t> from, to;
    } rows[] = {{{10, 20, 30}, {13, 27}},    // (10 + 20 / 2) / 1.5 and (20 / 2 + 30) / 1.5
                {{0, 100}, {0, 25, 75, 100}},
                {{0, 40, 80, 120, 160, 200}, {40, 160}},
                {{7, 9}, {8}},
                {{50}, {50, 50, 50}}};
    const auto pixels = [](const std::vector<uint8_t>& values, uint8_t fourth) {
        std::vector<uint8_t> bytes;
        for (const uint8_t value : values)
            bytes.insert(bytes.end(), {value, static_cast<uint8_t>(255 - value), 9, fourth});
        return bytes;
    };
    for (const auto& row : rows) {
        const std::vector<uint8_t> source = pixels(row.from, 77);
        const auto from = static_cast<uint32_t>(row.from.size()), to = static_cast<uint32_t>(row.to.size());
        std::vector<uint8_t> across(4 * to), down(across), shrunk(across);
        ref::Stretch({{source.data()}, {4}, {1, from}, PF_BGRA32}, {{down.data()}, {4}, {1, to}, PF_BGRA32},
                     {0, 0, 1, to});
        ref::Stretch({{source.data()}, {4}, {from, 1}, PF_BGRA32}, {{across.data()}, {4}, {to, 1}, PF_BGRA32},
                     {0, 0, to, 1});
        EXPECT_EQ(across, pixels(row.to, 255)) << from << " to " << to;
        EXPECT_EQ(down, across) << from << " to " << to;
        ref::ShrinkRows({from, 1, to, 1, 4}, source.data(), 0, 0, 1, shrunk.data(), 0);
        EXPECT_TRUE(to > from || shrunk == pixels(row.to, 77)) << from << " to " << to;
    }
}

}    // namespace
}    // namespace corvane::kernels
