// Pictures at the off-screen callback equal, to the bit, the documented arithmetic over the planes that libavcodec
// gives.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/BareDecoder.h"
#include "support/Client.h"

namespace corvane {
namespace {

using test::Client;
using test::VideoSpec;

uint8_t Clamped(int64_t value) {
    return static_cast<uint8_t>(std::clamp<int64_t>(value, 0, 255));
}

// The picture as the callback must deliver it: everything that is not written is 0.
std::vector<uint8_t> Expected(const AVFrame& from, uint32_t kind, bool bottomUp) {
    const auto width = static_cast<size_t>(from.width), height = static_cast<size_t>(from.height);
    const auto at = [&](int plane, size_t x, size_t y) {
        return int64_t{from.data[plane][y * static_cast<size_t>(from.linesize[plane]) + x]};
    };
    if (kind == 11) {
        const size_t stride = (width + 63) & ~size_t{63};
        std::vector<uint8_t> out(stride * height * 3 / 2);
        const size_t starts[] = {0, stride * height, stride * height * 5 / 4};
        for (int plane = 0; plane < 3; ++plane) {
            const size_t half = plane == 0 ? 1 : 2;
            for (size_t y = 0; y < height / half; ++y)
                for (size_t x = 0; x < width / half; ++x)
                    out[starts[plane] + y * (stride / half) + x] = static_cast<uint8_t>(at(plane, x, y));
        }
        return out;
    }
    const size_t bytes = kind == 3 ? 3 : 4;
    const size_t stride = kind == 3 ? ((24 * width + 31) >> 3) & ~size_t{3} : 4 * width;
    std::vector<uint8_t> out(stride * height);
    for (size_t y = 0; y < (height & ~size_t{1}); ++y) {
        for (size_t x = 0; x < (width & ~size_t{1}); ++x) {
            const int64_t luma = 65536 * at(0, x, y), u = at(1, x / 2, y / 2), v = at(2, x / 2, y / 2);
            uint8_t* const pixel = &out[(bottomUp ? height - 1 - y : y) * stride + x * bytes];
            pixel[0] = Clamped((luma + 116128 * u - 14831618) >> 16);
            pixel[1] = Clamped((luma - 22553 * u - 46801 * v + 8910128) >> 16);
            pixel[2] = Clamped((luma + 91880 * v - 11727880) >> 16);
        }
    }
    return out;
}

TEST(Exactness, PicturesEqualTheArithmeticOverTheDecodersPlanes) {
    const struct {
        const char* name;
        VideoSpec spec;
    } streams[] = {
        {"h264", {.width = 322, .height = 182}},
        {"h264 4:2:2", {.sampling = test::Sampling::Yuv422}},
        {"h264 10 bit", {.bitDepth = 10}},
        {"h265", {.streamType = CORVANE_STREAM_H265}},
        {"mpeg4", {.streamType = CORVANE_STREAM_MPEG4}},
        {"jpeg odd", {.streamType = CORVANE_STREAM_JPEG, .width = 151, .height = 99}},
        {"jpeg 4:2:2 odd",
         {.streamType = CORVANE_STREAM_JPEG, .width = 151, .height = 99, .sampling = test::Sampling::Yuv422}},
    };
    for (const auto& stream : streams) {
        VideoSpec spec = stream.spec;
        spec.frames = 4;
        const auto encoded = test::MakeVideo(spec);
        const auto bare = test::BareDecode(spec.streamType, encoded);
        ASSERT_EQ(bare.size(), encoded.size());
        for (const auto& [kind, bottomUp] : {std::pair(3u, 0u), {3u, 1u}, {4u, 0u}, {4u, 1u}, {11u, 0u}}) {
            SCOPED_TRACE(std::string(stream.name) + " kind " + std::to_string(kind) + (bottomUp ? " bottom-up" : ""));
            Client client(kind, true);
            ASSERT_EQ(Corvane_SetChannelOption(client.channel, 48, 1, 0), Status_Ok);
            Corvane_RegisterRawDataCallback(client.channel, &Client::OnPicture, &client, kind, bottomUp);
            client.Start();
            for (size_t i = 0; i < encoded.size(); ++i) {
                ASSERT_EQ(client.Feed(spec.streamType, encoded[i].bytes, encoded[i].key, static_cast<int64_t>(i)),
                          Status_Ok);
                std::vector<Client::Shown> shown;
                ASSERT_TRUE(test::Eventually([&] { return !(shown = client.Take()).empty(); }));
                const std::vector<uint8_t> expected = Expected(*test::To420(*bare[i]), kind, bottomUp != 0);
                ASSERT_EQ(shown[0].pixels.size(), expected.size());
                const auto differs = std::ranges::mismatch(shown[0].pixels, expected);
                ASSERT_EQ(differs.in1, shown[0].pixels.end()) << "byte " << differs.in1 - shown[0].pixels.begin();
            }
        }
    }
}

}    // namespace
}    // namespace corvane
