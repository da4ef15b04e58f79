// Stills of real streams. What they must show is made by the chain and the makers alone, over libavcodec's own planes.
#include <cairo.h>

#include "channels/ChannelLive.h"
#include "kernels/FullRangeBt601.h"
#include "support/BareDecoder.h"
#include "support/Calling.h"
#include "support/Client.h"
#include "support/ScriptedDecoder.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using test::Client;
using test::Eventually;

constexpr uint32_t kNumbered = 4;

// A channel that shows one JPEG picture.
struct OnePicture {
    explicit OnePicture(int width, int height, uint32_t statedWidth = 0, uint32_t statedHeight = 0,
                        uint32_t type = CORVANE_STREAM_JPEG, const char* signal = "") {
        stream = test::MakeVideo({.streamType = type, .width = width, .height = height, .frames = 1, .signal = signal});
        bare = test::BareDecode(type, stream);
        planes = test::To420(*bare[0]);
        decoded = {.size = {static_cast<uint32_t>(width), static_cast<uint32_t>(height)}, .format = PF_I420};
        for (int i = 0; i < 3; ++i) {
            decoded.plane[i] = planes->data[i];
            decoded.stride[i] = planes->linesize[i];
        }
        client.Start();
        EXPECT_EQ(client.Feed(type, stream[0].bytes, true, 7000, statedWidth, statedHeight), Status_Ok);
        (void)client.Next();
    }

    // The finished picture that the chain and the maker give for `source`.
    PictureMakerPtr Wanted(ConstPictureView source, uint32_t format, uint32_t width, uint32_t height,
                           uint32_t quality = 0) const {
        const PictureMakerPtr maker = MakePicture(format, AlignedBuffer::Use::Brief);
        maker->SetQuality(quality);
        const FramePtr frame = test::MakeFrame(CORVANE_STREAM_JPEG, stream[0].bytes, true, 7000);
        PictureView view;
        EXPECT_EQ(maker->GetBuffer({width, height}, view), Status::Ok);
        source.colours = view.colours = colours;
        (void)FilterChain().Run({}, *frame, source, view);
        if (format == 8)    // the samples of a JPEG file
            kernels::ToFullRangeBt601(view);
        EXPECT_EQ(maker->Make(), Status::Ok);
        return maker;
    }

    Client client;
    std::vector<test::EncodedPicture> stream;
    std::vector<test::BarePicture> bare;
    test::BarePicture planes;
    ConstPictureView decoded;
    std::optional<ColourSignal> colours;
};

using Bytes = std::vector<uint8_t>;
Bytes BytesOf(const PictureBuffer& picture) {
    return {picture.data, picture.data + picture.size};
}

void ExpectStill(const OnePicture& one, decltype(&Corvane_GetCurrentSnapShot) snap, uint32_t flags,
                 const IPictureMaker& wanted) {
    PictureBuffer picture{};
    ASSERT_EQ(snap(one.client.channel, &picture, flags), Status_Ok);
    EXPECT_TRUE(picture.width == wanted.GetWidth() && picture.height == wanted.GetHeight());
    EXPECT_EQ(BytesOf(picture), Bytes(wanted.GetData(), wanted.GetData() + wanted.GetSize()));
    // The same into a buffer of the caller's, which may not be a byte smaller.
    const Bytes untouched(picture.size, 0xEE);
    Bytes own = untouched;
    PictureBuffer given{picture.size - 1, 1, 2, 3, own.data()};
    EXPECT_EQ(snap(one.client.channel, &given, flags | 8), Status_BufferTooSmall);
    EXPECT_TRUE(given.size == picture.size - 1 && given.width == 1 && own == untouched);
    given.size = picture.size;
    EXPECT_EQ(snap(one.client.channel, &given, flags | 8), Status_Ok);
    EXPECT_EQ(own, BytesOf(picture));
    EXPECT_EQ(Corvane_FreePicture(&picture), Status_Ok);
}

