#include <gtest/gtest.h>

#include <limits>

#include "channels/IChannel.h"
#include "entry/Calls.h"
#include "support/Client.h"

namespace corvane {
namespace {

TEST(Exports, VersionAndFlagsOfAnInstance) {
    const struct {
        uint32_t version, flags, status;
    } rows[] = {
        {0x0505, 0, Status_Ok},
        {0x0005, 0, Status_Ok},
        {0xABCD0305, 0x2119, Status_Ok},
        {0x0605, 0, Status_VersionMismatch},
        {0x0506, 0, Status_VersionMismatch},
        {0x0505, 0x0006, Status_InvalidArgument},
        {0x0506, 0x0006, Status_VersionMismatch},
        {0x0505, 0x0004, Status_Ok},
    };
    for (const auto& row : rows) {
        void* instance = nullptr;
        EXPECT_EQ(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, row.version, row.flags), row.status);
        EXPECT_EQ(instance != nullptr, row.status == Status_Ok);
        EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
        EXPECT_EQ(instance, nullptr);
    }
    EXPECT_EQ(Corvane_Initial(nullptr, nullptr, nullptr, 0, 0, 0, 0, 0), Status_InvalidArgument);
    EXPECT_EQ(Corvane_Release(nullptr), Status_InvalidArgument);
    uint8_t version[4];
    EXPECT_EQ(Corvane_GetVersionInfo(&version[0], &version[1], &version[2], &version[3]), Status_Ok);
    EXPECT_EQ((std::vector<uint8_t>(version, version + 4)), (std::vector<uint8_t>{5, 5, 0, 20}));
}

TEST(Exports, DecodeOnlyInstancesAndUnknownHandles) {
    void* instance = nullptr;
    void* channel = nullptr;
    ASSERT_EQ(Corvane_InitialEx(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, CORVANE_FLAG_DECODE_ONLY, 0),
              Status_Ok);
    EXPECT_EQ(Corvane_CreateChannel(instance, &channel, nullptr), Status_DecodeOnlyInstance);
    EXPECT_EQ(channel, nullptr);
    channel = &instance;    // never a channel
    EXPECT_EQ(Corvane_DeleteChannel(instance, &channel), Status_Ok);
    EXPECT_EQ(channel, nullptr);
    EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
}

TEST(Exports, NullPointersAndHandlesOfAnotherKind) {
    struct Avi final : IChannel {
        ChannelType GetChannelType() const override { return ChannelType::Avi; }
    } avi;
    void* const wrong = static_cast<IChannel*>(&avi);
    for (const test::Call& call : test::Calls())
        if (call.ofChannel) {
            EXPECT_EQ(call.call(nullptr, nullptr), Status_InvalidArgument) << call.name;
            EXPECT_EQ(call.call(nullptr, wrong), Status_WrongChannelType) << call.name;
        }
    PictureBuffer picture{};
    DisplayFrameInfo info{};
    auto* const context = reinterpret_cast<struct _cairo*>(&info);    // not looked at
    test::Client client;
    void* const channel = client.channel;
    EXPECT_EQ(Corvane_InputEncodedMediaFrame(channel, nullptr), Status_InvalidArgument);
    EXPECT_EQ(Corvane_UpdateChannelSettings(channel, nullptr), Status_InvalidArgument);
    EXPECT_EQ(Corvane_GetRemainingQueueElementCount(channel, nullptr), Status_InvalidArgument);
    EXPECT_EQ(Corvane_RegisterAfterDisplayCallback(channel, nullptr, nullptr), Status_InvalidArgument);
    EXPECT_EQ(Corvane_GetCurrentSnapShot(channel, nullptr, 0), Status_InvalidArgument);
    EXPECT_EQ(Corvane_GetCurrentSnapShot(channel, &picture, 8), Status_InvalidArgument) << "no buffer of the caller's";
    EXPECT_EQ(Corvane_GetCurrentSnapShot(channel, &picture, 0), Status_Failed) << "no window";
    EXPECT_EQ(Corvane_GetCurrentDisplay(channel, nullptr, &info), Status_InvalidArgument);
    EXPECT_EQ(Corvane_GetZoomedDisplay(channel, context, nullptr), Status_InvalidArgument);
    EXPECT_EQ(Corvane_FreePicture(nullptr), Status_InvalidArgument);
    EXPECT_EQ(Corvane_FreePicture(&picture), Status_Ok);
    EXPECT_EQ(Corvane_InsertFilter(channel, &picture), Status_Ok);
    EXPECT_EQ(Corvane_InsertFilter(channel, &picture), Status_Failed) << "twice the same";
    EXPECT_EQ(Corvane_InsertFilter(channel, nullptr), Status_InvalidArgument);
    EXPECT_EQ(Corvane_RemoveFilter(channel, nullptr), Status_InvalidArgument);
    EXPECT_EQ(Corvane_EnableRotateFilter(channel, std::numeric_limits<double>::quiet_NaN()), Status_InvalidArgument);
    EXPECT_EQ(Corvane_RegisterRawDataCallback(wrong, nullptr, nullptr, 5, 0), Status_NotSupported)
        << "the kind comes first";
    EXPECT_EQ(Corvane_CreateChannel(nullptr, &client.channel, nullptr), Status_InvalidArgument);
    EXPECT_EQ(Corvane_CreateChannel(client.instance, nullptr, nullptr), Status_InvalidArgument);
    EXPECT_EQ(Corvane_DeleteChannel(client.instance, nullptr), Status_InvalidArgument);
    EXPECT_EQ(Corvane_DeleteChannel(nullptr, &client.channel), Status_InvalidArgument);
    EXPECT_EQ(Corvane_SetQueueEmptyNotify(nullptr), Status_NotSupported);
    EXPECT_EQ(Corvane_GetCapabilities(nullptr, 1, 2.0), Status_Ok);
}

TEST(Exports, OptionsAndUpdates) {
    test::Client client;
    DisplayArea area{};
    for (const int32_t id : {-1, 0, 2, 14, 43, 58})
        EXPECT_EQ(Corvane_SetChannelOption(client.channel, id, 1, 4), Status_NotSupported) << id;
    EXPECT_EQ(Corvane_SetChannelOption(client.channel, 11, 0, 4), Status_InvalidArgument);
    EXPECT_EQ(Corvane_SetChannelOption(client.channel, 11, reinterpret_cast<uint64_t>(&area), 1),
              Status_InvalidArgument);
    EXPECT_EQ(Corvane_SetChannelOption(client.channel, 25, reinterpret_cast<uint64_t>("/no/such.bmp"), 0),
              Status_Failed);

    // A null window is found before anything is applied: pictures still come.
    ASSERT_EQ(Corvane_SetChannelOption(client.channel, 13, 3, 0), Status_Ok);
    ChannelUpdate update{};
    update.mask = 0x0801;
    EXPECT_EQ(Corvane_UpdateChannelSettings(client.channel, &update), Status_InvalidArgument);
    update.mask = 0;
    EXPECT_EQ(Corvane_UpdateChannelSettings(client.channel, &update), Status_Ok);
    client.Start();
    const auto pictures = test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .frames = 3});
    ASSERT_EQ(client.Feed(CORVANE_STREAM_JPEG, pictures[0].bytes, true, 0), Status_Ok);
    ASSERT_TRUE(client.WaitForStamp(0));
    update.mask = 0x0040;
    update.mediaMode = 2;
    EXPECT_EQ(Corvane_UpdateChannelSettings(client.channel, &update), Status_Ok);
    EXPECT_EQ(client.Feed(CORVANE_STREAM_JPEG, pictures[1].bytes, true, 40), Status_UnsupportedMedia);
    update.mask = 0x0041;
    update.mediaMode = 3;
    update.presentEnabled = 1;
    EXPECT_EQ(Corvane_UpdateChannelSettings(client.channel, &update), Status_Ok);
    ASSERT_EQ(client.Feed(CORVANE_STREAM_JPEG, pictures[2].bytes, true, 80), Status_Ok);
    ASSERT_TRUE(client.WaitForStamp(2));
}

}    // namespace
}    // namespace corvane
