#include <gtest/gtest.h>

#include <atomic>
#include <memory>
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

TEST(FrameQueue, ReusesSparesAndOutlivesItsOwner) {
    auto queue = std::make_unique<FrameQueue<Item>>();
    Item* first = queue->Get();
    Item* second = queue->Get();
    EXPECT_NE(first, second);
    first->AddRef();
    first->Release();
    EXPECT_EQ(queue->Spares(), 0u);    // still one reference
    first->Release();
    second->Release();
    EXPECT_EQ(queue->Get(), first);    // the one that rested longest
    EXPECT_EQ(queue->Spares(), 1u);
    queue.reset();
    EXPECT_EQ(live, 2);    // the frame on its way keeps the pool
    first->Release();
    EXPECT_EQ(live, 0);
}

// Frames pass from a taking to a releasing thread, as from a worker to a renderer.
TEST(FrameQueue, TakesAndReleasesFromManyThreads) {
    constexpr int kTurns = 1000;
    auto queue = std::make_unique<FrameQueue<Item>>();
    std::atomic<Item*> onTheWay[2] = {};
    std::vector<std::thread> threads;
    for (std::atomic<Item*>& slot : onTheWay) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < kTurns; ++turn) {
                Item* item = queue->Get();
                ++item->user;
                for (Item* empty = nullptr; !slot.compare_exchange_weak(empty, item); empty = nullptr)
                    std::this_thread::yield();
            }
        });
        threads.emplace_back([&] {
            for (int turn = 0; turn < kTurns; ++turn) {
                Item* item = nullptr;
                while ((item = slot.exchange(nullptr)) == nullptr)
                    std::this_thread::yield();
                ++item->user;
                item->Release();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(static_cast<size_t>(live.load()), queue->Spares());
    EXPECT_LE(live, 8);
    queue.reset();
    EXPECT_EQ(live, 0);
}

}    // namespace
}    // namespace QMRX::SDK::Utility

namespace corvane {
namespace {

TEST(PlaceholderDecoder, GivesItsOwnBlackPicture) {
    const struct { uint32_t width, height, stride; } rows[] = {{352, 288, 352}, {33, 7, 64}, {1, 1, 32}};
    for (const auto& row : rows) {
        const DecoderPtr decoder(row.width == 352 ? new DecoderIsolated_SDK_DMYV()
                                                  : new DecoderIsolated_SDK_DMYV(row.width, row.height));
        DecodedFrame frame{};
        uint32_t got = 0;
        EXPECT_EQ(decoder->DecodeVideo(&frame, &got, nullptr), 0);
        EXPECT_EQ(got, 2u);
        EXPECT_TRUE(frame.width == row.width && frame.height == row.height) << row.width;
        for (int plane = 0; plane < 3; ++plane) {
            EXPECT_EQ(frame.strides[plane], plane == 0 ? row.stride : row.stride / 2) << row.width;
            const size_t rows_of_plane = plane == 0 ? row.height : (row.height + 1) / 2;
            for (size_t i = 0; i < rows_of_plane * frame.strides[plane]; ++i)
                ASSERT_EQ(frame.planes[plane][i], plane == 0 ? 0 : 128) << row.width;
        }
    }
    EXPECT_THROW(DecoderPtr(new DecoderIsolated_SDK_DMYV(16385, 2)), std::bad_alloc);
}

}    // namespace
}    // namespace corvane
