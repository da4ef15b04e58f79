// What stands on a real window, pixel by pixel: every way of the renderers with every kind of display setting.
#include <cairo.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "kernels/PlaneShrink.h"
#include "kernels/Stretch.h"
#include "kernels/YCbCrToRGB.h"
#include "manager/RenderMgr.h"
#include "support/Latch.h"
#include "support/PlainPicture.h"
#include "support/StreamMaker.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane {
namespace {

using test::Eventually;

constexpr uint32_t kPictureWidth = 200;
constexpr uint32_t kPictureHeight = 120;
constexpr uint32_t kBackground = 0x00204060;    // 0x00BBGGRR

struct Colours {
    uint32_t width = 0;
    uint32_t height = 0;
    std::vector<uint8_t> bytes;    // B G R X

    Colours(uint32_t w, uint32_t h) : width(w), height(h), bytes(size_t{w} * h * 4) {}
    uint8_t* At(int64_t x, int64_t y) { return &bytes[(static_cast<size_t>(y) * width + static_cast<size_t>(x)) * 4]; }

    void Fill(const Rect& rect, uint32_t colour) {
        const Rect in = rect.Intersected({0, 0, width, height});
        for (int64_t y = in.top; y < in.bottom; ++y)
            for (int64_t x = in.left; x < in.right; ++x)
                for (int i = 0; i < 3; ++i)
                    At(x, y)[i] = static_cast<uint8_t>(colour >> (16 - 8 * i));
    }
    void Lay(const Colours& from, const Rect& source, const Rect& to, const Rect& clip) {
        const Rect in = to.Intersected(clip).Intersected({0, 0, width, height});
        if (in.Empty() || source.Empty())
            return;
        const auto u = [](int64_t v) { return static_cast<uint32_t>(v); };
        kernels::ref::Stretch({from.bytes.data(), static_cast<ptrdiff_t>(from.width) * 4, u(source.left), u(source.top),
                               u(source.Width()), u(source.Height()), 4},
                              {At(in.left, in.top), static_cast<ptrdiff_t>(width) * 4, u(to.Width()), u(to.Height()),
                               u(in.left - to.left), u(in.top - to.top), u(in.Width()), u(in.Height())});
    }
    Rect All() const { return {0, 0, width, height}; }
};

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

Colours AsColours(const DecodedFrame& frame) {
    Colours colours(frame.width, frame.height);
    const kernels::Source420 planes{frame.planes[0],  frame.planes[1],  frame.planes[2],
                                    frame.strides[0], frame.strides[1], frame.strides[2]};
    (void)kernels::ref::YCbCrToRGB(planes, colours.bytes.data(), static_cast<ptrdiff_t>(frame.width) * 4, frame.width,
                                   frame.height, {.bytes = 4});
    return colours;
}

// The picture made smaller before it is converted, as the default renderer does; even sizes.
Colours AsShrunkColours(const DecodedFrame& frame, uint32_t width, uint32_t height) {
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
int Difference(const Colours& expected, const std::vector<uint32_t>& shown) {
    if (shown.size() * 4 != expected.bytes.size())
        return 255;
    int most = 0;
    for (size_t at = 0; at < expected.bytes.size(); ++at)
        if (at % 4 != 3)
            most = std::max(most, std::abs(expected.bytes[at] - static_cast<int>(shown[at / 4] >> at % 4 * 8 & 255)));
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
constexpr Edges kMargin{12, 8, 16, 10};
constexpr Edges kBorder{6, 10, 4, 8};

struct Way {
    const char* name;
    uint32_t flags;
    bool border;
    bool noBorder;
    bool fullWindow;
    bool shared = false;    // the decoder's picture goes by reference

    bool Default() const { return (flags & kGdiFlags) == 0; }
    bool Bordered() const { return !Default() && border && !noBorder && !fullWindow; }
    // Text lies over the picture too.
    bool Composes() const { return Default() || (flags & CORVANE_FLAG_GDI_COMPOSE) != 0; }
    uint32_t Margins() const { return Default() ? 0 : kBackground; }
};

struct Show {
    const char* name;
    std::optional<Rect> zoomed;      // part of the picture that the zoom shows
    std::optional<Rect> zoom;        // on the screen, of an overview that lies at kOverview
    std::optional<Rect> overview;    // drawn, in the window
    bool overviewWindow = false;
};
constexpr Rect kOverview{130, 25, 230, 85};    // on the screen; crosses the top margin
DisplayPlace Place(const Rect& rect) {
    const auto at = [](int64_t value) { return static_cast<int32_t>(value); };
    return {{at(rect.left), at(rect.top), at(rect.right), at(rect.bottom)}};
}

// The window's picture by the rules, for both ways of text.
Colours Expected(const Way& way, const Show& show, const Colours& picture, const Colours& overview) {
    const auto bands = [&way](Colours& on, const Rect& inner, bool textEverywhere) {
        const Rect all[4] = {{0, 0, on.width, inner.top},
                             {0, inner.bottom, on.width, on.height},
                             {0, inner.top, inner.left, inner.bottom},
                             {inner.right, inner.top, on.width, inner.bottom}};
        for (const Rect& band : all)
            on.Fill(band, way.Margins());
        for (const auto& [place, colour] : kText)
            for (const Rect& part : all)
                if (colour != 0 || !way.Default())
                    on.Fill(textEverywhere ? place : part.Intersected(place), colour);
    };
    Colours window(static_cast<uint32_t>(kWindow.Width()), static_cast<uint32_t>(kWindow.Height()));
    const Rect small = kOverview.Moved(-kWindow.left, -kWindow.top);
    if (way.Bordered()) {
        Colours canvas(kPictureWidth + kBorder.left + kBorder.right, kPictureHeight + kBorder.top + kBorder.bottom);
        const Rect inner = picture.All().Moved(kBorder.left, kBorder.top);
        canvas.Lay(picture, picture.All(), inner, canvas.All());
        bands(canvas, inner, true);
        if (show.overview)
            canvas.Lay(picture, picture.All(), small, canvas.All());
        window.Lay(canvas, canvas.All(), window.All(), window.All());
        return window;
    }
    const Rect inner =
        way.fullWindow ? window.All()
                       : Rect{kMargin.left, kMargin.top, window.width - kMargin.right, window.height - kMargin.bottom};
    window.Lay(picture, show.zoomed.value_or(picture.All()), inner, window.All());
    if (!way.fullWindow)
        bands(window, inner, way.Composes());
    if (show.overview)
        window.Lay(overview, overview.All(), small, window.All());
    return window;
}

TEST(WindowPictures, EveryWayWithEverySetting) {
    constexpr uint32_t kCompose = CORVANE_FLAG_GDI | CORVANE_FLAG_GDI_COMPOSE;
    const Way ways[] = {{"default", 0, false, false, false},
                        {"default, by reference", 0, false, false, false, true},
                        {"default, border", CORVANE_FLAG_GDI_COMPOSE, true, false, false},
                        {"default, full window", 0, true, false, true},
                        {"direct", CORVANE_FLAG_GDI_LEGACY, false, false, false},
                        {"compose", kCompose, false, false, false},
                        {"stretch", CORVANE_FLAG_GDI_STRETCH, false, false, false},
                        {"bordered", CORVANE_FLAG_GDI, true, false, false},
                        {"bordered, compose", kCompose, true, false, false},
                        {"border off", CORVANE_FLAG_GDI, true, true, false},
                        {"full window", CORVANE_FLAG_GDI, true, false, true},
                        {"full window, compose", kCompose, false, false, true}};
    const Show shows[] = {
        {"margins", {}, {}, {}},
        {"zoom inside", Rect{50, 30, 150, 90}, Rect{155, 40, 205, 70}, {}},
        {"zoom partly out", Rect{0, 60, 100, 120}, Rect{100, 55, 180, 300}, {}},
        {"zoom outside: the whole picture", {}, Rect{300, 10, 400, 20}, {}},
        {"overview rectangle", {}, {}, kOverview},
        {"overview window", {}, {}, {}, true},
        {"overview rectangle with zoom", Rect{50, 30, 150, 90}, Rect{155, 40, 205, 70}, kOverview},
    };
    test::XServer server;
    test::XClient client(server.Display());
    test::PlainPicture source(kPictureWidth, kPictureHeight);
    Paint(source.frame);
    const FramePtr frame = test::MakeFrame(CORVANE_STREAM_JPEG, {1}, true, 100'000);
    const auto expectShown = [&](uint32_t window, const Colours& expected, int tolerance) {
        std::vector<uint32_t> shown;
        EXPECT_TRUE(Eventually([&] {
            shown = client.Read(window, expected.All());
            return Difference(expected, shown) <= tolerance;
        })) << "off by "
            << Difference(expected, shown);
    };
    const uint32_t window = client.Create({.x = 30, .y = 20, .width = 220, .height = 160});
    const uint32_t second = client.Create({.x = 300, .y = 20, .width = 100, .height = 70});
    const Colours picture = AsColours(source.frame);
    for (const Way& way : ways) {
        for (const Show& show : shows) {
            SCOPED_TRACE(std::string(way.name) + ", " + show.name);
            client.Fill(window, {0, 0, 999, 999}, 0x00808080);
            client.Fill(second, {0, 0, 999, 999}, 0x00808080);
            CRenderMgr manager(this, window, way.flags);
            manager.SetOsd(&DrawText, nullptr);
            manager.SetBackground(kBackground);
            for (uint32_t Edges::*edge : {&Edges::left, &Edges::right, &Edges::top, &Edges::bottom})
                manager.SetMargin(edge, kMargin.*edge);
            if (way.border)
                manager.SetBorder(kBorder);
            manager.SetNoBorder(way.noBorder);
            manager.SetFullWindow(way.fullWindow);
            DisplayArea area{0, 0, Place(kOverview), {}, 0, 0, Place(show.zoom.value_or(kOverview)), {}, 0, 0};
            area.zoomEnabled = show.zoom.has_value();
            area.overviewEnabled = show.overview.has_value() || show.overviewWindow;
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
            manager.PresentFrame(frame, source.frame, true);
            EXPECT_EQ(source.references, way.shared ? 1 : 0);
            const auto small = [&](uint32_t width, uint32_t height) {
                return way.Default() ? AsShrunkColours(source.frame, width, height) : picture;
            };
            const Colours expected = Expected(way, show, picture, small(100, 60));
            expectShown(window, expected, way.Bordered() ? 4 : 2);
            if (show.overview && !way.Bordered()) {    // put with each picture, also where it lies on a margin
                client.Fill(window, kOverview.Moved(-kWindow.left, -kWindow.top), 0x00808080);
                manager.PresentFrame(frame, source.frame, true);
                expectShown(window, expected, 2);
            }
            if (show.overviewWindow) {
                Colours aside(100, 70);
                aside.Fill(aside.All(), 0x00808080);
                const Rect part = way.Default() ? aside.All() : Rect{5, 0, 100, 63};
                const Colours whole = small(100, 70);
                aside.Lay(whole, whole.All(), part, aside.All());
                // Rounding of shrunk chroma counts almost twice in a colour.
                expectShown(second, aside, way.Default() ? 3 : 2);
            }
        }
        EXPECT_EQ(source.references, 0) << way.name;
    }
}

}    // namespace
}    // namespace corvane
