// A channel that plays for a day what a camera sends whose clock is not ours: the real worker, in simulated time.
#include <gtest/gtest.h>

#include "support/SimulatedChannel.h"

namespace corvane {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__clang__)
constexpr int64_t kHours = 1;    // a build for finding faults is no place for long runs
#else
constexpr int64_t kHours = 24;
#endif
constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kStepMs = 500;    // by the camera's clock; a key frame every five seconds
constexpr int64_t kPictures = kHours * 3'600'000 / kStepMs;
constexpr int64_t kJitterMs = 15;

// Pictures come in order, each up to 15 ms late. A thousandth too fast the queue grows until the worker catches up,
// where it holds enough that no late picture lets it run out; as much too slow it runs out and fills again. No picture
// is lost, or late for more than what a queue holds that has been over its buffer time for 16 pictures. A restart at
// noon costs what waits and what comes before the next key frame, and changes nothing for the others.
TEST(ClockDrift, QueueAndAgeStayBoundedForADay) {
    const struct {
        double rate;
        uint32_t bufferMs;
    } rows[] = {{0.999, 1}, {0.999, 2000}, {1.001, 500}, {1.001, 2000}};
    for (const auto& [rate, bufferMs] : rows) {
        SCOPED_TRACE(testing::Message() << rate << ", buffer " << bufferMs);
        std::vector<test::Arrival> arrivals;
        for (int64_t number = 0; number < kPictures; ++number) {
            const uint64_t mixed = (static_cast<uint64_t>(number) + 1) * 6364136223846793005u;
            const auto arrival = static_cast<int64_t>(kStepMs / rate * static_cast<double>(number) * kNsPerMs) +
                                 static_cast<int64_t>(mixed >> 33) % (kJitterMs * kNsPerMs);
            arrivals.push_back({.atNs = arrival, .stampMs = number * kStepMs, .key = number % 10 == 0});
        }
        test::SimulatedChannel simulation(arrivals);
        int64_t decoded = 0, oldest = 0, bunched = 0, before = 0;    // bunched: right behind the one before
        simulation.onDecoded = [&](int64_t number, int64_t now) {
            ++decoded;
            oldest = std::max(oldest, now - arrivals[static_cast<size_t>(number)].atNs);
            bunched += now - std::exchange(before, now) < kStepMs * kNsPerMs / 2 ? 1 : 0;
        };
        simulation.channel.SetBufferTime(bufferMs);
        for (const int64_t end : {kPictures / 2, kPictures})
            simulation.Play(static_cast<size_t>(end));
        EXPECT_EQ(simulation.refused, 0);
        EXPECT_GE(decoded, kPictures - 2 * 5 - 10);
        // A buffer of one step holds a picture back until the next is there.
        EXPECT_LT(bunched, decoded / (bufferMs == kStepMs ? 1 : 100));
        EXPECT_LE(oldest / kNsPerMs, int64_t{bufferMs} + kStepMs + kJitterMs + 16 * kStepMs / 1000);
    }
}

}    // namespace
}    // namespace corvane
