// A client whose threads start, stop, feed, register and delete at random, and whose callbacks write a history: nothing
// comes after the call that ended it returned, numbers rise, each picture comes at most once.

#include <deque>

#include "corvane/filter.h"
#include "support/Client.h"
#include "support/Testing.h"

namespace corvane {
namespace {

// One registration, of a callback or a filter. It is ended when the call that replaces it has returned.
struct Registration final : QMRX::Filter::IFilter {
    std::atomic<bool> ended{false};
    std::atomic<int64_t> last{-1};
    std::atomic<int> faults{0}, calls{0};

    int32_t Process(QMRX::Filter::FilterArgs*) override { return Call(-1), 0; }
    void Call(int64_t number) {
        ++calls;
        std::this_thread::sleep_for(std::chrono::microseconds(200));    // the thread that ends it waits meanwhile
        faults += ended ? 1 : 0;
        faults += number >= 0 && last.exchange(number) >= number ? 1 : 0;
    }
};

int64_t NumberOf(const MediaFrameHeader& header) {
    return int64_t{header.streamSeconds} * 1000 + header.timeMilliseconds;
}

TEST(History, NothingComesLateTwiceOrOutOfOrder) {
    const std::vector<uint8_t> jpeg = test::OneJpeg();
    std::mt19937 random(20);
    int calls[3] = {};    // of callbacks for pictures and after display, and of filters
    for (int life = 0; life < 6; ++life) {
        void* instance = test::NewInstance();
        Registration info;
        ChannelSettings settings{};
        settings.mask = 0x0005;
        settings.streamInfoContext = &info;
        settings.streamInfo = [](void* context, uint32_t code, uint64_t, uint64_t b) {
            static_cast<Registration*>(context)->Call(
                code == 7 ? NumberOf(*reinterpret_cast<const MediaFrameHeader*>(b)) : -1);
        };
        void* channel = test::NewChannel(instance, &settings);

        std::atomic<bool> done{false};
        std::atomic<int64_t> time{0};
        std::vector<std::jthread> feeders;
        for (int i = 0; i < 2; ++i)
            feeders.emplace_back([&] {
                while (!done) {
                    static std::mutex order;    // the times that reach the queue rise
                    const std::lock_guard lock(order);
                    test::Feed(channel, jpeg, ++time);
                }
            });

        std::deque<Registration> shown(1), after(1), filters(1);    // the first of each is never registered
        const CorvanePictureCallback onPicture = [](void* context, const PseudoFrame* frame) {
            if (frame->data != nullptr)
                static_cast<Registration*>(context)->Call(NumberOf(*frame->header));
        };
        const CorvaneAfterDisplayCallback onDisplay = [](void* context, const AfterDisplayRecord*) {
            static_cast<Registration*>(context)->Call(-1);
        };
        for (int step = 0; step < 80; ++step) {
            uint32_t status = Status_Ok;
            switch (random() % 7) {
            case 0:
                info.ended = false;
                status = Corvane_StartChannel(channel, random() % 2);
                break;
            case 1:
                status = Corvane_StopChannel(channel);
                info.ended = true;
                break;
            case 2:
                status = Corvane_RegisterRawDataCallback(channel, onPicture, &shown.emplace_back(), 11, 0);
                shown.end()[-2].ended = true;
                break;
            case 3:
                status = Corvane_RegisterAfterDisplayCallback(channel, onDisplay, &after.emplace_back());
                after.end()[-2].ended = true;
                break;
            case 4:
                status = Corvane_UnregisterAfterDisplayCallback(channel);
                after.back().ended = true;
                break;
            case 5:
                status = Corvane_InsertFilter(channel, &filters.emplace_back());
                break;
            default:
                status = Corvane_RemoveFilter(channel, &filters.back());
                filters.back().ended = true;
            }
            ASSERT_EQ(status, Status_Ok);
            std::this_thread::sleep_for(std::chrono::milliseconds(random() % 4));
        }
        done = true;
        feeders.clear();
        ASSERT_EQ(Corvane_StopChannel(channel), Status_Ok);
        test::ExpectSums(test::StatisticsOf(channel));
        ASSERT_EQ(life % 2 == 0 ? Corvane_DeleteChannel(instance, &channel) : Corvane_Release(&instance), Status_Ok);
        info.ended = true;
        std::deque<Registration>* const kinds[] = {&shown, &after, &filters};
        for (std::deque<Registration>* const all : kinds)
            for (Registration& registration : *all)
                registration.ended = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_EQ(info.faults, 0);
        for (int kind = 0; kind < 3; ++kind)
            for (const Registration& registration : *kinds[kind]) {
                EXPECT_EQ(registration.faults, 0) << kind;
                calls[kind] += registration.calls;
            }
        ASSERT_EQ(Corvane_Release(&instance), Status_Ok);
    }
    for (const int count : calls)
        EXPECT_GT(count, 0);
}

}    // namespace
}    // namespace corvane
