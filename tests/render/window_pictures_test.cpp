// What stands on a real window, pixel by pixel: every way of the renderers with every kind of display setting.
#include <cairo.h>

#include "kernels/PlaneShrink.h"
#include "kernels/YCbCrToRGB.h"
#include "manager/RenderMgr.h"
#include "platform/raster/Raster.h"
#include "support/PlainPicture.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane {
namespace {

using test::Eventually;

constexpr uint32_t kPictureWidth = 200;
constexpr uint32_t kPictureHeight = 120;
constexpr uint32_t kBackground = 0x00204060;    // 0x00BBGGRR

Raster Blank(uint32_t width, uint32_t height, uint32_t colour = 0) {
    Raster raster;
    EXPECT_TRUE(raster.Resize(width, height));
    Fill(raster.View(), raster.View().Bounds(), colour);
    return raster;
}
void Lay(const Raster& on, const Rect& to, const Raster& from, const std::optional<Rect>& part = {}) {
    EXPECT_TRUE(Stretch(on.View(), to, from.View(), part.value_or(from.View().Bounds())));
}

// A picture without two equal quarters: slopes in all three planes.
void Paint(DecodedFrame& frame) {
    for (uint32_t plane = 0; plane < 3; ++plane) {
        const uint32_t part = plane == 0 ? 1 : 2, width = frame.width;
        for (uint32_t y = 0; y < frame.height / part; ++y)
            for (uint32_t x = 0; x < width / part; ++x)
                const_cast<uint8_t*>(frame.planes[plane])[y * frame.strides[plane] + x] = static_cast<uint8_t>(
                    plane == 0 ? 60 + x * 120 / width + y % 32 : 100 + (plane == 1 ? x : y) * 60 / width);
    }
}

// What the stream signals; it counts where the way says so.
constexpr ColourSignal kSignal{ColourSignal::Matrix::Bt709, false};
std::optional<ColourSignal> counted;

Raster AsColours(const DecodedFrame& frame) {
    Raster colours = Blank(frame.width, frame.height);
    ConstPictureView picture = ViewOf(frame);
    picture.colours = counted;
    (void)kernels::ref::YCbCrToRGB(picture, colours.View());
    return colours;
}

// The picture made smaller before it is converted, as the default renderer does; even sizes.
Raster AsShrunkColours(const DecodedFrame& frame, uint32_t width, uint32_t height) {
    test::PlainPicture small(width, height);
    for (uint32_t plane = 0; plane < 3; ++plane) {
        const uint32_t part = plane == 0 ? 1 : 2;
        kernels::ref::ShrinkRows({frame.width / part, frame.height / part, width / part, height / part},
                                 frame.planes[plane], frame.strides[plane], 0, height / part,
                                 const_cast<uint8_t*>(small.frame.planes[plane]), small.frame.strides[plane]);
    }
    return AsColours(small.frame);
}

// The greatest difference of a colour; the fourth byte does not count. 255 for other sizes.
int Difference(const Raster& expected, const std::vector<uint32_t>& shown) {
    const PictureView& view = expected.View();
    const auto [width, height] = view.size;
    int most = shown.size() == size_t{width} * height ? 0 : 255;
    for (size_t at = 0; most < 255 && at < shown.size(); ++at)
        for (uint32_t i = 0; i < 3; ++i)
            most = std::max(most,
                            std::abs(view.At(at % width, at / width)[i] - static_cast<int>(shown[at] >> 8 * i & 255)));
    return most;
}

// What the text callback draws; an overview lies across it. The default renderer shows the picture through black.
struct TextPart {
    Rect place;
    uint32_t colour;    // 0x00BBGGRR
} constexpr kText[] = {{{4, 4, 110, 24}, 0x00F0F010}, {{120, 4, 216, 24}, 0x0010F0F0}, {{110, 8, 120, 24}, 0}};
void DrawText(void*, OsdInfo* info) {
    if ((info->flags & CORVANE_OSD_STOPPED) != 0)
        return;    // before the first picture
    for (const auto& [place, colour] : kText) {
        const auto part = [colour = colour](int shift) { return (colour >> shift & 255) / 255.0; };
        cairo_set_source_rgb(info->deviceContext, part(0), part(8), part(16));
        cairo_rectangle(info->deviceContext, place.left, place.top, place.Width(), place.Height());
        cairo_fill(info->deviceContext);
    }
}

constexpr Rect kWindow{30, 20, 250, 180};    // on the screen
constexpr Edges kBorder{6, 10, 4, 8};

struct Way {
    const char* name;
    uint32_t flags;
    bool border;
    bool noBorder;
    bool fullWindow;
    bool shared = false;    // the decoder's picture goes by reference
    bool signalled = false;

