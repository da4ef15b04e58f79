// One suite for all sound systems: SDL's, with two of its drivers and where there is no sound card, and the scripted
// one that other tests use.
#include <SDL.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "base/FailurePoint.h"
#include "support/Latch.h"
#include "support/ScriptedSound.h"

namespace corvane {
namespace {

using test::Eventually;

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

struct Row {
    const char* name;
    const char* driver;    // of SDL; null: the scripted system
    size_t opens;          // devices at a time, of the two that are tried
};
constexpr Row kRows[] = {{"scripted", nullptr, 2},
                         {"scripted, failing", nullptr, 0},
                         {"dummy", "dummy", 1},
                         {"disk", "disk", 2},
                         {"no such driver", "cassette", 0}};

// Standard error of the process while this lives.
class StandardError {
public:
    StandardError() : m_old(dup(2)), m_file(std::tmpfile()) { dup2(fileno(m_file), 2); }
    std::string End() {
        dup2(m_old, 2);
        close(m_old);
        std::string text(static_cast<size_t>(std::ftell(m_file) >= 0 ? lseek(fileno(m_file), 0, SEEK_END) : 0), 0);
        const ssize_t read = pread(fileno(m_file), text.data(), text.size(), 0);
        std::fclose(m_file);
        return read == static_cast<ssize_t>(text.size()) ? text : "not read";
    }

private:
    const int m_old;
    std::FILE* const m_file;
};

TEST(SoundDevice, EverySystemFillsWhatItOpensAndNothingAfterItWasClosed) {
    const std::string file = ::testing::TempDir() + "sound_test." + std::to_string(getpid());
    setenv("SDL_DISKAUDIOFILE", file.c_str(), 1);
    setenv("SDL_DISKAUDIODELAY", "1", 1);
    struct sigaction before {};
    sigaction(SIGINT, nullptr, &before);
    for (const Row& row : kRows) {
        SCOPED_TRACE(row.name);
        test::ScriptedSound scripted;
        scripted.clocked = true;
        scripted.fails = row.opens == 0;
        if (row.driver != nullptr)
            setenv("SDL_AUDIODRIVER", row.driver, 1);
        SoundSystem& system = row.driver != nullptr ? SoundSystem::Sdl() : scripted;
        StandardError captured;
        for (const SoundFormat format : {SoundFormat{8000, 1}, SoundFormat{48000, 2}, SoundFormat{1000, 8}}) {
            std::array<Recorder, 2> sources;
            std::array<std::unique_ptr<SoundDevice>, 2> devices;
            for (size_t i = 0; i < 2; ++i)
                devices[i] = system.Open(format, sources[i]);
            for (size_t i = 0; i < 2; ++i)
                EXPECT_EQ(devices[i] != nullptr, i < row.opens) << i;
            for (size_t i = 0; i < row.opens; ++i) {    // the second goes on after the first was closed
                const size_t called = sources[i].calls;
                EXPECT_TRUE(Eventually([&] { return sources[i].calls > called + 1; }));
                devices[i].reset();
                const size_t total = sources[i].total;
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
                EXPECT_EQ(sources[i].total, total);
                EXPECT_EQ(total % (2 * format.channels), 0u);
            }
        }
        const std::string text = captured.End();
        EXPECT_EQ(row.driver != nullptr && std::string(row.driver) == "disk" ? "" : text, "");    // it has two lines
        if (row.driver != nullptr)
            SDL_QuitSubSystem(SDL_INIT_AUDIO);    // as a host may; the next opening brings it up again
    }
    struct sigaction after {};
    sigaction(SIGINT, nullptr, &after);
    EXPECT_EQ(before.sa_handler, after.sa_handler);    // a host with sound keeps Ctrl-C
    unlink(file.c_str());
}

// SDL gives a process 15 devices; without a sound card it settles for ALSA, whose complaints do not reach the terminal.
TEST(SoundDevice, SdlsLimitsAndFailures) {
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", "/dev/null", 1);
    std::array<Recorder, 16> sources;
    std::array<std::unique_ptr<SoundDevice>, 16> devices;
    SoundSystem& sdl = SoundSystem::Sdl();
    const auto open = [&](size_t i) { return (devices[i] = sdl.Open({8000, 1}, sources[i])) != nullptr; };
    for (const size_t i :
         {size_t{0}, size_t{1}}) {    // the subsystem cannot be brought up; then it is, and a device fails
        failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), 1, false);
        EXPECT_FALSE(open(i)) << i;
        failure::Disarm();
        EXPECT_TRUE(open(i)) << i;
    }
    for (size_t i = 2; i < 15; ++i)
        EXPECT_TRUE(open(i)) << i;
    EXPECT_FALSE(open(15));
    devices[3].reset();
    EXPECT_TRUE(open(15));
    devices = {};
    SDL_QuitSubSystem(SDL_INIT_AUDIO);
    setenv("SDL_AUDIODRIVER", "alsa", 1);
    StandardError captured;
    (void)open(0);    // what becomes of it, the machine decides
    devices = {};
    EXPECT_EQ(captured.End(), "");
}

}    // namespace
}    // namespace corvane
