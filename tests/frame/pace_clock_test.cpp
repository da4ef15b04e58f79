#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "frame/PaceClock.h"

namespace corvane {
namespace {

constexpr int64_t kMs = 1'000'000;

// Frames that come in at the given times of the stream and of the clock, and what each is told.
TEST(PaceClock, Rules) {
    struct Step {
        int64_t t_ms;
        int64_t now_us;
        int64_t told_ms;
    };
    const struct {
        const char* name;
        float rate;
        bool reverse;
        std::vector<Step> steps;
    } rows[] = {
        {"first at once, then the steps",
         1,
         false,
         {{5'000'000, 70'000, 0}, {5'000'040, 70'000, 40}, {5'000'140, 110'000, 100}}},
        {"errors of sleeps do not add up",
         1,
         false,
         {{5'000'000, 0, 0}, {5'000'040, 1'000, 39}, {5'000'080, 43'000, 37}}},
        {"rest below a millisecond", 1, false, {{5'000'000, 0, 0}, {5'000'040, 39'001, 0}, {5'000'080, 80'999, 0}}},
        {"lateness", 1, false, {{5'000'000, 0, 0}, {5'000'040, 41'000, -1}, {5'000'080, 600'000, -520}}},
        {"equal times repeat", 1, false, {{5'000'000, 0, 0}, {5'000'040, 0, 40}, {5'000'040, 40'000, 40}}},
        {"backward step repeats",
         1,
         false,
         {{5'000'000, 0, 0}, {5'000'040, 0, 40}, {4'999'000, 40'000, 40}, {4'999'030, 80'000, 30}}},
        {"an hour on repeats", 1, false, {{5'000'000, 0, 0}, {5'000'040, 0, 40}, {8'600'040, 40'000, 40}}},
        {"longest step", 1, false, {{5'000'000, 0, 0}, {5'010'999, 0, 10'999}, {5'021'999, 10'999'000, 10'999}}},
        {"no step known yet", 1, false, {{5'000'000, 0, 0}, {5'000'000, 0, 0}}},
        {"first step is counted from zero", 1, false, {{40, 0, 0}, {40, 0, 40}}},
        {"faster, in single precision", 1.2f, false, {{5'000'000, 0, 0}, {5'000'120, 0, 99}, {5'000'240, 0, 199}}},
        {"half speed", 0.5f, false, {{5'000'000, 0, 0}, {5'000'040, 0, 80}}},
        {"reverse", 1, true, {{5'000'000, 0, 0}, {4'999'960, 0, 40}, {5'000'000, 0, 80}}},
    };
    for (const auto& row : rows) {
        PaceClock clock;
        clock.SetReverse(row.reverse);
        for (const Step& step : row.steps)
            EXPECT_EQ(clock.Pace(step.t_ms, row.rate, step.now_us * 1000), step.told_ms)
                << row.name << " " << step.t_ms;
    }
}

TEST(PaceClock, DueTimeInNanoseconds) {
    PaceClock clock;
    EXPECT_EQ(clock.DueNs(), -1);
    clock.Pace(5'000'000, 1, 123);
    EXPECT_EQ(clock.DueNs(), 123);
    clock.Pace(5'000'033, 1.2f, 0);
    EXPECT_EQ(clock.DueNs(), 123 + 27'499'998);    // in single precision; exact would be 27,500,000
    clock.Unset();
    EXPECT_EQ(clock.Pace(5'000'066, 1, 77), 0);    // starts afresh
    EXPECT_EQ(clock.DueNs(), 77);
    EXPECT_EQ(clock.Pace(5'000'000, 1, 77), 33);    // with the step that it knew
}

TEST(PaceClock, ExtremeRatesStayDefined) {
    for (const float rate :
         {1e-30f, 0.0f, std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(), -1.0f}) {
        PaceClock clock;
        for (int64_t t = 0; t < 200; ++t)
            EXPECT_GE(clock.Pace(t * 10'000, rate, 0), 0) << rate;
    }
}

// Any stamps at all: a worker that sleeps as told shows a picture at least every 11 s and never falls behind by itself.
TEST(PaceClock, RandomStamps) {
    std::mt19937_64 random(7);
    PaceClock clock;
    int64_t now = 0;
    for (int i = 0; i < 20'000; ++i) {
        const auto t = static_cast<int64_t>(i % 5 == 0 ? random() % 5'000'000'000'000 : uint64_t{1'000'000} + i * 40u);
        const int64_t told = clock.Pace(t, 1, now);
        ASSERT_GE(told, 0);
        ASSERT_LT(told, 11'000);
        now += told * kMs;
    }
}

}    // namespace
}    // namespace corvane
