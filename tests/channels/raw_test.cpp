// Raw pictures: what the callback gets, beside the still of the same picture, and when a delivery ends.

#include "corvane/filter.h"
#include "support/Client.h"
#include "support/Testing.h"

namespace corvane::test {
namespace {

using Bytes = std::vector<uint8_t>;

struct Raw : testing::Test {
    Raw() { client.Start(); }
    void TearDown() override { released = INT32_MAX; }    // also where an assertion failed
    void Set(int32_t id, uint64_t value, uint64_t extra = 0) {
        EXPECT_EQ(Corvane_SetChannelOption(client.channel, id, value, extra), Status_Ok);
    }
    void Register(int32_t id, Raw* context) {
        const CorvaneRawCallback call = [](void* own, uint32_t code, void* record) {
            auto& raw = *static_cast<Raw*>(own);
            EXPECT_EQ(code, uint32_t{CORVANE_RAW_PICTURE});
            auto& info = *static_cast<RawPictureInfo*>(record);
            raw.last = info;
            raw.bytes.assign(info.buffer, info.buffer + info.size);
            EXPECT_EQ(info.pixels, info.buffer + info.prefix);
            MediaFrameHeader header{};
            std::memcpy(&header, info.header, sizeof info.header);
            EXPECT_TRUE(std::equal(raw.jpeg.begin(), raw.jpeg.end(), header.data + header.headerSize));
            raw.time = int64_t{header.timeSeconds} * 1000 + header.timeMilliseconds;
            raw.answer(info);
            ++raw.calls;
        };
        Set(id, reinterpret_cast<uint64_t>(context), context != nullptr ? reinterpret_cast<uint64_t>(call) : 0);
    }
    void Feed() {
        const MediaFrameHeader header = VideoHeader(CORVANE_STREAM_JPEG, jpeg, true, fed += 40);
        EXPECT_EQ(Corvane_InputEncodedMediaFrame(client.channel, &header), Status_Ok);
    }
    uint64_t Decoded() const { return StatisticsOf(client.channel).picturesDecoded; }
    // The bytes of a still; empty where there is none.
    Bytes Still(uint32_t format) {
        PictureBuffer still{};
        Corvane_GetCurrentSnapShot(client.channel, &still, CORVANE_STILL_FORMAT | format << 16);
        const Bytes result(still.data, still.data + still.size);
        Corvane_FreePicture(&still);
        return result;
    }

