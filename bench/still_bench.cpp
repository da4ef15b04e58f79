// Stills of a channel of 1920x1080 that plays at 25 pictures/s in a window: the exported call in four formats beside
// the same work on the same planes without the library, in the same process while the same channel plays, 10 times a
// second each: conversion by the faster of libyuv and libswscale into new memory after a header (6: BMP of 24 bits, 7:
// of 32 bits), encoding by libjpeg-turbo with the same divisors (8), a copy (11). The exported call also finds the
// picture and waits for the decoder's lock. A picture is delayed when it is presented more than 20 ms later than its
// time and the smallest delay of the run imply.
//
// still_bench [SECONDS]: of each of the runs, which take turns twice.
extern "C" {
#include <libswscale/swscale.h>
}
#include <libyuv.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "LibjpegPeer.h"
#include "corvane/corvane.h"
#include "picture/jpeg/JpegTables.h"
#include "support/StreamMaker.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace {

using namespace corvane;
using Time = std::chrono::steady_clock;

constexpr int kWidth = 1920, kHeight = 1080, kStepMs = 40;
constexpr size_t kPixels = size_t{kWidth} * kHeight, kBmpHeader = 54;
constexpr uint32_t kQuality = 25;    // 75 of libjpeg
constexpr std::chrono::milliseconds kBetweenStills(100);
constexpr double kLateMs = 20;

double Since(Time::time_point start) {
    return std::chrono::duration<double, std::milli>(Time::now() - start).count();
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

// A channel in a window, fed in real time on a thread of its own, and when each picture was on the window.
class Playing {
public:
    Playing(void* instance, uint32_t window) {
        m_stream = test::MakeVideo({.width = kWidth, .height = kHeight, .frames = 50, .gop = 25});
        ChannelSettings settings{};
        settings.window = window;
        Corvane_CreateChannel(instance, &channel, &settings);
        Corvane_RegisterAfterDisplayCallback(channel, &Playing::OnDisplay, this);
        Corvane_SetBufferTime(channel, 200);
        Corvane_SetChannelOption(channel, 17, kQuality, 0);
        Corvane_StartChannel(channel, 0);
        m_feeder = std::thread([this] { Feed(); });
    }
    ~Playing() {
        m_ending = true;
        m_feeder.join();
    }

    // Pictures presented since the last call, and how many of them were delayed, by the smallest delay of them.
    std::pair<size_t, size_t> Take() {
        const std::lock_guard lock(m_mutex);
        double smallest = 1e300;
        for (const auto& [number, delay] : m_delays)
            smallest = std::min(smallest, delay);
        const auto late = std::ranges::count_if(m_delays, [&](const auto& d) { return d.second > smallest + kLateMs; });
        const size_t count = m_delays.size();
        m_delays.clear();
        return {count, static_cast<size_t>(late)};
    }

    void* channel = nullptr;

private:
    void Feed() {
        for (int64_t number = 0; !m_ending; ++number) {
            const test::EncodedPicture& picture = m_stream[static_cast<size_t>(number) % m_stream.size()];
            const MediaFrameHeader header =
                test::VideoHeader(CORVANE_STREAM_H264, picture.bytes, picture.key, 1'000'000 + number * kStepMs);
            Corvane_InputEncodedMediaFrame(channel, &header);
            std::this_thread::sleep_until(m_start + std::chrono::milliseconds((number + 1) * kStepMs));
        }
    }
    static void OnDisplay(void* context, const AfterDisplayRecord* record) {
        auto& self = *static_cast<Playing*>(context);
        const int64_t ms = int64_t{record->header->timeSeconds} * 1000 + record->header->timeMilliseconds;
        const std::lock_guard lock(self.m_mutex);
        self.m_delays.try_emplace(ms, Since(self.m_start) - static_cast<double>(ms));
    }

    const Time::time_point m_start = Time::now();
    std::vector<test::EncodedPicture> m_stream;
    std::atomic<bool> m_ending{false};
    std::mutex m_mutex;
    std::map<int64_t, double> m_delays;    // by the frame's time
    std::thread m_feeder;
};

PictureBuffer Still(void* channel, uint32_t format) {
    PictureBuffer picture{};
    if (Corvane_GetCurrentSnapShot(channel, &picture, 4 | format << 16) != Status_Ok)
        std::abort();
    return picture;
}

// New memory for each picture, as the exports give it.
using Job = std::function<size_t(const bench::Yuv420&)>;

Job ByLibyuv(decltype(&libyuv::I420ToRGB24) convert, int bytesPerPixel) {
    return [=](const bench::Yuv420& p) {
        const size_t size = kBmpHeader + kPixels * static_cast<size_t>(bytesPerPixel);
        auto* const out = static_cast<uint8_t*>(std::malloc(size));
        std::memset(out, 0, kBmpHeader);
        convert(p.planes[0], kWidth, p.planes[1], kWidth / 2, p.planes[2], kWidth / 2, out + kBmpHeader,
                kWidth * bytesPerPixel, kWidth, -kHeight);
        std::free(out);
        return size;
    };
}

Job BySwscale(AVPixelFormat format, int bytesPerPixel) {
    SwsContext* const context = sws_getContext(kWidth, kHeight, AV_PIX_FMT_YUV420P, kWidth, kHeight, format, SWS_POINT,
                                               nullptr, nullptr, nullptr);
    const int* const full = sws_getCoefficients(SWS_CS_DEFAULT);
    sws_setColorspaceDetails(context, full, 1, full, 1, 0, 1 << 16, 1 << 16);
    return [=](const bench::Yuv420& p) {
        const size_t size = kBmpHeader + kPixels * static_cast<size_t>(bytesPerPixel);
        auto* const out = static_cast<uint8_t*>(std::malloc(size));
        std::memset(out, 0, kBmpHeader);
        const int steps[3] = {kWidth, kWidth / 2, kWidth / 2}, step = -kWidth * bytesPerPixel;
        uint8_t* const last = out + kBmpHeader + static_cast<ptrdiff_t>(step) * (1 - kHeight);
        sws_scale(context, p.planes, steps, 0, kHeight, &last, &step);
        std::free(out);
        return size;
    };
}

size_t ByLibjpeg(const bench::Yuv420& picture) {
    static std::vector<uint8_t> out(kPixels * 2);
    unsigned divisors[2][64];
    for (size_t t = 0; t < 2; ++t)
        for (size_t i = 0; i < 64; ++i)
            divisors[t][i] = std::clamp(
                ((t == 0 ? jpeg::LumaDivisors(0) : jpeg::ChromaDivisors())[i] * kQuality + 25) / 50, 2u, 255u);
    return bench::EncodeByLibjpeg(picture, divisors, out);
}

size_t ByCopy(const bench::Yuv420& p) {
    auto* const out = static_cast<uint8_t*>(std::malloc(kPixels * 3 / 2));
    libyuv::I420Copy(p.planes[0], kWidth, p.planes[1], kWidth / 2, p.planes[2], kWidth / 2, out, kWidth, out + kPixels,
                     kWidth / 2, out + kPixels * 5 / 4, kWidth / 2, kWidth, kHeight);
    std::free(out);
    return kPixels * 3 / 2;
}

struct Readings {
    std::vector<double> ms;
    size_t bytes = 0, shown = 0, late = 0;
};

// `job` gives its bytes; null for playing alone.
void Run(Playing& playing, double seconds, const std::function<size_t()>& job, Readings& readings) {
    playing.Take();
    const auto begin = Time::now();
    for (auto next = begin; Since(begin) < seconds * 1e3;) {
        if (job) {
            const auto start = Time::now();
            readings.bytes += job();
            readings.ms.push_back(Since(start));
        }
        std::this_thread::sleep_until(next += kBetweenStills);
    }
    const auto [shown, late] = playing.Take();
    readings.shown += shown;
    readings.late += late;
}

}    // namespace

