#include <malloc.h>

#include <climits>
#include <fstream>

#include "base/Sanitized.h"
#include "channels/ChannelDecoder.h"
#include "channels/ChannelLive.h"
#include "channels/Options.h"
#include "support/Client.h"
#include "support/FieldStream.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using test::Client;
using test::EncodedPicture;
using test::Eventually;
using test::MakeVideo;

constexpr int64_t kStep = 5;    // ms between frames: the tests use the real clock

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
    constexpr int kFrames = kSanitized ? 2'000 : 100'000;    // a sanitizer is slow, and keeps freed memory
    Client client;
    client.Set(CORVANE_OPTION_FULL_QUEUE, 0);    // waits
    client.Start();
    std::mt19937 random(3);
    uint64_t settled = UINT64_MAX / 2;
    for (const int number : {100, 200}) {
        for (int i = 0; i < (number == 100 ? 1 : 9) * kFrames; ++i) {
            std::vector<uint8_t> garbage = {0, 0, 0, 1, static_cast<uint8_t>(random() % 32)};
            for (uint32_t size = random() % 60; size > 0; --size)
                garbage.push_back(static_cast<uint8_t>(random()));
            ASSERT_EQ(client.Feed(CORVANE_STREAM_H264, garbage, true, 0), Status_Ok);
        }
        for (const EncodedPicture& picture : MakeVideo({.frames = 5 + 16, .firstNumber = number}))
            ASSERT_EQ(client.Feed(picture, 0), Status_Ok);
        EXPECT_TRUE(Eventually([&] { return std::ranges::count(client.Stamps(), number + 4) != 0; }));
        malloc_trim(0);    // the pictures of the garbage are of all sizes
        EXPECT_TRUE(kSanitized || ResidentBytes() < settled + (16u << 20));
        settled = ResidentBytes();
    }
}

// One frame in ten is cut or emptied: each shown picture comes with the record of its own frame nevertheless, and
// pictures come again with a key frame. A damaged frame may show the one before it again.
TEST(LiveChannel, DamagedFramesShiftNoPictureToAnotherFrame) {
    std::vector<EncodedPicture> stream = MakeVideo({.width = 160, .height = 96, .frames = 150, .gop = 15});
    Client client;
    client.Set(CORVANE_OPTION_DECODER_THREADS, 3);
    client.Set(CORVANE_OPTION_FULL_QUEUE, 0);
    client.Start();
    for (size_t i = 0; i < stream.size(); ++i) {
        if (i % 10 == 7 && i < 140)
            stream[i].bytes.resize(i % 20 == 7 ? 0 : 30 * i % stream[i].bytes.size());
        ASSERT_EQ(client.Feed(stream[i], static_cast<int64_t>(i)), Status_Ok);
    }
    ASSERT_TRUE(client.WaitForStamp(147));
    for (const Client::Shown& shown : client.Take())
        EXPECT_TRUE(shown.stamp < 0 || shown.milliseconds % 10 == 7 ||
                    static_cast<uint32_t>(shown.stamp) == shown.milliseconds)
            << shown.stamp << " with the record of " << shown.milliseconds;
    test::ExpectSums(test::StatisticsOf(client.channel));
}

