#include <signal.h>

#include <atomic>
#include <cstdio>
#include <string>

#include "Options.h"
#include "Player.h"

namespace {
std::atomic<bool> stop{false};
static_assert(std::atomic<bool>::is_always_lock_free, "set from a signal handler");
}    // namespace

int main(int argc, char** argv) {
    Options options;
    int exitCode = 0;
    if (!ParseOptions(argc, argv, options, exitCode))
        return exitCode;
    signal(SIGINT, [](int) { stop = true; });
    signal(SIGTERM, [](int) { stop = true; });
    Player player(options);
    std::string error;
    if (!player.Run(stop, error) || !player.Finish(error)) {
        std::fprintf(stderr, "corvane-play: %s\n", error.c_str());
        return 1;
    }
    return 0;
}
