// A channel at 25 pictures a second in a window that changes its size all the time: how many pictures come to the
// window, the longest gap between two of them, and the longest call of a client during that time (settings,
// removing the after-display callback, removing the window, the end of the channel). Both renderers; nothing is
// decoded.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "manager/RenderMgr.h"
#include "render/DDrawRenderer.h"
#include "render/GDIRenderer.h"
#include "support/PlainPicture.h"
#include "support/StreamMaker.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace {

using namespace corvane;
using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr milliseconds kPicture(40);

double Ms(Clock::duration time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

// The pictures that came to the window, each counted once.
struct Puts {
    void Add(const MediaFrameImpl* frame) {
        const auto now = Clock::now();
        const std::lock_guard lock(mutex);
        ++puts;
        if (frame == last)
            return;
        last = frame;
        if (pictures++ > 0)
            longest = std::max(longest, now - at);
        at = now;
    }
    std::mutex mutex;
    const MediaFrameImpl* last = nullptr;
    int pictures = 0, puts = 0;
    Clock::time_point at;
    Clock::duration longest{0};
};
Puts* counted;

// A real renderer, with its passes counted.
template <typename Inner>
class Counted final : public IVideoRenderer {
public:
    template <typename... Arguments>
    explicit Counted(Arguments&&... arguments) : m_inner(arguments...) {}
    const RendererTraits& Traits() const override { return m_inner.Traits(); }
    uint32_t FormatFor(uint32_t preferred) const override { return m_inner.FormatFor(preferred); }
    bool HasFreeBuffer() const override { return m_inner.HasFreeBuffer(); }
    LentBuffer Lend(PictureSize size, uint32_t preferred) override { return m_inner.Lend(size, preferred); }
    bool TakesReference(const ConstPictureView& picture) override { return m_inner.TakesReference(picture); }
    Outcome Present(const FinishedPicture& picture, Pass& pass) override {
        const Outcome outcome = m_inner.Present(picture, pass);
        if (outcome == Outcome::Put)
            counted->Add(picture.frame.get());
        return outcome;
    }

private:
    Inner m_inner;
};
const RendererMaker kCounted[] = {{"DirectDraw", [](uint32_t flags) { return (flags & kGdiFlags) == 0; },
                                   [](const PresentSettings& settings, corvane::Clock& clock) -> RendererPtr {
                                       return std::make_shared<Counted<CDDrawRenderer>>(settings, Blitter::Processor(),
                                                                                        clock);
                                   }},
                                  {"GDI", [](uint32_t) { return true; },
                                   [](const PresentSettings&, corvane::Clock& clock) -> RendererPtr {
                                       return std::make_shared<Counted<CGDIRenderer>>(clock);
                                   }}};

// Asks for another size so many times a second, without waiting for the server, until `more` ends.
void Resize(const std::string& display, xcb_window_t window, uint32_t width, uint32_t height, int rate,
            const std::atomic<bool>& more) {
    test::XClient hand(display);
    const auto start = Clock::now();
    for (int64_t i = 0; more; ++i) {
        const uint32_t size[] = {width - static_cast<uint32_t>(i % 97), height - static_cast<uint32_t>(i % 61)};
        xcb_configure_window(hand.Xcb(), window, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT, size);
        xcb_flush(hand.Xcb());
        std::this_thread::sleep_until(start + microseconds(1'000'000 * (i + 1) / rate));
    }
    hand.Sync();
}

struct Longest {
    const char* name = "";
    Clock::duration time{0};

    template <typename Call>
    void Measure(const char* called, Call call) {
        const auto since = Clock::now();
        call();
        if (const auto took = Clock::now() - since; took > time) {
            name = called;
            time = took;
        }
    }
};

void Run(const test::XServer& server, uint32_t flags, uint16_t width, uint16_t height, int rate, milliseconds length) {
    test::XClient owner(server.Display());
    const xcb_window_t window = owner.Create({.width = width, .height = height});
    Puts puts;
    counted = &puts;
    test::PlainPicture picture(1920, 1080);
    picture.Share();
    auto manager = std::make_unique<CRenderMgr>(&puts, window, flags, corvane::Clock::System(), kCounted);
    const CorvaneAfterDisplayCallback displayed = [](void*, const AfterDisplayRecord*) {};
    manager->SetCallback(&PresentSettings::afterDisplay, {displayed, nullptr});
    std::atomic<bool> more{true}, feeds{true};
    int fed = 0;
    Longest call, present;
    std::thread hand([&] { Resize(server.Display(), window, width, height, rate, more); });
    std::thread worker([&] {
        const auto start = Clock::now();
        for (; feeds; ++fed) {
            const FramePtr frame = test::MakeFrame(CORVANE_STREAM_H264, {1}, true, fed * kPicture.count());
            present.Measure("", [&] { manager->PresentFrame(frame, picture.Picture(), true); });
            std::this_thread::sleep_until(start + (fed + 1) * kPicture);
        }
    });
    const auto end = Clock::now() + length;
    for (int i = 0; Clock::now() < end; ++i) {
        std::this_thread::sleep_for(milliseconds(100));
        call.Measure("margin", [&] { manager->SetMargin(&Edges::top, static_cast<uint32_t>(i % 3)); });
        call.Measure("unregister", [&] { manager->SetCallback(&PresentSettings::afterDisplay, {}); });
        manager->SetCallback(&PresentSettings::afterDisplay, {displayed, nullptr});
        call.Measure("area", [&] { (void)manager->SetDisplayArea(DisplayArea{}, 16); });
    }
    feeds = false;
    worker.join();
    const int pictures = puts.pictures;
    const Clock::duration longest = puts.longest;
    call.Measure("window", [&] { manager->SetWindow(0); });
    manager->SetWindow(window);
    std::this_thread::sleep_for(milliseconds(100));
    call.Measure("delete", [&] { manager.reset(); });
    more = false;
    hand.join();
    std::printf("%-8s %4ux%-4u %5d/s  %3d of %3d pictures, %5d puts, gap %7.1f ms  call %6.1f ms (%s)  push %6.1f ms\n",
                flags == 0 ? "default" : "plain", width, height, rate, pictures, fed, puts.puts, Ms(longest),
                Ms(call.time), call.name, Ms(present.time));
    std::fflush(stdout);
}

}    // namespace

// Arguments: seconds of each row (4), and "bands" for a server without shared memory.
int main(int argc, char** argv) {
    const milliseconds length(argc > 1 ? static_cast<int>(1000 * std::atof(argv[1])) : 4000);
    test::XServer::Options options{.width = 3840, .height = 2160};
    if (argc > 2)
        options.arguments = {"-extension", "MIT-SHM"};
    const test::XServer server(options);
    if (!server.Running())
        return 1;
    for (const uint32_t flags : {0u, uint32_t{CORVANE_FLAG_GDI}})
        for (const auto& [width, height] : {std::pair<uint16_t, uint16_t>{1800, 1100}, {3840, 2160}})
            for (const int rate : {250, 1000, 3000})
                Run(server, flags, width, height, rate, length);
    return 0;
}
