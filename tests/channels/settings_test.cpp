// That every number of an option, and every field of the two records, reaches the setting that it names.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "channels/ChannelLive.h"

namespace corvane {
namespace {

std::string Text(const Edges& e) {
    return std::to_string(e.left) + " " + std::to_string(e.top) + " " + std::to_string(e.right) + " " +
           std::to_string(e.bottom);
}

// What is not meant stays as it was.
TEST(ChannelSettings, EachReachesItsPlace) {
    CChannelLive live(0, 0);
    const auto told = [&live] {    // margins, border, whether it is used, text policy, presenting
        const RenderInfo info = live.Render().GetRenderInfo();
        return Text(info.margin) + ", " + (info.hasBorder ? Text(info.border) : "-") +
               (info.noBorder ? " off, " : ", ") + std::to_string(info.osdPolicy) +
               (info.presentEnabled ? " on" : " off") + (info.fullWindow ? " full" : "");
    };
    ChannelSettings settings{};
    settings.marginLeft = 11;
    settings.marginRight = 12;
    settings.marginTop = 13;
    settings.marginBottom = 14;
    for (uint32_t i = 0; i < 4; ++i)
        settings.border[i] = 21 + i;
    for (const auto& [mask, hasBorder, wanted] : {std::tuple(0u, 0u, "0 0 0 0, -, 3 on"),
                                                  {0x20u | 0x100, 0u, "11 0 0 14, -, 3 on"},
                                                  {0x40u | 0x80 | 0x2000, 1u, "11 13 12 14, 21 22 23 24, 3 off"}}) {
        settings.mask = mask;
        settings.hasBorder = hasBorder;
        live.Apply(settings);
        EXPECT_EQ(told(), wanted);
    }
    for (const auto& [option, value, wanted] : {std::tuple(7, uint64_t{1}, "1 13 12 14, 21 22 23 24, 3 off"),
                                                {8, 2, "1 13 2 14, 21 22 23 24, 3 off"},
                                                {9, uint64_t{1} << 32 | 3, "1 3 2 14, 21 22 23 24, 3 off"},
                                                {10, 4, "1 3 2 4, 21 22 23 24, 3 off"},
                                                {3, 0, "1 3 2 4, 21 22 23 24 off, 3 off"},
                                                {3, 5, "1 3 2 4, 21 22 23 24, 3 off"},
                                                {45, 12, "1 3 2 4, 21 22 23 24, 12 off"}}) {
        EXPECT_EQ(live.SetOption(option, value, 0), Status::Ok);
        EXPECT_EQ(told(), wanted);
    }
    ChannelUpdate update{};
    for (const auto& [mask, on, wanted] : {std::tuple(0x2000u, 1u, "1 3 2 4, 21 22 23 24, 12 off full"),
                                           {0x0001u, 0u, "1 3 2 4, 21 22 23 24, 12 off full"},
                                           {0x2001u, 0u, "1 3 2 4, 21 22 23 24, 12 off"}}) {
        update.mask = mask;
        update.fullWindow = update.presentEnabled = on;
        EXPECT_EQ(live.Update(update), Status::Ok);
        EXPECT_EQ(told(), wanted);
    }
}

}    // namespace
}    // namespace corvane
