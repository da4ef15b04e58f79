// The counters and causes of frames that bring no picture.

#include "frame/ChannelCounters.h"
#include "manager/ShownTally.h"
#include "present/ScriptedWatch.h"
#include "support/Client.h"
#include "support/SteppedClock.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using test::Client;
using test::EncodedPicture;
using test::Eventually;
using test::StatisticsOf;
using Field = uint64_t ChannelStatistics::*;

// Each frame of each mistake is taken with Status_Ok; its counter and its cause name the mistake.
TEST(Statistics, EachMistakeHasItsCounterAndItsCause) {
    const std::vector<uint8_t> picture = test::MakeVideo({.frames = 1})[0].bytes;
    using All = ChannelStatistics;
    const Field failed = &All::unitsFailed;
    const struct {
        const char* name;
        uint32_t type, cause;
        Field counter;
        std::vector<uint8_t> payload;
        bool key = true;
        uint32_t bufferMs = 1;
    } rows[] = {
        {"lengths", CORVANE_STREAM_H264, CORVANE_CAUSE_NO_START_CODE, failed, {0, 0, 0, 5, 0x65, 1, 2, 3, 4}},
        {"H.264 as JPEG", CORVANE_STREAM_JPEG, CORVANE_CAUSE_WRONG_TYPE, failed, picture},
        {"garbage", CORVANE_STREAM_H264, CORVANE_CAUSE_DAMAGED, failed, {1, 7, 99, 3, 250, 17, 201, 44, 8, 70}},
        {"no key frame", test::kH264, CORVANE_CAUSE_NO_KEY_FRAME, &All::unitsAwaitingKeyFrame, picture, false},
        {"no decoder", test::kH263, CORVANE_CAUSE_NO_DECODER, &All::unitsWithoutDecoder, picture},
        {"same time", test::kH264, CORVANE_CAUSE_TIMES_DO_NOT_RISE, &All::framesWithoutStep, picture, true, 500},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const bool waits = row.bufferMs > 1;
        Client client;
        ASSERT_EQ(Corvane_SetBufferTime(client.channel, row.bufferMs), Status_Ok);
        client.Start();
        EXPECT_EQ(StatisticsOf(client.channel).lastCause, uint32_t{CORVANE_CAUSE_NONE});
        for (int64_t i = 0; i < 8; ++i) {
            MediaFrameHeader header = test::VideoHeader(row.type, row.payload, row.key, waits ? 0 : 5 * i);
            header.extension = test::kOtherVendor;
            header.extensionSize = row.type == test::kH263 ? sizeof test::kOtherVendor : 0;
            ASSERT_EQ(test::FeedHeader(client.channel, header), Status_Ok);
        }
        const uint64_t expected = waits ? 7 : 8;    // the first has no step to make
        EXPECT_TRUE(Eventually([&] { return StatisticsOf(client.channel).*row.counter >= expected; }));
        const ChannelStatistics told = StatisticsOf(client.channel);
        EXPECT_TRUE(told.*row.counter == expected && told.lastCause == row.cause && told.lastCauseAgo < 60'000);
        EXPECT_TRUE(told.framesTaken == 8 && told.picturesDecoded == 0);
        EXPECT_TRUE(told.queueFrames == told.queueMilliseconds && told.queueFrames == (waits ? 8 : 0));
        EXPECT_EQ(told.queueBytes > 1000, waits);
        test::ExpectSums(told);
    }
}

// Neither window nor callback; presenting off; a callback; a picture that cannot be rotated.
TEST(Statistics, PicturesEndWhereTheyCouldBeShown) {
    const std::vector<uint8_t> jpeg = test::OneJpeg();
    const struct {
        uint32_t cause;
        Field counter;
        uint32_t kind = 0, mask = 0;    // of the callback, of the settings
    } rows[] = {{CORVANE_CAUSE_NO_WINDOW, &ChannelStatistics::picturesNotPutNowhere},
                {CORVANE_CAUSE_OFF, &ChannelStatistics::picturesNotPutOff, 0, 0x2000},
                {CORVANE_CAUSE_NONE, &ChannelStatistics::picturesHandedOver, 11},
                {CORVANE_CAUSE_NOT_ROTATABLE, &ChannelStatistics::picturesLost, 4}};
    for (const auto& [cause, counter, kind, mask] : rows) {
        SCOPED_TRACE(cause);
        void* instance = test::NewInstance();
        const ChannelSettings settings{.mask = mask};
        void* const channel = test::NewChannel(instance, &settings);
        const CorvanePictureCallback shown = [](void*, const PseudoFrame*) {};
        if (kind != 0)
            ASSERT_EQ(Corvane_RegisterRawDataCallback(channel, shown, nullptr, kind, 0), Status_Ok);
        if (cause == CORVANE_CAUSE_NOT_ROTATABLE)
            ASSERT_EQ(Corvane_EnableRotateFilter(channel, 30), Status_Ok);
        ASSERT_EQ(Corvane_StartChannel(channel, 0), Status_Ok);
        uint64_t fed = 0;
        ChannelStatistics told{};
        const bool handedOver = cause == CORVANE_CAUSE_NONE;
        // The first is not for display. A stop has a cause of its own.
        while ((told.*counter < 5 || (!handedOver && told.lastCause != cause)) && fed < 10'000) {
            const auto header = test::VideoHeader(test::kJpeg, jpeg, true, static_cast<int64_t>(++fed * 5));
            EXPECT_EQ(test::FeedHeader(channel, test::Hidden(header, fed == 1)), Status_Ok);
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
            told = StatisticsOf(channel);
        }
        ASSERT_EQ(Corvane_StopChannel(channel), Status_Ok);
        told = StatisticsOf(channel);
        test::ExpectSums(told);
        EXPECT_TRUE(told.framesTaken == fed && told.picturesNotForDisplay == 1 && told.decoderThreads == 0);
        EXPECT_TRUE(fed < 10'000 && (told.picturesHandedOver != 0) == handedOver);
        EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
    }
}

// Only as much is written as the client's record holds, and its size is the number of bytes.
TEST(Statistics, RecordSizeBoundsWhatIsWritten) {
    Client client;
    for (const uint32_t size : {0u, 3u, 4u, 12u, 31u, 296u, 328u, 4000u}) {
        std::vector<uint8_t> bytes(5000, 0xA5);
        std::memcpy(bytes.data(), &size, sizeof size);
        auto* const record = reinterpret_cast<ChannelStatistics*>(bytes.data());
        EXPECT_EQ(Corvane_GetChannelStatistics(client.channel, record), size < 4 ? Status_InvalidArgument : Status_Ok);
        EXPECT_EQ(record->recordSize, std::min(size, 328u));
        const size_t written = size < 4 ? 4 : std::min(size, 328u);
        EXPECT_EQ(std::count(bytes.begin() + static_cast<ptrdiff_t>(written), bytes.end(), 0xA5),
                  static_cast<ptrdiff_t>(5000 - written))
            << size;
        EXPECT_EQ(std::count(bytes.begin() + 4, bytes.begin() + static_cast<ptrdiff_t>(written), 0xA5), 0) << size;
    }
}

TEST(Statistics, AgesOfTheLast256AndTheCauseWithItsTime) {
    test::SteppedClock clock;
    ChannelCounters counters(clock);
    const auto told = [&] {
        ChannelStatistics out{};
        counters.Fill(out);
        return out;
    };
    for (int64_t age = 1; age <= 100; ++age)
        counters.NoteAge(age * 1'000'000 + 999'999);
    EXPECT_TRUE(told().ageLast == 100 && told().ageMean == 50 && told().age95 == 95);
    for (int64_t i = 0; i < 256; ++i)    // the old ones have gone
        counters.NoteAge(i < 244 ? 7'000'000 : 900'000'000);
    EXPECT_TRUE(told().ageLast == 900 && told().age95 == 7) << "12 of 256 are above: fewer than one in twenty";
    counters.NoteAge(900'000'000);    // in the place of a 7
    EXPECT_EQ(told().age95, 900u);
    counters.NoteAge(-5);
    EXPECT_EQ(told().ageLast, 0u);

    clock.now = 5'000'000'000;
    counters.AddLost(Counter::FramesEmptied, CORVANE_CAUSE_EMPTIED, 0);
    EXPECT_TRUE(told().lastCauseAgo == 0 && told().lastCause == CORVANE_CAUSE_NONE);
    counters.AddLost(Counter::FramesEmptied, CORVANE_CAUSE_EMPTIED, 3);
    clock.now += 250'000'000;
    counters.Add(Counter::PicturesDecoded);
    EXPECT_TRUE(told().lastCause == CORVANE_CAUSE_EMPTIED && told().lastCauseAgo == 250);
    EXPECT_TRUE(told().framesEmptied == 3 && told().picturesDecoded == 1);
}

// One letter a call: B begins a picture; the outcomes are p put, h handed over, b busy, n nothing to draw on, o off,
// f failed; after W a window is there.
TEST(Statistics, APictureIsPutOnceAndNotPutOnlyWhenTheNextOneComes) {
    using Counts = std::array<uint64_t, 6>;    // taken, put, handed over, busy, nowhere, off
    const std::tuple<const char*, Counts, uint32_t> rows[] = {
        {"p", {}, CORVANE_CAUSE_NONE},
        {"Bp", {1, 1}, CORVANE_CAUSE_NONE},
        {"Bppp", {1, 1}, CORVANE_CAUSE_NONE},
        {"Bbp", {1, 1}, CORVANE_CAUSE_BUSY},
        {"Bb", {1}, CORVANE_CAUSE_BUSY},
        {"BbBp", {2, 1, 0, 1}, CORVANE_CAUSE_BUSY},
        {"BbnBo", {2, 0, 0, 0, 1}, CORVANE_CAUSE_OFF},
        {"BoBhBp", {3, 1, 1, 0, 0, 1}, CORVANE_CAUSE_OFF},
        {"BfBfB", {3, 0, 0, 0, 2}, CORVANE_CAUSE_RENDERER_FAILED},
        {"BpbBhnB", {3, 1, 1}, CORVANE_CAUSE_NONE},
        {"BbnB", {2, 0, 0, 0, 1}, CORVANE_CAUSE_NO_WINDOW},
        {"WBbnB", {2, 0, 0, 0, 1}, CORVANE_CAUSE_HIDDEN},
    };
    for (const auto& [calls, wanted, cause] : rows) {
        PresentSettings settings;
        test::SteppedClock clock;
        ChannelCounters counters(clock);
        ShownTally tally(counters);
        for (const char* call = calls; *call != 0; ++call) {
            constexpr const char* kOutcomes = "fphbno";
            if (*call == 'W')
                settings.window = std::make_shared<test::ScriptedWatch>(std::nullopt);
            else if (*call == 'B')
                tally.Begin(1);
            else
                tally.Note(static_cast<Outcome>(std::strchr(kOutcomes, *call) - kOutcomes), settings, 2'000'001);
        }
        ChannelStatistics out{};
        counters.Fill(out);
        EXPECT_EQ((Counts{out.picturesTaken, out.picturesPut, out.picturesHandedOver, out.picturesNotPutBusy,
                          out.picturesNotPutNowhere, out.picturesNotPutOff}),
                  wanted)
            << calls;
        EXPECT_EQ(out.lastCause, cause) << calls;
        EXPECT_EQ(out.ageLast, wanted[1] + wanted[2] != 0 ? 2u : 0u) << calls;
    }
}

}    // namespace
}    // namespace corvane
