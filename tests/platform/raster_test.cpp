#include "platform/raster/Raster.h"

#include <cairo.h>

#include "base/Limits.h"
#include "platform/raster/DrawContext.h"
#include "platform/raster/Surface.h"
#include "support/Testing.h"

namespace corvane {
namespace {

uint32_t& Pixel(const PictureView& raster, int64_t x, int64_t y) {
    return reinterpret_cast<uint32_t*>(raster.Row(y))[x];
}

// The pixels from (x, y) on, as B, G, R, X words.
Raster Numbered(uint32_t width, uint32_t height) {
    Raster raster;
    EXPECT_TRUE(raster.Resize(width, height));
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x)
            Pixel(raster.View(), x, y) = 0x010000 * y + 0x000100 * x + 7;
    return raster;
}

TEST(Raster, Sizes) {
    constexpr uint32_t kSide = limits::kMaxPictureSide;
    Raster raster;
    for (const auto& [width, height] : {std::pair{0u, 5u}, {5, 0}, {kSide + 1, 1}, {1, UINT32_MAX}, {kSide, kSide}}) {
        EXPECT_TRUE(raster.Resize(kSide, 2));
        EXPECT_FALSE(raster.Resize(width, height)) << width << " x " << height;
        EXPECT_TRUE(!raster && raster.View().size.Empty());
    }
    ASSERT_TRUE(raster.Resize(3, 3));
    const Raster moved = std::move(raster);
    EXPECT_TRUE(moved && !raster);
}

constexpr int64_t kFar = int64_t{1} << 62;

// What of `where` lies on a raster of 9 x 7 is drawn with what belongs there, and nothing else is touched.
TEST(Raster, FillBlitAndStretchClip) {
    const Rect rows[] = {{0, 0, 9, 7}, {2, 1, 5, 3},         {-3, -2, 4, 4},    {6, 5, 20, 20}, {-5, -5, 30, 30},
                         {4, 4, 4, 6}, {5, 3, 2, 1},         {9, 0, 12, 7},     {-9, 0, 0, 7},  {0, 7, 9, 9},
                         {8, 6, 9, 7}, {-kFar, -kFar, 3, 2}, {3, 3, kFar, kFar}};
    const Raster source = Numbered(40, 40);
    for (const Rect& where : rows) {
        SCOPED_TRACE(testing::Message() << where.left << ", " << where.top);
        const bool near = where.Intersected({-100, -100, 100, 100}) == where;
        Raster filled = Numbered(9, 7), copied = Numbered(9, 7), scaled = Numbered(9, 7);
        Fill(filled.View(), where, 0x563412);
        if (near) {
            const Rect part{2, 3, 2 + where.Width(), 3 + where.Height()};
            Blit(copied.View(), where.left, where.top, source.View(), part);
            EXPECT_TRUE(Stretch(scaled.View(), where, source.View(), part)) << "to the same size: its pixels are known";
        }
        for (int64_t y = 0; y < 7; ++y) {
            for (int64_t x = 0; x < 9; ++x) {
                const bool inside = x >= where.left && x < where.right && y >= where.top && y < where.bottom;
                const uint32_t before = static_cast<uint32_t>(0x010000 * y + 0x000100 * x + 7);
                EXPECT_EQ(Pixel(filled.View(), x, y), inside ? 0xFF123456u : before) << x << ", " << y;
                const uint32_t moved = before + 0x010000 * static_cast<uint32_t>(3 - where.top) +
                                       0x000100 * static_cast<uint32_t>(2 - where.left);
                const uint32_t wanted = inside && near ? 0xFF000000u | moved : before;
                EXPECT_EQ(Pixel(copied.View(), x, y), wanted) << x << ", " << y;
                EXPECT_EQ(Pixel(scaled.View(), x, y), wanted) << x << ", " << y;
            }
        }
    }
}

// A picture of two colours, far larger than the raster that shows its seam.
TEST(Raster, StretchOfAnEnormousDestination) {
    std::vector<uint8_t> pixels{10, 20, 30, 200, 210, 220};
    pixels.resize(6 + 64);
    const ConstPictureView two{{pixels.data() + 3}, {-3}, {1, 2}, PF_BGR24};
    Raster raster = Numbered(8, 8);
    EXPECT_TRUE(Stretch(raster.View(), {-2000000000, -2000000000, 2000000000, 2000000000}, two, {0, 0, 1, 2}));
    EXPECT_EQ(Pixel(raster.View(), 3, 0), 0xFF7D7369u);    // the middle of both
    EXPECT_TRUE(Stretch(raster.View(), {0, 0, 8, 3000000000}, two, {-5, -5, 1, 2}));
    EXPECT_EQ(Pixel(raster.View(), 3, 0), 0xFFDCD2C8u);
    const Raster before = Numbered(8, 8);
    Raster untouched = Numbered(8, 8);
    EXPECT_TRUE(Stretch(untouched.View(), {0, 0, 8, 8}, two, {3, 3, 5, 5}));
    EXPECT_TRUE(Stretch(untouched.View(), {0, 0, 8, 8}, ConstPictureView(), {0, 0, 5, 5}));
    EXPECT_TRUE(Stretch(untouched.View(), {-kFar, 0, kFar, 8}, two, {0, 0, 1, 2}));
    EXPECT_EQ(std::memcmp(untouched.View().plane[0], before.View().plane[0], 8 * 64), 0);
}

// What a client draws is in the raster when the context ends, also when it brings the context into an error; what it
// keeps reaches the raster no more.
TEST(DrawContext, ClipsFlushesAndLetsGo) {
    for (const bool broken : {false, true}) {
        Raster raster;
        ASSERT_TRUE(raster.Resize(10, 6));
        cairo_surface_t* kept = nullptr;
        {
            const DrawContext context(raster.View(), 7, 4);
            cairo_set_source_rgb(context.Get(), 1, 0.5, 0);
            cairo_paint(context.Get());
            kept = cairo_surface_reference(cairo_get_target(context.Get()));
            if (broken)
                cairo_restore(context.Get());
        }
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 10; ++x)
                EXPECT_EQ(Pixel(raster.View(), x, y) & 0xFFFFFF, x < 7 && y < 4 ? 0xFF8000u : 0u) << x << ", " << y;
        raster.Free();
        cairo_t* const late = cairo_create(kept);
        cairo_paint(late);
        EXPECT_EQ(cairo_status(late), CAIRO_STATUS_SURFACE_FINISHED);
        cairo_destroy(late);
        cairo_surface_destroy(kept);
        EXPECT_EQ(DrawContext(raster.View(), 4, 4).Get(), nullptr);
    }
}