int main(int argc, char** argv) {
    const double seconds = argc > 1 ? std::atof(argv[1]) : 10;
    test::XServer server({.width = kWidth, .height = kHeight});
    if (!server.Running())
        return 1;
    test::XClient owner(server.Display());
    void* instance = nullptr;
    Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0);
    {
        Playing playing(instance, owner.Create({.width = kWidth, .height = kHeight}));
        std::this_thread::sleep_for(std::chrono::seconds(5));    // until its clock keeps its pace
        std::vector<PictureBuffer> planes;                       // of different pictures, larger than the cache
        for (int i = 0; i < 8; ++i) {
            planes.push_back(Still(playing.channel, 11));
            std::this_thread::sleep_for(std::chrono::milliseconds(kStepMs));
        }
        const std::vector<std::pair<uint32_t, std::vector<std::pair<const char*, Job>>>> formats = {
            {6, {{"libyuv", ByLibyuv(&libyuv::I420ToRGB24, 3)}, {"swscale", BySwscale(AV_PIX_FMT_BGR24, 3)}}},
            {7, {{"libyuv", ByLibyuv(&libyuv::J420ToARGB, 4)}, {"swscale", BySwscale(AV_PIX_FMT_BGRA, 4)}}},
            {8, {{"libjpeg", &ByLibjpeg}}},
            {11, {{"libyuv", &ByCopy}}}};
        Readings alone;
        std::map<std::string, Readings> all;
        size_t at = 0;
        for (int turn = 0; turn < 2; ++turn) {
            Run(playing, seconds, nullptr, alone);
            for (const auto& [format, peers] : formats) {
                Run(
                    playing, seconds,
                    [&, number = format] {
                        PictureBuffer picture = Still(playing.channel, number);
                        Corvane_FreePicture(&picture);
                        return size_t{picture.size};
                    },
                    all[std::to_string(format)]);
                for (const auto& [name, job] : peers)
                    Run(
                        playing, seconds,
                        [&, &work = job] {
                            const uint8_t* const y = planes[at++ % planes.size()].data;
                            return work({{y, y + kPixels, y + kPixels * 5 / 4}, kWidth, kHeight});
                        },
                        all[std::to_string(format) + name]);
            }
        }
        std::printf("%-16s |  median   worst ms |     KB | ratio | delayed of shown\n", "format");
        std::printf("%-16s | %16s | %6s | %5s | %zu of %zu\n", "playing alone", "", "", "", alone.late, alone.shown);
        for (const auto& [format, peers] : formats) {
            const Readings& ours = all[std::to_string(format)];
            const auto line = [&](const std::string& what, const Readings& r, double ratio) {
                std::printf("%-16s | %7.2f %7.2f    | %6zu | ", what.c_str(), Median(r.ms),
                            *std::max_element(r.ms.begin(), r.ms.end()), r.bytes / r.ms.size() / 1024);
                std::printf(ratio > 0 ? "%5.2f" : "     ", ratio);
                std::printf(" | %zu of %zu\n", r.late, r.shown);
            };
            line(std::to_string(format) + " still", ours, 0);
            for (const auto& [name, job] : peers) {
                const Readings& peer = all[std::to_string(format) + name];
                line(std::to_string(format) + " " + name, peer, Median(ours.ms) / Median(peer.ms));
            }
        }
        for (PictureBuffer& picture : planes)
            Corvane_FreePicture(&picture);
        Corvane_RegisterAfterDisplayCallback(
            playing.channel, [](void*, const AfterDisplayRecord*) {}, nullptr);
    }
    Corvane_Release(&instance);
    return 0;
}
