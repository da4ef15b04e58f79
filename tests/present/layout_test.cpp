#include "present/Layout.h"

#include <gtest/gtest.h>

#include "present/OnScreenText.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

// A window that lies where it is told.
class FixedWatch final : public WindowWatch {
public:
    explicit FixedWatch(std::optional<Rect> place) : m_place(place) {}
    uintptr_t Window() const override { return 1; }
    Life GetLife() const override { return Life::Alive; }
    bool Viewable() const override { return true; }
    Size ClientSize() const override { return {}; }
    std::optional<Rect> ScreenRect() const override { return m_place; }
    uint32_t MonitorIndex() const override { return 0; }
    void AddListener(Listener*) override {}
    void RemoveListener(Listener*) override {}

private:
    const std::optional<Rect> m_place;
};

using Four = int32_t[4];

void Set(int32_t (&to)[4], const Four& from) {
    std::copy(std::begin(from), std::end(from), to);
}

TEST(Layout, ZoomSource) {
    constexpr int32_t kMost = INT32_MAX;
    const struct {
        const char* name;
        Four overview, overviewMargin, zoom, zoomMargin;
        std::optional<Rect> source;    // of 640x360
    } rows[] = {
        {"inside", {100, 100, 420, 280}, {}, {180, 145, 340, 235}, {}, Rect{160, 90, 480, 270}},
        {"truncated", {0, 0, 7, 7}, {}, {1, 1, 3, 4}, {}, Rect{91, 51, 91 + 182, 51 + 154}},
        {"partly out: the common part", {100, 100, 420, 280}, {}, {20, 20, 180, 145}, {}, Rect{0, 0, 160, 90}},
        {"outside", {100, 100, 420, 280}, {}, {500, 100, 600, 200}, {}, std::nullopt},
        {"touching", {100, 100, 420, 280}, {}, {420, 100, 600, 200}, {}, std::nullopt},
        {"margins", {90, 95, 430, 290}, {10, 5, 10, 10}, {170, 140, 345, 240}, {10, 5, 5, 5}, Rect{160, 90, 480, 270}},
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
        RenderInfo info;
        Set(info.area.overview.rectangle, row.overview);
        Set(info.area.overviewMargin, row.overviewMargin);
        Set(info.area.zoom.rectangle, row.zoom);
        Set(info.area.zoomMargin, row.zoomMargin);
        EXPECT_EQ(ZoomSource(info, 640, 360), row.source);
        // The same places as windows give the same.
        const auto watch = [](const Four& r) { return std::make_shared<FixedWatch>(Rect{r[0], r[1], r[2], r[3]}); };
        info.area.overviewIsWindow = info.area.zoomIsWindow = 1;
        info.overviewWindow = watch(row.overview);
        info.zoomWindow = watch(row.zoom);
        EXPECT_EQ(ZoomSource(info, 640, 360), row.source);
        info.zoomWindow = std::make_shared<FixedWatch>(std::nullopt);    // destroyed
        EXPECT_EQ(ZoomSource(info, 640, 360), std::nullopt);
    }
}

TEST(Layout, BandsSurroundThePicture) {
    RenderInfo info;
    info.margin = {3, 5, 7, 11};    // left, right, top, bottom
    info.border = {2, 4, 6, 8};
    const Bands plain{Rect{0, 0, 100, 7}, Rect{0, 49, 100, 60}, Rect{0, 7, 3, 49}, Rect{95, 7, 100, 49}};
    const Bands bordered{Rect{0, 0, 106, 6}, Rect{0, 66, 106, 74}, Rect{0, 6, 2, 66}, Rect{102, 6, 106, 66}};
    EXPECT_EQ(BandRects(info, false, 100, 60), plain);
    EXPECT_EQ(BandRects(info, true, 100, 60), bordered);
    EXPECT_EQ(PictureRect(info, {100, 60}), (Rect{3, 7, 95, 49}));
    info.margin = {UINT32_MAX, UINT32_MAX, UINT32_MAX, UINT32_MAX};
    EXPECT_TRUE(PictureRect(info, {100, 60}).Empty());
    info.fullWindow = true;
    EXPECT_EQ(PictureRect(info, {100, 60}), (Rect{0, 0, 100, 60}));
}

TEST(OnScreenText, Policy) {
    MediaFrameHeader header{};
    header.recordSize = sizeof header;
    header.streamType = CORVANE_STREAM_JPEG;
    header.timeSeconds = 50;
    header.streamSeconds = 60;
    const MediaFrameImpl frame(header);
    const struct {
        uint32_t policy;
        int64_t wall;
        TextTimes last;
        bool due;
    } rows[] = {
        {1, 9, {9, 1, 1, 1}, false},
        {1, 8, {9, 50, 0, 60}, true},
        {2, 8, {9, 50, 1, 1}, false},
        {2, 9, {9, 49, 0, 60}, true},
        {4, 8, {9, 1, frame.PresentTime().seconds, 1}, false},
        {4, 9, {9, 50, frame.PresentTime().seconds + 1, 60}, true},
        {8, 8, {9, 1, 1, 60}, false},
        {8, 9, {9, 50, 0, 61}, true},
        {15, 9, {9, 50, frame.PresentTime().seconds, 60}, false},
        {0, 8, {9, 1, 1, 1}, false},
        {kOsdAlways, 8, {9, 1, 1, 1}, false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(TextDue(row.policy, row.last, row.wall, frame), row.due) << row.policy << " " << row.due;
}

// The zone is that of the record, whatever the times that came with the frame say.
TEST(OnScreenText, RecordOfAFrame) {
    const uint8_t extension[] = {0, 0, 0, 0, 96, 12, 0, 0, 0, 9, 0, 0, 0, 8, 0, 7, 0, 1};
    MediaFrameHeader header{};
    header.recordSize = sizeof header;
    header.streamSeconds = 60;
    header.timeZoneSeconds = 3600;
    header.daylight = 0x10002;
    header.extension = extension;
    header.extensionSize = sizeof extension;
    const MediaFrameImpl frame(header);
    const OsdInfo info = OsdRecord(&frame, 86400 + 61, false).info;
    EXPECT_EQ(info.timeSeconds, 86461u);
    EXPECT_EQ(info.streamSeconds, 60u);
    EXPECT_EQ(info.timeZone, 44);
    EXPECT_EQ(info.daylight, 2);
    EXPECT_EQ(info.baseTime.timeZone, 7);
    EXPECT_EQ(info.presentTime.seconds, 60u);
}

}    // namespace
}    // namespace corvane
