// A client whose threads start, stop, feed, register and delete at random, and whose callbacks write a history: nothing
// comes after the call that ended it returned, numbers rise, each picture comes at most once.
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <random>
#include <thread>
#include <vector>

#include "corvane/filter.h"
#include "support/Client.h"

namespace corvane {
namespace {

// One registration. It is ended when the call that replaces it has returned.
struct Registration {
    std::atomic<bool> ended{false};
    std::atomic<int64_t> last{-1};
    std::atomic<int> faults{0}, calls{0};

    void Call(int64_t number) {
        ++calls;
        std::this_thread::sleep_for(std::chrono::microseconds(200));    // the thread that ends it waits meanwhile
        faults += ended ? 1 : 0;
        faults += number >= 0 && last.exchange(number) >= number ? 1 : 0;
    }
};

struct CountingFilter final : QMRX::Filter::IFilter {
    Registration registration;
    int32_t Process(QMRX::Filter::FilterArgs*) override {
        registration.Call(-1);
        return 0;
    }
};

int64_t NumberOf(const MediaFrameHeader& header) {
    return int64_t{header.streamSeconds} * 1000 + header.timeMilliseconds;
}

TEST(History, NothingComesLateTwiceOrOutOfOrder) {
    const std::vector<uint8_t> jpeg =
        test::MakeVideo({.streamType = CORVANE_STREAM_JPEG, .width = 80, .height = 32, .frames = 1})[0].bytes;
    std::mt19937 random(20);
    int pictures = 0;
    int displayed = 0;
    for (int life = 0; life < 6; ++life) {
        void* instance = nullptr;
        ASSERT_EQ(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0), Status_Ok);
        Registration info;
        ChannelSettings settings{};
        settings.mask = 0x0005;
        settings.streamInfoContext = &info;
        settings.streamInfo = [](void* context, uint32_t code, uint64_t, uint64_t b) {
            static_cast<Registration*>(context)->Call(
                code == 7 ? NumberOf(*reinterpret_cast<const MediaFrameHeader*>(b)) : -1);
        };
        void* channel = nullptr;
        ASSERT_EQ(Corvane_CreateChannel(instance, &channel, &settings), Status_Ok);

        std::atomic<bool> done{false};
        std::atomic<int64_t> time{0};
        std::vector<std::thread> feeders;
        for (int i = 0; i < 2; ++i)
            feeders.emplace_back([&] {
                while (!done) {
                    static std::mutex order;    // the times that reach the queue rise
                    const std::lock_guard lock(order);
                    const MediaFrameHeader header = test::VideoHeader(CORVANE_STREAM_JPEG, jpeg, true, ++time);
                    Corvane_InputEncodedMediaFrame(channel, &header);
                }
            });

        std::deque<Registration> shown;
        std::deque<Registration> after;
        std::deque<CountingFilter> filters;
        const CorvanePictureCallback onPicture = [](void* context, const PseudoFrame* frame) {
            if (frame->data != nullptr)
                static_cast<Registration*>(context)->Call(NumberOf(*frame->header));
        };
        const CorvaneAfterDisplayCallback onDisplay = [](void* context, const AfterDisplayRecord*) {
            static_cast<Registration*>(context)->Call(-1);
        };
        for (int step = 0; step < 80; ++step) {
            switch (random() % 7) {
            case 0:
                info.ended = false;
                ASSERT_EQ(Corvane_StartChannel(channel, random() % 2), Status_Ok);
                break;
            case 1:
                ASSERT_EQ(Corvane_StopChannel(channel), Status_Ok);
                info.ended = true;
                break;
            case 2:
                ASSERT_EQ(Corvane_RegisterRawDataCallback(channel, onPicture, &shown.emplace_back(), 11, 0), Status_Ok);
                if (shown.size() > 1)
                    shown[shown.size() - 2].ended = true;
                break;
            case 3:
                ASSERT_EQ(Corvane_RegisterAfterDisplayCallback(channel, onDisplay, &after.emplace_back()), Status_Ok);
                if (after.size() > 1)
                    after[after.size() - 2].ended = true;
                break;
            case 4:
                ASSERT_EQ(Corvane_UnregisterAfterDisplayCallback(channel), Status_Ok);
                if (!after.empty())
                    after.back().ended = true;
                break;
            case 5:
                ASSERT_EQ(Corvane_InsertFilter(channel, &filters.emplace_back()), Status_Ok);
                break;
            default:
                if (!filters.empty()) {
                    ASSERT_EQ(Corvane_RemoveFilter(channel, &filters.back()), Status_Ok);
                    filters.back().registration.ended = true;
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 4));
        }
        done = true;
        for (std::thread& feeder : feeders)
            feeder.join();
        ASSERT_EQ(Corvane_StopChannel(channel), Status_Ok);
        test::ExpectSums(test::StatisticsOf(channel));
        ASSERT_EQ(life % 2 == 0 ? Corvane_DeleteChannel(instance, &channel) : Corvane_Release(&instance), Status_Ok);
        info.ended = true;
        for (std::deque<Registration>* const all : {&shown, &after})
            for (Registration& registration : *all)
                registration.ended = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_EQ(info.faults, 0);
        for (Registration& registration : shown) {
            EXPECT_EQ(registration.faults, 0);
            pictures += registration.calls;
        }
        for (Registration& registration : after) {
            EXPECT_EQ(registration.faults, 0);
            displayed += registration.calls;
        }
        for (CountingFilter& filter : filters)
            EXPECT_EQ(filter.registration.faults, 0);
        ASSERT_EQ(Corvane_Release(&instance), Status_Ok);
    }
    EXPECT_GT(pictures, 0);
    EXPECT_GT(displayed, 0);
}

}    // namespace
}    // namespace corvane