TEST(LiveChannel, QueueHoldsBackUntilItsBufferTimeAndRefusesAboveIt) {
    const std::vector<uint8_t> jpeg = test::OneJpeg();
    Client client;
    const auto feed = [&](int64_t timeMs) { return client.Feed(test::kJpeg, jpeg, true, timeMs); };
    const auto filling = [&] {
        QueueState state{};
        EXPECT_EQ(Corvane_GetRemainingQueueElementCount(client.channel, &state), Status_Ok);
        return state.state == 1;
    };
    EXPECT_EQ(feed(0), Status_ChannelNotStarted);
    ASSERT_EQ(Corvane_SetBufferTime(client.channel, 500), Status_Ok);
    client.Start();
    for (int i = 0; i < 13; ++i) {
        ASSERT_EQ(feed(40 * i), Status_Ok);
        EXPECT_TRUE(filling()) << i;    // 1 + 12 x 40 ms
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
        client.Set(CORVANE_OPTION_FULL_QUEUE, 0);
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
            client.Set(CORVANE_OPTION_FULL_QUEUE, 1);
        producer.join();
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
        EXPECT_EQ(blocked, stops ? Status_ChannelNotStarted : Status_QueueFull);
    }

    // And again from the start.
    client.Start();
    for (int i = 0; i < 14; ++i)
        (void)feed(40 * i);
    const uint64_t emptied = test::StatisticsOf(client.channel).framesEmptied;
    client.Set(CORVANE_OPTION_EMPTY_QUEUE, 0);
    EXPECT_GT(test::StatisticsOf(client.channel).framesEmptied, emptied);
    EXPECT_TRUE(filling()) << "a queue that was emptied fills again";
}

TEST(LiveChannel, MediaModeAndStreamTypesDecideWhatIsTaken) {
    const std::vector<uint8_t> bytes = {1, 2, 3};
    // What is taken in the modes video only, audio only, both.
    const std::pair<const char*, std::vector<uint32_t>> rows[] = {
        {"y-y",
         {CORVANE_STREAM_JPEG, CORVANE_STREAM_H263, CORVANE_STREAM_MPEG4, CORVANE_STREAM_H264, CORVANE_STREAM_H265,
          CORVANE_STREAM_METADATA_XML, CORVANE_STREAM_METADATA_JSON}},
        {"-yy",
         {CORVANE_STREAM_G7221, CORVANE_STREAM_G729A, CORVANE_STREAM_AAC, CORVANE_STREAM_AMR, CORVANE_STREAM_MULAW,
          CORVANE_STREAM_ALAW, CORVANE_STREAM_G726}},
        {"---", {CORVANE_STREAM_PLACEHOLDER, 2048, 3}}};
    Client client;
    client.Start();
    for (uint32_t mode = 1; mode <= 3; ++mode) {
        client.Set(CORVANE_OPTION_MEDIA_MODE, mode);
        for (const auto& [taken, types] : rows)
            for (const uint32_t type : types)
                EXPECT_EQ(client.Feed(type, bytes, true, 0),
                          taken[mode - 1] == 'y' ? Status_Ok : Status_UnsupportedMedia)
                    << type << " in mode " << mode;
    }
    EXPECT_EQ(test::StatisticsOf(client.channel).framesRefusedMode, 14u) << "unknown types are not counted";
    // Damage found by the copy loses that frame only.
    MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_H264, bytes, true, 0);
    const uint8_t packet[] = {0, 0, 0, 0, 96, 12, 1};
    header.extension = packet;
    for (const auto& [extension, payload, data, status] : {std::tuple(7u, 3u, bytes.data(), Status_Failed),
                                                           {0u, 300u << 20, bytes.data(), Status_OutOfMemory},
                                                           {0u, 3u, nullptr, Status_InvalidArgument},
                                                           {0u, 3u, bytes.data(), Status_Ok}}) {
        header.extensionSize = extension, header.payloadSize = payload, header.data = data;
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
        ASSERT_EQ(client.Feed(pictures[i], kStep * i, i == 12), Status_Ok);
        if (i < 10 ? pictures[i].key : i != 12)
            ASSERT_TRUE(client.WaitForStamp(i)) << i;
    }
    EXPECT_EQ(client.Stamps(), (std::vector<int>{0, 5, 10, 11, 13, 14, 15, 16, 17, 18, 19}));
}

