// What a client is told of frames that bring no picture.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <vector>

#include "frame/ChannelCounters.h"
#include "manager/ShownTally.h"
#include "support/Client.h"
#include "support/XClient.h"
#include "support/XServer.h"

namespace corvane {
namespace {

using test::Client;
using test::EncodedPicture;
using test::Eventually;
using test::StatisticsOf;
using Field = uint64_t ChannelStatistics::*;

// H.264 as an MP4 file has it: each unit behind its length.
std::vector<uint8_t> LengthPrefixed(const std::vector<uint8_t>& annexB) {
    std::vector<uint8_t> out;
    size_t unit = 0;
    const auto close = [&](size_t end) {
        if (unit == 0)
            return;
        while (end > unit && annexB[end - 1] == 0)
            --end;
        for (int shift = 24; shift >= 0; shift -= 8)
            out.push_back(static_cast<uint8_t>((end - unit) >> shift));
        out.insert(out.end(), annexB.begin() + static_cast<ptrdiff_t>(unit), annexB.begin() + static_cast<ptrdiff_t>(end));
    };
    for (size_t i = 0; i + 2 < annexB.size(); ++i)
        if (annexB[i] == 0 && annexB[i + 1] == 0 && annexB[i + 2] == 1) {
            close(i);
            unit = i + 3;
        }
    close(annexB.size());
    return out;
}

struct Mistake {
    const char* name;
    uint32_t type, cause;
    Field counter;
    std::function<std::vector<uint8_t>(const EncodedPicture&)> payload;
    bool neverKey = false, sameTime = false;
    uint32_t bufferMs = 1;
};

// Each frame of each mistake is taken with Status_Ok; its counter and its cause say what is wrong.
TEST(Statistics, EachMistakeHasItsCounterAndItsCause) {
    const std::vector<EncodedPicture> h264 = test::MakeVideo({.frames = 8});
    const auto as_is = [](const EncodedPicture& picture) { return picture.bytes; };
    const auto garbage = [](const EncodedPicture& picture) {
        std::vector<uint8_t> bytes = picture.bytes;
        for (size_t i = 5; i < bytes.size(); ++i)    // behind the first start code
            bytes[i] = static_cast<uint8_t>((bytes[i] * 167 + i * 59) | 4);
        return bytes;
    };
    const Field failed = &ChannelStatistics::unitsFailed;
    const Mistake rows[] = {
        {"lengths in the place of start codes", CORVANE_STREAM_H264, CORVANE_CAUSE_NO_START_CODE, failed,
         [](const EncodedPicture& picture) { return LengthPrefixed(picture.bytes); }},
        {"H.264 as JPEG", CORVANE_STREAM_JPEG, CORVANE_CAUSE_WRONG_TYPE, failed, as_is},
        {"H.264 as H.265", CORVANE_STREAM_H265, CORVANE_CAUSE_WRONG_TYPE, failed, as_is},
        {"garbage", CORVANE_STREAM_H264, CORVANE_CAUSE_DAMAGED, failed, garbage},
        {"no key frame", CORVANE_STREAM_H264, CORVANE_CAUSE_NO_KEY_FRAME, &ChannelStatistics::unitsAwaitingKeyFrame,
         as_is, true},
        {"no decoder", CORVANE_STREAM_H263, CORVANE_CAUSE_NO_DECODER, &ChannelStatistics::unitsWithoutDecoder, as_is},
        {"times that stand still", CORVANE_STREAM_H264, CORVANE_CAUSE_TIMES_DO_NOT_RISE,
         &ChannelStatistics::framesWithoutStep, as_is, false, true, 500},
    };
    for (const Mistake& row : rows) {
        SCOPED_TRACE(row.name);
        Client client;
        ASSERT_EQ(Corvane_SetBufferTime(client.channel, row.bufferMs), Status_Ok);
        client.Start();
        EXPECT_EQ(StatisticsOf(client.channel).lastCause, uint32_t{CORVANE_CAUSE_NONE});
        for (size_t i = 0; i < h264.size(); ++i)
            ASSERT_EQ(client.Feed(row.type, row.payload(h264[i]), h264[i].key && !row.neverKey,
                                  row.sameTime ? 0 : static_cast<int64_t>(5 * i)),
                      Status_Ok);
        const uint64_t expected = row.sameTime ? 7 : 8;    // the first has no step to make
        const auto counted = [&row](const ChannelStatistics& told) {    // some garbage reads as units that hold no picture
            return told.*row.counter + (row.cause == CORVANE_CAUSE_DAMAGED ? told.unitsWithoutPicture : 0);
        };
        EXPECT_TRUE(Eventually([&] { return counted(StatisticsOf(client.channel)) >= expected; }));
        const ChannelStatistics statistics = StatisticsOf(client.channel);
        EXPECT_EQ(counted(statistics), expected);
        EXPECT_GT(statistics.*row.counter, 0u);
        EXPECT_EQ(statistics.lastCause, row.cause);
        EXPECT_LT(statistics.lastCauseAgo, 60'000u);
        EXPECT_EQ(statistics.framesTaken, 8u);
        EXPECT_EQ(statistics.queueFrames, row.sameTime ? 8u : 0u);
        EXPECT_EQ(statistics.queueMilliseconds, row.sameTime ? 8u : 0u);
        EXPECT_EQ(statistics.queueBytes > 1000, row.sameTime);
        EXPECT_EQ(statistics.picturesDecoded, 0u);
        test::ExpectSums(statistics);
    }
}

// Neither window nor callback; presenting off; a window that is hidden, and one that is shown.
TEST(Statistics, PicturesEndWhereTheyCouldBeShown) {
    const std::vector<EncodedPicture> pictures = test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .frames = 9});
    test::XServer server;
    test::XClient display(server.Display());
    enum class Shows { Nothing, Off, Hidden, Window, Callback, RefusedRotation };
    const struct {
        Shows shows;
        Field counter;
        uint32_t cause;
    } rows[] = {
        {Shows::Nothing, &ChannelStatistics::picturesNotPutNowhere, CORVANE_CAUSE_NO_WINDOW},
        {Shows::Off, &ChannelStatistics::picturesNotPutOff, CORVANE_CAUSE_OFF},
        {Shows::Hidden, &ChannelStatistics::picturesNotPutNowhere, CORVANE_CAUSE_HIDDEN},
        {Shows::Window, &ChannelStatistics::picturesPut, CORVANE_CAUSE_NONE},
        {Shows::Callback, &ChannelStatistics::picturesHandedOver, CORVANE_CAUSE_NONE},
        {Shows::RefusedRotation, &ChannelStatistics::picturesLost, CORVANE_CAUSE_NOT_ROTATABLE},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(static_cast<int>(row.shows));
        void *instance = nullptr, *channel = nullptr;
        ASSERT_EQ(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0), Status_Ok);
        ChannelSettings settings{};
        settings.mask = row.shows == Shows::Off ? 0x2000 : 0;
        const xcb_window_t window = display.Create();
        if (row.shows == Shows::Window || row.shows == Shows::Hidden || row.shows == Shows::Off)
            settings.window = window;
        if (row.shows == Shows::Hidden)
            xcb_unmap_window(display.Xcb(), window);
        display.Sync();
        ASSERT_EQ(Corvane_CreateChannel(instance, &channel, &settings), Status_Ok);
        if (row.shows >= Shows::Callback)
            Corvane_RegisterRawDataCallback(
                channel, [](void*, const PseudoFrame*) {}, nullptr, row.shows == Shows::Callback ? 11 : 4, 0);
        if (row.shows == Shows::RefusedRotation)
            ASSERT_EQ(Corvane_EnableRotateFilter(channel, 30), Status_Ok);
        ASSERT_EQ(Corvane_StartChannel(channel, 0), Status_Ok);
        const MediaFrameHeader hidden = [&] {
            MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_JPEG, pictures[0].bytes, true, 1);
            static const uint8_t notForDisplay[] = {0, 0, 0, 0, 104, 1, 1};
            header.extension = notForDisplay;
            header.extensionSize = sizeof notForDisplay;
            return header;
        }();
        ASSERT_EQ(Corvane_InputEncodedMediaFrame(channel, &hidden), Status_Ok);
        uint64_t fed = 0;
        const auto next = [&] {
            ++fed;
            const MediaFrameHeader header =
                test::VideoHeader(CORVANE_STREAM_JPEG, pictures[fed % 9].bytes, true, static_cast<int64_t>(fed * 5));
            return Corvane_InputEncodedMediaFrame(channel, &header);
        };
        ASSERT_TRUE(Eventually([&] {    // a window comes into view when the server says so
            EXPECT_EQ(next(), Status_Ok);
            return StatisticsOf(channel).*row.counter >= 5;
        }));
        const bool shown = row.cause == CORVANE_CAUSE_NONE;
        EXPECT_TRUE(shown || Eventually([&] { return StatisticsOf(channel).lastCause == row.cause; }));
        ASSERT_EQ(Corvane_StopChannel(channel), Status_Ok);
        const ChannelStatistics statistics = StatisticsOf(channel);
        test::ExpectSums(statistics);
        EXPECT_EQ(statistics.framesTaken, fed + 1);
        EXPECT_EQ(statistics.picturesNotForDisplay, 1u);
        EXPECT_EQ(statistics.picturesPut + statistics.picturesHandedOver >= 5, shown);
        EXPECT_EQ(statistics.decoderThreads, 0u) << "stopped";
        EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
        display.Destroy(window);
    }
}

