#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <random>
#include <thread>

#include "channels/ChannelLive.h"
#include "support/Client.h"
#include "support/FieldStream.h"

namespace corvane {
namespace {

using test::Client;
using test::EncodedPicture;
using test::Eventually;
using test::MakeVideo;
using test::VideoSpec;

constexpr int64_t kStep = 5;    // ms between frames: the tests use the real clock

uint32_t FeedOne(Client& client, const EncodedPicture& picture, int64_t timeMs, uint32_t type = CORVANE_STREAM_H264) {
    return client.Feed(type, picture.bytes, picture.key, timeMs);
}

uint64_t ResidentBytes() {
    uint64_t whole = 0;
    uint64_t resident = 0;
    std::ifstream("/proc/self/statm") >> whole >> resident;
    return resident * 4096;
}

// Garbage marked as key frames, as many as in eleven hours: no more memory than after the first hour, and good pictures
// are shown again, with the delay that a garbage parameter set may ask for. All frames have one time, so that no pause
// follows a picture of the garbage.
TEST(LiveChannel, GarbageKeyFramesForHoursUseNoMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__clang__)
    constexpr int kFrames = 2'000;    // a sanitizer is slow, and keeps freed memory
    constexpr bool kMeasured = false;
#else
    constexpr int kFrames = 100'000;
    constexpr bool kMeasured = true;
#endif
    Client client;
    ASSERT_EQ(Corvane_SetChannelOption(client.channel, 42, 0, 0), Status_Ok);
    client.Start();
    std::mt19937 random(3);
    uint64_t settled = 0;
    int number = 100;
    for (const int frames : {kFrames, 9 * kFrames}) {
        for (int i = 0; i < frames; ++i) {
            std::vector<uint8_t> garbage = {0, 0, 0, 1, static_cast<uint8_t>(random() % 32)};
            for (uint32_t size = random() % 60; size > 0; --size)
                garbage.push_back(static_cast<uint8_t>(random()));
            ASSERT_EQ(client.Feed(CORVANE_STREAM_H264, garbage, true, 0), Status_Ok);
        }
        for (const EncodedPicture& picture : MakeVideo({.frames = 5 + 16, .firstNumber = number}))
            ASSERT_EQ(FeedOne(client, picture, 0), Status_Ok);
        EXPECT_TRUE(Eventually([&] {
            const std::vector<int> stamps = client.Stamps();
            return std::find(stamps.begin(), stamps.end(), number + 4) != stamps.end();
        }));
        number += 100;
        malloc_trim(0);    // the pictures of the garbage are of all sizes
        if (kMeasured && settled != 0)
            EXPECT_LT(ResidentBytes(), settled + (16u << 20));
    }
}

// One frame in ten is cut or emptied: each shown picture comes with the record of its own frame nevertheless, and
// pictures come again with a key frame.
TEST(LiveChannel, DamagedFramesShiftNoPictureToAnotherFrame) {
    for (const uint32_t threads : {1u, 3u}) {
        std::vector<EncodedPicture> stream = MakeVideo({.width = 160, .height = 96, .frames = 150, .gop = 15});
        Client client;
        ASSERT_EQ(Corvane_SetChannelOption(client.channel, 48, threads, 0), Status_Ok);
        ASSERT_EQ(Corvane_SetChannelOption(client.channel, 42, 0, 0), Status_Ok);    // a full queue waits
        client.Start();
        std::mt19937 random(threads);
        for (size_t i = 0; i < stream.size(); ++i) {
            if (i % 10 == 7 && i < 140)
                stream[i].bytes.resize(i % 20 == 7 ? 0 : random() % stream[i].bytes.size());
            ASSERT_EQ(FeedOne(client, stream[i], static_cast<int64_t>(i)), Status_Ok);
        }
        ASSERT_TRUE(client.WaitForStamp(static_cast<int>(150 - threads)));
        int readable = 0;
        for (const Client::Shown& shown : client.Take()) {
            // A damaged frame may show the one before it again.
            EXPECT_TRUE(shown.stamp < 0 || static_cast<uint32_t>(shown.stamp) == shown.milliseconds ||
                        shown.milliseconds % 10 == 7)
                << shown.stamp << " with the record of " << shown.milliseconds;
            readable += shown.stamp >= 0;
        }
        EXPECT_GT(readable, 50);
        test::ExpectSums(test::StatisticsOf(client.channel));
    }
}

TEST(LiveChannel, SizeChangesAtAKeyFrameAndInMidStream) {
    const struct {
        const char* name;
        uint32_t type;
        bool stated, markedKey;    // the record states the size; the first picture of the other size is so marked
    } rows[] = {
        {"h264, key frame, size not stated", CORVANE_STREAM_H264, false, true},
        {"jpeg, dependent frame", CORVANE_STREAM_JPEG, false, false},
        {"h264, not marked as key frame", CORVANE_STREAM_H264, true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        Client client;
        client.Start();
        int64_t time = 0;
        for (const auto& [width, height, first] : {std::tuple(160, 120, 0), {352, 288, 50}}) {
            const auto stream = MakeVideo(
                {.streamType = row.type, .width = width, .height = height, .frames = 5, .firstNumber = first});
            for (size_t i = 0; i < stream.size(); ++i)
                ASSERT_EQ(client.Feed(row.type, stream[i].bytes, i == 0 && first != 0 ? row.markedKey : stream[i].key,
                                      time += kStep, row.stated ? static_cast<uint32_t>(width) : 0,
                                      row.stated ? static_cast<uint32_t>(height) : 0),
                          Status_Ok);
            ASSERT_TRUE(client.WaitForStamp(first + 4));
            const Client::Shown shown = client.Take().back();
            EXPECT_TRUE(shown.width == static_cast<uint32_t>(width) && shown.height == static_cast<uint32_t>(height));
        }
    }
}

TEST(LiveChannel, QueueHoldsBackUntilItsBufferTimeAndRefusesAboveIt) {
    const std::vector<EncodedPicture> one = MakeVideo({.streamType = CORVANE_STREAM_JPEG, .frames = 1});
    Client client;
    const auto feed = [&](int64_t timeMs) { return FeedOne(client, one[0], timeMs, CORVANE_STREAM_JPEG); };
    EXPECT_EQ(feed(0), Status_ChannelNotStarted);
    ASSERT_EQ(Corvane_SetBufferTime(client.channel, 500), Status_Ok);
    client.Start();
    QueueState state{};
    for (int i = 0; i < 13; ++i) {
        ASSERT_EQ(feed(40 * i), Status_Ok);
        ASSERT_EQ(Corvane_GetRemainingQueueElementCount(client.channel, &state), Status_Ok);
        EXPECT_EQ(state.state, 1u) << i;    // 1 + 12 x 40 ms
    }
    EXPECT_TRUE(client.Stamps().empty());
    // The next frame brings the queue to 521 ms, and frames leave. A stalled worker (its next picture is 10 s off) lets
    // it fill.
    ASSERT_EQ(feed(40 * 13), Status_Ok);
    ASSERT_EQ(feed(40 * 13 + 10'000), Status_Ok);
    ASSERT_TRUE(Eventually([&] {
        const std::vector<Client::Shown> shown = client.Take();
        return !shown.empty() && shown.back().seconds == 10;
    }));
    // A blocked producer returns when blocking ends, and when the channel stops, which does not wait for the
    // pacing sleep.
    for (const bool stops : {false, true}) {
        ASSERT_EQ(Corvane_SetChannelOption(client.channel, 42, 0, 0), Status_Ok);
        std::atomic<int> fed{-1};
        std::atomic<uint32_t> blocked{Status_Ok};
        std::thread producer([&] {
            for (fed = 0; blocked == Status_Ok; ++fed)
                blocked = feed(30'000 + 1000 * fed);
        });
        for (int before = -1; before < 0 || before != fed; std::this_thread::sleep_for(std::chrono::milliseconds(20)))
            before = fed;    // until it waits
        const auto start = std::chrono::steady_clock::now();
        PictureBuffer still{};    // nor does a still
        EXPECT_EQ(Corvane_GetCurrentSnapShot(client.channel, &still, 1), Status_Ok);
        Corvane_FreePicture(&still);
        if (stops)
            ASSERT_EQ(Corvane_StopChannel(client.channel), Status_Ok);
        else
            ASSERT_EQ(Corvane_SetChannelOption(client.channel, 42, 1, 0), Status_Ok);
        producer.join();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        EXPECT_EQ(blocked, stops ? Status_ChannelNotStarted : Status_QueueFull);
    }

    // And again from the start.
    client.Start();
    for (int i = 0; i < 14; ++i)
        (void)feed(40 * i);
    client.Take();
    const uint64_t emptied = test::StatisticsOf(client.channel).framesEmptied;
    ASSERT_EQ(Corvane_SetChannelOption(client.channel, 31, 0, 0), Status_Ok);
    EXPECT_GT(test::StatisticsOf(client.channel).framesEmptied, emptied);
    Corvane_GetRemainingQueueElementCount(client.channel, &state);
    EXPECT_EQ(state.state, 1u) << "a queue that was emptied fills again";
}

TEST(LiveChannel, MediaModeAndStreamTypesDecideWhatIsTaken) {
    const std::vector<uint8_t> bytes = {1, 2, 3};
    const std::pair<uint32_t, const char*> rows[] = {// what is taken in the modes video only, audio only, both
                                                     {CORVANE_STREAM_H264, "y-y"},
                                                     {CORVANE_STREAM_METADATA_XML, "y-y"},
                                                     {CORVANE_STREAM_MULAW, "-yy"},
                                                     {CORVANE_STREAM_PLACEHOLDER, "---"},
                                                     {2048, "---"},
                                                     {3, "---"}};
    Client client;
    client.Start();
    for (uint32_t mode = 1; mode <= 3; ++mode) {
        ASSERT_EQ(Corvane_SetChannelOption(client.channel, 13, mode, 0), Status_Ok);
        for (const auto& [type, taken] : rows)
            EXPECT_EQ(client.Feed(type, bytes, true, 0), taken[mode - 1] == 'y' ? Status_Ok : Status_UnsupportedMedia)
                << type << " in mode " << mode;
    }
    EXPECT_EQ(test::StatisticsOf(client.channel).framesRefusedMode, 3u) << "unknown types are not counted";
    // Damage found by the copy loses that frame only.
    MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_H264, bytes, true, 0);
    const uint8_t packet[] = {0, 0, 0, 0, 96, 12, 1};
    header.extension = packet;
    for (const auto& [extensionSize, payloadSize, data, status] :
         {std::tuple(uint32_t{sizeof packet}, 3u, bytes.data(), Status_Failed),
          {0, 300u << 20, bytes.data(), Status_OutOfMemory},
          {0, 3u, nullptr, Status_InvalidArgument},
          {0, 3u, bytes.data(), Status_Ok}}) {
        header.extensionSize = extensionSize;
        header.payloadSize = payloadSize;
        header.data = data;
        EXPECT_EQ(Corvane_InputEncodedMediaFrame(client.channel, &header), status);
    }
}

TEST(LiveChannel, KeyFramesOnlyAndFramesThatAreNotForDisplay) {
    const std::vector<EncodedPicture> pictures = MakeVideo({.frames = 20});
    Client client;
    client.Start();
    for (int i = 0; i < 20; ++i) {
        if (i % 10 == 0)
            ASSERT_EQ(Corvane_SetDisplayMode(client.channel, i == 0 ? 1 : 0), Status_Ok);
        ASSERT_EQ(Corvane_SetDisplayMode(client.channel, 9), Status_Ok) << "changes nothing";
        MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_H264, pictures[i].bytes, pictures[i].key, kStep * i);
        header.extension = test::kNotForDisplay;
        header.extensionSize = i == 12 ? sizeof test::kNotForDisplay : 0;
        ASSERT_EQ(Corvane_InputEncodedMediaFrame(client.channel, &header), Status_Ok);
        if (i < 10 ? pictures[i].key : i != 12)
            ASSERT_TRUE(client.WaitForStamp(i)) << i;
    }
    EXPECT_EQ(client.Stamps(), (std::vector<int>{0, 5, 10, 11, 13, 14, 15, 16, 17, 18, 19}));
}

TEST(LiveChannel, KeyFramesOnlyOfFieldsInUnitsOfTheirOwn) {
    Client client(11, true);
    ASSERT_EQ(Corvane_SetDisplayMode(client.channel, 1), Status_Ok);
    client.Start();
    std::vector<Client::Shown> shown;
    for (const test::FieldUnit& field : test::MakeFields()) {
        const bool key = field.picture % test::kFieldGop == 0;
        ASSERT_EQ(client.Feed(CORVANE_STREAM_H264, field.bytes, key && !field.bottom,
                              kStep * (2 * field.picture + field.bottom)),
                  Status_Ok);
        ASSERT_TRUE(!key || !field.bottom || Eventually([&] {
            const auto more = client.Take();
            shown.insert(shown.end(), more.begin(), more.end());
            return shown.size() == static_cast<size_t>(field.picture / test::kFieldGop + 1);
        })) << field.picture;
    }
    for (size_t i = 0; i < shown.size(); ++i)
        for (const bool bottom : {false, true})
            EXPECT_EQ(shown[i].pixels[bottom ? 64 : 0],
                      test::FieldValue(test::kFieldGop * static_cast<int>(i), bottom));
}

TEST(LiveChannel, StartedTwiceStoppedTwiceAndRestarted) {
    const std::vector<EncodedPicture> pictures = MakeVideo({.streamType = CORVANE_STREAM_JPEG, .frames = 5});
    Client client;
    EXPECT_EQ(Corvane_StopChannel(client.channel), Status_Ok);
    for (int round = 0; round < 3; ++round) {
        client.Start();
        client.Start();
        ASSERT_EQ(client.Feed(CORVANE_STREAM_JPEG, pictures[1].bytes, false, 0),
                  Status_Ok);    // of no use without a key frame, after a stop as well
        for (int i = 0; i < 5; ++i) {
            ASSERT_EQ(FeedOne(client, pictures[i], kStep * i, CORVANE_STREAM_JPEG), Status_Ok);
            ASSERT_TRUE(client.WaitForStamp(i));
        }
        EXPECT_EQ(client.Take().size(), 5u);
        std::thread other([&] { EXPECT_EQ(Corvane_StopChannel(client.channel), Status_Ok); });
        EXPECT_EQ(Corvane_StopChannel(client.channel), Status_Ok);
        EXPECT_EQ(client.Feed(CORVANE_STREAM_H264, pictures[0].bytes, true, 0), Status_ChannelNotStarted);
        other.join();
    }
}

// The numbers of options and the fields of records reach the settings that they name, where they lie side by side.
TEST(ChannelSettings, SidesGoWhereTheyAreNamed) {
    CChannelLive live(0, 0);
    ChannelSettings settings{};
    settings.mask = 0x20 | 0x100;
    settings.marginLeft = settings.marginRight = settings.marginTop = 9;
    settings.marginBottom = 4;
    settings.hasBorder = 1;
    for (uint32_t i = 0; i < 4; ++i)
        settings.border[i] = 21 + i;    // left, top, right, bottom
    live.Apply(settings);
    for (int32_t option = 8; option <= 9; ++option)
        EXPECT_EQ(live.SetOption(option, uint64_t{1} << 32 | static_cast<uint32_t>(option), 0), Status::Ok);
    const PresentSettings info = *live.Render().Settings();
    EXPECT_TRUE(info.margin.left == 9 && info.margin.right == 8 && info.margin.top == 9 && info.margin.bottom == 4);
    EXPECT_TRUE(info.border.left == 21 && info.border.top == 22 && info.border.right == 23 && info.border.bottom == 24);
    EXPECT_TRUE(info.osdPolicy == 3 && !info.fullWindow && info.presentEnabled && !info.noBorder);
}

}    // namespace
}    // namespace corvane
