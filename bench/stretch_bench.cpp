// The scaler beside libyuv and libswscale: ours / the faster of the two. Sources are bottom-up where they have 3 bytes
// a pixel. "ring": as many pairs of buffers in turn as are larger than the cache; "warm": one.
//
//   stretch_bench [rounds] [best | avx2 | sse4 | scalar] [part of a name]
#include <libyuv.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Contest.h"
#include "base/AlignedBuffer.h"
#include "kernels/Stretch.h"

namespace {

using corvane::AlignedBuffer;
using corvane::bench::Figures;

constexpr size_t kBufferBytes = size_t{1920} * 1080 * 4;
constexpr int kRing = 8;

struct Buffers {
    uint8_t* source;
    uint8_t* between;    // for a peer that needs two steps
    uint8_t* out;
};

using Scaling = corvane::bench::Contest<Buffers>;

struct Size {
    int width, height;
};

Scaling::Run Ours(Size from, Size to, int bytes) {
    return [=](const Buffers& b) {
        const ptrdiff_t step = ptrdiff_t{from.width} * bytes;
        const bool bottomUp = bytes == 3;
        const auto size = [](int side) { return static_cast<uint32_t>(side); };
        const corvane::ConstPictureView source{{bottomUp ? b.source + (from.height - 1) * step : b.source},
                                               {bottomUp ? -step : step},
                                               {size(from.width), size(from.height)},
                                               bytes == 3 ? PF_BGR24 : PF_BGRA32};
        const corvane::PictureView out{
            {b.out}, {ptrdiff_t{to.width} * 4}, {size(to.width), size(to.height)}, PF_BGRA32};
        const bool done = corvane::kernels::Stretch(source, out, out.Bounds());
        if (!done)
            std::abort();
    };
}

Scaling::Run Libyuv(Size from, Size to, int bytes, libyuv::FilterMode filter) {
    const bool same = from.width == to.width && from.height == to.height;
    return [=](const Buffers& b) {
        const uint8_t* source = b.source;
        if (bytes == 3) {
            uint8_t* const out = same ? b.out : b.between;
            libyuv::RGB24ToARGB(b.source, from.width * 3, out, from.width * 4, from.width, -from.height);
            source = out;
        } else if (same) {
            libyuv::ARGBCopy(source, from.width * 4, b.out, from.width * 4, from.width, from.height);
        }
        if (!same)
            libyuv::ARGBScale(source, from.width * 4, from.width, from.height, b.out, to.width * 4, to.width, to.height,
                              filter);
    };
}

Scaling::Run Swscale(Size from, Size to, int bytes, int filter) {
    SwsContext* context = sws_getContext(from.width, from.height, bytes == 3 ? AV_PIX_FMT_BGR24 : AV_PIX_FMT_BGR0,
                                         to.width, to.height, AV_PIX_FMT_BGR0, filter, nullptr, nullptr, nullptr);
    return [=](const Buffers& b) {
        const int step = from.width * bytes;
        const bool bottomUp = bytes == 3;
        const uint8_t* const source[4] = {bottomUp ? b.source + ptrdiff_t{from.height - 1} * step : b.source};
        const int sourceStep[4] = {bottomUp ? -step : step};
        uint8_t* const out[4] = {b.out};
        const int outStep[4] = {to.width * 4};
        sws_scale(context, source, sourceStep, 0, from.height, out, outStep);
    };
}

std::vector<Scaling> Scalings() {
    constexpr Size kFull{1920, 1080};
    struct {
        Size from, to;
    } const sizes[] = {{kFull, kFull},      {kFull, {1280, 720}}, {{1280, 720}, kFull}, {kFull, {1366, 768}},
                       {kFull, {640, 360}}, {kFull, {480, 270}},  {{640, 360}, kFull}};
    std::vector<Scaling> list;
    for (const auto& [from, to] : sizes) {
        for (const int bytes : {3, 4}) {
            const bool smaller = to.width < from.width;
            const auto libyuv = Libyuv(from, to, bytes, smaller ? libyuv::kFilterBox : libyuv::kFilterBilinear);
            char name[64];
            std::snprintf(name, sizeof name, "%d bit, %d x %d to %d x %d", bytes * 8, from.width, from.height, to.width,
                          to.height);
            Scaling scaling{name, "1.0", Ours(from, to, bytes), {{"libyuv", libyuv}}};
            if (from.width != to.width)
                scaling.peers.emplace_back("swscale", Swscale(from, to, bytes, smaller ? SWS_AREA : SWS_BILINEAR));
            list.push_back(scaling);
        }
    }
    return list;
}

}    // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 100;
    if (rounds < 1 || (argc > 2 && !corvane::bench::CapTargets(argv[2]))) {
        std::fprintf(stderr, "usage: stretch_bench [rounds] [best | avx2 | sse4 | scalar] [part of a name]\n");
        return 2;
    }
    AlignedBuffer between;
    std::vector<AlignedBuffer> memory(2 * kRing);
    std::vector<Buffers> ring;
    if (!between.Allocate(kBufferBytes))
        return 1;
    for (size_t i = 0; i < memory.size(); i += 2) {
        if (!memory[i].Allocate(kBufferBytes) || !memory[i + 1].Allocate(kBufferBytes))
            return 1;
        for (size_t byte = 0; byte < kBufferBytes; ++byte)
            memory[i].Data()[byte] = static_cast<uint8_t>(byte * 2654435761u >> 13);
        ring.push_back({memory[i].Data(), between.Data(), memory[i + 1].Data()});
    }
    const int64_t targets = hwy::SupportedTargets();
    std::printf("best instruction set %s, %d rounds\n", hwy::TargetName(targets & -targets), rounds);
    std::printf("%-36s | %-8s %6s %6s %8s | %-8s %6s %6s %8s | %s\n", "ours / faster peer", "ring", "median", "minima",
                "ours ms", "warm", "median", "minima", "ours ms", "goal");
    for (const Scaling& scaling : Scalings()) {
        if (argc > 3 && scaling.name.find(argv[3]) == std::string::npos)
            continue;
        const Figures cold = Measure(scaling, ring, rounds);
        const Figures warm = Measure(scaling, {ring[0]}, rounds);
        std::printf("%-36s | %-8s %6.2f %6.2f %8.3f | %-8s %6.2f %6.2f %8.3f | %s\n", scaling.name.c_str(), cold.peer,
                    cold.medianRatio, cold.minimumRatio, cold.oursMs, warm.peer, warm.medianRatio, warm.minimumRatio,
                    warm.oursMs, scaling.goal.c_str());
        std::fflush(stdout);
    }
    return 0;
}