    bool Default() const { return (flags & kGdiFlags) == 0; }
    bool Bordered() const { return !Default() && border && !noBorder && !fullWindow; }
    // Text lies over the picture too.
    bool Composes() const { return Default() || (flags & CORVANE_FLAG_GDI_COMPOSE) != 0; }
    Edges Margin() const { return {12, 8, 16, signalled ? 24u : 10u}; }    // of the larger the picture keeps its size
    uint32_t MarginColour() const { return Default() ? 0 : kBackground; }
};

struct Show {
    const char* name;
    std::optional<Rect> zoomed;          // part of the picture that the zoom shows
    std::optional<DisplayPlace> zoom;    // on the screen, of an overview that lies at kOverview
    bool overview = false;               // drawn, in the window
    bool overviewWindow = false;
};
constexpr Rect kOverview{130, 25, 230, 85};    // on the screen; crosses the top margin
constexpr DisplayPlace kOverviewPlace{{130, 25, 230, 85}};

// The window's picture by the rules, for both ways of text.
Raster Expected(const Way& way, const Show& show, const Raster& picture, const Raster& overview) {
    const auto bands = [&way](const PictureView& on, const Rect& inner, bool textEverywhere) {
        const Rect all[4] = {{0, 0, on.size.width, inner.top},
                             {0, inner.bottom, on.size.width, on.size.height},
                             {0, inner.top, inner.left, inner.bottom},
                             {inner.right, inner.top, on.size.width, inner.bottom}};
        for (const Rect& band : all)
            Fill(on, band, way.MarginColour());
        for (const auto& [place, colour] : kText)
            for (const Rect& part : all)
                if (colour != 0 || !way.Default())
                    Fill(on, textEverywhere ? place : part.Intersected(place), colour);
    };
    Raster window = Blank(static_cast<uint32_t>(kWindow.Width()), static_cast<uint32_t>(kWindow.Height()));
    const Rect all = window.View().Bounds();
    const Rect small = kOverview.Moved(-kWindow.left, -kWindow.top);
    if (way.Bordered()) {
        const Raster canvas =
            Blank(kPictureWidth + kBorder.left + kBorder.right, kPictureHeight + kBorder.top + kBorder.bottom);
        const Rect inner = picture.View().Bounds().Moved(kBorder.left, kBorder.top);
        Lay(canvas, inner, picture);
        bands(canvas.View(), inner, true);
        if (show.overview)
            Lay(canvas, small, picture);
        Lay(window, all, canvas);
        return window;
    }
    const Edges margin = way.Margin();
    const Rect inner =
        way.fullWindow ? all : Rect{margin.left, margin.top, all.right - margin.right, all.bottom - margin.bottom};
    Lay(window, inner, picture, show.zoomed);
    if (!way.fullWindow)
        bands(window.View(), inner, way.Composes());
    if (show.overview)
        Lay(window, small, overview);
    return window;
}

TEST(WindowPictures, EveryWayWithEverySetting) {
    constexpr uint32_t kCompose = CORVANE_FLAG_GDI | CORVANE_FLAG_GDI_COMPOSE;
    const Way ways[] = {{"default", 0, false, false, false},
                        {"default, by reference", 0, false, false, false, true},
                        {"default, by reference, as signalled", 0, false, false, false, true, true},
                        {"default, border", CORVANE_FLAG_GDI_COMPOSE, true, false, false, false, true},
                        {"default, full window", 0, true, false, true},
                        {"direct", CORVANE_FLAG_GDI_LEGACY, false, false, false},
                        {"compose", kCompose, false, false, false, false, true},
                        {"stretch", CORVANE_FLAG_GDI_STRETCH, false, false, false},
                        {"bordered", CORVANE_FLAG_GDI, true, false, false},
                        {"bordered, compose", kCompose, true, false, false},
                        {"border off", CORVANE_FLAG_GDI, true, true, false},
                        {"full window", CORVANE_FLAG_GDI, true, false, true},
                        {"full window, compose", kCompose, false, false, true}};
    const Show shows[] = {
        {"margins", {}, {}},
        {"zoom inside", Rect{50, 30, 150, 90}, DisplayPlace{{155, 40, 205, 70}}},
        {"zoom partly out", Rect{0, 60, 100, 120}, DisplayPlace{{100, 55, 180, 300}}},
        {"zoom outside: the whole picture", {}, DisplayPlace{{300, 10, 400, 20}}},
        {"overview rectangle", {}, {}, true},
        {"overview window", {}, {}, false, true},
        {"overview rectangle with zoom", Rect{50, 30, 150, 90}, DisplayPlace{{155, 40, 205, 70}}, true},
    };
    test::XServer server;
    test::XClient client(server.Display());
    test::PlainPicture source(kPictureWidth, kPictureHeight);
    Paint(source.frame);
    const FramePtr frame = test::MakeFrame(CORVANE_STREAM_JPEG, {1}, true, 100'000);
    const auto expectShown = [&](uint32_t window, const Raster& expected, int tolerance) {
        std::vector<uint32_t> shown;
        EXPECT_TRUE(Eventually([&] {
            shown = client.Read(window, expected.View().Bounds());
            return Difference(expected, shown) <= tolerance;
        })) << "off by "
            << Difference(expected, shown);
    };
    const uint32_t window = client.Create({.x = 30, .y = 20, .width = 220, .height = 160});
    const uint32_t second = client.Create({.x = 300, .y = 20, .width = 100, .height = 70});
    for (const Way& way : ways) {
        counted = way.signalled ? std::optional(kSignal) : std::nullopt;
        const Raster picture = AsColours(source.frame);
        for (const Show& show : shows) {
            SCOPED_TRACE(std::string(way.name) + ", " + show.name);
            client.Fill(window, {0, 0, 999, 999}, 0x00808080);
            client.Fill(second, {0, 0, 999, 999}, 0x00808080);
            CRenderMgr manager(this, window, way.flags);
            manager.SetCallback(&PresentSettings::osd, {&DrawText, nullptr});
            manager.SetBackground(kBackground);
            manager.SetSignalledColours(way.signalled);
            for (uint32_t Edges::*edge : {&Edges::left, &Edges::right, &Edges::top, &Edges::bottom})
                manager.SetMargin(edge, way.Margin().*edge);
            if (way.border)
                manager.SetBorder(kBorder);
            manager.SetNoBorder(way.noBorder);
            manager.SetFullWindow(way.fullWindow);
            DisplayArea area{0, 0, kOverviewPlace, {}, 0, 0, show.zoom.value_or(kOverviewPlace), {}, 0, 0};
            area.zoomEnabled = show.zoom.has_value();
            area.overviewEnabled = show.overview || show.overviewWindow;
            if (show.overviewWindow) {
                area.overviewIsWindow = 1;
                area.overview.window = second;
                area.overviewMargin[0] = 5;
                area.overviewMargin[3] = 7;
            }
            ASSERT_EQ(manager.SetDisplayArea(area, 63), Status::Ok);
            source.Share();
            if (!way.shared)
                source.frame.owner = nullptr;
            manager.PresentFrame(frame, source.Picture(kSignal), true);
            EXPECT_EQ(source.references, way.shared ? 1 : 0);
            const auto small = [&](uint32_t width, uint32_t height) {
                return way.Default() ? AsShrunkColours(source.frame, width, height) : AsColours(source.frame);
            };
            const Raster expected = Expected(way, show, picture, small(100, 60));
            expectShown(window, expected, way.Bordered() ? 4 : 2);
            if (show.overview && !way.Bordered()) {    // put with each picture, also where it lies on a margin
                client.Fill(window, kOverview.Moved(-kWindow.left, -kWindow.top), 0x00808080);
                manager.PresentFrame(frame, source.Picture(kSignal), true);
                expectShown(window, expected, 2);
            }
            if (show.overviewWindow) {
                const Raster aside = Blank(100, 70, 0x00808080);
                Lay(aside, way.Default() ? aside.View().Bounds() : Rect{5, 0, 100, 63}, small(100, 70));
                // Rounding of shrunk chroma counts almost twice in a colour.
                expectShown(second, aside, !way.Default() ? 2 : way.signalled ? 4 : 3);
            }
        }
        EXPECT_EQ(source.references, 0) << way.name;
    }
}

}    // namespace
}    // namespace corvane
