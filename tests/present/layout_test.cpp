#include "present/Layout.h"

#include "present/OnScreenText.h"
#include "present/ScriptedWatch.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using test::ScriptedWatch;
using Four = int32_t[4];

TEST(Layout, ZoomSource) {
    constexpr int32_t kMost = INT32_MAX;
    const struct {
        const char* name;
        Four overview, overviewMargin, zoom, zoomMargin;
        std::optional<Rect> source;    // of 640x360
    } rows[] = {
        {"truncated", {0, 0, 7, 7}, {}, {1, 1, 3, 4}, {}, Rect{91, 51, 91 + 182, 51 + 154}},
        {"partly out: the common part", {100, 100, 420, 280}, {}, {20, 20, 180, 145}, {}, Rect{0, 0, 160, 90}},
        {"touching", {100, 100, 420, 280}, {}, {420, 100, 600, 200}, {}, std::nullopt},
        {"margins", {90, 95, 430, 290}, {10, 5, 10, 10}, {170, 140, 345, 240}, {10, 5, 5, 5}, Rect{160, 90, 480, 270}},
        {"less than a pixel", {0, 0, 1920, 1080}, {}, {1919, 1079, 1920, 1080}, {}, Rect{639, 359, 640, 360}},
        {"overview eaten by its margins", {0, 0, 10, 10}, {5, 0, 5, 0}, {0, 0, 10, 10}, {}, std::nullopt},
        {"widest coordinates",
         {-kMost, -kMost, kMost, kMost},
         {-kMost, -kMost, -kMost, -kMost},
         {-kMost, -kMost, kMost, kMost},
         {},
         Rect{160, 90, 480, 270}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        PresentSettings info;
        std::ranges::copy(row.overview, info.area.overview.rectangle);
        std::ranges::copy(row.overviewMargin, info.area.overviewMargin);
        std::ranges::copy(row.zoom, info.area.zoom.rectangle);
        std::ranges::copy(row.zoomMargin, info.area.zoomMargin);
        EXPECT_EQ(ZoomSource(info, 640, 360), row.source);
        // The same places as windows give the same.
        const auto watch = [](const Four& r) { return std::make_shared<ScriptedWatch>(Rect{r[0], r[1], r[2], r[3]}); };
        info.area.overviewIsWindow = info.area.zoomIsWindow = 1;
        info.overviewWindow = watch(row.overview);
        info.zoomWindow = watch(row.zoom);
        EXPECT_EQ(ZoomSource(info, 640, 360), row.source);
        if (row.name == std::string("less than a pixel"))    // nobody shows an odd last column or row by itself
            EXPECT_EQ(ZoomSource(info, 641, 361), (Rect{639, 359, 641, 361}));
        info.zoomWindow = std::make_shared<ScriptedWatch>(std::nullopt);    // destroyed
        EXPECT_EQ(ZoomSource(info, 640, 360), std::nullopt);
    }
}

TEST(Layout, OverviewRectKeepsItsMargins) {
    PresentSettings info;
    info.window = std::make_shared<ScriptedWatch>(Rect{100, 200, 500, 600});
    const Four place{150, 230, 250, 290}, margin{1, 2, 3, 4};
    std::ranges::copy(place, info.area.overview.rectangle);
    std::ranges::copy(margin, info.area.overviewMargin);
    EXPECT_EQ(OverviewRect(info, {}), (Rect{51, 32, 147, 86}));
    info.area.overviewIsWindow = 1;
    EXPECT_EQ(OverviewRect(info, {80, 60}), (Rect{1, 2, 77, 56}));
    info.area.overviewIsWindow = 0;
    info.window = std::make_shared<ScriptedWatch>(std::nullopt);
    EXPECT_EQ(OverviewRect(info, {}), std::nullopt);
    info.margin = {0, UINT32_MAX, 0, 0};    // wider than the window
    EXPECT_TRUE(PictureRect(info, {100, 60}).Empty());
}

// Each bit of the policy looks at one time; 0 and "always" at none. The zone is that of the record, whatever the times
// that came with the frame say.
TEST(OnScreenText, PolicyAndRecord) {
    const uint8_t extension[] = {0, 0, 0, 0, 96, 12, 0, 0, 0, 9, 0, 0, 0, 8, 0, 7, 0, 1};
    MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_H264, {}, true, 60'345);
    header.timeSeconds = 50;
    header.timeZoneSeconds = 3600;
    header.daylight = 0x10002;
    header.extension = extension;
    header.extensionSize = sizeof extension;
    const MediaFrameImpl frame(header);
    const TextTimes same{8, 50, 60, 9};    // wall, and those of the record, presenting and the base
    for (const uint32_t policy : {0u, 1u, 2u, 4u, 8u, 15u, uint32_t{CORVANE_TEXT_ALWAYS}}) {
        EXPECT_FALSE(TextDue(policy, same, 8, frame)) << policy;
        EXPECT_EQ(TextDue(policy, same, 9, frame), (policy & 1) != 0) << policy;
        EXPECT_EQ(TextDue(policy, {8, 49, 60, 9}, 8, frame), (policy & 2) != 0) << policy;
        EXPECT_EQ(TextDue(policy, {8, 50, 61, 9}, 8, frame), (policy & 4) != 0) << policy;
        EXPECT_EQ(TextDue(policy, {8, 50, 60, 8}, 8, frame), (policy & 8) != 0) << policy;
    }
    const OsdInfo info = OsdRecord(&frame, 86400 + 61, false).info;
    EXPECT_TRUE(info.timeSeconds == 86461 && info.timeMilliseconds == 345);
    EXPECT_TRUE(info.streamSeconds == 60 && info.presentTime.seconds == 60);
    EXPECT_TRUE(info.timeZone == 44 && info.daylight == 2 && info.baseTime.timeZone == 7);
}

}    // namespace
}    // namespace corvane