TEST(CopySurface, EachFormatAndWhatIsNoPicture) {
    const struct {
        cairo_format_t format;
        std::vector<uint32_t> words;    // a row of 2 pixels
        uint32_t first, second;
    } rows[] = {{CAIRO_FORMAT_RGB24, {0xFF102030, 0x00FFFEFD}, 0x102030, 0xFFFEFD},
                {CAIRO_FORMAT_ARGB32, {0x80402010, 0x00000000}, 0x402010, 0},
                {CAIRO_FORMAT_RGB16_565, {0x8410u | 0xF81Fu << 16}, 0x848284, 0xFF00FF},
                {CAIRO_FORMAT_RGB30, {0x3FFu << 20 | 0x200u << 10 | 1, 2}, 0xFF8000, 0},
                {CAIRO_FORMAT_A8, {0x0000FF21}, 0x212121, 0xFFFFFF},
                {CAIRO_FORMAT_A1, {0x00000002}, 0, 0xFFFFFF}};
    for (const auto& row : rows) {
        cairo_surface_t* const made = cairo_image_surface_create(row.format, 2, 3);
        std::memcpy(cairo_image_surface_get_data(made) + cairo_image_surface_get_stride(made), row.words.data(),
                    row.words.size() * 4);
        cairo_surface_mark_dirty(made);
        Raster out;
        ASSERT_EQ(CopySurface(made, out), Status::Ok) << row.format;
        cairo_surface_destroy(made);
        ASSERT_EQ(out.View().Bounds(), (Rect{0, 0, 2, 3}));
        EXPECT_EQ(Pixel(out.View(), 0, 1), row.first) << row.format;
        EXPECT_EQ(Pixel(out.View(), 1, 1), row.second) << row.format;
        EXPECT_EQ(Pixel(out.View(), 1, 2), 0u) << row.format;
    }
    // What is no picture leaves the raster as it was.
    cairo_surface_t* const finished = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 4, 4);
    cairo_surface_finish(finished);
    Raster out = Numbered(2, 2);
    for (cairo_surface_t* made :
         {cairo_recording_surface_create(CAIRO_CONTENT_COLOR, nullptr), finished,
          cairo_image_surface_create(CAIRO_FORMAT_RGB24, 0, 4), cairo_image_surface_create(CAIRO_FORMAT_RGB24, -1, 4),
          cairo_image_surface_create(CAIRO_FORMAT_A1, 20000, 1), static_cast<cairo_surface_t*>(nullptr)}) {
        EXPECT_EQ(CopySurface(made, out), Status::Failed);
        cairo_surface_destroy(made);
    }
    EXPECT_EQ(Pixel(out.View(), 1, 1), 0x010107u);
}

}    // namespace
}    // namespace corvane
