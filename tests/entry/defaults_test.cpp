// What an instance gives its channels where they bring nothing of their own.
#include <gtest/gtest.h>

#include <atomic>

#include "corvane/corvane.h"
#include "support/Latch.h"
#include "support/StreamMaker.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane {
namespace {

using test::Eventually;

std::atomic<int> infos[2], texts[2];    // of the instance, of the channel

TEST(Defaults, OfAnInstanceAndOfAChannel) {
    test::XServer server;
    test::XClient client(server.Display());
    void* instance = nullptr;
    ASSERT_EQ(Corvane_InitialEx(
                  &instance, [](void*, uint32_t, uint64_t, uint64_t) { ++infos[0]; },
                  [](void*, OsdInfo*) { ++texts[0]; }, 0, 0, 0, CORVANE_VERSION, 0, 0x00C08040),
              Status_Ok);
    const auto video = test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .frames = 1});
    for (const bool own : {false, true}) {
        const xcb_window_t window = client.Create();
        ChannelSettings settings{};
        settings.window = window;
        settings.mask = own ? 0x0003u : 0u;
        settings.streamInfo = [](void*, uint32_t, uint64_t, uint64_t) { ++infos[1]; };
        settings.osd = [](void*, OsdInfo*) { ++texts[1]; };
        void* channel = nullptr;
        ASSERT_EQ(Corvane_CreateChannel(instance, &channel, &settings), Status_Ok);
        EXPECT_TRUE(Eventually([&] { return (client.Read(window, {9, 9, 10, 10})[0] & 0xFFFFFF) == 0x4080C0; }));
        const int others[] = {infos[!own], texts[!own]};
        ASSERT_EQ(Corvane_StartChannel(channel, 0), Status_Ok);
        const MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_JPEG, video[0].bytes, true, 1000);
        EXPECT_EQ(Corvane_InputEncodedMediaFrame(channel, &header), Status_Ok);
        EXPECT_TRUE(Eventually([&] { return infos[own] > 0 && texts[own] > 0; }));
        EXPECT_EQ(Corvane_DeleteChannel(instance, &channel), Status_Ok);
        EXPECT_TRUE(infos[!own] == others[0] && texts[!own] == others[1]);
        client.Destroy(window);
    }
    EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
}

}    // namespace
}    // namespace corvane
