// That the numbers of options and the fields of records reach the settings that they name, where they lie side by side.
#include <gtest/gtest.h>

#include "channels/ChannelLive.h"

namespace corvane {
namespace {

TEST(ChannelSettings, SidesGoWhereTheyAreNamed) {
    CChannelLive live(0, 0);
    ChannelSettings settings{};
    settings.mask = 0x20 | 0x100;
    settings.marginLeft = settings.marginRight = settings.marginTop = 9;
    settings.marginBottom = 4;
    settings.hasBorder = 1;
    for (uint32_t i = 0; i < 4; ++i)
        settings.border[i] = 21 + i;    // left, top, right, bottom
    live.Apply(settings);
    for (int32_t option = 8; option <= 9; ++option)
        EXPECT_EQ(live.SetOption(option, uint64_t{1} << 32 | static_cast<uint32_t>(option), 0), Status::Ok);
    const RenderInfo info = live.Render().GetRenderInfo();
    EXPECT_TRUE(info.margin.left == 9 && info.margin.right == 8 && info.margin.top == 9 && info.margin.bottom == 4);
    EXPECT_TRUE(info.border.left == 21 && info.border.top == 22 && info.border.right == 23 && info.border.bottom == 24);
    EXPECT_TRUE(info.osdPolicy == 3 && !info.fullWindow && info.presentEnabled && !info.noBorder);
}

}    // namespace
}    // namespace corvane
