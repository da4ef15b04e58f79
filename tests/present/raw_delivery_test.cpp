// The turnstile of the raw callbacks, and raw sound.

#include "base/Thread.h"
#include "present/RawDelivery.h"
#include "support/Calling.h"
#include "support/PlainPicture.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using RawCall = std::function<void(uint32_t, void*)>;

TEST(RawClient, OneAtATimeAndSettersWaitForTheRunningCallOnly) {
    RawClient client;
    std::atomic<int> inside{0}, faults{0}, turns{0};
    std::atomic<bool> ended{false};
    const auto call = [&] {
        for (;;) {
            const RawClient::Turn turn(client, [&] { return !ended; });
            if (!turn)
                return;
            faults += ++inside != 1;
            std::this_thread::yield();
            --inside;
            ++turns;
        }
    };
    std::thread callers[] = {std::thread(call), std::thread(call)};
    for (int i = 0; i < 200; ++i)    // beside calls without an end
        client.SetCallback(&RawSettings::first, {});
    EXPECT_TRUE(test::Eventually([&] { return turns > 100; }));
    ended = true;
    client.Wake();
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_EQ(faults, 0);
    const auto always = [] { return true; };
    std::optional<RawClient::Turn> turn(std::in_place, client, always);
    std::atomic<bool> set{false};
    std::thread setter([&] {
        client.SetCallback(&RawSettings::first, {});
        set = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(set);
    turn.reset();
    turn.emplace(client, always);    // before the setter looks
    EXPECT_TRUE(test::Eventually([&] { return set.load(); }));
    turn.reset();
    setter.join();
}

TEST(RawDelivery, SoundOfAFrame) {
    const std::vector<uint8_t> payload(80, 0xD5), samples(320, 7);
    MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_ALAW, payload, true, 12'345);
    header.headerSize = 3, header.payloadSize = 77;
    const MediaFrameImpl frame(header);
    int heard = 0;
    RawCall call = [&](uint32_t code, void* record) {
        const auto& info = *static_cast<RawAudioInfo*>(record);
        MediaFrameHeader told{};
        std::memcpy(&told, info.header, sizeof info.header);
        EXPECT_TRUE(code == CORVANE_RAW_SOUND && info.duration == 9 && info.size == 320 &&
                    info.samples == samples.data() && info.timeSeconds == 12 && info.timeMilliseconds == 345);
        EXPECT_TRUE(told.payloadSize == 77 && told.data[3] == 0xD5);
        ++heard;
    };
    RawCall never = [](uint32_t, void*) { ADD_FAILURE(); };
    ClientFilterCalls filters;
    RawDelivery raw(filters);
    RawClient& client = raw.Client();
    const struct {
        const char* what;
        std::function<void()> change;
        bool goesOn;
        int calls;
    } rows[] = {
        {"no callback", [] {}, true, 0},
        {"the first", [&] { client.SetCallback(&RawSettings::first, test::Calling(call)); }, true, 1},
        {"closing", [] {}, false, 0},
        {"off", [&] { client.Set(&RawSettings::sound, false); }, true, 0},
        {"pictures off, sound on",
         [&] { client.Set(&RawSettings::sound, true), client.Set(&RawSettings::pictures, false); }, true, 1},
        {"the second comes first",
         [&] {
             client.SetCallback(&RawSettings::first, test::Calling(never));
             client.SetCallback(&RawSettings::second, test::Calling(call));
         },
         true, 1},
    };
    for (const auto& row : rows) {
        row.change();
        heard = 0;
        raw.DeliverSound(frame, samples.data(), 320, [&] { return row.goesOn; });
        EXPECT_EQ(heard, row.calls) << row.what;
    }
}

// A picture is delivered once, however often it is drawn, and as a JPEG picture of the colours that every reader
// assumes.
TEST(RawDelivery, OncePerPictureInTheColoursOfItsFormat) {
    ClientFilterCalls filters;
    RawDelivery raw(filters);
    std::vector<std::vector<uint8_t>> delivered;
    RawCall call = [&](uint32_t, void* record) {
        const auto& info = *static_cast<RawPictureInfo*>(record);
        delivered.emplace_back(info.buffer, info.buffer + info.size);
    };
    raw.Client().SetCallback(&RawSettings::first, test::Calling(call));
    raw.Client().Set(&RawSettings::format, CORVANE_PICTURE_JPEG);
    raw.Begin();
    const test::PlainPicture source(32, 32, 100, 90, 170);
    FinishedPicture picture{.frame = std::make_shared<MediaFrameImpl>(MediaFrameHeader{})};
    PresentSettings settings;
    for (const bool signalled : {false, true}) {
        settings.signalledColours = signalled;
        picture.decoded = source.Picture({.matrix = ColourSignal::Matrix::Bt709, .fullRange = false});
        raw.OnFresh();
        for (int draw = 0; draw < 3; ++draw)
            raw.Deliver(picture, nullptr, [&] { return std::make_shared<const PresentSettings>(settings); });
    }
    ASSERT_EQ(delivered.size(), 2u);
    EXPECT_NE(delivered[0], delivered[1]);
}

// Both end the repetitions of a picture, and the wait for a turn.
TEST(RawDelivery, ACutAndAnEndEndADelivery) {
    for (const auto ends : {&RawDelivery::Cut, &RawDelivery::End}) {
        ClientFilterCalls filters;
        RawDelivery raw(filters);
        int calls = 0;
        RawCall call = [&](uint32_t, void* record) {
            static_cast<RawPictureInfo*>(record)->repeat = ++calls < 10;
            if (calls == 3)
                (raw.*ends)();
        };
        raw.Client().SetCallback(&RawSettings::first, test::Calling(call));
        raw.Client().Set(&RawSettings::format, CORVANE_PICTURE_I420);
        const test::PlainPicture source(16, 16, 100);
        FinishedPicture picture{.frame = std::make_shared<MediaFrameImpl>(MediaFrameHeader{})};
        picture.decoded = source.Picture();
        std::atomic<bool> making{false}, over{false};
        const auto deliver = [&] {
            raw.Begin();
            raw.OnFresh();
            raw.Deliver(picture, nullptr, [&] { return making = true, std::make_shared<const PresentSettings>(); });
            over = true;
        };
        deliver();
        EXPECT_EQ(calls, 3);
        making = over = false;
        std::optional<RawClient::Turn> running(std::in_place, raw.Client(), [] { return true; });
        std::thread render(deliver);
        EXPECT_TRUE(test::Eventually([&] { return making.load(); }));
        std::this_thread::sleep_for(std::chrono::milliseconds(20));    // for its turn
        (raw.*ends)();
        EXPECT_TRUE(test::Eventually([&] { return over.load(); }));
        running.reset();
        render.join();
        EXPECT_EQ(calls, 3);
    }
}

// A decoder that does not share its pictures overwrites them.
TEST(RawDelivery, KeepsAReferenceOrACopy) {
    ClientFilterCalls filters;
    RawDelivery raw(filters);
    test::PlainPicture source(17, 13, 10, 20, 30);
    EXPECT_FALSE(raw.Keep(source.Picture()).View()) << "nobody wants it";
    raw.Client().SetCallback(&RawSettings::first, {[](void*, uint32_t, void*) {}, nullptr});
    SharedPicture earlier;
    for (const bool twoPlanes : {false, true}) {
        if (twoPlanes)    // the chroma of 9 x 7 as 4 pairs a row
            source.frame.planes[2] = nullptr, source.frame.strides[2] = 0;
        const SharedPicture copy = raw.Keep(source.Picture());
        ASSERT_EQ(copy.View().PlaneCount(), twoPlanes ? 2 : 3);
        EXPECT_NE(copy.Get().planes[0], earlier.Get().planes[0]);
        for (int i = 0; i < copy.View().PlaneCount(); ++i) {
            EXPECT_NE(copy.Get().planes[i], source.frame.planes[i]);
            const size_t bytes = size_t{copy.Get().strides[i]} * (i == 0 ? 13 : 7);
            EXPECT_EQ(std::memcmp(copy.Get().planes[i], source.frame.planes[i], bytes), 0) << i;
        }
        earlier = copy.Share();
    }
    earlier = SharedPicture();
    const test::PlainPicture larger(64, 64, 11);    // in the memory of a smaller one
    const SharedPicture copy = raw.Keep(larger.Picture());
    EXPECT_EQ(std::memcmp(copy.Get().planes[0], larger.frame.planes[0], 64 * 64), 0);
    source.Share();
    EXPECT_EQ(raw.Keep(source.Picture()).Get().planes[0], source.frame.planes[0]);
    EXPECT_EQ(source.references, 0);
}

TEST(RawClient, AThreadThatWaitsGivesUpWhenItsReasonEnds) {
    RawClient client;
    std::atomic<bool> wanted{true};
    client.SetCallback(&RawSettings::second, {[](void*, uint32_t, void*) {}, nullptr});
    const struct {
        std::function<bool()> goesOn;
        std::function<void()> end;
    } rows[] = {
        {[&] { return wanted.load(); }, [&] { wanted = false, client.Wake(); }},
        {[&] { return client.WantsPictures(); }, [&] { client.Set(&RawSettings::pictures, false); }},
        {[&] { return static_cast<bool>(client.Settings().Callback()); },
         [&] {
             const Thread::ScopedOwner inCallback(&client);    // the setter does not wait there
             client.SetCallback(&RawSettings::second, {});
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(&row - rows);
        std::optional<RawClient::Turn> running(std::in_place, client, [] { return true; });
        std::atomic<int> asked{0}, result{-1};
        std::thread waiting(
            [&] { result = static_cast<bool>(RawClient::Turn(client, [&] { return ++asked, row.goesOn(); })); });
        EXPECT_TRUE(test::Eventually([&] { return asked == 1; }));
        row.end();
        EXPECT_TRUE(test::Eventually([&] { return result == 0; }));
        running.reset();    // also ends a thread that does not give up
        waiting.join();
        EXPECT_EQ(result, 0);
    }
}

}    // namespace
}    // namespace corvane