TEST(Stills, EachFormat) {
    for (const auto& [width, height, statedWidth, statedHeight] :
         {std::tuple(160, 96, 0u, 0u), {151, 99, 0u, 0u}, {160, 96, 320u, 200u}}) {
        OnePicture one(width, height, statedWidth, statedHeight);
        const PictureSize size = statedWidth != 0 ? PictureSize{statedWidth, statedHeight} : one.decoded.size;
        const auto expect = [&](uint32_t flags, uint32_t format, uint32_t quality = 0) {
            SCOPED_TRACE(testing::Message() << size.width << " pixels, format " << format);
            ExpectStill(one, &Corvane_GetCurrentSnapShot, flags,
                        *one.Wanted(one.decoded, format, size.width, size.height, quality));
        };
        for (uint32_t format = 1; format <= 18; ++format)
            expect(kNumbered | format << 16, format);
        expect(1, 6);
        one.client.Set(CORVANE_OPTION_JPEG_QUALITY, 90);
        expect(kNumbered | 8 << 16, 8, 90);
        PictureBuffer picture{};
        EXPECT_EQ(Corvane_GetCurrentSnapShot(one.client.channel, &picture, kNumbered | 19 << 16),
                  Status_InvalidArgument);
        // The encoded frame comes before any format.
        ASSERT_EQ(Corvane_GetCurrentSnapShot(one.client.channel, &picture, 7 | 6 << 16), Status_Ok);
        EXPECT_EQ(BytesOf(picture), one.stream[0].bytes);
        Corvane_FreePicture(&picture);
    }
}

// With pictures that a callback gets, from the top row or from the bottom one.
TEST(Stills, ColoursAsSignalled) {
    OnePicture one(160, 96, 0, 0, CORVANE_STREAM_H264, ",colorspace=bt2020nc");
    for (const bool on : {true, false}) {
        SCOPED_TRACE(on);
        one.colours = on ? std::optional(ColourSignal{ColourSignal::Matrix::Bt2020, false}) : std::nullopt;
        one.client.Set(CORVANE_OPTION_COLOURS, on);
        for (const uint32_t format : {2u, 4u, 6u, 8u, 11u, 17u})
            ExpectStill(one, &Corvane_GetCurrentSnapShot, kNumbered | format << 16,
                        *one.Wanted(one.decoded, format, 160, 96));
        for (const auto& [kind, bottomUp] : {std::pair(3u, 0u), {3u, 1u}, {4u, 0u}, {4u, 1u}}) {
            Client client(kind, true, bottomUp);
            client.Set(CORVANE_OPTION_COLOURS, on);
            client.Start();
            ASSERT_EQ(client.Feed(one.stream[0], 0), Status_Ok);
            const Bytes shown = client.Next().pixels;
            const PictureMakerPtr wanted = one.Wanted(one.decoded, kind, 160, 96);
            const size_t row = 160 * kind;
            ASSERT_EQ(shown.size(), wanted->GetSize());
            for (size_t y = 0; y < 96; ++y)
                EXPECT_EQ(std::memcmp(&shown[(bottomUp != 0 ? 95 - y : y) * row], wanted->GetData() + y * row, row), 0);
        }
    }
}

