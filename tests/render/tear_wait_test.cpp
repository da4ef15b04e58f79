#include "render/TearWait.h"
#include "support/Testing.h"

namespace corvane {
namespace {

constexpr uint32_t kBlank = UINT32_MAX;    // in the place of a line
constexpr uint32_t kError = UINT32_MAX - 1;

BlitResult ResultOf(uint32_t line) {
    return line == kBlank ? BlitResult::InBlank : line == kError ? BlitResult::Failed : BlitResult::Ok;
}

TEST(TearWait, ExitsOfTheWaitAndAverageOfCopiesBegunInBlank) {
    // 320 x 240 on 1080 lines: the zone of a window at line 500 is 497 to 734. 160 x 160 at the top: -1 to 158.
    constexpr Rect kMiddle{100, 500, 420, 740};
    constexpr Rect kTop{0, 0, 160, 160};
    constexpr float kHit = 0.6f * 0.99f, kClear = 0.6f + 0.4f * 0.01f;
    const struct {
        const char* name;
        Rect window;
        float blankHit;
        std::vector<uint32_t> lines;
        const char* steps;           // C copy, S sleep, s spin
        uint32_t ended = kError;     // the line after the copy
        float average = blankHit;    // then
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
        {"met the beam", kMiddle, 0.6f, {kBlank}, "C", 600, kHit},
        {"met it at the first line", kMiddle, 0.6f, {kBlank}, "C", 498, kHit},
        {"met it at the last line", kMiddle, 0.6f, {kBlank}, "C", 733, kHit},
        {"ended before it", kMiddle, 0.6f, {kBlank}, "C", 497, kClear},
        {"ended behind it", kMiddle, 0.6f, {kBlank}, "C", 734, kClear},
        {"ended in the blank", kMiddle, 0.6f, {kBlank}, "C", kBlank, kClear},
        {"not begun in blank", kMiddle, 0.6f, {50}, "C", 600},
        {"waited in a blank, begun after it", kTop, 0.4f, {kBlank, 158}, "SC", 50},
    };
    for (const auto& row : rows) {
        TearWait wait(row.window, 1080, row.blankHit);
        std::string steps;
        for (const uint32_t line : row.lines)
            steps += "CSs"[static_cast<int>(wait.Next(ResultOf(line), line, 5))];
        EXPECT_EQ(steps, row.steps) << row.name;
        EXPECT_FLOAT_EQ(wait.Judged(ResultOf(row.ended), row.ended), row.average) << row.name;
    }
    TearWait asleep(kMiddle, 1080, 1);
    EXPECT_EQ(asleep.Next(BlitResult::Ok, 600, 1'000), TearWait::Step::Sleep);
    EXPECT_EQ(asleep.Next(BlitResult::Ok, 600, 1'000 + TearWait::kLongest - 1), TearWait::Step::Sleep);
    EXPECT_EQ(asleep.Next(BlitResult::Ok, 600, 1'000 + TearWait::kLongest), TearWait::Step::Copy) << "no beam";
}

}    // namespace
}    // namespace corvane