    const Bytes jpeg = MakeVideo({.streamType = CORVANE_STREAM_JPEG, .width = 128, .height = 34, .frames = 1})[0].bytes;
    int64_t fed = 100000;            // time of the newest picture, ms
    std::atomic<int64_t> time{0};    // of the picture that was delivered last
    std::function<void(RawPictureInfo&)> answer = [](RawPictureInfo&) {};
    RawPictureInfo last{};
    Bytes bytes;
    std::atomic<int> calls{0}, released{0};
    Client client;
};

TEST_F(Raw, EachFormatIsTheStillOfThePicture) {
    Register(CORVANE_OPTION_RAW_CALLBACK, this);
    Feed();    // format 0 has no maker
    ASSERT_TRUE(Eventually([&] { return StatisticsOf(client.channel).picturesHandedOver == 1; }));
    for (uint32_t format = 1; format <= 18; ++format)
        for (const uint32_t prefix : {0u, 16u, 13u}) {
            SCOPED_TRACE(format * 100 + prefix);
            Set(CORVANE_OPTION_RAW_FORMAT, format);
            Set(CORVANE_OPTION_RAW_PREFIX, prefix);
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
        Set(id, static_cast<uint32_t>(off));
        Feed();
        const uint64_t shown = 55 + 2 * static_cast<uint64_t>(before - 54) + 1;
        ASSERT_TRUE(Eventually([&] { return StatisticsOf(client.channel).picturesHandedOver == shown; }));
        Set(id, static_cast<uint32_t>(on));
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
    Raw* const self = this;
    const CorvaneRawCallback never = [](void*, uint32_t, void*) { ADD_FAILURE(); };
    Set(CORVANE_OPTION_RAW_CALLBACK, 0, reinterpret_cast<uint64_t>(never));
    Register(CORVANE_OPTION_RAW_CALLBACK_2, self);
    Set(CORVANE_OPTION_RAW_FORMAT, formats[0]);
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
    Set(CORVANE_OPTION_RAW_FORMAT, CORVANE_PICTURE_I420);
    Register(CORVANE_OPTION_RAW_CALLBACK, this);
    Feed();
    ASSERT_TRUE(Eventually([&] { return time == fed; }));
    for (int i = 0; i < 5; ++i)
        Feed();
    ASSERT_TRUE(Eventually([&] { return Decoded() == 6; })) << "decoding waits for the client";
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
    ASSERT_TRUE(Eventually([&] { return Decoded() == 7; }));
    Register(CORVANE_OPTION_RAW_CALLBACK, this);
    released = 100;
    Feed();
    ASSERT_TRUE(Eventually([&] { return calls == 3 && time == fed; }));
}

// An endless repetition ends when the channel stops, gets another callback, or is deleted; each waits for the call that
// runs. Client filters run on both threads, one at a time.
TEST_F(Raw, ADeliveryEndsAfterTheRunningCall) {
    struct Filter final : QMRX::Filter::IFilter {
        std::atomic<int> inside{0}, faults{0}, calls{0};
        int32_t Process(QMRX::Filter::FilterArgs*) override {
            faults += ++inside != 1;
            std::this_thread::sleep_for(std::chrono::microseconds(300));
            --inside;
            ++calls;
            return 0;
        }
    } filter;
    EXPECT_EQ(Corvane_InsertFilter(client.channel, &filter), Status_Ok);
    std::atomic<bool> inside{false};
    answer = [&](RawPictureInfo& info) {
        inside = true;
        info.repeat = 1;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        inside = false;
    };
    Set(CORVANE_OPTION_RAW_FORMAT, CORVANE_PICTURE_I420);
    const std::function<void()> ends[] = {
        [&] {
            const CorvaneRawCallback other = [](void*, uint32_t, void*) {};
            Set(CORVANE_OPTION_RAW_CALLBACK_2, 0, reinterpret_cast<uint64_t>(other));
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
        Register(CORVANE_OPTION_RAW_CALLBACK, this);
        client.Start();
        const int before = calls;
        Feed();
        ASSERT_TRUE(Eventually([&] { return calls > before + 3; }));
        Feed();    // decoded and filtered beside the delivery
        const int filtered = filter.calls;
        ASSERT_TRUE(Eventually([&] { return filter.calls > filtered + 2; }));
        end();
        EXPECT_FALSE(inside);
        const int after = calls, filteredAfter = filter.calls;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(calls, after);
        if (&end != &ends[0])    // there the worker goes on
            EXPECT_EQ(filter.calls, filteredAfter);
    }
    EXPECT_EQ(filter.faults, 0);
}

// Who removes a filter, or stops the channel, waits for a call of it on either thread.
TEST_F(Raw, AFilterIsWaitedForOnTheRenderThreadToo) {
    struct Filter final : QMRX::Filter::IFilter {
        std::atomic<int> calls{0}, released{0};
        int32_t Process(QMRX::Filter::FilterArgs*) override {
            if (++calls == 2)    // of the raw picture
                while (released < 1)
                    std::this_thread::yield();
            return 0;
        }
    };
    for (const bool stops : {false, true}) {
        Filter filter;
        Set(CORVANE_OPTION_RAW_FORMAT, CORVANE_PICTURE_I420);
        Register(CORVANE_OPTION_RAW_CALLBACK, this);
        EXPECT_EQ(Corvane_InsertFilter(client.channel, &filter), Status_Ok);
        Feed();
        ASSERT_TRUE(Eventually([&] { return filter.calls == 2; }));
        std::atomic<bool> returned{false};
        std::thread ender([&] {
            EXPECT_EQ(stops ? Corvane_StopChannel(client.channel) : Corvane_RemoveFilter(client.channel, &filter),
                      Status_Ok);
            returned = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_FALSE(returned);
        filter.released = 1;
        ender.join();
        EXPECT_EQ(Corvane_RemoveFilter(client.channel, &filter), Status_Ok);
    }
}

}    // namespace
}    // namespace corvane::test
