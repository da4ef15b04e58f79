// Compares our code with peers in one process, as ratios, since machines are noisy.
#pragma once

#include <hwy/targets.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace corvane::bench {

// One job, done by our code and by at least one peer on the given buffers.
template <class Buffers>
struct Contest {
    using Run = std::function<void(const Buffers&)>;
    std::string name;
    std::string goal;
    Run ours;
    std::vector<std::pair<const char*, Run>> peers;
};

struct Figures {
    double medianRatio;
    double minimumRatio;
    double oursMs;
    const char* peer;
};

// One round times each contestant once on the next buffers of the ring; a peer counts by its own minimum and by each
// round.
template <class Buffers>
Figures Measure(const Contest<Buffers>& contest, const std::vector<Buffers>& ring, int rounds) {
    const auto seconds = [](const auto& run, const Buffers& buffers) {
        const auto start = std::chrono::steady_clock::now();
        run(buffers);
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    const size_t contestants = contest.peers.size() + 1;
    std::vector<std::vector<double>> times(contestants);
    size_t at = 0;
    const auto next = [&]() -> const Buffers& { return ring[at++ % ring.size()]; };
    for (int round = -3; round < rounds; ++round) {
        for (size_t i = 0; i < contestants; ++i) {
            const size_t who = (i + static_cast<size_t>(round + 3)) % contestants;
            const auto& run = who == 0 ? contest.ours : contest.peers[who - 1].second;
            run(next());    // each is timed after a run of itself, so that the caches are its own
            const double time = seconds(run, next());
            if (round >= 0)
                times[who].push_back(time);
        }
    }
    std::vector<double> best;
    for (const auto& column : times)
        best.push_back(*std::min_element(column.begin(), column.end()));
    const size_t peer = static_cast<size_t>(std::min_element(best.begin() + 1, best.end()) - best.begin());
    std::vector<double> ratios;
    for (size_t round = 0; round < times[0].size(); ++round)
        ratios.push_back(times[0][round] / times[peer][round]);
    std::nth_element(ratios.begin(), ratios.begin() + static_cast<ptrdiff_t>(ratios.size() / 2), ratios.end());
    return {ratios[ratios.size() / 2], best[0] / best[peer], best[0] * 1e3, contest.peers[peer - 1].first};
}

// Caps our instruction set, not the peers'. False for an unknown name.
inline bool CapTargets(const std::string& name) {
    int64_t keep = HWY_SCALAR;
    if (name == "best")
        return true;
    if (name == "avx2")
        keep |= HWY_AVX2 | HWY_SSE4 | HWY_SSSE3;
    else if (name == "sse4")
        keep |= HWY_SSE4 | HWY_SSSE3;
    else if (name != "scalar")
        return false;
    hwy::SetSupportedTargetsForTest(hwy::SupportedTargets() & keep);
    return true;
}

}    // namespace corvane::bench
