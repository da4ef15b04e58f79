// Every pair of callback and export: it completes with its status, or is refused at once; nothing hangs.
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "corvane/filter.h"
#include "support/Client.h"

namespace corvane {
namespace {

using test::Eventually;

struct Host {
    void* instance = nullptr;
    void* own = nullptr;
    void* other = nullptr;
};

void Ignore(void*, const PseudoFrame*) {}
void IgnoreAfter(void*, const AfterDisplayRecord*) {}

struct PassFilter final : QMRX::Filter::IFilter {
    int32_t Process(QMRX::Filter::FilterArgs*) override { return 0; }
};

struct Call {
    const char* name;
    uint32_t (*call)(Host&, void* target);
    uint32_t onOwn = Status_Ok;    // from a callback of the channel itself
    uint32_t onOther = Status_Ok;
};

PassFilter passFilter;

const Call kCalls[] = {
    {"Initial",
     [](Host&, void*) {
         void* instance = nullptr;
         const uint32_t status = Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0);
         return status == Status_Ok ? Corvane_Release(&instance) : status;
     }},
    {"InitialEx",
     [](Host&, void*) {
         void* instance = nullptr;
         void* channel = nullptr;
         Corvane_InitialEx(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0, 0);
         Corvane_CreateChannel(instance, &channel, nullptr);
         Corvane_StartChannel(channel, 0);
         return Corvane_Release(&instance);    // of another instance: its channels may be ended from here
     }},
    {"Release",
     [](Host& host, void*) {
         void* instance = host.instance;
         return Corvane_Release(&instance);
     },
     Status_Failed, Status_Failed},
    {"GetVersionInfo",
     [](Host&, void*) {
         uint8_t v[4];
         return Corvane_GetVersionInfo(&v[0], &v[1], &v[2], &v[3]);
     }},
    {"SetFlags", [](Host& host, void*) { return Corvane_SetFlags(host.instance); }},
    {"GetFlags", [](Host& host, void*) { return Corvane_GetFlags(host.instance); }},
    {"GetCapabilities", [](Host& host, void*) { return Corvane_GetCapabilities(host.instance); }},
    {"SetQueueEmptyNotify", [](Host&, void* c) { return Corvane_SetQueueEmptyNotify(c); }, Status_NotSupported,
     Status_NotSupported},
    {"RegisterVAStreamInfoCallback", [](Host&, void* c) { return Corvane_RegisterVAStreamInfoCallback(c); },
     Status_NotSupported, Status_NotSupported},
    {"SetVAStreamEffectParam", [](Host&, void* c) { return Corvane_SetVAStreamEffectParam(c); }, Status_NotSupported,
     Status_NotSupported},
    {"GetAvgAudioVolume", [](Host&, void* c) { return Corvane_GetAvgAudioVolume(c); }, Status_NotSupported,
     Status_NotSupported},
    {"SetAudioSamplesPerCalc", [](Host&, void* c) { return Corvane_SetAudioSamplesPerCalc(c); }, Status_NotSupported,
     Status_NotSupported},
    {"CreateChannel",
     [](Host& host, void*) {
         void* made = nullptr;
         return Corvane_CreateChannel(host.instance, &made, nullptr);
     }},
    {"DeleteChannel",
     [](Host& host, void* c) {
         void* channel = c;
         const uint32_t status = Corvane_DeleteChannel(host.instance, &channel);
         EXPECT_EQ(channel == nullptr, status == Status_Ok);
         return status;
     },
     Status_Failed, Status_Ok},
    {"StartChannel", [](Host&, void* c) { return Corvane_StartChannel(c, 1); }},
    {"StopChannel", [](Host&, void* c) { return Corvane_StopChannel(c); }, Status_Failed, Status_Ok},
    {"InputEncodedMediaFrame",
     [](Host&, void* c) {
         MediaFrameHeader frame{};
         frame.recordSize = sizeof frame;
         frame.streamType = CORVANE_STREAM_METADATA_XML;
         Corvane_SetChannelOption(c, 42, 0, 0);    // even where a full queue blocks
         uint32_t status = Status_Ok;
         for (int i = 0; i < 2000 && status == Status_Ok; ++i)
             status = Corvane_InputEncodedMediaFrame(c, &frame);
         Corvane_SetChannelOption(c, 31, 0, 0);
         Corvane_SetChannelOption(c, 42, 1, 0);
         return status == Status_QueueFull ? Status_Ok : status;
     }},
    {"UpdateChannelSettings",
     [](Host&, void* c) {
         ChannelUpdate update{};
         update.mask = 0x3FFF & ~0x0041u;
         update.window = 1;
         return Corvane_UpdateChannelSettings(c, &update);
     }},
    {"SetChannelOption",
     [](Host&, void* c) {
         for (const int32_t id : {3, 7, 8, 9, 10, 13, 26, 31, 35, 45, 46, 48, 52, 53, 55, 57})
             EXPECT_EQ(Corvane_SetChannelOption(c, id, id == 13 ? 3 : 0, 0), Status_Ok);
         DisplayArea area{};
         return Corvane_SetChannelOption(c, 11, reinterpret_cast<uint64_t>(&area), 32);
     }},
    {"SetBufferTime", [](Host&, void* c) { return Corvane_SetBufferTime(c, 1); }},
    {"SetDisplayMode", [](Host&, void* c) { return Corvane_SetDisplayMode(c, 0); }},
    {"GetRemainingQueueElementCount",
     [](Host&, void* c) {
         QueueState state;
         return Corvane_GetRemainingQueueElementCount(c, &state);
     }},
    {"RegisterRawDataCallback",
     [](Host&, void* c) { return Corvane_RegisterRawDataCallback(c, &Ignore, nullptr, 4, 0); }},
    {"SetRawDataCallbackSize", [](Host&, void* c) { return Corvane_SetRawDataCallbackSize(c, 64, 64); }},
    {"RegisterAfterDisplayCallback",
     [](Host&, void* c) { return Corvane_RegisterAfterDisplayCallback(c, &IgnoreAfter, nullptr); }},
    {"UnregisterAfterDisplayCallback", [](Host&, void* c) { return Corvane_UnregisterAfterDisplayCallback(c); }},
    {"GetCurrentSnapShot",
     [](Host&, void* c) {
         PictureBuffer picture{};
         Corvane_GetCurrentSnapShot(c, &picture, 0);    // whether there is a window depends on the place
         return Corvane_FreePicture(&picture);
     }},
    {"InsertFilter",
     [](Host&, void* c) {
         const uint32_t status = Corvane_InsertFilter(c, &passFilter);
         Corvane_RemoveFilter(c, &passFilter);
         return status;
     }},
    {"RemoveFilter", [](Host&, void* c) { return Corvane_RemoveFilter(c, &passFilter); }},
    {"EnableRotateFilter", [](Host&, void* c) { return Corvane_EnableRotateFilter(c, 3); }},
    {"SetRotateOption", [](Host&, void* c) { return Corvane_SetRotateOption(c, 3); }, Status_Failed, Status_Failed},
    {"DisableRotateFilter", [](Host&, void* c) { return Corvane_DisableRotateFilter(c); }},
};

// Runs one call once, inside the callback that it is put into.
struct Trial {
    Host host;
    const Call* call = nullptr;
    bool onOther = false;
    std::atomic<int> runs{0};
    std::atomic<uint32_t> status{0xDEAD};
    std::atomic<bool> done{false};

