#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "decoders/FrameQueue.h"
#include "decoders/PlaceholderDecoder.h"

namespace QMRX::SDK::Utility {
namespace {

std::atomic<int> live{0};

struct Item : PooledFrame<Item> {
    Item() { ++live; }
    ~Item() { --live; }
    int user = 0;    // plain on purpose: two owners at once are a race report
};

TEST(FrameQueue, ReusesSparesAndEndsThemWithThePool) {
    {
        FrameQueue<Item> queue;
        Item* first = queue.Get();
        Item* second = queue.Get();
        EXPECT_NE(first, second);
        first->AddRef();
        first->Release();
        EXPECT_EQ(queue.Spares(), 0u);    // still one reference
        first->Release();
        second->Release();
        EXPECT_EQ(queue.Get(), first);    // the one that rested longest
        EXPECT_EQ(queue.Spares(), 1u);
        EXPECT_EQ(live, 2);
        first->Release();
    }
    EXPECT_EQ(live, 0);
}

TEST(FrameQueue, FrameOnItsWayKeepsThePoolAlive) {
    Item* out = nullptr;
    {
        FrameQueue<Item> queue;
        out = queue.Get();
        queue.Get()->Release();
    }
    EXPECT_EQ(live, 2);
    out->Release();
    EXPECT_EQ(live, 0);
}

// Frames pass from a taking to a releasing thread, as from a worker to a renderer.
TEST(FrameQueue, TakesAndReleasesFromManyThreads) {
    constexpr int kTurns = 1000;
    {
        FrameQueue<Item> queue;
        std::atomic<Item*> on_the_way[2] = {};
        std::vector<std::thread> threads;
        for (std::atomic<Item*>& slot : on_the_way) {
            threads.emplace_back([&] {
                for (int turn = 0; turn < kTurns; ++turn) {
                    Item* item = queue.Get();
                    ++item->user;
                    while (slot.load() != nullptr)
                        std::this_thread::yield();
                    slot.store(item);
                }
            });
            threads.emplace_back([&] {
                for (int turn = 0; turn < kTurns;) {
                    Item* item = slot.exchange(nullptr);
                    if (item == nullptr) {
                        std::this_thread::yield();
                        continue;
                    }
                    ++item->user;
                    item->Release();
                    ++turn;
                }
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        EXPECT_EQ(static_cast<size_t>(live.load()), queue.Spares());
        EXPECT_LE(live, 8);
    }
    EXPECT_EQ(live, 0);
}

}    // namespace
}    // namespace QMRX::SDK::Utility

namespace corvane {
namespace {

TEST(PlaceholderDecoder, GivesItsOwnBlackPicture) {
    struct Row {
        uint32_t width, height, stride, chroma_rows;
    };
    for (const Row& row : {Row{352, 288, 352, 144}, Row{33, 7, 64, 4}, Row{1, 1, 32, 1}}) {
        const DecoderPtr decoder(row.width == 352 ? new DecoderIsolated_SDK_DMYV()
                                                  : new DecoderIsolated_SDK_DMYV(row.width, row.height));
        const DecoderPtr other(new DecoderIsolated_SDK_DMYV());
        DecodedFrame frame{};
        DecodedFrame foreign{};
        uint32_t got = 0;
        EXPECT_EQ(decoder->DecodeVideo(&frame, &got, nullptr), 0);
        EXPECT_EQ(got, 2u);
        other->DecodeVideo(&foreign, &got, nullptr);
        EXPECT_NE(frame.planes[0], foreign.planes[0]);
        EXPECT_EQ(frame.width, row.width);
        EXPECT_EQ(frame.height, row.height);
        EXPECT_EQ(frame.strides[0], row.stride);
        EXPECT_EQ(frame.strides[1], row.stride / 2);
        EXPECT_EQ(frame.strides[2], row.stride / 2);
        for (int plane = 0; plane < 3; ++plane) {
            const size_t rows = plane == 0 ? row.height : row.chroma_rows;
            for (size_t i = 0; i < rows * frame.strides[plane]; ++i)
                ASSERT_EQ(frame.planes[plane][i], plane == 0 ? 0 : 128);
        }
    }
    EXPECT_THROW(DecoderPtr(new DecoderIsolated_SDK_DMYV(16385, 2)), std::bad_alloc);
}

}    // namespace
}    // namespace corvane