TEST(LiveChannel, KeyFramesOnlyOfFieldsInUnitsOfTheirOwn) {
    Client client(11, true);
    ASSERT_EQ(Corvane_SetDisplayMode(client.channel, 1), Status_Ok);
    client.Start();
    for (const test::FieldUnit& field : test::MakeFields()) {
        const bool key = field.picture % test::kFieldGop == 0;
        ASSERT_EQ(
            client.Feed(test::kH264, field.bytes, key && !field.bottom, kStep * (2 * field.picture + field.bottom)),
            Status_Ok);
        if (!key || !field.bottom)
            continue;
        const Client::Shown shown = client.Next();
        for (const bool bottom : {false, true})
            EXPECT_EQ(shown.pixels.at(bottom ? 64 : 0), test::FieldValue(field.picture, bottom)) << field.picture;
    }
    EXPECT_TRUE(client.Take().empty());
}

TEST(LiveChannel, StartedTwiceStoppedTwiceAndRestarted) {
    const std::vector<EncodedPicture> pictures = MakeVideo({.streamType = CORVANE_STREAM_JPEG, .frames = 5});
    Client client;
    EXPECT_EQ(Corvane_StopChannel(client.channel), Status_Ok);
    for (int round = 0; round < 3; ++round) {
        client.Start();
        client.Start();
        // Of no use without a key frame, after a stop as well.
        ASSERT_EQ(client.Feed(test::kJpeg, pictures[1].bytes, false, 0), Status_Ok);
        for (int i = 0; i < 5; ++i) {
            ASSERT_EQ(client.Feed(test::kJpeg, pictures[i].bytes, true, kStep * i), Status_Ok);
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
    live.Apply({.mask = 0x20 | 0x100,
                .marginLeft = 9,
                .marginRight = 9,
                .marginTop = 9,
                .marginBottom = 4,
                .hasBorder = 1,
                .border = {21, 22, 23, 24}});
    for (int32_t option = 8; option <= 9; ++option)
        EXPECT_EQ(live.SetOption(option, uint64_t{1} << 32 | static_cast<uint32_t>(option), 0), Status::Ok);
    const PresentSettings info = *live.Render().Settings();
    EXPECT_TRUE(info.margin.left == 9 && info.margin.right == 8 && info.margin.top == 9 && info.margin.bottom == 4);
    EXPECT_TRUE(info.border.left == 21 && info.border.top == 22 && info.border.right == 23 && info.border.bottom == 24);
    EXPECT_TRUE(info.osdPolicy == 3 && !info.fullWindow && info.presentEnabled && !info.noBorder);
    for (int i = 0; i < 2; ++i) {
        live.End();
        EXPECT_EQ(live.Start(false), Status::Failed);
    }
}

// Each number of the table is accepted by its kinds only, and no other number by any.
TEST(Options, EachNumberIsKnownToItsKinds) {
    CChannelLive channel(0, 0);
    CChannelDecoder decoder({}, false);
    const auto apply = [&](ChannelType type, int32_t id) {
        if (type == ChannelType::Decoder)
            return decoder.SetOption(id, 0, 0);
        OptionTargets targets{.stream = &channel, .raw = &channel.Render().Raw(), .video = &channel.Video().Settings()};
        return ApplyOption(type, targets, id, 0, 0);
    };
    const auto row = [](int32_t id) {
        const auto table = OptionTable();
        const auto found = std::ranges::find(table, id, &OptionRow::id);
        return found != table.end() ? &*found : nullptr;
    };
    std::vector<int32_t> ids{INT_MIN, INT_MAX, -2, -1};
    for (int32_t id = 0; id <= CORVANE_OPTION_COLOURS + 1; ++id)
        ids.push_back(id);
    for (const int32_t id : ids)
        for (const ChannelType type :
             {ChannelType::Live, ChannelType::Playback, ChannelType::Decoder, ChannelType::Avi}) {
            const bool known = row(id) != nullptr && (row(id)->kinds & KindBit(type)) != 0;
            EXPECT_EQ(apply(type, id) != Status::NotSupported, known) << id;
        }
    EXPECT_EQ(row(CORVANE_OPTION_COLOURS)->kinds, kDecodingKinds);
    EXPECT_TRUE(std::ranges::is_sorted(OptionTable(), std::ranges::less_equal(), &OptionRow::id));
}

}    // namespace
}    // namespace corvane
