// The chain's own filters beside their peers: smoothing beside a copy of the same planes, resizing beside libswscale
// called directly, rotation by whole quarters beside libyuv, by other angles beside libswscale's scaling to the size of
// the rotated picture. Planar 4:2:0 pictures; "ring": more of them in turn than fit the cache;
// "warm": one.
//
//   filter_bench [rounds] [best | avx2 | sse4 | scalar] [part of a name]
#include <libyuv.h>

extern "C" {
#include <libswscale/swscale.h>
}

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Contest.h"
#include "base/AlignedBuffer.h"
#include "base/PictureLayout.h"
#include "filters/FilterDeInterlace.h"
#include "filters/FilterPicture.h"
#include "filters/FilterResize.h"
#include "filters/RotateFilter.h"

namespace {

using corvane::AlignedBuffer;
using corvane::bench::Figures;
using Size = corvane::PictureSize;
using QMRX::Filter::FilterArgs;
using QMRX::Filter::Picture;

constexpr uint32_t kMostWidth = 1920;
constexpr uint32_t kMostHeight = 1080;
constexpr uint32_t kMostTurned = 2240;    // a side of the box around a rotated one
constexpr int kRing = 8;

struct Buffers {
    uint8_t* source;
    uint8_t* out;
};

using Job = corvane::bench::Contest<Buffers>;

Picture Over(uint8_t* memory, Size size) {
    return corvane::RecordOf(corvane::LayOut(memory, corvane::RowBytes(PF_I420, size.width), size, PF_I420));
}

template <class Filter>
Job::Run Run(std::shared_ptr<Filter> filter, Size from, Size to) {
    return [=](const Buffers& b) {
        const Picture source = Over(b.source, from);
        Picture out = Over(b.out, to);
        FilterArgs args{&source, &out, from.width, from.height};
        if (filter->Process(&args) < 0)
            std::abort();
    };
}

void Copy(const Buffers& b, Size size, const std::function<void(const uint8_t*, int, uint8_t*, int, int, int)>& plane) {
    const Picture source = Over(b.source, size);
    const Picture out = Over(b.out, size);
    for (int i = 0; i < 3; ++i)
        plane(source.plane[i], source.stride[i], out.plane[i], out.stride[i], static_cast<int>(size.width >> (i != 0)),
              static_cast<int>(size.height >> (i != 0)));
}

Job Smoothing(Size size) {
    auto filter = std::make_shared<QMRX::Filter::FilterDeInterlace>();
    filter->SetSmooth(true);
    const auto libyuv = [size](const Buffers& b) {
        Copy(b, size, [](const uint8_t* from, int fromStep, uint8_t* to, int toStep, int width, int height) {
            libyuv::CopyPlane(from, fromStep, to, toStep, width, height);
        });
    };
    const auto rows = [size](const Buffers& b) {
        Copy(b, size, [](const uint8_t* from, int fromStep, uint8_t* to, int toStep, int width, int height) {
            for (int row = 0; row < height; ++row)
                std::memcpy(to + ptrdiff_t{row} * toStep, from + ptrdiff_t{row} * fromStep, static_cast<size_t>(width));
        });
    };
    return {"smoothing, " + std::to_string(size.width) + " x " + std::to_string(size.height) + ", beside a copy",
            "1.50",
            Run(filter, size, size),
            {{"libyuv", libyuv}, {"memcpy", rows}}};
}

std::function<void(const Buffers&)> Scaling(Size from, Size to, int flag) {
    const std::shared_ptr<SwsContext> context(
        sws_getContext(static_cast<int>(from.width), static_cast<int>(from.height), AV_PIX_FMT_YUV420P,
                       static_cast<int>(to.width), static_cast<int>(to.height), AV_PIX_FMT_YUV420P, flag, nullptr,
                       nullptr, nullptr),
        sws_freeContext);
    return [=](const Buffers& b) {
        const Picture source = Over(b.source, from);
        const Picture out = Over(b.out, to);
        const uint8_t* const in[4] = {source.plane[0], source.plane[1], source.plane[2]};
        uint8_t* const target[4] = {out.plane[0], out.plane[1], out.plane[2]};
        const int inSteps[4] = {source.stride[0], source.stride[1], source.stride[2]};
        const int outSteps[4] = {out.stride[0], out.stride[1], out.stride[2]};
        sws_scale(context.get(), in, inSteps, 0, static_cast<int>(from.height), target, outSteps);
    };
}

// The filter rotates the picture in its own buffer, so there is one filter for each picture of the ring.
Job Turning(Size from, int angle) {
    using Filters = std::map<const uint8_t*, std::unique_ptr<corvane::RotateFilter>>;
    const Size to = corvane::RotateFilter(angle).OutputSize(from);
    const auto ours = [=, filters = std::make_shared<Filters>()](const Buffers& b) {
        std::unique_ptr<corvane::RotateFilter>& filter = (*filters)[b.source];
        if (filter == nullptr) {
            filter = std::make_unique<corvane::RotateFilter>(angle);
            const corvane::PictureView lent = filter->Lend(from, PF_I420);
            if (!lent)
                std::abort();
            std::memcpy(lent.plane[0], b.source, corvane::PictureBytes(PF_I420, from.width, from.height));
        }
        filter->Rotate(corvane::LayOut(b.out, corvane::RowBytes(PF_I420, to.width), to, PF_I420));
    };
    const auto libyuv = [=](const Buffers& b) {
        const Picture source = Over(b.source, from);
        const Picture out = Over(b.out, to);
        libyuv::I420Rotate(source.plane[0], source.stride[0], source.plane[1], source.stride[1], source.plane[2],
                           source.stride[2], out.plane[0], out.stride[0], out.plane[1], out.stride[1], out.plane[2],
                           out.stride[2], static_cast<int>(from.width), static_cast<int>(from.height),
                           static_cast<libyuv::RotationMode>(angle));
    };
    const std::string name = "turned by " + std::to_string(angle) + " degrees, " + std::to_string(from.width) + " x " +
                             std::to_string(from.height);
    if (angle % 90 == 0)
        return {name, "1.00", ours, {{"libyuv", libyuv}}};
    return {name, "-", ours, {{"swscale", Scaling(from, to, SWS_BILINEAR)}}};
}

Job Resizing(Size from, Size to, uint32_t type) {
    static constexpr int kFlags[] = {SWS_POINT, SWS_BILINEAR, SWS_BICUBIC, SWS_LANCZOS};
    static constexpr const char* kNames[] = {"nearest", "bilinear", "bicubic", "Lanczos"};
    auto filter = std::make_shared<QMRX::Filter::FilterResize>();
    filter->SetType(type);
    filter->SetSize(to.width, to.height);
    char name[80];
    std::snprintf(name, sizeof name, "%s, %u x %u to %u x %u", kNames[type], from.width, from.height, to.width,
                  to.height);
    return {name, "1.02", Run(filter, from, to), {{"swscale", Scaling(from, to, kFlags[type])}}};
}

std::vector<Job> Jobs() {
    constexpr Size kFull{1920, 1080};
    std::vector<Job> jobs{Smoothing(kFull), Smoothing({720, 576})};
    for (uint32_t type = 0; type < 4; ++type)
        jobs.push_back(Resizing(kFull, {960, 540}, type));
    jobs.push_back(Resizing(kFull, {1280, 720}, 1));
    jobs.push_back(Resizing({1280, 720}, kFull, 1));
    jobs.push_back(Resizing(kFull, {480, 270}, 0));
    for (const int angle : {90, 180, 270, 10, 45})
        jobs.push_back(Turning(kFull, angle));
    for (const int angle : {90, 180})
        jobs.push_back(Turning({704, 576}, angle));
    return jobs;
}

}    // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 100;
    if (rounds < 1 || (argc > 2 && !corvane::bench::CapTargets(argv[2]))) {
        std::fprintf(stderr, "usage: filter_bench [rounds] [best | avx2 | sse4 | scalar] [part of a name]\n");
        return 2;
    }
    const uint64_t bytes = corvane::PictureBytes(PF_I420, kMostWidth, kMostHeight);
    const uint64_t outBytes = corvane::PictureBytes(PF_I420, kMostTurned, kMostTurned);
    std::vector<AlignedBuffer> memory(2 * kRing);
    std::vector<Buffers> ring;
    for (size_t i = 0; i < memory.size(); i += 2) {
        if (!memory[i].Allocate(bytes) || !memory[i + 1].Allocate(outBytes))
            return 1;
        for (size_t byte = 0; byte < bytes; ++byte)
            memory[i].Data()[byte] = static_cast<uint8_t>(byte * 2654435761u >> 13);
        ring.push_back({memory[i].Data(), memory[i + 1].Data()});
    }
    std::printf("%-44s | %-8s %6s %6s %8s | %-8s %6s %6s %8s | %s\n", "ours / faster peer", "ring", "median", "minima",
                "ours ms", "warm", "median", "minima", "ours ms", "goal");
    for (const Job& job : Jobs()) {
        if (argc > 3 && job.name.find(argv[3]) == std::string::npos)
            continue;
        const Figures cold = Measure(job, ring, rounds);
        const Figures warm = Measure(job, {ring[0]}, rounds);
        std::printf("%-44s | %-8s %6.3f %6.3f %8.3f | %-8s %6.3f %6.3f %8.3f | %s\n", job.name.c_str(), cold.peer,
                    cold.medianRatio, cold.minimumRatio, cold.oursMs, warm.peer, warm.medianRatio, warm.minimumRatio,
                    warm.oursMs, job.goal.c_str());
        std::fflush(stdout);
    }
    return 0;
}