// No more is written than the client's record holds, and its size says how much.
TEST(Statistics, RecordSizeBoundsWhatIsWritten) {
    Client client;
    for (const uint32_t size : {0u, 3u, 4u, 12u, 31u, 296u, 4000u}) {
        std::vector<uint8_t> bytes(5000, 0xA5);
        std::memcpy(bytes.data(), &size, sizeof size);
        auto* const record = reinterpret_cast<ChannelStatistics*>(bytes.data());
        EXPECT_EQ(Corvane_GetChannelStatistics(client.channel, record),
                  size < 4 ? Status_InvalidArgument : Status_Ok);
        EXPECT_EQ(record->recordSize, std::min(size, 296u));
        const size_t written = size < 4 ? 4 : std::min(size, 296u);
        EXPECT_EQ(std::count(bytes.begin() + static_cast<ptrdiff_t>(written), bytes.end(), 0xA5),
                  static_cast<ptrdiff_t>(5000 - written))
            << size;
        EXPECT_EQ(std::count(bytes.begin() + 4, bytes.begin() + static_cast<ptrdiff_t>(written), 0xA5), 0) << size;
    }
}

struct StoppedClock final : Clock {
    int64_t now = 0;
    int64_t Now() const override { return now; }
    int64_t Wall() const override { return 0; }
    bool WaitUntil(Condition&, MutexLock&, int64_t) override { return false; }
};

