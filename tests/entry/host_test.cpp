// The library changes nothing in its host's process.
#include <SDL.h>
#include <fcntl.h>
#include <locale.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "audio/DeviceKeeper.h"
#include "support/Client.h"
#include "support/SoundMaker.h"
#include "support/Testing.h"

namespace corvane {
namespace {

struct Process {
    std::array<void (*)(int), 32> handlers{};
    uint64_t mask = 0;
    std::string locale = setlocale(LC_ALL, nullptr), folder = std::filesystem::current_path();
    std::set<std::string> inherited;    // descriptors that a child would get

    Process() {
        sigset_t blocked;
        pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        for (int i = 1; i < 32; ++i) {
            struct sigaction action;
            sigaction(i, nullptr, &action);
            handlers[static_cast<size_t>(i)] = action.sa_handler;
            mask |= uint64_t(sigismember(&blocked, i)) << i;
        }
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const int flags = fcntl(std::stoi(entry.path().filename()), F_GETFD);
            if (flags >= 0 && (flags & FD_CLOEXEC) == 0)
                inherited.insert(entry.path());
        }
    }
    bool operator==(const Process&) const = default;
};

void OwnHandler(int) {}

// The whole path on good and on damaged input, under a locale with a decimal comma.
TEST(Host, IsLeftAsItWasFound) {
    setenv("LOCPATH", CORVANE_TEST_LOCALES, 1);
    ASSERT_NE(setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
    ASSERT_STREQ(localeconv()->decimal_point, ",");
    signal(SIGUSR1, &OwnHandler);
    std::vector<test::EncodedPicture> pictures = test::MakeVideo({.frames = 6});
    for (int i = 0; i < 200; ++i)
        pictures[4].bytes[static_cast<size_t>(i * 7) % pictures[4].bytes.size()] ^= 0x55;
    EXPECT_TRUE(DeviceKeeper::Process().WaitIdle(60'000'000'000)) << "sound of a test before";
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const Process before;
    std::vector<uint64_t> blocked;    // signal masks of the library's threads
    {
        test::Client client;
        client.Start();
        for (size_t i = 0; i < pictures.size(); ++i)
            (void)client.Feed(CORVANE_STREAM_H264, pictures[i].bytes, pictures[i].key, static_cast<int64_t>(i));
        (void)client.Feed(CORVANE_STREAM_JPEG, pictures[4].bytes, true, 7);
        (void)client.Feed(CORVANE_STREAM_H265, pictures[4].bytes, true, 8);
        (void)client.Feed(CORVANE_STREAM_MPEG4, pictures[4].bytes, true, 9);
        EXPECT_TRUE(test::Eventually([&] { return !client.Stamps().empty(); }));
        EXPECT_EQ(Process().inherited, before.inherited);
        // Signals of the process never run on a thread of the library.
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            std::ifstream status(task.path() / "status");
            bool ours = false;
            for (std::string line; std::getline(status, line);) {
                ours = ours || line.find("corvane-") != std::string::npos;
                if (ours && line.starts_with("SigBlk:"))
                    blocked.push_back(std::stoull(line.substr(7), nullptr, 16));
            }
        }
    }
    EXPECT_TRUE(Process() == before);
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(blocked.size(), 2u);
    for (const uint64_t mask : blocked)
        EXPECT_NE(mask & (1ull << (SIGINT - 1)), 0u);
}

// SDL is the host's too: from before the library plays, while it does, or not at all. Who leaves it leaves his own
// part.
TEST(Host, SharesSdl) {
    setenv("SDL_VIDEODRIVER", "dummy", 1);
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", "/dev/null", 1);
    constexpr Uint32 kParts = SDL_INIT_VIDEO | SDL_INIT_AUDIO;
    enum class Host { Before, While, Never, Around };
    for (const Host host : {Host::Before, Host::While, Host::Never, Host::Around}) {
        SCOPED_TRACE(static_cast<int>(host));
        if (host == Host::Before || host == Host::Around)
            EXPECT_EQ(SDL_Init(kParts), 0);
        const std::unique_ptr<void, void (*)(void*)> after(const_cast<Host*>(&host), [](void* which) {
            if (*static_cast<Host*>(which) == Host::Around)
                SDL_Quit();    // right after the release: it would not return while a device is being closed
        });
        test::Client client;
        client.Start();
        const std::vector<uint8_t> payload(160);
        for (const uint64_t heard : {1u, 2u, 3u}) {
            EXPECT_EQ(test::FeedHeader(client.channel, test::SoundHeader(CORVANE_STREAM_MULAW, payload, 8000)),
                      Status_Ok);
            EXPECT_TRUE(test::Eventually([&] { return test::StatisticsOf(client.channel).soundHeard == heard; }));
            if (heard == 1 && host == Host::While)
                EXPECT_EQ(SDL_Init(kParts), 0);
            if (heard == 2 && (host == Host::Before || host == Host::While))
                SDL_QuitSubSystem(kParts);
        }
    }
}

}    // namespace
}    // namespace corvane
