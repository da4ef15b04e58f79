// Every pair of callback and export: it completes with its status, or is refused at once; nothing hangs.
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "entry/Calls.h"
#include "support/Client.h"

namespace corvane {
namespace {

using test::Call;
using test::Eventually;

// Runs one call once, inside the callback that it is put into.
struct Trial {
    void *instance = nullptr, *own = nullptr, *other = nullptr;
    const Call* call = nullptr;
    bool onOther = false;
    std::atomic<int> runs{0};
    std::atomic<uint32_t> status{0xDEAD};
    std::atomic<bool> done{false};

    void Run() {
        if (runs.fetch_add(1) != 0)
            return;
        status = call->call(instance, onOther ? other : own);
        done = true;
    }
};

struct TrialFilter final : QMRX::Filter::IFilter {
    Trial* trial = nullptr;
    int32_t Process(QMRX::Filter::FilterArgs*) override {
        trial->Run();
        return 0;
    }
};

enum class Where { StreamInfo, Filter, Picture, AfterDisplay };

void RunPair(Where where, const Call& call, bool onOther, const std::vector<uint8_t>& jpeg) {
    Trial trial;
    TrialFilter filter;
    filter.trial = &trial;
    trial.call = &call;
    trial.onOther = onOther;
    ASSERT_EQ(Corvane_Initial(&trial.instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0), Status_Ok);
    ChannelSettings settings{};
    if (where == Where::StreamInfo) {
        settings.mask = 0x0005;
        settings.streamInfo = [](void* context, uint32_t, uint64_t, uint64_t) { static_cast<Trial*>(context)->Run(); };
        settings.streamInfoContext = &trial;
    }
    ASSERT_EQ(Corvane_CreateChannel(trial.instance, &trial.own, &settings), Status_Ok);
    ASSERT_EQ(Corvane_CreateChannel(trial.instance, &trial.other, nullptr), Status_Ok);
    void* const own = trial.own;
    if (where == Where::Picture)
        Corvane_RegisterRawDataCallback(
            own, [](void* context, const PseudoFrame*) { static_cast<Trial*>(context)->Run(); }, &trial, 4, 0);
    if (where == Where::AfterDisplay)
        Corvane_RegisterAfterDisplayCallback(
            own, [](void* context, const AfterDisplayRecord*) { static_cast<Trial*>(context)->Run(); }, &trial);
    if (where == Where::Filter)
        Corvane_InsertFilter(own, &filter);
    Corvane_StartChannel(own, 0);
    Corvane_StartChannel(trial.other, 0);
    int64_t time = 0;
    const auto feed = [&](void* channel) {
        const MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_JPEG, jpeg, true, time += 2);
        return Corvane_InputEncodedMediaFrame(channel, &header);
    };
    feed(trial.other);
    const bool finished = Eventually([&] {
        feed(own);
        return trial.done.load();
    });
    EXPECT_TRUE(finished);
    if (!finished)
        std::abort();    // a hang: what follows would hang as well
    EXPECT_EQ(trial.status, onOther ? call.onOther : call.onOwn);
    // The channel goes on: it takes a frame, and ends.
    EXPECT_NE(feed(own), Status_Failed);
    Corvane_RemoveFilter(own, &filter);
    EXPECT_EQ(Corvane_Release(&trial.instance), Status_Ok);
}

TEST(Callbacks, EveryPairCompletesOrIsRefusedAtOnce) {
    const std::vector<uint8_t> jpeg =
        test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .width = 80, .height = 32, .frames = 1})[0].bytes;
    const std::pair<Where, const char*> places[] = {{Where::StreamInfo, "stream info"},
                                                    {Where::Filter, "filter"},
                                                    {Where::Picture, "picture"},
                                                    {Where::AfterDisplay, "after display"}};
    for (const auto& [where, place] : places) {
        for (const Call& call : test::kCalls) {
            for (const bool onOther : {false, true}) {
                SCOPED_TRACE(std::string(call.name) + " from " + place + (onOther ? " on another channel" : ""));
                RunPair(where, call, onOther, jpeg);
            }
        }
    }
}

// Two channels that stop each other from their callbacks: one is refused, nobody hangs.
TEST(Callbacks, ChannelsThatStopEachOther) {
    const std::vector<uint8_t> jpeg =
        test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .width = 80, .height = 32, .frames = 1})[0].bytes;
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
