// What the library does to its host: nothing.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>

#include "support/Client.h"

namespace corvane {
namespace {

struct Process {
    std::array<struct sigaction, 32> handlers{};
    sigset_t mask{};
    std::string locale;
    std::string folder;
    std::vector<std::string> inherited;    // descriptors that a child would get

    static Process Now() {
        Process now;
        for (int i = 1; i < 32; ++i)
            sigaction(i, nullptr, &now.handlers[static_cast<size_t>(i)]);
        pthread_sigmask(SIG_SETMASK, nullptr, &now.mask);
        now.locale = setlocale(LC_ALL, nullptr);
        now.folder = std::filesystem::current_path();
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
            const int descriptor = std::stoi(entry.path().filename());
            const int flags = fcntl(descriptor, F_GETFD);
            if (flags >= 0 && (flags & FD_CLOEXEC) == 0)
                now.inherited.push_back(entry.path());
        }
        std::ranges::sort(now.inherited);
        return now;
    }
};

void OwnHandler(int) {}

// The whole road on good and on damaged input, under a locale with a decimal comma.
TEST(Host, IsLeftAsItWasFound) {
    setenv("LOCPATH", CORVANE_TEST_LOCALES, 1);
    ASSERT_NE(setlocale(LC_ALL, "de_DE.UTF-8"), nullptr);
    ASSERT_STREQ(localeconv()->decimal_point, ",");
    signal(SIGUSR1, &OwnHandler);
    std::vector<test::EncodedPicture> pictures = test::MakeVideo({.frames = 6});
    for (int i = 0; i < 200; ++i)
        pictures[4].bytes[static_cast<size_t>(i * 7) % pictures[4].bytes.size()] ^= 0x55;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const Process before = Process::Now();
    Process during;
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
        // Signals of the process never run on a thread of the library.
        during = Process::Now();
        for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
            std::ifstream status(task.path() / "status");
            std::string line;
            bool ours = false;
            while (std::getline(status, line)) {
                ours = ours || line.find("corvane-") != std::string::npos;
                if (ours && line.starts_with("SigBlk:"))
                    blocked.push_back(std::stoull(line.substr(7), nullptr, 16));
            }
        }
    }
    const Process after = Process::Now();
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(during.inherited, before.inherited);
    EXPECT_EQ(blocked.size(), 2u);
    for (const uint64_t mask : blocked)
        EXPECT_NE(mask & (1ull << (SIGINT - 1)), 0u);
    for (size_t i = 1; i < 32; ++i)
        EXPECT_EQ(after.handlers[i].sa_handler, before.handlers[i].sa_handler) << "signal " << i;
    EXPECT_EQ(memcmp(&after.mask, &before.mask, sizeof(uint64_t)), 0);
    EXPECT_EQ(after.locale, before.locale);
    EXPECT_EQ(after.folder, before.folder);
    EXPECT_EQ(after.inherited, before.inherited);
}

}    // namespace
}    // namespace corvane