TEST(Stills, ZoomedOnesShowTheSelection) {
    OnePicture one(160, 96);
    one.client.Set(CORVANE_OPTION_JPEG_QUALITY, 90);
    const struct {
        const char* name;
        int32_t zoom[4];    // of an area at (100, 100) of 80x48
        uint32_t enabled;
        Rect crop;
    } rows[] = {{"inside", {111, 105, 151, 129}, 1, {22, 10, 102, 58}},
                {"one pixel", {100, 100, 101, 101}, 1, {0, 0, 2, 2}},
                {"sticks out", {90, 105, 151, 129}, 1, {0, 0, 160, 96}},
                {"off", {111, 105, 151, 129}, 0, {0, 0, 160, 96}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        DisplayArea area{0, 0, {{100, 100, 180, 148}}, {}, 0, 0, {}, {}, row.enabled, 0};
        std::ranges::copy(row.zoom, area.zoom.rectangle);
        one.client.Set(CORVANE_OPTION_DISPLAY_AREA, reinterpret_cast<uint64_t>(&area), 31);
        const ConstPictureView part = one.decoded.Part(row.crop);
        ExpectStill(one, &Corvane_GetZoomedSnapShot, kNumbered | 11 << 16, *one.Wanted(part, 11, 160, 96));
        ExpectStill(one, &Corvane_GetCurrentSnapShot, kNumbered | 11 << 16, *one.Wanted(one.decoded, 11, 160, 96));
        ExpectStill(one, &Corvane_GetZoomedSnapShot, kNumbered | 8 << 16, *one.Wanted(part, 8, 160, 96, 90));
    }
}

// The stream goes on while the client draws.
TEST(Stills, OverlayIsLaidOver) {
    OnePicture one(160, 96);
    OsdInfo seen{};
    std::function<void(OsdInfo*)> draw = [&](OsdInfo* info) {
        seen = *info;
        EXPECT_EQ(one.client.Feed(CORVANE_STREAM_JPEG, one.stream[0].bytes, true, 7040), Status_Ok);
        (void)one.client.Next();
        cairo_set_source_rgb(info->deviceContext, 1, 0, 0);
        cairo_rectangle(info->deviceContext, 16, 8, 8, 8);
        cairo_fill(info->deviceContext);
    };
    one.client.Set(CORVANE_OPTION_STILL_OVERLAY, reinterpret_cast<uint64_t>(test::Calling(draw).function),
                   reinterpret_cast<uint64_t>(&draw));
    PictureBuffer picture{};
    ASSERT_EQ(Corvane_GetCurrentSnapShot(one.client.channel, &picture, kNumbered | 11 << 16), Status_Ok);
    const PictureMakerPtr plain = one.Wanted(one.decoded, 11, 160, 96);
    Bytes wanted(plain->GetData(), plain->GetData() + plain->GetSize());
    for (size_t y = 8; y < 16; ++y)
        for (size_t x = 16; x < 24; ++x) {
            wanted[y * 160 + x] = 76;
            wanted[160 * 96 + y / 2 * 80 + x / 2] = 85;
            wanted[160 * 96 * 5 / 4 + y / 2 * 80 + x / 2] = 255;
        }
    EXPECT_EQ(BytesOf(picture), wanted);
    Corvane_FreePicture(&picture);
    EXPECT_TRUE(seen.width == 160 && seen.height == 96 && seen.timeSeconds == 7 && seen.flags == 0);
}

struct Canvas {
    explicit Canvas(cairo_surface_t* on) : surface(on), context(cairo_create(on)) {}
    Canvas(int width, int height) : Canvas(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)) {}
    ~Canvas() {
        cairo_destroy(context);
        cairo_surface_destroy(surface);
    }
    uint32_t At(int x, int y) const {
        cairo_surface_flush(surface);
        const uint8_t* const row = cairo_image_surface_get_data(surface) + y * cairo_image_surface_get_stride(surface);
        uint32_t pixel;
        std::memcpy(&pixel, row + 4 * x, 4);
        return pixel & 0xFFFFFF;
    }
    cairo_surface_t* const surface;
    cairo_t* const context;
};

