// The time from an exposure of a window to its picture, and the time of the stop and the deletion of one of sixteen
// playing channels.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

#include "SmallStreams.h"
#include "corvane/corvane.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace {

using Clock = std::chrono::steady_clock;

class Times {
public:
    void Add(Clock::time_point since) {
        m_ms.push_back(std::chrono::duration<double, std::milli>(Clock::now() - since).count());
    }
    void Print(const char* what) {
        std::sort(m_ms.begin(), m_ms.end());
        std::printf("%-36s %5zu times  median %7.2f ms  worst %7.2f ms\n", what, m_ms.size(), m_ms[m_ms.size() / 2],
                    m_ms.back());
    }

private:
    std::vector<double> m_ms;
};

void Feed(void* channel, int64_t timeMs) {
    MediaFrameHeader frame{};
    frame.recordSize = sizeof frame;
    frame.data = kJpeg;
    frame.payloadSize = sizeof kJpeg;
    frame.streamType = CORVANE_STREAM_JPEG;
    frame.streamSeconds = static_cast<uint32_t>(timeMs / 1000);
    frame.timeMilliseconds = static_cast<uint32_t>(timeMs % 1000);
    frame.timeSeconds = 1 + frame.streamSeconds;
    Corvane_InputEncodedMediaFrame(channel, &frame);
}

void Exposures(corvane::test::XClient& owner, void* instance) {
    const xcb_window_t window = owner.Create({.width = 1280, .height = 720});
    ChannelSettings settings{};
    settings.window = window;
    void* channel = nullptr;
    Corvane_CreateChannel(instance, &channel, &settings);
    Corvane_StartChannel(channel, 0);
    Feed(channel, 0);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    constexpr uint32_t kForeign = 0x00FF00FF;
    Times times;
    for (int i = 0; i < 200; ++i) {
        owner.Fill(window, {0, 0, 1280, 720}, kForeign);
        const auto since = Clock::now();
        owner.Expose(window);
        while ((owner.Read(window, {1279, 719, 1280, 720})[0] & 0xFFFFFF) == kForeign) {
        }
        times.Add(since);
    }
    times.Print("exposure to picture, 1280x720");
    Corvane_DeleteChannel(instance, &channel);
}

void Ends(corvane::test::XClient& owner, void* instance) {
    constexpr int kChannels = 16;
    Times stop;
    Times remove;
    for (int round = 0; round < 5; ++round) {
        std::vector<void*> channels(kChannels);
        for (int i = 0; i < kChannels; ++i) {
            ChannelSettings settings{};
            settings.window = owner.Create({.x = static_cast<int16_t>(i % 4 * 330),
                                            .y = static_cast<int16_t>(i / 4 * 190),
                                            .width = 320,
                                            .height = 180});
            Corvane_CreateChannel(instance, &channels[static_cast<size_t>(i)], &settings);
            Corvane_StartChannel(channels[static_cast<size_t>(i)], 0);
        }
        for (int frame = 0; frame < 50; ++frame) {
            for (void* const channel : channels)
                Feed(channel, frame * 40);
            std::this_thread::sleep_for(std::chrono::milliseconds(frame < 10 ? 40 : 2));    // then a backlog
        }
        for (void*& channel : channels) {
            auto since = Clock::now();
            Corvane_StopChannel(channel);
            stop.Add(since);
            since = Clock::now();
            Corvane_DeleteChannel(instance, &channel);
            remove.Add(since);
        }
    }
    stop.Print("stop, 16 channels playing");
    remove.Print("delete after it");
}

}    // namespace

int main() {
    corvane::test::XServer server({.width = 1400, .height = 800});
    if (!server.Running())
        return 1;
    corvane::test::XClient owner(server.Display());
    void* instance = nullptr;
    Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, CORVANE_FLAG_GDI);
    Exposures(owner, instance);
    Ends(owner, instance);
    Corvane_Release(&instance);
    return 0;
}
