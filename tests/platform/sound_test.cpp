// One suite for all sound systems: SDL's, with two of its drivers and where there is no sound card, and the scripted
// one that other tests use.
#include <SDL.h>
#include <unistd.h>

#include <csignal>

#include "base/FailurePoint.h"
#include "support/ScriptedSound.h"

namespace corvane {
namespace {

using test::Eventually;
using Devices = std::array<std::unique_ptr<SoundDevice>, 16>;

struct Recorder final : SoundSource {
    void Fill(uint8_t* stream, size_t bytes) noexcept override {
        EXPECT_FALSE(running.exchange(true));
        std::fill_n(stream, bytes, uint8_t{0x11});
        ++calls;
        total += bytes;
        running = false;
    }
    std::atomic<bool> running{false};
    std::atomic<size_t> calls{0}, total{0};
};

TEST(SoundDevice, EverySystemFillsWhatItOpensAndNothingAfterItWasClosed) {
    const struct {
        std::string driver;    // of SDL
        size_t opens;          // devices at a time, of the two that are tried
    } rows[] = {{"scripted", 2}, {"scripted, failing", 0}, {"dummy", 1}, {"disk", 2}, {"no such driver", 0}};
    setenv("SDL_DISKAUDIOFILE", "/dev/null", 1);
    setenv("SDL_DISKAUDIODELAY", "1", 1);
    struct sigaction before {
    }, after{};
    sigaction(SIGINT, nullptr, &before);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.driver);
        test::ScriptedSound scripted;
        scripted.clocked = true;
        scripted.fails = row.opens == 0;
        setenv("SDL_AUDIODRIVER", row.driver.c_str(), 1);
        SoundSystem& system = row.driver.starts_with("scripted") ? scripted : SoundSystem::Sdl();
        testing::internal::CaptureStderr();
        for (const SoundFormat format : {SoundFormat{8000, 1}, {48000, 2}, {1000, 8}}) {
            std::array<Recorder, 2> sources;
            Devices devices;
            for (size_t i = 0; i < 2; ++i)
                EXPECT_EQ((devices[i] = system.Open(format, sources[i])) != nullptr, i < row.opens) << i;
            for (size_t i = 0; i < row.opens; ++i) {    // the second goes on after the first was closed
                const size_t called = sources[i].calls;
                EXPECT_TRUE(Eventually([&] { return sources[i].calls > called + 1; }));
                devices[i].reset();
                const size_t total = sources[i].total;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                EXPECT_TRUE(sources[i].total == total && total % (2 * format.channels) == 0);
            }
        }
        const std::string text = testing::internal::GetCapturedStderr();
        EXPECT_EQ(row.driver == "disk" ? "" : text, "");    // that driver has two lines of its own
        sigaction(SIGINT, nullptr, &after);
        EXPECT_EQ(before.sa_handler, after.sa_handler);    // a host with sound keeps Ctrl-C
        SDL_QuitSubSystem(SDL_INIT_AUDIO);                 // as a host may; the next opening brings it up again
    }
}

// SDL gives a process 15 devices; without a sound card it settles for ALSA, whose complaints do not reach the terminal.
TEST(SoundDevice, SdlsLimitsAndFailures) {
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", "/dev/null", 1);
    std::array<Recorder, 16> sources;
    Devices devices;
    const auto open = [&](size_t i) {
        return (devices[i] = SoundSystem::Sdl().Open({8000, 1}, sources[i])) != nullptr;
    };
    for (size_t i = 0; i < 16; ++i) {
        if (i < 2) {    // the subsystem cannot be brought up; then it is, and a device fails
            failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), 1, false);
            EXPECT_FALSE(open(i)) << i;
            failure::Disarm();
        }
        EXPECT_EQ(open(i), i < 15) << i;
    }
    devices[3].reset();
    EXPECT_TRUE(open(15));
    devices = {};
    SDL_QuitSubSystem(SDL_INIT_AUDIO);
    setenv("SDL_AUDIODRIVER", "alsa", 1);
    testing::internal::CaptureStderr();
    (void)open(0);    // what becomes of it, the machine decides
    devices = {};
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

}    // namespace
}    // namespace corvane
