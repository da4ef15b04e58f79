// Raw pictures: what the callback gets, beside the still of the same picture, and when a delivery ends.
#include "support/Calling.h"
#include "support/Client.h"

namespace corvane::test {
namespace {

using CorvaneRaw = std::function<void(uint32_t, void*)>;

struct Raw : testing::Test {
    Raw() {
        client.Start();
        client.Set(CORVANE_OPTION_RAW_FORMAT, CORVANE_PICTURE_I420);
    }
    void TearDown() override { released = INT32_MAX; }    // also where an assertion failed
    void Register(int32_t id, CorvaneRaw* call) {
        client.Set(id, reinterpret_cast<uint64_t>(call),
                   call != nullptr ? reinterpret_cast<uint64_t>(Calling(*call).function) : 0);
    }
    void Feed() { EXPECT_EQ(client.Feed(kJpeg, jpeg, true, fed += 40), Status_Ok); }
    ChannelStatistics Told() const { return StatisticsOf(client.channel); }
    // The bytes of a still; empty where there is none.
    Bytes Still(uint32_t format) {
        PictureBuffer still{};
        Corvane_GetCurrentSnapShot(client.channel, &still, CORVANE_STILL_FORMAT | format << 16);
        const Bytes result(still.data, still.data + still.size);
        Corvane_FreePicture(&still);
        return result;
    }

