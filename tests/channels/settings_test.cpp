// That every number of an option, and every field of the two records, reaches the setting that it names.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>

#include "channels/ChannelLive.h"
#include "support/Latch.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

std::string Text(const Edges& e) {
    return std::to_string(e.left) + " " + std::to_string(e.top) + " " + std::to_string(e.right) + " " +
           std::to_string(e.bottom);
}
// Margins, border, whether it is used, text policy, presenting, full window.
std::string Text(const RenderInfo& info) {
    return Text(info.margin) + ", " + (info.hasBorder ? Text(info.border) : "-") + (info.noBorder ? " off, " : ", ") +
           std::to_string(info.osdPolicy) + (info.presentEnabled ? " on" : " off") + (info.fullWindow ? " full" : "");
}

TEST(ChannelSettings, EachReachesItsPlace) {
    const auto option = [](int32_t id, uint64_t value) {
        return [=](CChannelLive& live) { EXPECT_EQ(live.SetOption(id, value, 0), Status::Ok); };
    };
    const auto apply = [](uint32_t mask, uint32_t hasBorder) {
        return [=](CChannelLive& live) {
            ChannelSettings settings{};
            settings.mask = mask;
            settings.marginLeft = 11;
            settings.marginRight = 12;
            settings.marginTop = 13;
            settings.marginBottom = 14;
            settings.hasBorder = hasBorder;
            for (uint32_t i = 0; i < 4; ++i)
                settings.border[i] = 21 + i;
            live.Apply(settings);
        };
    };
    const auto update = [](uint32_t mask, uint32_t fullWindow) {
        return [=](CChannelLive& live) {
            ChannelUpdate changes{};
            changes.mask = mask;
            changes.fullWindow = fullWindow;
            EXPECT_EQ(live.Update(changes), Status::Ok);
        };
    };
    const struct {
        std::function<void(CChannelLive&)> change;
        const char* told;    // what was there before stays
    } rows[] = {
        {apply(0, 0), "0 0 0 0, -, 3 on"},
        {apply(0x20 | 0x100, 0), "11 0 0 14, -, 3 on"},
        {apply(0x40 | 0x80 | 0x2000, 1), "11 13 12 14, 21 22 23 24, 3 off"},
        {option(7, 1), "1 13 12 14, 21 22 23 24, 3 off"},
        {option(8, 2), "1 13 2 14, 21 22 23 24, 3 off"},
        {option(9, uint64_t{1} << 32 | 3), "1 3 2 14, 21 22 23 24, 3 off"},
        {option(10, 4), "1 3 2 4, 21 22 23 24, 3 off"},
        {option(3, 0), "1 3 2 4, 21 22 23 24 off, 3 off"},
        {option(3, 5), "1 3 2 4, 21 22 23 24, 3 off"},
        {option(45, 12), "1 3 2 4, 21 22 23 24, 12 off"},
        {update(0x2000, 1), "1 3 2 4, 21 22 23 24, 12 off full"},
        {update(0, 0), "1 3 2 4, 21 22 23 24, 12 off full"},
        {update(0x2001, 0), "1 3 2 4, 21 22 23 24, 12 off"},
    };
    CChannelLive live(0, 0);
    for (const auto& row : rows) {
        row.change(live);
        EXPECT_EQ(Text(live.Render().GetRenderInfo()), row.told) << &row - rows;
    }
}

struct SilentDecoder final : DecoderContext {
    int32_t DecodeVideo(DecodedFrame*, uint32_t* got, const EncodedUnit*) override { return *got = 0; }
    int32_t DecodeAudio(uint8_t*, uint32_t*, const EncodedUnit*) override { return -1; }
    void Destroy() override { delete this; }
    int32_t ShareFrame(DecodedFrame*, int32_t) override { return -1; }
};

// Each hardware kind counts for one codec; the client is told of it.
TEST(ChannelSettings, HardwareKindsAreOfTheirCodec) {
    const DecoderFactories::Plain make = []() -> DecoderContext* { return new SilentDecoder; };
    DecoderFactories factories{};
    factories.GetDecoderIsolated_CUVID_H264 = factories.GetDecoderIsolated_CUVID_MP4V =
        factories.GetDecoderIsolated_CUVID_HEVC = make;
    const std::pair<int32_t, uint32_t> pairs[] = {
        {46, CORVANE_STREAM_H264}, {52, CORVANE_STREAM_MPEG4}, {53, CORVANE_STREAM_H265}};
    for (const auto& [option, codec] : pairs)
        for (const auto& other : pairs) {
            std::atomic<int> told{-1};
            CChannelLive live(0, 0);
            live.SetFactories(factories);
            live.Render().SetStreamInfo(
                [](void* context, uint32_t code, uint64_t kind, uint64_t) {
                    if (code == 13)
                        *static_cast<std::atomic<int>*>(context) = static_cast<int>(kind);
                },
                &told);
            EXPECT_EQ(live.SetOption(option, 1, 0), Status::Ok);
            EXPECT_EQ(live.Start(false), Status::Ok);
            const std::vector<uint8_t> bytes = {0, 0, 1};
            EXPECT_EQ(live.Input(test::VideoHeader(other.second, bytes, true, 0)), Status::Ok);
            ASSERT_TRUE(test::Eventually([&] { return told >= 0; }));
            EXPECT_EQ(told, codec == other.second ? 1 : 0) << option << " for " << other.second;
        }
}

}    // namespace
}    // namespace corvane
