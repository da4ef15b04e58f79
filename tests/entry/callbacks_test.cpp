// Every pair of callback and export: the call completes with its status, or is refused at once; none hangs.

#include "entry/Calls.h"
#include "support/Client.h"
#include "support/SoundMaker.h"
#include "support/Testing.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane {
namespace {

using test::Call;
using test::Eventually;

enum class Where { StreamInfo, Filter, Picture, AfterDisplay, Text, Overlay, Raw, RawSound, Decoded };

// Runs one call once, inside the callback that it is put into.
struct Trial final : QMRX::Filter::IFilter {
    Trial(const Call& callToRun, Where place, bool otherChannel)
        : call(callToRun), where(place), onOther(otherChannel) {}

    // As a callback of any kind.
    template <Where kHere, typename... Arguments>
    static void At(void* context, Arguments...) {
        auto& trial = *static_cast<Trial*>(context);
        if (kHere != trial.where || trial.runs.fetch_add(1) != 0)
            return;
        trial.status = trial.call.call(trial.instance, trial.onOther ? trial.other : trial.own);
        trial.done = true;
    }
    int32_t Process(QMRX::Filter::FilterArgs*) override { return At<Where::Filter>(this), 0; }

    const Call& call;
    const Where where;
    const bool onOther;
    void *instance = test::NewInstance(), *own = nullptr, *other = test::NewChannel(instance);
    std::atomic<int> runs{0};
    std::atomic<uint32_t> status{0xDEAD};
    std::atomic<bool> done{false};
};

// From the callback of a decoder channel.
void RunDecoder(Trial& trial, const std::vector<uint8_t>& jpeg) {
    const DecoderChannelSettings settings{
        .callback = &Trial::At<Where::Decoded, uint32_t, void*>, .context = &trial, .format = CORVANE_PICTURE_I420};
    Corvane_StartChannel(trial.other, 0);
    EXPECT_EQ(Corvane_CreateDecoderChannel(trial.instance, &trial.own, &settings), Status_Ok);
    const MediaFrameHeader frame = test::VideoHeader(test::kJpeg, jpeg, true, 0);
    EXPECT_EQ(Corvane_InputToBeDecodedMediaFrame(trial.own, &frame), Status_Ok);
    const uint32_t channels = trial.call.accepts & test::kChannels;
    EXPECT_EQ(trial.status, trial.onOther                                       ? trial.call.onOther
                            : channels != 0 && (channels & test::kDecoder) == 0 ? Status_WrongChannelType
                                                                                : trial.call.onDecoder);
    EXPECT_EQ(Corvane_InputToBeDecodedMediaFrame(trial.own, &frame), Status_Ok);
    EXPECT_EQ(Corvane_Release(&trial.instance), Status_Ok);
}

void RunPair(Trial& trial, const std::vector<uint8_t>& jpeg, uintptr_t window) {
    const ChannelSettings settings{.mask = 0x000F,
                                   .streamInfo = &Trial::At<Where::StreamInfo>,
                                   .osd = &Trial::At<Where::Text>,
                                   .streamInfoContext = &trial,
                                   .osdContext = &trial,
                                   .window = window};
    Corvane_StartChannel(trial.other, 0);
    int64_t time = 1000;                        // text is for frames with a wall-clock time
    const std::vector<uint8_t> silence(441);    // 10 ms; of all rates this one opens and closes fastest
    const auto feed = [&](void* channel) {
        if (trial.where == Where::RawSound && channel == trial.own && time % 32 == 8) {
            // No faster than it plays, since a full ring is lost; and one channel, since the driver has one device.
            (void)test::FeedHeader(channel, test::SoundHeader(CORVANE_STREAM_MULAW, silence, 44100, 1, 1, time));
        }
        return test::Feed(channel, jpeg, time += 2);
    };
    feed(trial.other);
    // Last: its text may come at once, and end the other channel.
    void* const own = trial.own = test::NewChannel(trial.instance, &settings);
    if (trial.where == Where::Picture)
        Corvane_RegisterRawDataCallback(own, &Trial::At<Where::Picture>, &trial, 4, 0);
    Corvane_RegisterAfterDisplayCallback(own, &Trial::At<Where::AfterDisplay>, &trial);
    const CorvaneOsdCallback overlay = &Trial::At<Where::Overlay>;
    Corvane_SetChannelOption(own, 56, reinterpret_cast<uint64_t>(overlay), reinterpret_cast<uint64_t>(&trial));
    const CorvaneRawCallback raw = [](void* context, uint32_t code, void* record) {
        (code == CORVANE_RAW_SOUND ? &Trial::At<Where::RawSound, uint32_t, void*>
                                   : &Trial::At<Where::Raw, uint32_t, void*>)(context, code, record);
    };
    if (trial.where == Where::Raw || trial.where == Where::RawSound)    // client filters then run on both threads
        Corvane_SetChannelOption(own, 18, reinterpret_cast<uint64_t>(&trial), reinterpret_cast<uint64_t>(raw));
    Corvane_SetChannelOption(own, 16, CORVANE_PICTURE_I420, 0);
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
        std::abort();    // a hang: the next test would hang as well
    EXPECT_EQ(trial.status, trial.onOther ? trial.call.onOther : trial.call.onOwn);
    // The channel goes on: it takes a frame, and ends.
    EXPECT_NE(feed(own), Status_Failed);
    Corvane_RemoveFilter(own, &trial);
    EXPECT_EQ(Corvane_Release(&trial.instance), Status_Ok);
}

// As many devices as there are channels. SDL keeps the driver of the first test that plays.
void UseDiskDriver() {
    setenv("SDL_AUDIODRIVER", "disk", 1);
    setenv("SDL_DISKAUDIOFILE", "/dev/null", 1);
    setenv("SDL_DISKAUDIODELAY", "1", 1);
}

TEST(Callbacks, EveryPairCompletesOrIsRefusedAtOnce) {
    const std::vector<uint8_t> jpeg = test::OneJpeg();
    UseDiskDriver();
    test::XServer server;
    test::XClient client(server.Display());
    const uintptr_t window = client.Create();
    for (const Where where : {Where::StreamInfo, Where::Filter, Where::Picture, Where::AfterDisplay, Where::Text,
                              Where::Overlay, Where::Raw, Where::RawSound, Where::Decoded})
        for (const Call& call : test::Calls())
            for (const bool onOther : {false, true}) {
                SCOPED_TRACE(testing::Message() << call.name << " from callback " << static_cast<int>(where)
                                                << (onOther ? " on another channel" : ""));
                Trial trial(call, where, onOther);
                if (where == Where::Decoded)
                    RunDecoder(trial, jpeg);
                else
                    RunPair(trial, jpeg, where == Where::Text ? window : 0);
            }
}

// One of two callbacks that meet.
struct Side {
    void *instance = nullptr, *channel = nullptr;
    Side* other = nullptr;
    enum class Ends { Stops, Deletes, Releases } ends{};
    std::atomic<int>* meeting = nullptr;
    std::atomic<uint32_t> status{0xDEAD};