    const Bytes jpeg = MakeVideo({.streamType = kJpeg, .width = 128, .height = 34, .frames = 1})[0].bytes;
    int64_t fed = 100000;            // time of the newest picture, ms
    std::atomic<int64_t> time{0};    // of the picture that was delivered last
    std::function<void(RawPictureInfo&)> answer = [](RawPictureInfo&) {};
    CorvaneRaw raw = [this](uint32_t code, void* record) {
        auto& info = *static_cast<RawPictureInfo*>(record);
        last = info;
        bytes.assign(info.buffer, info.buffer + info.size);
        MediaFrameHeader header{};
        std::memcpy(&header, info.header, sizeof info.header);
        EXPECT_TRUE(code == CORVANE_RAW_PICTURE && info.pixels == info.buffer + info.prefix);
        EXPECT_TRUE(std::equal(jpeg.begin(), jpeg.end(), header.data + header.headerSize));
        time = int64_t{header.timeSeconds} * 1000 + header.timeMilliseconds;
        answer(info);
        ++calls;
    };
    RawPictureInfo last{};
    Bytes bytes;
    std::atomic<int> calls{0}, released{0};
    Client client;
};

TEST_F(Raw, EachFormatIsTheStillOfThePicture) {
    Register(CORVANE_OPTION_RAW_CALLBACK, &raw);
    client.Set(CORVANE_OPTION_RAW_FORMAT, 0);    // has no maker
    Feed();
    ASSERT_TRUE(Eventually([&] { return Told().picturesHandedOver == 1; }));
    for (uint32_t format = 1; format <= 18; ++format)
        for (const uint32_t prefix : {0u, 16u, 13u}) {
            SCOPED_TRACE(format * 100 + prefix);
            client.Set(CORVANE_OPTION_RAW_FORMAT, format);
            client.Set(CORVANE_OPTION_RAW_PREFIX, prefix);
            const int before = calls;
            Feed();
            ASSERT_TRUE(Eventually([&] { return calls == before + 1; }));
            Bytes wanted = Still(format);
            ASSERT_FALSE(wanted.empty());
            wanted.insert(wanted.begin(), prefix, 0);
            EXPECT_EQ(bytes, wanted);
            EXPECT_TRUE(last.width == 128 && last.height == 34 && last.prefix == prefix && last.count == 1 &&
                        last.format == format && last.requestedFormat == format);
        }
    for (const auto& [id, off, on] : {std::array<int32_t, 3>{CORVANE_OPTION_RAW_PICTURES, 0, 1},
                                      {CORVANE_OPTION_RAW_FORMAT, 19, 1},
                                      {CORVANE_OPTION_RAW_PREFIX, -99, 0}}) {
        SCOPED_TRACE(id);
        const int before = calls;
        client.Set(id, static_cast<uint32_t>(off));
        Feed();
        const uint64_t shown = 55 + 2 * static_cast<uint64_t>(before - 54) + 1;
        ASSERT_TRUE(Eventually([&] { return Told().picturesHandedOver == shown; }));
        client.Set(id, static_cast<uint32_t>(on));
        Feed();
        ASSERT_TRUE(Eventually([&] { return calls == before + 1; })) << "the one before was not delivered";
    }
}

TEST_F(Raw, RepetitionsChangeTheFormatAndTheSecondCallbackComesFirst) {
    const uint32_t formats[] = {4, 8, 1, 18, 11, 3};
    std::vector<Bytes> delivered;
    answer = [&](RawPictureInfo& info) {
        EXPECT_TRUE(info.format == formats[delivered.size()] && info.count == delivered.size() + 1);
        EXPECT_EQ(info.repeat, 0u);
        delivered.push_back(bytes);
        if (delivered.size() < std::size(formats))
            info.repeat = 1;
        info.requestedFormat = formats[delivered.size() % std::size(formats)];
    };
    CorvaneRaw never = [](uint32_t, void*) { ADD_FAILURE(); };
    Register(CORVANE_OPTION_RAW_CALLBACK_2, &raw);
    Register(CORVANE_OPTION_RAW_CALLBACK, &never);
    client.Set(CORVANE_OPTION_RAW_FORMAT, formats[0]);
    Feed();
    ASSERT_TRUE(Eventually([&] { return calls == 6; }));
    for (size_t i = 0; i < delivered.size(); ++i)
        EXPECT_EQ(delivered[i], Still(formats[i])) << formats[i];
}

// A client that takes its time loses pictures, and nothing else does. Who registers another callback waits for it.
TEST_F(Raw, ASlowClientGetsTheNewestPictureAndRegistrationsWait) {
    released = 0;
    answer = [&](RawPictureInfo&) {
        while (calls >= released)
            std::this_thread::yield();
    };
    Register(CORVANE_OPTION_RAW_CALLBACK, &raw);
    Feed();
    ASSERT_TRUE(Eventually([&] { return time == fed; }));
    for (int i = 0; i < 5; ++i)
        Feed();
    ASSERT_TRUE(Eventually([&] { return Told().picturesDecoded == 6; })) << "decoding waits for the client";
    EXPECT_FALSE(Still(CORVANE_PICTURE_I420).empty());
    released = 1;
    ASSERT_TRUE(Eventually([&] { return time == fed; }));
    EXPECT_EQ(calls, 1) << "an older picture was delivered";
    std::atomic<bool> replaced{false};
    std::thread setter([&] {
        Register(CORVANE_OPTION_RAW_CALLBACK_2, nullptr);    // one that was not set waits as well
        Register(CORVANE_OPTION_RAW_CALLBACK, nullptr);
        replaced = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_FALSE(replaced);
    released = 2;
    setter.join();
    Feed();
    ASSERT_TRUE(Eventually([&] { return Told().picturesDecoded == 7; }));
    Register(CORVANE_OPTION_RAW_CALLBACK, &raw);
    released = 100;
    Feed();
    ASSERT_TRUE(Eventually([&] { return calls == 3 && time == fed; }));
}

// An endless repetition ends when the channel stops, gets another callback, or is deleted; each waits for the call that
// runs. Client filters run on both threads, one at a time.
TEST_F(Raw, ADeliveryEndsAfterTheRunningCall) {
    std::atomic<int> filtering{0}, faults{0}, filtered{0};
    CallingFilter filter([&](auto*) {
        faults += ++filtering != 1;
        std::this_thread::sleep_for(std::chrono::microseconds(300));
        --filtering;
        ++filtered;
        return 0;
    });
    EXPECT_EQ(Corvane_InsertFilter(client.channel, &filter), Status_Ok);
    std::atomic<bool> inside{false};
    answer = [&](RawPictureInfo& info) {
        inside = true;
        info.repeat = 1;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        inside = false;
    };
    CorvaneRaw other = [](uint32_t, void*) {};
    const std::function<void()> ends[] = {
        [&] {
            Register(CORVANE_OPTION_RAW_CALLBACK_2, &other);
            EXPECT_FALSE(inside);
            const int before = calls;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            EXPECT_EQ(calls, before) << "the rest of a delivery goes to no other callback";
            Register(CORVANE_OPTION_RAW_CALLBACK, nullptr);
            Register(CORVANE_OPTION_RAW_CALLBACK_2, nullptr);
        },
        [&] { EXPECT_EQ(Corvane_StopChannel(client.channel), Status_Ok); },
        [&] { EXPECT_EQ(Corvane_DeleteChannel(client.instance, &client.channel), Status_Ok); },
    };
    for (const auto& end : ends) {
        Register(CORVANE_OPTION_RAW_CALLBACK, &raw);
        client.Start();
        const int before = calls;
        Feed();
        ASSERT_TRUE(Eventually([&] { return calls > before + 3; }));
        Feed();    // decoded and filtered beside the delivery
        ASSERT_TRUE(Eventually([&, begun = filtered.load()] { return filtered > begun + 2; }));
        end();
        EXPECT_FALSE(inside);
        const int after = calls, filteredAfter = filtered;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_TRUE(calls == after && (&end == &ends[0] || filtered == filteredAfter))
            << "after the first the worker goes on";
    }
    EXPECT_EQ(faults, 0);
}

// Who removes a filter, or stops the channel, waits for a call of it on either thread.
TEST_F(Raw, AFilterIsWaitedForOnTheRenderThreadToo) {
    std::atomic<int> filtered{0};
    CallingFilter filter([&](auto*) {
        if (++filtered == 2)    // of the raw picture
            while (released < 1)
                std::this_thread::yield();
        return 0;
    });
    Register(CORVANE_OPTION_RAW_CALLBACK, &raw);
    for (const bool stops : {false, true}) {
        filtered = released = 0;
        EXPECT_EQ(Corvane_InsertFilter(client.channel, &filter), Status_Ok);
        Feed();
        ASSERT_TRUE(Eventually([&] { return filtered == 2; }));
        std::atomic<bool> returned{false};
        std::thread ender([&] {
            EXPECT_EQ(stops ? Corvane_StopChannel(client.channel) : Corvane_RemoveFilter(client.channel, &filter),
                      Status_Ok);
            returned = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_FALSE(returned);
        released = 1;
        ender.join();
        EXPECT_EQ(Corvane_RemoveFilter(client.channel, &filter), Status_Ok);
    }
}

}    // namespace
}    // namespace corvane::test
