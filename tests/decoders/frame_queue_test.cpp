#include "decoders/FrameQueue.h"

#include <gtest/gtest.h>

#include <memory>

namespace QMRX::SDK::Utility {
namespace {

int live = 0;

struct Item : PooledFrame<Item> {
    Item() { ++live; }
    ~Item() { --live; }
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

}    // namespace
}    // namespace QMRX::SDK::Utility
