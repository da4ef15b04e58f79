// The cost of one call of a log site: without a logger, and with one that refuses the line.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "base/Log.h"
#include "entry/Logger.h"

namespace {

// Nanoseconds of one call, the least of ten runs.
double CallNs() {
    constexpr int kCalls = 1'000'000;
    double least = 1e9;
    for (int run = 0; run < 10; ++run) {
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < kCalls; ++i)
            corvane::log::Line(3, "src/Bench", i, "[%p] silenced", &begin);
        const std::chrono::duration<double, std::nano> took = std::chrono::steady_clock::now() - begin;
        least = std::min(least, took.count() / kCalls);
    }
    return least;
}

}    // namespace

// log_bench PELLWICK: the path of the log library.
int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    unsetenv("PELLWICK_FILE");
    std::printf("no logger           %6.1f ns a call\n", CallNs());
    corvane::Logger::Start(argv[1]);
    if (corvane::log::hook == nullptr)
        return 1;
    std::printf("a line is refused   %6.1f ns a call\n", CallNs());
}
