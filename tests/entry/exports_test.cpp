#include <gtest/gtest.h>

#include <limits>

#include "channels/IChannel.h"
#include "entry/Calls.h"
#include "support/Client.h"

namespace corvane {
namespace {

TEST(Exports, VersionAndFlagsOfAnInstance) {
    const struct {
        uint32_t version, flags, status, channel = Status_Ok;
    } rows[] = {
        {0x0505, 0, Status_Ok},
        {0x0005, 0, Status_Ok},
        {0xABCD0305, 0x2119, Status_Ok, Status_DecodeOnlyInstance},
        {0x0605, 0, Status_VersionMismatch},
        {0x0506, 0, Status_VersionMismatch},
        {0x0505, 0x0006, Status_InvalidArgument},
        {0x0506, 0x0006, Status_VersionMismatch},
        {0x0505, 0x0004, Status_Ok},
    };
    for (const auto& row : rows) {
        void *instance = nullptr, *channel = nullptr;
        EXPECT_EQ(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, row.version, row.flags), row.status);
        ASSERT_EQ(instance != nullptr, row.status == Status_Ok);
        if (instance == nullptr)
            continue;
        EXPECT_EQ(Corvane_CreateChannel(instance, &channel, nullptr), row.channel);
        EXPECT_EQ(channel != nullptr, row.channel == Status_Ok);
        channel = channel == nullptr ? &instance : channel;    // never a channel
        EXPECT_EQ(Corvane_DeleteChannel(instance, &channel), Status_Ok);
        EXPECT_EQ(channel, nullptr);
        EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
        EXPECT_EQ(instance, nullptr);
    }
}

TEST(Exports, WrongArguments) {
    struct Avi final : IChannel {
        ChannelType GetChannelType() const override { return ChannelType::Avi; }
        void End() override {}
    } avi;
    void* const wrong = static_cast<IChannel*>(&avi);
    for (const test::Call& call : test::Calls())
        if (call.ofChannel) {
            EXPECT_EQ(call.call(nullptr, nullptr), Status_InvalidArgument) << call.name;
            EXPECT_EQ(call.call(nullptr, wrong), Status_WrongChannelType) << call.name;
        }
    PictureBuffer picture{};
    DisplayFrameInfo info{};
    DisplayArea area{};
    auto* const context = reinterpret_cast<struct _cairo*>(&info);    // not looked at
    test::Client client;
    void* const channel = client.channel;
    const uint32_t invalid[] = {
        Corvane_Initial(nullptr, nullptr, nullptr, 0, 0, 0, 0, 0),
        Corvane_Release(nullptr),
        Corvane_InputEncodedMediaFrame(channel, nullptr),
        Corvane_UpdateChannelSettings(channel, nullptr),
        Corvane_GetRemainingQueueElementCount(channel, nullptr),
        Corvane_GetChannelStatistics(channel, nullptr),
        Corvane_RegisterAfterDisplayCallback(channel, nullptr, nullptr),
        Corvane_GetCurrentSnapShot(channel, nullptr, 0),
        Corvane_GetCurrentSnapShot(channel, &picture, 8),    // no buffer of the caller's
        Corvane_GetCurrentDisplay(channel, nullptr, &info),
        Corvane_GetZoomedDisplay(channel, context, nullptr),
        Corvane_FreePicture(nullptr),
        Corvane_InsertFilter(channel, nullptr),
        Corvane_RemoveFilter(channel, nullptr),
        Corvane_EnableRotateFilter(channel, std::numeric_limits<double>::quiet_NaN()),
        Corvane_SetRotateOption(channel, std::numeric_limits<double>::infinity()),
        Corvane_CreateChannel(nullptr, &client.channel, nullptr),
        Corvane_CreateChannel(client.instance, nullptr, nullptr),
        Corvane_DeleteChannel(client.instance, nullptr),
        Corvane_DeleteChannel(nullptr, &client.channel),
        Corvane_SetChannelOption(channel, 11, 0, 4),
        Corvane_SetChannelOption(channel, CORVANE_OPTION_COLOURS, 2, 0),
        Corvane_SetChannelOption(channel, 11, reinterpret_cast<uint64_t>(&area), 1),
    };
    for (const uint32_t& status : invalid)
        EXPECT_EQ(status, Status_InvalidArgument) << &status - invalid;
    for (const int32_t id : {-1, 0, 2, 14, 43, 58, 999, 1001})
        EXPECT_EQ(Corvane_SetChannelOption(channel, id, 1, 4), Status_NotSupported) << id;
    EXPECT_EQ(Corvane_RegisterRawDataCallback(wrong, nullptr, nullptr, 5, 0), Status_NotSupported);    // kinds first
    EXPECT_EQ(Corvane_GetCurrentSnapShot(channel, &picture, 0), Status_Failed);                        // no window
    EXPECT_EQ(Corvane_FreePicture(&picture), Status_Ok);
    for (const char* const path : {"/no/such.bmp", static_cast<const char*>(nullptr)})
        EXPECT_EQ(Corvane_SetChannelOption(channel, 25, reinterpret_cast<uint64_t>(path), 0), Status_Failed);
    EXPECT_EQ(Corvane_InsertFilter(channel, &picture), Status_Ok);
    EXPECT_EQ(Corvane_InsertFilter(channel, &picture), Status_Failed);    // twice the same
}

// A null window is found before anything is applied: pictures still come, of the new mode only.
TEST(Exports, Updates) {
    test::Client client;
    ASSERT_EQ(Corvane_SetChannelOption(client.channel, 13, 3, 0), Status_Ok);
    client.Start();
    const auto pictures = test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .frames = 3});
    const struct {
        uint32_t mask, mode, status, fed;
    } rows[] = {{0x0801, 0, Status_InvalidArgument, Status_Ok},
                {0x0040, 2, Status_Ok, Status_UnsupportedMedia},
                {0x0041, 3, Status_Ok, Status_Ok}};
    for (size_t i = 0; i < 3; ++i) {
        ChannelUpdate update{};
        update.mask = rows[i].mask;
        update.mediaMode = rows[i].mode;
        update.presentEnabled = i == 2;
        EXPECT_EQ(Corvane_UpdateChannelSettings(client.channel, &update), rows[i].status);
        ASSERT_EQ(client.Feed(CORVANE_STREAM_JPEG, pictures[i].bytes, true, int64_t(40 * i)), rows[i].fed);
        ASSERT_TRUE(rows[i].fed != Status_Ok || client.WaitForStamp(int(i)));
    }
}

}    // namespace
}    // namespace corvane
