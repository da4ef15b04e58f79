// The player's figures are ratios to this: the same file, demuxed, paced and decoded with the same flags and threads,
// and the pictures dropped. decode_only FILE THREADS SECONDS [DECODERS]
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>

#include "PacedDecode.h"

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "decode_only FILE THREADS SECONDS [DECODERS]\n");
        return 2;
    }
    const int pictures =
        corvane::bench::PacedDecode(argv[1], std::atoi(argv[2]), std::atof(argv[3]), argc > 4 ? std::atoi(argv[4]) : 1,
                                    [](const AVFrame&) { return true; });
    if (pictures < 0)
        return 1;
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    std::printf("%d %.3f %.1f\n", pictures, seconds(usage.ru_utime) + seconds(usage.ru_stime),
                static_cast<double>(usage.ru_maxrss) / 1024);
    return 0;
}
