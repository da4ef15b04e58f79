// Pictures at the off-screen callback equal, to the bit, the told arithmetic over the planes that libavcodec gives.
#include <gtest/gtest.h>

extern "C" {
#include <libswscale/swscale.h>
}

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

// Planes of one picture, tightly packed, chroma rounded up.
struct Planes {
    int width, height;
    std::vector<uint8_t> plane[3];
    int ChromaWidth() const { return (width + 1) / 2; }
    int ChromaHeight() const { return (height + 1) / 2; }
};

AVPixelFormat WithoutRange(int format) {
    return format == AV_PIX_FMT_YUVJ422P ? AV_PIX_FMT_YUV422P : static_cast<AVPixelFormat>(format);
}

Planes To420(const AVFrame& frame) {
    Planes out{frame.width, frame.height, {}};
    const uint8_t* source[3] = {frame.data[0], frame.data[1], frame.data[2]};
    int strides[3] = {frame.linesize[0], frame.linesize[1], frame.linesize[2]};
    std::unique_ptr<AVFrame, test::AVFrameFreer> converted(av_frame_alloc());
    if (frame.format != AV_PIX_FMT_YUV420P && frame.format != AV_PIX_FMT_YUVJ420P) {
        converted->format = AV_PIX_FMT_YUV420P;
        converted->width = frame.width;
        converted->height = frame.height;
        av_frame_get_buffer(converted.get(), 32);
        SwsContext* scaler =
            sws_getContext(frame.width, frame.height, WithoutRange(frame.format), frame.width, frame.height,
                           AV_PIX_FMT_YUV420P, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
        sws_scale(scaler, frame.data, frame.linesize, 0, frame.height, converted->data, converted->linesize);
        sws_freeContext(scaler);
        for (int i = 0; i < 3; ++i) {
            source[i] = converted->data[i];
            strides[i] = converted->linesize[i];
        }
    }
    for (int i = 0; i < 3; ++i) {
        const int width = i == 0 ? out.width : out.ChromaWidth();
        const int height = i == 0 ? out.height : out.ChromaHeight();
        for (int row = 0; row < height; ++row)
            out.plane[i].insert(out.plane[i].end(), source[i] + row * strides[i], source[i] + row * strides[i] + width);
    }
    return out;
}

// The picture as the callback must deliver it: everything that is not written is 0.
std::vector<uint8_t> Expected(const Planes& planes, uint32_t kind, bool bottomUp) {
    const size_t width = static_cast<size_t>(planes.width);
    const size_t height = static_cast<size_t>(planes.height);
    if (kind == 11) {
        const size_t stride = (width + 63) & ~size_t{63};
        std::vector<uint8_t> out(stride * height * 3 / 2);
        uint8_t* const starts[] = {out.data(), out.data() + stride * height, out.data() + stride * height * 5 / 4};
        for (int i = 0; i < 3; ++i)
            for (size_t row = 0; row < (i == 0 ? height : height / 2); ++row)
                std::copy_n(&planes.plane[i][row * (i == 0 ? width : (width + 1) / 2)], i == 0 ? width : width / 2,
                            starts[i] + row * (i == 0 ? stride : stride / 2));
        return out;
    }
    const size_t bytes = kind == 3 ? 3 : 4;
    const size_t stride = kind == 3 ? ((24 * width + 31) >> 3) & ~size_t{3} : 4 * width;
    std::vector<uint8_t> out(stride * height);
    for (size_t y = 0; y < (height & ~size_t{1}); ++y) {
        for (size_t x = 0; x < (width & ~size_t{1}); ++x) {
            const int64_t luma = 65536 * int64_t{planes.plane[0][y * width + x]};
            const size_t chroma = y / 2 * ((width + 1) / 2) + x / 2;
            const int64_t u = planes.plane[1][chroma];
            const int64_t v = planes.plane[2][chroma];
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
                const std::vector<uint8_t> expected = Expected(To420(*bare[i]), kind, bottomUp != 0);
                ASSERT_EQ(shown[0].pixels.size(), expected.size());
                const auto differs = std::ranges::mismatch(shown[0].pixels, expected);
                ASSERT_EQ(differs.in1, shown[0].pixels.end()) << "byte " << differs.in1 - shown[0].pixels.begin();
            }
        }
    }
}

}    // namespace
}    // namespace corvane
