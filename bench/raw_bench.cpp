// A raw picture of 1920 x 1080 beside what a client would do with the same planes: a copy (format 11), the conversion
// to a bitmap's pixels (format 7). Ours also runs the chain and the turnstile, and calls the callback. "ring": 8
// pictures in turn, larger than the cache; "warm": one. Last, what a picture costs while no callback is set.
//
//   raw_bench [rounds]
#include <libyuv.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "Contest.h"
#include "base/PictureLayout.h"
#include "kernels/YCbCrToRGB.h"
#include "present/RawDelivery.h"

namespace {

using namespace corvane;

constexpr PictureSize kSize{1920, 1080};
constexpr size_t kRing = 8;
using Job = bench::Contest<const FinishedPicture*>;

struct Sources {
    Sources() : memory(kRing), pictures(kRing) {
        for (size_t i = 0; i < kRing; ++i) {
            const uint64_t bytes = PictureBytes(PF_I420, kSize.width, kSize.height);
            if (!memory[i].Allocate(bytes))
                std::abort();
            for (size_t byte = 0; byte < bytes; ++byte)
                memory[i].Data()[byte] = static_cast<uint8_t>(byte * 2654435761u >> 13);
            const PictureView view = LayOut(memory[i].Data(), RowBytes(PF_I420, kSize.width), kSize, PF_I420);
            DecodedFrame frame{};
            for (int plane = 0; plane < 3; ++plane) {
                frame.planes[plane] = view.plane[plane];
                frame.strides[plane] = static_cast<uint32_t>(view.stride[plane]);
            }
            frame.width = kSize.width;
            frame.height = kSize.height;
            frame.owner = this;    // as of a decoder that shares its pictures
            frame.add_ref = frame.release = [](void*) {};
            pictures[i].frame = std::make_shared<MediaFrameImpl>(MediaFrameHeader{});
            pictures[i].decoded = SharedPicture(frame);
            ring.push_back(&pictures[i]);
        }
    }

    std::vector<AlignedBuffer> memory;
    std::vector<FinishedPicture> pictures;
    std::vector<const FinishedPicture*> ring;
};

class Raw {
public:
    explicit Raw(uint32_t format) {
        if (format != 0)
            m_delivery.Client().SetCallback(
                &RawSettings::first, {[](void* calls, uint32_t, void*) { ++*static_cast<int*>(calls); }, &m_calls});
        m_delivery.Client().Set(&RawSettings::format, format);
        m_delivery.Begin();
    }
    void Deliver(const FinishedPicture& picture) {
        const int before = m_calls;
        const SharedPicture kept = m_delivery.Keep(picture.decoded);
        m_delivery.OnFresh();
        m_delivery.Deliver(picture, nullptr, [this] { return m_settings; });
        if (m_calls == before && m_delivery.Client().WantsPictures())
            std::abort();
    }

private:
    ClientFilterCalls m_filters;
    RawDelivery m_delivery{m_filters};
    PresentSettingsPtr m_settings = std::make_shared<PresentSettings>();
    int m_calls = 0;
};

Job::Run Ours(uint32_t format) {
    return [raw = std::make_shared<Raw>(format)](const FinishedPicture* picture) { raw->Deliver(*picture); };
}

}    // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 100;
    if (rounds < 1) {
        std::fprintf(stderr, "usage: raw_bench [rounds]\n");
        return 2;
    }
    const Sources sources;
    AlignedBuffer out;
    if (!out.Allocate(PictureBytes(PF_BGRA32, kSize.width, kSize.height)))
        return 1;
    const auto copy = [&](const FinishedPicture* picture) {
        const ConstPictureView from = picture->decoded.View();
        const PictureView to = LayOut(out.Data(), RowBytes(PF_I420, kSize.width), kSize, PF_I420);
        for (int i = 0; i < 3; ++i)
            libyuv::CopyPlane(from.plane[i], static_cast<int>(from.stride[i]), to.plane[i],
                              static_cast<int>(to.stride[i]), static_cast<int>(kSize.width >> (i != 0)),
                              static_cast<int>(kSize.height >> (i != 0)));
    };
    const auto convert = [&](const FinishedPicture* picture) {
        (void)kernels::YCbCrToRGB(picture->decoded.View(),
                                  LayOut(out.Data(), RowBytes(PF_BGRA32, kSize.width), kSize, PF_BGRA32_FLIP));
    };
    const Job jobs[] = {{"format 11 beside a copy of the planes", "1.30", Ours(11), {{"libyuv", copy}}},
                        {"format 7 beside the conversion kernel", "1.30", Ours(7), {{"kernel", convert}}},
                        {"no callback, beside a copy of the planes", "0.00", Ours(0), {{"libyuv", copy}}}};
    std::printf("%-42s | %-8s %6s %8s | %-8s %6s %8s | %s\n", "ours / peer, 1920 x 1080", "ring", "median", "ours ms",
                "warm", "median", "ours ms", "goal");
    for (const Job& job : jobs) {
        const bench::Figures cold = Measure(job, sources.ring, rounds);
        const bench::Figures warm = Measure(job, {sources.ring[0]}, rounds);
        std::printf("%-42s | %-8s %6.3f %8.4f | %-8s %6.3f %8.4f | %s\n", job.name.c_str(), cold.peer, cold.medianRatio,
                    cold.oursMs, warm.peer, warm.medianRatio, warm.oursMs, job.goal.c_str());
    }
    return 0;
}
