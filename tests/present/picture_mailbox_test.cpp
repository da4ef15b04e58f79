#include "present/PictureMailbox.h"
#include "support/PlainPicture.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane {
namespace {

constexpr int64_t kMs = 1'000'000;
constexpr int64_t kLong = 3'600'000 * kMs;    // a wait that nothing ends is seen by the test's own limit

FinishedPicture Picture(RendererId madeFor, decltype(FinishedPicture::pixels) pixels = {}) {
    return {
        .frame = test::MakeFrame(CORVANE_STREAM_H264, {1}, true, 40), .madeFor = madeFor, .pixels = std::move(pixels)};
}

// Two buffers are enough: one is shown, one waits, and who needs another takes the one that waits.
TEST(PictureMailbox, BuffersGoRound) {
    MemoryBuffers buffers;
    PictureMailbox mailbox;
    FinishedPicture kept, before;
    const auto lend = [&](uint32_t width) { return buffers.Lend({width, 16}, PF_BGRA32); };
    EXPECT_FALSE(mailbox.Take(kept, before));
    EXPECT_FALSE(mailbox.TakeBack());
    FinishedPicture first = Picture(1, lend(16));
    const uint8_t* const firstData = first.Buffer()->view.plane[0];
    EXPECT_FALSE(mailbox.Post(first));
    EXPECT_EQ(first.frame, nullptr);
    ASSERT_TRUE(mailbox.Take(kept, before));
    EXPECT_TRUE(kept.madeFor == 1 && kept.Buffer()->view.plane[0] == firstData && buffers.HasFree());
    FinishedPicture second = Picture(2, lend(32));
    const uint8_t* const secondData = second.Buffer()->view.plane[0];
    EXPECT_NE(secondData, firstData);
    EXPECT_FALSE(mailbox.Post(second));
    EXPECT_FALSE(buffers.HasFree());
    EXPECT_FALSE(lend(16)) << "one is kept, one waits";
    ASSERT_TRUE(mailbox.TakeBack());
    EXPECT_FALSE(mailbox.TakeBack());
    EXPECT_FALSE(mailbox.Take(kept, before));
    FinishedPicture third = Picture(3, lend(32));
    EXPECT_EQ(third.Buffer()->view.plane[0], secondData) << "the same memory for the same size";
    EXPECT_FALSE(mailbox.Post(third));
    before = {};
    ASSERT_TRUE(mailbox.Take(kept, before));
    EXPECT_EQ(buffers.Lend({16, 16}, PF_BGR24).Slot().view.format, PF_BGR24) << "of the same size, not of the format";
    EXPECT_TRUE(kept.madeFor == 3 && before.madeFor == 1 && before.Buffer() == nullptr) << "its buffer is free at once";
    EXPECT_TRUE(buffers.HasFree());
    // A picture by reference is not taken back; a newer one takes its place.
    test::PlainPicture decoded(16, 16);
    decoded.Share();
    FinishedPicture shared = Picture(4, decoded.Picture()), newer = Picture(5);
    EXPECT_FALSE(mailbox.Post(shared));
    EXPECT_FALSE(mailbox.TakeBack());
    EXPECT_TRUE(mailbox.Post(newer));
    EXPECT_TRUE(newer.madeFor == 4 && decoded.references == 1);
    newer = {};
    EXPECT_EQ(decoded.references, 0);
    EXPECT_FALSE(buffers.Lend({1 << 20, 16}, PF_BGRA32));
    EXPECT_FALSE(buffers.Lend({16, 16}, PF_NV12));
}

// The worker waits while a picture lies there, and not when it would wait for a client.
TEST(PictureMailbox, TheWorkerWaitsUntilSomethingEndsIt) {
    PictureMailbox mailbox;
    FinishedPicture kept, before;
    std::optional<test::Gate> over;    // of the row
    EXPECT_TRUE(mailbox.AwaitTaken(kLong)) << "nothing lies there";
    const struct {
        const char* name;
        std::function<void()> happens;
        int64_t limit;
        bool taken;
    } rows[] = {
        {"interrupted", [&] { mailbox.Interrupt(); }, kLong, false},
        {"taken", [&] { (void)mailbox.Take(kept, before); }, kLong, true},
        {"inside a client's call",
         [&] {
             const PictureMailbox::ClientCall call(&mailbox);
             EXPECT_TRUE(over->Wait());
         },
         kLong, false},
        {"the limit", [] {}, 5 * kMs, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        over.emplace();
        FinishedPicture picture = Picture(1);
        (void)mailbox.Post(picture);
        EXPECT_FALSE(mailbox.AwaitTaken(kMs)) << "the last interruption was over with the post";
        std::thread other([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            row.happens();
        });
        EXPECT_EQ(mailbox.AwaitTaken(row.limit), row.taken);
        over->Open();
        other.join();
    }
    mailbox.Interrupt();
    EXPECT_FALSE(mailbox.AwaitTaken(kLong)) << "until the next post";
    FinishedPicture picture = Picture(1);
    (void)mailbox.Post(picture);
    {
        const PictureMailbox::ClientCall call(&mailbox);
        EXPECT_FALSE(mailbox.AwaitTaken(kLong));
    }
    EXPECT_FALSE(mailbox.AwaitTaken(kMs));
}

}    // namespace
}    // namespace corvane