    void Run() {
        if (runs.fetch_add(1) != 0)
            return;
        status = call->call(host, onOther ? host.other : host.own);
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
    ASSERT_EQ(Corvane_Initial(&trial.host.instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0), Status_Ok);
    ChannelSettings settings{};
    if (where == Where::StreamInfo) {
        settings.mask = 0x0005;
        settings.streamInfo = [](void* context, uint32_t, uint64_t, uint64_t) { static_cast<Trial*>(context)->Run(); };
        settings.streamInfoContext = &trial;
    }
    ASSERT_EQ(Corvane_CreateChannel(trial.host.instance, &trial.host.own, &settings), Status_Ok);
    ASSERT_EQ(Corvane_CreateChannel(trial.host.instance, &trial.host.other, nullptr), Status_Ok);
    void* const own = trial.host.own;
    if (where == Where::Picture)
        Corvane_RegisterRawDataCallback(
            own, [](void* context, const PseudoFrame*) { static_cast<Trial*>(context)->Run(); }, &trial, 4, 0);
    if (where == Where::AfterDisplay)
        Corvane_RegisterAfterDisplayCallback(
            own, [](void* context, const AfterDisplayRecord*) { static_cast<Trial*>(context)->Run(); }, &trial);
    if (where == Where::Filter)
        Corvane_InsertFilter(own, &filter);
    Corvane_StartChannel(own, 0);
    Corvane_StartChannel(trial.host.other, 0);
    int64_t time = 0;
    const auto feed = [&](void* channel) {
        const MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_JPEG, jpeg, true, time += 2);
        return Corvane_InputEncodedMediaFrame(channel, &header);
    };
    feed(trial.host.other);
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
    EXPECT_EQ(Corvane_Release(&trial.host.instance), Status_Ok);
}

TEST(Callbacks, EveryPairCompletesOrIsRefusedAtOnce) {
    const std::vector<uint8_t> jpeg =
        test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .width = 80, .height = 32, .frames = 1})[0].bytes;
    const std::pair<Where, const char*> places[] = {{Where::StreamInfo, "stream info"},
                                                    {Where::Filter, "filter"},
                                                    {Where::Picture, "picture"},
                                                    {Where::AfterDisplay, "after display"}};
    for (const auto& [where, place] : places) {
        for (const Call& call : kCalls) {
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
