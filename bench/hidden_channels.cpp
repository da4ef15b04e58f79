// What channels cost that nobody sees: four of 1280x720 at 25 pictures/s, shown, with unmapped windows, with presenting
// switched off, and paused (started, but nothing is fed). Processor time of the process by itself; how many pictures
// ran through the chain, counted by a filter in a run of its own, since a filter is a step more.
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "corvane/corvane.h"
#include "corvane/filter.h"
#include "support/StreamMaker.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace {

using corvane::test::EncodedPicture;

constexpr int kChannels = 4;
constexpr int kPictures = 125;
constexpr int kStepMs = 40;

class Counter final : public QMRX::Filter::IFilter {
public:
    int32_t Process(QMRX::Filter::FilterArgs* args) override {
        ++pictures;
        for (int i = 0; i < 3; ++i)
            std::memset(args->destination->plane[i], 128, static_cast<size_t>(args->destination->stride[i]));
        return 0;
    }
    std::atomic<int> pictures{0};
};

double ProcessorMs() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto ms = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) * 1e-3;
    };
    return ms(usage.ru_utime) + ms(usage.ru_stime);
}

struct State {
    const char* name;
    bool mapped, presents, fed;
};

// Processor milliseconds of all channels while the pictures play.
double Play(void* instance, corvane::test::XClient& owner, const State& state,
            const std::vector<EncodedPicture>& stream, Counter* counter) {
    std::vector<void*> channels(kChannels);
    for (int i = 0; i < kChannels; ++i) {
        ChannelSettings settings{};
        settings.mask = 0x2000;
        settings.presentEnabled = state.presents ? 1 : 0;
        settings.window = owner.Create({.x = static_cast<int16_t>(i % 2 * 640),
                                        .y = static_cast<int16_t>(i / 2 * 360),
                                        .width = 640,
                                        .height = 360,
                                        .mapped = state.mapped});
        void*& channel = channels[static_cast<size_t>(i)];
        Corvane_CreateChannel(instance, &channel, &settings);
        Corvane_SetChannelOption(channel, 48, 1, 0);
        if (counter != nullptr)
            Corvane_InsertFilter(channel, counter);
        Corvane_StartChannel(channel, 0);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    const double before = ProcessorMs();
    const auto start = std::chrono::steady_clock::now();
    for (int number = 0; number < kPictures; ++number) {
        const EncodedPicture& picture = stream[static_cast<size_t>(number) % stream.size()];
        const MediaFrameHeader header =
            corvane::test::VideoHeader(CORVANE_STREAM_H264, picture.bytes, picture.key, 1'000'000 + number * kStepMs);
        for (void* const channel : channels)
            if (state.fed)
                Corvane_InputEncodedMediaFrame(channel, &header);
        std::this_thread::sleep_until(start + std::chrono::milliseconds((number + 1) * kStepMs));
    }
    const double used = ProcessorMs() - before;
    for (void*& channel : channels)
        Corvane_DeleteChannel(instance, &channel);
    return used;
}

}    // namespace

int main() {
    corvane::test::XServer server({.width = 1280, .height = 720});
    if (!server.Running())
        return 1;
    corvane::test::XClient owner(server.Display());
    void* instance = nullptr;
    Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0);
    const std::vector<EncodedPicture> stream =
        corvane::test::MakeVideo({.width = 1280, .height = 720, .frames = 50, .gop = 25});
    const State states[] = {{"shown", true, true, true},
                            {"unmapped", false, true, true},
                            {"presenting off", true, false, true},
                            {"paused", true, true, false}};
    std::printf("%d channels, %d pictures each\n", kChannels, kPictures);
    double shown = 0;
    for (const State& state : states) {
        const double used = Play(instance, owner, state, stream, nullptr);
        shown = shown > 0 ? shown : used;
        Counter counter;
        Play(instance, owner, state, stream, &counter);
        std::printf("%-16s processor %8.1f ms, %5.2f ms a picture, %.3f of shown; pictures through the chain %d\n",
                    state.name, used, used / (kChannels * kPictures), used / shown, counter.pictures.load());
        std::fflush(stdout);
    }
    Corvane_Release(&instance);
    return 0;
}
