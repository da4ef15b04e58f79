#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "render/TearWait.h"

namespace corvane {
namespace {

constexpr uint32_t kBlank = UINT32_MAX;    // in the place of a line
constexpr uint32_t kError = UINT32_MAX - 1;

BlitResult ResultOf(uint32_t line) {
    return line == kBlank ? BlitResult::InBlank : line == kError ? BlitResult::Failed : BlitResult::Ok;
}

TEST(TearWait, EveryExitOfTheWait) {
    // 320 x 240 on 1080 lines: the zone of a window at line 500 is 497 to 734. 160 x 160 at the top: -1 to 158.
    constexpr Rect kMiddle{100, 500, 420, 740};
    constexpr Rect kTop{0, 0, 160, 160};
    const struct {
        const char* name;
        Rect window;
        float blankHit;
        std::vector<uint32_t> lines;
        const char* steps;    // C copy, S sleep, s spin
    } rows[] = {
        {"error", kMiddle, 1, {kError}, "C"},
        {"error after a wait", kMiddle, 1, {500, kError}, "SC"},
        {"far above", kMiddle, 1, {10}, "C"},
        {"the last line above", kMiddle, 1, {496}, "C"},
        {"the first of the zone", kMiddle, 1, {497, 497, 734}, "SSC"},
        {"to its end, asleep until a tenth of the screen is left", kMiddle, 1, {600, 626, 627, 733, 734}, "SSssC"},
        {"below", kMiddle, 1, {900}, "C"},
        {"wrapped inside the zone", kMiddle, 1, {700, 699}, "sC"},
        {"a blank is a good moment", kMiddle, 0.5f, {kBlank}, "C"},
        {"a blank is not, but above the zone", kMiddle, 0.49f, {kBlank}, "C"},
        {"a blank above a window at the top is inside", kTop, 0.49f, {kBlank, kBlank, 3, 51, 157, 158}, "SSSssC"},
        {"the same, where blanks are good", kTop, 0.5f, {kBlank}, "C"},
        {"a blank after lines has wrapped", kMiddle, 0.4f, {600, kBlank}, "SC"},
    };
    for (const auto& row : rows) {
        TearWait wait(row.window, 1080, row.blankHit);
        std::string steps;
        for (const uint32_t line : row.lines)
            steps += "CSs"[static_cast<int>(wait.Next(ResultOf(line), line, 5))];
        EXPECT_EQ(steps, row.steps) << row.name;
    }
    TearWait asleep(kMiddle, 1080, 1);
    EXPECT_EQ(asleep.Next(BlitResult::Ok, 600, 1'000), TearWait::Step::Sleep);
    EXPECT_EQ(asleep.Next(BlitResult::Ok, 600, 1'000 + TearWait::kLongest - 1), TearWait::Step::Sleep);
    EXPECT_EQ(asleep.Next(BlitResult::Ok, 600, 1'000 + TearWait::kLongest), TearWait::Step::Copy) << "no beam";
}

TEST(TearWait, TheAverageOfCopiesBegunInBlank) {
    constexpr Rect kWindow{0, 100, 320, 340};    // 97 to 334
    constexpr float kHit = 0.6f * 0.99f, kClear = 0.6f + 0.4f * 0.01f;
    const struct {
        uint32_t begun, ended;
        float average;
    } rows[] = {{kBlank, 200, kHit},   {kBlank, 98, kHit},       {kBlank, 333, kHit},    {kBlank, 97, kClear},
                {kBlank, 334, kClear}, {kBlank, kBlank, kClear}, {kBlank, kError, 0.6f},    // not told
                {50, 200, 0.6f}};                                                           // not begun in blank
    for (const auto& row : rows) {
        TearWait wait(kWindow, 1080, 0.6f);
        (void)wait.Next(ResultOf(row.begun), row.begun, 1);
        EXPECT_FLOAT_EQ(wait.Judged(ResultOf(row.ended), row.ended), row.average) << row.begun << ", " << row.ended;
    }
    TearWait late({0, 0, 160, 160}, 1080, 0.4f);    // waits in a blank, and begins after it
    EXPECT_EQ(late.Next(BlitResult::InBlank, 0, 1), TearWait::Step::Sleep);
    EXPECT_EQ(late.Next(BlitResult::Ok, 158, 1), TearWait::Step::Copy);
    EXPECT_FLOAT_EQ(late.Judged(BlitResult::Ok, 50), 0.4f);
}

}    // namespace
}    // namespace corvane