TEST(Statistics, AgesOfTheLast256AndTheCauseWithItsTime) {
    StoppedClock clock;
    ChannelCounters counters(clock);
    const auto told = [&] {
        ChannelStatistics out{};
        counters.Fill(out);
        return out;
    };
    for (int64_t age = 1; age <= 100; ++age)
        counters.NoteAge(age * 1'000'000 + 999'999);
    EXPECT_EQ(told().ageLast, 100u);
    EXPECT_EQ(told().ageMean, 50u);
    EXPECT_EQ(told().age95, 95u);
    for (int64_t i = 0; i < 256; ++i)    // the old ones have gone
        counters.NoteAge(i < 244 ? 7'000'000 : 900'000'000);
    EXPECT_EQ(told().age95, 7u);    // 12 of 256 are above: fewer than one in twenty
    EXPECT_EQ(told().ageLast, 900u);
    counters.NoteAge(900'000'000);    // in the place of a 7
    EXPECT_EQ(told().age95, 900u);
    counters.NoteAge(-5);
    EXPECT_EQ(told().ageLast, 0u);

    clock.now = 5'000'000'000;
    EXPECT_EQ(told().lastCauseAgo, 0u);
    counters.AddLost(Counter::FramesEmptied, CORVANE_CAUSE_EMPTIED, 0);
    EXPECT_EQ(told().lastCause, uint32_t{CORVANE_CAUSE_NONE});
    counters.AddLost(Counter::FramesEmptied, CORVANE_CAUSE_EMPTIED, 3);
    clock.now += 250'000'000;
    counters.Add(Counter::PicturesDecoded);
    EXPECT_EQ(told().lastCause, uint32_t{CORVANE_CAUSE_EMPTIED});
    EXPECT_EQ(told().lastCauseAgo, 250u);
    EXPECT_EQ(told().framesEmptied, 3u);
    EXPECT_EQ(told().picturesDecoded, 1u);
}

// One letter a call: B begins a picture; the outcomes are p put, h handed over, b busy, n nothing to draw on, o off,
// f failed.
TEST(Statistics, APictureIsPutOnceAndNotPutOnlyWhenTheNextOneComes) {
    const struct {
        const char* calls;
        uint64_t taken, put, handed, busy, nowhere, off;
    } rows[] = {
        {"p", 0, 0, 0, 0, 0, 0},       {"Bp", 1, 1, 0, 0, 0, 0},     {"Bppp", 1, 1, 0, 0, 0, 0},
        {"Bbp", 1, 1, 0, 0, 0, 0},     {"Bb", 1, 0, 0, 0, 0, 0},     {"BbBp", 2, 1, 0, 1, 0, 0},
        {"BbnBo", 2, 0, 0, 0, 1, 0},   {"BoBhBp", 3, 1, 1, 0, 0, 1}, {"BfBfB", 3, 0, 0, 0, 2, 0},
        {"BpbBhnB", 3, 1, 1, 0, 0, 0},
    };
    for (const auto& row : rows) {
        StoppedClock clock;
        ChannelCounters counters(clock);
        ShownTally tally(counters);
        for (const char* call = row.calls; *call != 0; ++call) {
            constexpr const char* kOutcomes = "fphbno";
            if (*call == 'B')
                tally.Begin(1);
            else
                tally.Note(static_cast<Outcome>(std::strchr(kOutcomes, *call) - kOutcomes), RenderInfo{}, 2'000'001);
        }
        ChannelStatistics out{};
        counters.Fill(out);
        EXPECT_TRUE(out.picturesTaken == row.taken && out.picturesPut == row.put &&
                    out.picturesHandedOver == row.handed && out.picturesNotPutBusy == row.busy &&
                    out.picturesNotPutNowhere == row.nowhere && out.picturesNotPutOff == row.off)
            << row.calls;
        EXPECT_EQ(out.ageLast, row.put + row.handed != 0 ? 2u : 0u) << row.calls;
    }
}

}    // namespace
}    // namespace corvane