TEST(Stills, DisplayDrawsWithTheClientsContext) {
    const OnePicture one(160, 96);
    const auto pixel = [](const IPictureMaker& bmp, int x, int y) {    // 24 bits, bottom up; 0 around it
        uint32_t value = 0;
        const int width = static_cast<int>(bmp.GetWidth()), height = static_cast<int>(bmp.GetHeight());
        if (x >= 0 && y >= 0 && x < width && y < height)
            std::memcpy(&value, bmp.GetData() + 54 + (height - 1 - y) * ((width * 3 + 3) / 4 * 4) + x * 3, 3);
        return value;
    };
    const PictureMakerPtr plain = one.Wanted(one.decoded, 6, 160, 96), small = one.Wanted(one.decoded, 6, 80, 48);
    const Canvas framed(176, 112), scaled(352, 224), half(80, 48), broken(10, 10), replayed(160, 96),
        unbounded(cairo_recording_surface_create(CAIRO_CONTENT_COLOR, nullptr));
    void* const channel = one.client.channel;
    DisplayFrameInfo info{.flags = 0x40};
    const auto setMargins = [&](uint64_t width) {
        for (const int32_t margin : {7, 8, 9, 10})
            Corvane_SetChannelOption(channel, margin, width, 0);
    };
    setMargins(8);
    cairo_move_to(framed.context, 3, 4);
    ASSERT_EQ(Corvane_GetCurrentDisplay(channel, framed.context, &info), Status_Ok);
    for (int y = 0; y < 112; ++y)
        for (int x = 0; x < 176; ++x)
            ASSERT_EQ(framed.At(x, y), pixel(*plain, x - 8, y - 8)) << x << ", " << y;
    EXPECT_TRUE(info.clientWidth == 176 && info.clientHeight == 112 && info.flags == 0x40);
    EXPECT_TRUE(info.timeSeconds == 7 && info.baseTime.seconds == 7);
    double x = 0, y = 0;
    cairo_get_current_point(framed.context, &x, &y);
    EXPECT_EQ(x, 3) << "the client's path is as it was";
    cairo_scale(scaled.context, 2, 2);    // the client's matrix and clip
    cairo_rectangle(scaled.context, 0, 0, 100, 96);
    cairo_clip(scaled.context);
    ASSERT_EQ(Corvane_GetCurrentDisplay(channel, scaled.context, &info), Status_Ok);
    EXPECT_EQ(info.clientWidth, 176u);
    for (const auto& [column, drawn] : {std::pair(15, false), {16, true}, {199, true}, {200, false}})
        EXPECT_EQ(scaled.At(column, 100) != 0, drawn) << column;

    setMargins(0);
    ASSERT_EQ(Corvane_GetCurrentDisplay(channel, half.context, &info), Status_Ok);
    EXPECT_EQ(half.At(0, 0), pixel(*small, 0, 0)) << "half: converted at that size already";
    cairo_surface_finish(broken.surface);
    EXPECT_EQ(Corvane_GetCurrentDisplay(channel, broken.context, &info), Status_Failed);
    EXPECT_EQ(Corvane_GetZoomedDisplay(channel, unbounded.context, &info), Status_Ok);
    EXPECT_EQ(info.clientWidth, 160u) << "the picture's size";
    cairo_set_source_surface(replayed.context, unbounded.surface, 0, 0);
    cairo_paint(replayed.context);
    EXPECT_EQ(replayed.At(80, 50), pixel(*plain, 80, 50));
}

TEST(Stills, LogoOfAStoppedChannel) {
    Client client;
    PictureBuffer picture{};
    EXPECT_EQ(Corvane_GetCurrentSnapShot(client.channel, &picture, 1), Status_Failed) << "nothing yet";
    // 1, 8 and 16 pixels: rows of as many bytes in formats that the logo does not have. Upright in all, red over black.
    for (const int width : {1, 5, 8, 16}) {
        Canvas logo(width, 2);
        cairo_set_source_rgb(logo.context, 1, 0, 0);
        cairo_rectangle(logo.context, 0, 0, width, 1);
        cairo_fill(logo.context);
        client.Set(CORVANE_OPTION_LOGO, reinterpret_cast<uint64_t>(logo.surface));
        for (uint32_t format = 1; format <= 18; ++format) {
            SCOPED_TRACE(testing::Message() << width << " pixels in format " << format);
            const bool has = format == 4 || format == 7 || format == 14;
            ASSERT_EQ(Corvane_GetCurrentSnapShot(client.channel, &picture, kNumbered | format << 16),
                      has ? Status_Ok : Status_Failed);
            if (!has)
                continue;
            const int row = 4 * width, red = format == 14 ? 0 : 2;
            const uint8_t* const top = picture.data + (format == 7 ? 54 + row : 0);
            EXPECT_TRUE(top[red] == 255 && top[2 - red] == 0 && top[row - 4 + red] == 255);
            EXPECT_EQ(top[(format == 7 ? -row : row) + red], 0);
            Corvane_FreePicture(&picture);
        }
    }
    ASSERT_EQ(Corvane_StartChannel(client.channel, 1), Status_Ok);
    EXPECT_EQ(Corvane_GetCurrentSnapShot(client.channel, &picture, kNumbered | 7 << 16), Status_Failed) << "waiting";
}

