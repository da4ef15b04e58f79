// Every pair of callback and export: it completes with its status, or is refused at once; nothing hangs.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "entry/Calls.h"
#include "support/Client.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane {
namespace {

using test::Call;
using test::Eventually;

enum class Where { StreamInfo, Filter, Picture, AfterDisplay, Text, Overlay };

std::vector<uint8_t> OneJpeg() {
    return test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .width = 80, .height = 32, .frames = 1})[0].bytes;
}

// Runs one call once, inside the callback that it is put into.
struct Trial final : QMRX::Filter::IFilter {
    Trial(const Call& callToRun, Where place, bool otherChannel)
        : call(callToRun), where(place), onOther(otherChannel) {}

    static void At(void* context, Where here) {
        auto& trial = *static_cast<Trial*>(context);
        if (here != trial.where || trial.runs.fetch_add(1) != 0)
            return;
        trial.status = trial.call.call(trial.instance, trial.onOther ? trial.other : trial.own);
        trial.done = true;
    }
    int32_t Process(QMRX::Filter::FilterArgs*) override { return At(this, Where::Filter), 0; }

    const Call& call;
    const Where where;
    const bool onOther;
    void *instance = nullptr, *own = nullptr, *other = nullptr;
    std::atomic<int> runs{0};
    std::atomic<uint32_t> status{0xDEAD};
    std::atomic<bool> done{false};
};

void RunPair(Trial& trial, const std::vector<uint8_t>& jpeg, uintptr_t window) {
    ASSERT_EQ(Corvane_Initial(&trial.instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0), Status_Ok);
    ChannelSettings settings{};
    settings.mask = 0x000F;
    settings.osd = [](void* context, OsdInfo*) { Trial::At(context, Where::Text); };
    settings.osdContext = &trial;
    settings.window = window;
    settings.streamInfo = [](void* context, uint32_t, uint64_t, uint64_t) { Trial::At(context, Where::StreamInfo); };
    settings.streamInfoContext = &trial;
    ASSERT_EQ(Corvane_CreateChannel(trial.instance, &trial.other, nullptr), Status_Ok);
    Corvane_StartChannel(trial.other, 0);
    int64_t time = 1000;    // text is for frames with a wall-clock time
    const auto feed = [&](void* channel) {
        const MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_JPEG, jpeg, true, time += 2);
        return Corvane_InputEncodedMediaFrame(channel, &header);
    };
    feed(trial.other);
    // Last: its text may come at once, and end the other channel.
    ASSERT_EQ(Corvane_CreateChannel(trial.instance, &trial.own, &settings), Status_Ok);
    void* const own = trial.own;
    if (trial.where == Where::Picture)
        Corvane_RegisterRawDataCallback(
            own, [](void* context, const PseudoFrame*) { Trial::At(context, Where::Picture); }, &trial, 4, 0);
    Corvane_RegisterAfterDisplayCallback(
        own, [](void* context, const AfterDisplayRecord*) { Trial::At(context, Where::AfterDisplay); }, &trial);
    const CorvaneOsdCallback overlay = [](void* context, OsdInfo*) { Trial::At(context, Where::Overlay); };
    Corvane_SetChannelOption(own, 56, reinterpret_cast<uint64_t>(overlay), reinterpret_cast<uint64_t>(&trial));
    Corvane_InsertFilter(own, &trial);
    Corvane_StartChannel(own, 0);
    const bool finished = Eventually([&] {
        feed(own);
        if (trial.where == Where::Overlay) {
            PictureBuffer still{};
            Corvane_GetCurrentSnapShot(own, &still, 1);
            Corvane_FreePicture(&still);
        }
        return trial.done.load();
    });
    EXPECT_TRUE(finished);
    if (!finished)
        std::abort();    // a hang: what follows would hang as well
    EXPECT_EQ(trial.status, trial.onOther ? trial.call.onOther : trial.call.onOwn);
    // The channel goes on: it takes a frame, and ends.
    EXPECT_NE(feed(own), Status_Failed);
    Corvane_RemoveFilter(own, &trial);
    EXPECT_EQ(Corvane_Release(&trial.instance), Status_Ok);
}

TEST(Callbacks, EveryPairCompletesOrIsRefusedAtOnce) {
    const std::vector<uint8_t> jpeg = OneJpeg();
    test::XServer server;
    test::XClient client(server.Display());
    const uintptr_t window = client.Create();
    for (const Where where : {Where::StreamInfo, Where::Filter, Where::Picture, Where::AfterDisplay, Where::Text,
                              Where::Overlay})
        for (const Call& call : test::Calls())
            for (const bool onOther : {false, true}) {
                SCOPED_TRACE(testing::Message() << call.name << " from callback " << static_cast<int>(where)
                                                << (onOther ? " on another channel" : ""));
                Trial trial(call, where, onOther);
                RunPair(trial, jpeg, where == Where::Text ? window : 0);
            }
}

// Two channels that stop each other from their callbacks: one is refused, nobody hangs.
TEST(Callbacks, ChannelsThatStopEachOther) {
    const std::vector<uint8_t> jpeg = OneJpeg();
    for (int round = 0; round < 20; ++round) {
        struct Side {
            void* target = nullptr;
            std::atomic<int>* meeting = nullptr;
            std::atomic<uint32_t> status{0xDEAD};
        } sides[2];
        std::atomic<int> meeting{0};
        void* instance = nullptr;
        void* channels[2] = {};
        ASSERT_EQ(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0), Status_Ok);
        for (int i = 0; i < 2; ++i) {
            ChannelSettings settings{};
            settings.mask = 0x0005;
            settings.streamInfoContext = &sides[i];
            settings.streamInfo = [](void* context, uint32_t, uint64_t, uint64_t) {
                auto& side = *static_cast<Side*>(context);
                if (side.status != 0xDEAD)
                    return;
                ++*side.meeting;
                Eventually([&] { return *side.meeting == 2; });
                side.status = Corvane_StopChannel(side.target);
            };
            ASSERT_EQ(Corvane_CreateChannel(instance, &channels[i], &settings), Status_Ok);
            sides[i].meeting = &meeting;
        }
        for (int i = 0; i < 2; ++i) {
            sides[i].target = channels[1 - i];
            Corvane_StartChannel(channels[i], 0);
        }
        const MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_JPEG, jpeg, true, 0);
        for (void* const channel : channels)
            ASSERT_EQ(Corvane_InputEncodedMediaFrame(channel, &header), Status_Ok);
        ASSERT_TRUE(Eventually([&] { return sides[0].status != 0xDEAD && sides[1].status != 0xDEAD; }));
        EXPECT_NE(sides[0].status == Status_Failed, sides[1].status == Status_Failed);
        EXPECT_NE(sides[0].status == Status_Ok, sides[1].status == Status_Ok);
        EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
    }
}

}    // namespace
}    // namespace corvane
