// Pixel conversion at 1920 x 1080 beside libyuv and libswscale: ours / the faster of the two, both in this process and
// on the same buffers, in alternation. "ring": 8 sources and 8 destinations in turn, larger than the cache; "warm": one
// of each.
//
//   convert_bench [rounds] [best | avx2 | sse4 | scalar] [part of a name]
//
// The second argument caps our instruction set, not the peers'; the third picks conversions.
// Prints the median of the ratios of each round, and the ratio of the minima. Machines are noisy: trust ratios only.
#include <hwy/targets.h>
#include <libyuv.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "Contest.h"
#include "base/AlignedBuffer.h"
#include "base/PictureLayout.h"
#include "kernels/PackedYuv.h"
#include "kernels/PlaneCopy.h"
#include "kernels/SemiPlanar.h"
#include "kernels/YCbCrToRGB.h"
#include "kernels/YUVToRGB16.h"

namespace {

using namespace corvane::kernels;
using corvane::AlignedBuffer;
using corvane::bench::CapTargets;
using corvane::bench::Figures;
using corvane::bench::Measure;

constexpr int kWidth = 1920;
constexpr int kHeight = 1080;
constexpr size_t kLuma = size_t{kWidth} * kHeight;
constexpr int kRing = 8;

// As a user calls it, with a size that is not known when compiling.
void* (*volatile copyBytes)(void*, const void*, size_t) = std::memcpy;

struct Buffers {
    uint8_t* source;    // I420, or NV12 by the kernel's reading; planes lie together
    uint8_t* out;
    uint8_t* y() const { return source; }
    uint8_t* u() const { return source + kLuma; }
    uint8_t* v() const { return source + kLuma * 5 / 4; }
};

using Conversion = corvane::bench::Contest<Buffers>;
using Run = Conversion::Run;

Run Swscale(AVPixelFormat from, AVPixelFormat to, int bytesARow, bool planes) {
    SwsContext* context =
        sws_getContext(kWidth, kHeight, from, kWidth, kHeight, to, SWS_POINT, nullptr, nullptr, nullptr);
    return [=](const Buffers& b) {
        const bool pairs = from == AV_PIX_FMT_NV12;
        const uint8_t* const source[4] = {b.y(), b.u(), pairs ? nullptr : b.v(), nullptr};
        const int sourceStep[4] = {kWidth, pairs ? kWidth : kWidth / 2, pairs ? 0 : kWidth / 2, 0};
        uint8_t* const out[4] = {b.out, planes ? b.out + kLuma : nullptr,
                                 planes && to != AV_PIX_FMT_NV12 ? b.out + kLuma * 5 / 4 : nullptr, nullptr};
        const int chromaStep = planes ? (to == AV_PIX_FMT_NV12 ? kWidth : kWidth / 2) : 0;
        const int outStep[4] = {bytesARow, chromaStep, to == AV_PIX_FMT_NV12 ? 0 : chromaStep, 0};
        sws_scale(context, source, sourceStep, 0, kHeight, out, outStep);
    };
}

using corvane::ConstPictureView;
using corvane::PictureView;

constexpr corvane::PictureSize kSize{kWidth, kHeight};

// The source as three planes, or as two.
ConstPictureView Source(const Buffers& b, uint32_t format = PF_I420) {
    const ptrdiff_t chroma = format == PF_I420 ? kWidth / 2 : kWidth;
    return {{b.y(), b.u(), format == PF_I420 ? b.v() : nullptr}, {kWidth, chroma, chroma}, kSize, format};
}

PictureView Packed(const Buffers& b, uint32_t format) {
    return {{b.out}, {kWidth * ptrdiff_t{corvane::PixelBytes(format)}}, kSize, format};
}

Run Rgb(uint32_t format, bool bottomUp, bool streaming = false,
        const std::optional<corvane::ColourSignal>& colours = {}) {
    return [=](const Buffers& b) {
        ConstPictureView source = Source(b);
        source.colours = colours;
        const PictureView out = Packed(b, format);
        YCbCrToRGB(source, bottomUp ? out.Reversed() : out, {0, streaming});
    };
}

// Of the house, and of peers with the arguments of libyuv.
Run Ours(int32_t (*function)(const ConstPictureView&, const PictureView&), uint32_t from, uint32_t to) {
    return [=](const Buffers& b) { function(Source(b, from), Packed(b, to)); };
}

template <typename Function>
Run Yuv3(Function function, int step, int height = kHeight) {
    return [=](const Buffers& b) {
        function(b.y(), kWidth, b.u(), kWidth / 2, b.v(), kWidth / 2, b.out, step, kWidth, height);
    };
}

template <typename Function>
Run Yuv2(Function function, int step) {
    return [=](const Buffers& b) { function(b.y(), kWidth, b.u(), kWidth, b.out, step, kWidth, kHeight); };
}

std::vector<Conversion> RgbConversions() {
    std::vector<Conversion> list;
    const auto sws24 = Swscale(AV_PIX_FMT_YUV420P, AV_PIX_FMT_BGR24, kWidth * 3, false);
    const auto sws32 = Swscale(AV_PIX_FMT_YUV420P, AV_PIX_FMT_BGRA, kWidth * 4, false);
    const auto sws16 = Swscale(AV_PIX_FMT_YUV420P, AV_PIX_FMT_RGB565LE, kWidth * 2, false);
    const std::vector<std::pair<const char*, Run>> peers24{{"libyuv", Yuv3(libyuv::I420ToRGB24, kWidth * 3)},
                                                           {"swscale", sws24}};
    const std::vector<std::pair<const char*, Run>> peers32{{"libyuv", Yuv3(libyuv::J420ToARGB, kWidth * 4)},
                                                           {"swscale", sws32}};
    const std::vector<std::pair<const char*, Run>> flip24{{"libyuv", Yuv3(libyuv::I420ToRGB24, kWidth * 3, -kHeight)}};
    list.push_back({"I420 to 24 bit", "ring 0.60 warm 0.40; avx2 0.80", Rgb(PF_BGR24, false), peers24});
    list.push_back({"I420 to 24 bit, bottom-up", "0.45", Rgb(PF_BGR24, true), flip24});
    list.push_back({"I420 to 32 bit", "ring 0.90 warm 0.60; avx2 1.05", Rgb(PF_BGRA32, false), peers32});
    // For pixels that nobody reads next, as those of windows.
    list.push_back({"24 bit, past the cache", "ring 0.60", Rgb(PF_BGR24, false, true), peers24});
    list.push_back({"24 bit bottom-up, past the cache", "ring 0.45", Rgb(PF_BGR24, true, true), flip24});
    list.push_back({"32 bit, past the cache", "ring 0.90", Rgb(PF_BGRA32, false, true), peers32});
    // By the colours that a stream signals.
    constexpr corvane::ColourSignal kBt709{corvane::ColourSignal::Matrix::Bt709, false};
    const auto h24 = Yuv3(libyuv::I420ToRGB24, kWidth * 3);
    const auto h32 = Yuv3(libyuv::H420ToARGB, kWidth * 4);
    list.push_back(
        {"BT.709 to 24 bit", "", Rgb(PF_BGR24, false, false, kBt709), {{"libyuv", h24}, {"swscale", sws24}}});
    list.push_back(
        {"BT.709 to 32 bit", "", Rgb(PF_BGRA32, false, false, kBt709), {{"libyuv", h32}, {"swscale", sws32}}});
    list.push_back({"BT.709 to 32 bit, past the cache",
                    "",
                    Rgb(PF_BGRA32, false, true, kBt709),
                    {{"libyuv", h32}, {"swscale", sws32}}});
    list.push_back({"NV12 to 24 bit",
                    "",
                    [](const Buffers& b) { YCbCrToRGB(Source(b, PF_NV12), Packed(b, PF_BGR24)); },
                    {{"libyuv", Yuv2(libyuv::NV12ToRGB24, kWidth * 3)},
                     {"swscale", Swscale(AV_PIX_FMT_NV12, AV_PIX_FMT_BGR24, kWidth * 3, false)}}});
    list.push_back({"I420 to RGB565",
                    "0.90",
                    Ours(YUVToRGB16, PF_I420, PF_RGB565),
                    {{"libyuv", Yuv3(libyuv::I420ToRGB565, kWidth * 2)}, {"swscale", sws16}}});
    return list;
}

std::vector<Conversion> YuvConversions() {
    std::vector<Conversion> list;
    list.push_back({"I420 to YUY2",
                    "0.90",
                    Ours(PlanarToYUY2, PF_I420, PF_YUY2),
                    {{"libyuv", Yuv3(libyuv::I420ToYUY2, kWidth * 2)},
                     {"swscale", Swscale(AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUYV422, kWidth * 2, false)}}});
    list.push_back({"I420 to UYVY",
                    "0.90",
                    Ours(PlanarToUYVY, PF_I420, PF_UYVY),
                    {{"libyuv", Yuv3(libyuv::I420ToUYVY, kWidth * 2)},
                     {"swscale", Swscale(AV_PIX_FMT_YUV420P, AV_PIX_FMT_UYVY422, kWidth * 2, false)}}});
    list.push_back({"NV12 to YUY2",
                    "0.90",
                    Ours(NV12ToYUY2, PF_NV12, PF_YUY2),
                    {{"swscale", Swscale(AV_PIX_FMT_NV12, AV_PIX_FMT_YUYV422, kWidth * 2, false)}}});
    list.push_back({"I420 to NV12",
                    "0.90",
                    [](const Buffers& b) { I420ToNV12(Source(b), corvane::LayOut(b.out, kWidth, kSize, PF_NV12)); },
                    {{"libyuv",
                      [](const Buffers& b) {
                          libyuv::I420ToNV12(b.y(), kWidth, b.u(), kWidth / 2, b.v(), kWidth / 2, b.out, kWidth,
                                             b.out + kLuma, kWidth, kWidth, kHeight);
                      }},
                     {"swscale", Swscale(AV_PIX_FMT_YUV420P, AV_PIX_FMT_NV12, kWidth, true)}}});
    list.push_back(
        {"NV12 to I420",
         "0.90",
         [](const Buffers& b) { NV12ToI420(Source(b, PF_NV12), corvane::LayOut(b.out, kWidth, kSize, PF_I420)); },
         {{"libyuv",
           [](const Buffers& b) {
               libyuv::NV12ToI420(b.y(), kWidth, b.u(), kWidth, b.out, kWidth, b.out + kLuma, kWidth / 2,
                                  b.out + kLuma * 5 / 4, kWidth / 2, kWidth, kHeight);
           }},
          {"swscale", Swscale(AV_PIX_FMT_NV12, AV_PIX_FMT_YUV420P, kWidth, true)}}});
    list.push_back(
        {"plane copy",
         "1.0",
         [](const Buffers& b) { PlaneCopy(b.y(), kWidth, b.out, kWidth, kWidth, kHeight, kCopyStreamingStores); },
         {{"memcpy", [](const Buffers& b) { copyBytes(b.out, b.y(), kLuma); }},
          {"libyuv", [](const Buffers& b) { libyuv::CopyPlane(b.y(), kWidth, b.out, kWidth, kWidth, kHeight); }}}});
    list.push_back(
        {"plane copy by rows",
         "1.0",
         [](const Buffers& b) { PlaneCopy(b.y(), kWidth, b.out, kWidth + 64, kWidth, kHeight, kCopyStreamingStores); },
         {{"memcpy",
           [](const Buffers& b) {
               for (size_t row = 0; row < kHeight; ++row)
                   copyBytes(b.out + row * (kWidth + 64), b.y() + row * kWidth, kWidth);
           }},
          {"libyuv",
           [](const Buffers& b) { libyuv::CopyPlane(b.y(), kWidth, b.out, kWidth + 64, kWidth, kHeight); }}}});
    return list;
}

}    // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 100;
    if (rounds < 1 || (argc > 2 && !CapTargets(argv[2]))) {
        std::fprintf(stderr, "usage: convert_bench [rounds] [best | avx2 | sse4 | scalar] [part of a name]\n");
        return 2;
    }
    std::vector<AlignedBuffer> memory(2 * kRing);
    std::vector<Buffers> ring;
    for (int i = 0; i < kRing; ++i) {
        AlignedBuffer& source = memory[static_cast<size_t>(2 * i)];
        AlignedBuffer& out = memory[static_cast<size_t>(2 * i + 1)];
        if (!source.Allocate(kLuma * 3 / 2) || !out.Allocate(kLuma * 4))
            return 1;
        for (size_t byte = 0; byte < source.Size(); ++byte)
            source.Data()[byte] = static_cast<uint8_t>(byte * 2654435761u >> 13);
        ring.push_back({source.Data(), out.Data()});
    }
    const int64_t targets = hwy::SupportedTargets();
    std::printf("1920 x 1080, best instruction set %s, %d rounds\n", hwy::TargetName(targets & -targets), rounds);
    std::printf("%-36s | %-8s %6s %6s %8s | %-8s %6s %6s %8s | %s\n", "ours / faster peer", "ring", "median", "minima",
                "ours ms", "warm", "median", "minima", "ours ms", "goal");
    auto conversions = RgbConversions();
    for (auto& conversion : YuvConversions())
        conversions.push_back(std::move(conversion));
    for (const Conversion& conversion : conversions) {
        if (argc > 3 && conversion.name.find(argv[3]) == std::string::npos)
            continue;
        const Figures cold = Measure(conversion, ring, rounds);
        const Figures warm = Measure(conversion, {ring[0]}, rounds);
        std::printf("%-36s | %-8s %6.2f %6.2f %8.3f | %-8s %6.2f %6.2f %8.3f | %s\n", conversion.name.c_str(),
                    cold.peer, cold.medianRatio, cold.minimumRatio, cold.oursMs, warm.peer, warm.medianRatio,
                    warm.minimumRatio, warm.oursMs, conversion.goal.c_str());
        std::fflush(stdout);
    }
    return 0;
}