    template <typename... Arguments>
    static void Act(void* context, Arguments...) {
        auto& side = *static_cast<Side*>(context);
        if (side.status != 0xDEAD)
            return;
        ++*side.meeting;
        while (*side.meeting < 2)    // both at once
            std::this_thread::yield();
        Side& other = *side.other;
        side.status = side.ends == Ends::Stops     ? Corvane_StopChannel(other.channel)
                      : side.ends == Ends::Deletes ? Corvane_DeleteChannel(other.instance, &other.channel)
                                                   : Corvane_Release(&other.instance);
    }
};

// Two callbacks, each of which ends the channel or instance of the other: one is refused, none hangs.
TEST(Callbacks, CallbacksThatEndEachOther) {
    using enum Side::Ends;
    enum class From { Worker, Render, Sound };
    using enum From;
    const struct {
        Side::Ends ends[2];
        bool oneInstance;
        From from[2];
    } rows[] = {{{Stops, Stops}, true, {Worker, Worker}},        {{Deletes, Deletes}, true, {Render, Render}},
                {{Releases, Releases}, false, {Render, Render}}, {{Releases, Deletes}, false, {Render, Render}},
                {{Releases, Stops}, false, {Worker, Worker}},    {{Releases, Releases}, false, {Worker, Render}},
                {{Stops, Stops}, true, {Sound, Sound}},          {{Deletes, Stops}, true, {Sound, Worker}},
                {{Releases, Releases}, false, {Sound, Sound}},   {{Deletes, Deletes}, true, {Sound, Render}}};
    UseDiskDriver();
    const std::vector<uint8_t> jpeg = test::OneJpeg(), silence(441);
    for (int round = 0; round < 80; ++round) {
        const auto& row = rows[round % 10];
        SCOPED_TRACE(testing::Message() << "row " << round % 10);
        Side sides[2];
        std::atomic<int> meeting{0};
        for (int i = 0; i < 2; ++i) {
            Side& side = sides[i];
            side.instance = i == 1 && row.oneInstance ? sides[0].instance : test::NewInstance();
            const ChannelSettings settings{.mask = 0x0005, .streamInfo = &Side::Act, .streamInfoContext = &side};
            for (int beside = 0; beside < 6; ++beside)    // a release has more to end, which takes its time
                (void)test::NewChannel(side.instance);
            side.channel = test::NewChannel(side.instance, row.from[i] != Worker ? nullptr : &settings);
            if (row.from[i] == Render)
                Corvane_RegisterRawDataCallback(side.channel, &Side::Act, &side, 4, 0);
            const CorvaneRawCallback raw = &Side::Act;
            if (row.from[i] == Sound)
                Corvane_SetChannelOption(side.channel, 18, reinterpret_cast<uint64_t>(&side),
                                         reinterpret_cast<uint64_t>(raw));
            side.other = &sides[1 - i];
            side.ends = row.ends[i];
            side.meeting = &meeting;
        }
        const MediaFrameHeader sound = test::SoundHeader(CORVANE_STREAM_MULAW, silence, 44100);
        void* const channels[] = {sides[0].channel, sides[1].channel};
        for (void* const channel : channels)
            Corvane_StartChannel(channel, 0);
        for (int i = 0; i < 2; ++i)
            ASSERT_EQ(row.from[i] == Sound ? test::FeedHeader(channels[i], sound) : test::Feed(channels[i], jpeg, 0),
                      Status_Ok);
        if (!Eventually([&] { return sides[0].status != 0xDEAD && sides[1].status != 0xDEAD; })) {
            ADD_FAILURE() << "a hang";
            std::abort();    // the next test would hang as well
        }
        EXPECT_NE(sides[0].status == Status_Failed, sides[1].status == Status_Failed);
        EXPECT_NE(sides[0].status == Status_Ok, sides[1].status == Status_Ok);
        EXPECT_EQ(Corvane_Release(&sides[0].instance), Status_Ok);
        if (!row.oneInstance)
            EXPECT_EQ(Corvane_Release(&sides[1].instance), Status_Ok);
    }
}

// A release while a callback of a channel makes further ones with windows, and another asks for stills until the end:
// each works on whole objects.
TEST(Callbacks, ReleaseBesideCreationAndStills) {
    static constexpr int kMost = 3000;
    struct Shared {
        void *instance = test::NewInstance(), *channel = test::NewChannel(instance);
        uintptr_t window = 0;
        std::atomic<int> calls{0};
        std::atomic<bool> releasing{false};
    };
    const std::vector<uint8_t> jpeg = test::OneJpeg();
    test::XServer server;
    test::XClient client(server.Display());
    for (int round = 0; round < 150; ++round) {
        Shared shared;
        shared.window = client.Create();
        if (round % 2 == 0)
            Corvane_RegisterAfterDisplayCallback(
                shared.channel,
                [](void* context, const AfterDisplayRecord*) {
                    auto& all = *static_cast<Shared*>(context);
                    const ChannelSettings settings{.window = all.window};
                    void* made = nullptr;
                    while (all.calls < kMost && Corvane_CreateChannel(all.instance, &made, &settings) == Status_Ok)
                        ++all.calls;
                },
                &shared);
        else
            Corvane_RegisterRawDataCallback(
                shared.channel,
                [](void* context, const PseudoFrame*) {
                    auto& all = *static_cast<Shared*>(context);
                    for (int more = 20; more > 0; more -= all.releasing ? 1 : 0) {
                        PictureBuffer still{};
                        Corvane_GetCurrentSnapShot(all.channel, &still, 1);
                        Corvane_FreePicture(&still);
                        ++all.calls;
                    }
                },
                &shared, 4, 0);
        ASSERT_EQ(Corvane_StartChannel(shared.channel, 0), Status_Ok);
        ASSERT_EQ(test::Feed(shared.channel, jpeg, 0), Status_Ok);
        ASSERT_TRUE(Eventually([&] { return shared.calls > round % 20; }));
        shared.releasing = true;
        EXPECT_EQ(Corvane_Release(&shared.instance), Status_Ok);
        EXPECT_TRUE(round % 2 != 0 || shared.calls < kMost) << "nothing is made any more";
        client.Destroy(static_cast<xcb_window_t>(shared.window));
    }
}

std::atomic<int> infos[2], texts[2];    // of the instance, of the channel
std::atomic<void*> contexts[2];         // that the channel's last got

// Callbacks and contexts of an instance, for channels without their own.
TEST(Callbacks, OfAnInstanceAndOfAChannel) {
    test::XServer server;
    test::XClient client(server.Display());
    void* instance = nullptr;
    ASSERT_EQ(Corvane_InitialEx(
                  &instance, [](void*, uint32_t, uint64_t, uint64_t) { ++infos[0]; },
                  [](void*, OsdInfo*) { ++texts[0]; }, 0, 0, 0, CORVANE_VERSION, 0, 0x00C08040),
              Status_Ok);
    const std::vector<uint8_t> jpeg = test::OneJpeg();
    for (const uint32_t mask : {0u, 3u, 3u | 4u, 3u | 8u}) {
        const bool own = mask != 0;
        const xcb_window_t window = client.Create();
        const ChannelSettings settings{
            .mask = mask,
            .streamInfo = [](void* context, uint32_t, uint64_t, uint64_t) { contexts[0] = context, ++infos[1]; },
            .osd = [](void* context, OsdInfo*) { contexts[1] = context, ++texts[1]; },
            .streamInfoContext = &infos,
            .osdContext = &texts,
            .window = window};
        void* channel = test::NewChannel(instance, &settings);
        EXPECT_TRUE(Eventually([&] { return (client.Read(window, {9, 9, 10, 10})[0] & 0xFFFFFF) == 0x4080C0; }));
        const int before[] = {infos[own], texts[own]};
        const int others[] = {infos[!own], texts[!own]};
        ASSERT_EQ(Corvane_StartChannel(channel, 0), Status_Ok);
        EXPECT_EQ(test::Feed(channel, jpeg, 1000), Status_Ok);
        EXPECT_TRUE(Eventually([&] { return infos[own] > before[0] && texts[own] > before[1]; })) << mask;
        EXPECT_EQ(Corvane_DeleteChannel(instance, &channel), Status_Ok);
        EXPECT_TRUE(contexts[0] == ((mask & 4) != 0 ? &infos : nullptr) &&
                    contexts[1] == ((mask & 8) != 0 ? &texts : nullptr))
            << mask;
        EXPECT_TRUE(infos[!own] == others[0] && texts[!own] == others[1]);
        client.Destroy(window);
    }
    EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
}

}    // namespace
}    // namespace corvane