// Pictures that no stream of a live channel brings: of two planes, and placeholders.
TEST(Stills, PairsAndPlaceholders) {
    uint8_t pixels[16 * 12];    // the value is the place; colour in pairs
    std::iota(std::begin(pixels), std::end(pixels), uint8_t{0});
    test::ScriptedDecoder::picture = [&](const EncodedUnit&) {
        return DecodedFrame{{pixels, pixels + 16 * 8, nullptr}, {16, 16, 0}, 16, 8, nullptr, nullptr, nullptr, {}};
    };
    CRenderMgr render(nullptr, 0, 0);
    VideoStage video(render, false);
    StillPipeline stills(nullptr, video, render);
    video.Settings().SetFactories({.GetDecoderIsolated_QuickSync = &test::ScriptedDecoder::Make});
    video.Settings().SetH264Kind(3);
    render.Stop(true);    // waiting for a picture: no logo
    SharedPicture current;
    FramePtr frame = test::MakeFrame(CORVANE_STREAM_H264, {1, 2, 3}, true, 0, 8, 4);
    ASSERT_TRUE(video.Decode(frame, 0, current));
    const DisplayArea area{0, 0, {{0, 0, 16, 8}}, {}, 0, 0, {{6, 2, 14, 6}}, {}, 1, 0};
    ASSERT_EQ(render.SetDisplayArea(area, 31), Status::Ok);
    PictureBuffer picture{};
    ASSERT_EQ(stills.Snapshot(18, true, picture), Status::Ok);
    Bytes wanted;
    for (const int row : {2, 3, 4, 5, 9, 10})
        for (int column = 6; column < 14; ++column)
            wanted.push_back(static_cast<uint8_t>(16 * row + column));
    EXPECT_EQ(BytesOf(picture), wanted);
    Corvane_FreePicture(&picture);

    MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_PLACEHOLDER, {}, true, 7000, 0, 0);
    const uint8_t baseTime[] = {0, 0, 0, 0, 96, 12, 0, 0, 0, 9, 0, 0, 0, 8, 0, 7, 0, 1};    // 9 s, as an extension
    header.streamSeconds = 60;
    header.extension = baseTime;
    header.extensionSize = sizeof baseTime;
    frame = std::make_shared<MediaFrameImpl>(header);
    ASSERT_TRUE(video.Decode(frame, 0, current));
    const Canvas canvas(8, 8);
    DisplayFrameInfo info{.flags = 2};
    EXPECT_EQ(stills.Display(canvas.context, false, info), Status::Ok);
    EXPECT_EQ(info.flags, 0x82u);
    EXPECT_TRUE(info.timeSeconds == 7 && info.presentTime.seconds == 60 && info.baseTime.seconds == 9);
}

// Three threads take stills while options change: every still is one whole picture.
TEST(Stills, BesideTheStream) {
    const auto stream = test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .frames = 60});
    Client client;
    Corvane_SetBufferTime(client.channel, 1);
    client.Set(CORVANE_OPTION_FULL_QUEUE, 0);
    client.Start();
    std::atomic<bool> ending{false};
    std::atomic<int> taken{0};
    std::vector<std::jthread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&] {
            for (int last = 0; !ending; std::this_thread::sleep_for(std::chrono::milliseconds(5))) {
                PictureBuffer picture{};
                if (Corvane_GetCurrentSnapShot(client.channel, &picture, kNumbered | 11 << 16) != Status_Ok)
                    continue;
                const int stamp = test::ReadStamp(picture.data, picture.width);
                EXPECT_GE(stamp, last);    // -1: not one whole picture
                last = stamp;
                ++taken;
                Corvane_FreePicture(&picture);
            }
        });
    for (size_t i = 0; i < stream.size(); ++i)
        EXPECT_EQ(client.Feed(CORVANE_STREAM_JPEG, stream[i].bytes, true, static_cast<int64_t>(i) * 20), Status_Ok);
    uint64_t value = 0;
    EXPECT_TRUE(Eventually([&] {
        Corvane_SetChannelOption(client.channel, 56, 0, 0);
        Corvane_SetChannelOption(client.channel, value % 2 == 0 ? 17 : 57, value % 4, 0);
        ++value;
        const std::vector<int> stamps = client.Stamps();    // a late worker drops others
        return taken > 30 && !stamps.empty() && stamps.back() == 59;
    }));
    EXPECT_TRUE(std::ranges::is_sorted(client.Stamps()));
    ending = true;
}

}    // namespace
}    // namespace corvane
