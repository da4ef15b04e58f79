// How long the manager keeps a decoder's picture for the raw callback.
#include <gtest/gtest.h>

#include <atomic>

#include "manager/RenderMgr.h"
#include "support/Latch.h"
#include "support/PlainPicture.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

TEST(RawPictures, TheDecoderGetsItsPictureBackAfterTheDelivery) {
    test::PlainPicture picture(64, 48);
    picture.Share();
    std::atomic<int> calls{0};
    CRenderMgr manager(&picture, 0, 0);
    manager.SetPictureCallback({[](void*, const PseudoFrame*) {}, nullptr}, 4);    // converted into a lent buffer
    manager.Stop(false);
    const auto present = [&](int64_t timeMs) {
        manager.PresentFrame(test::MakeFrame(CORVANE_STREAM_H264, {1}, true, timeMs), picture.Picture(), true);
    };
    present(0);
    EXPECT_EQ(picture.references, 0) << "kept though nobody wants it";
    manager.Raw().Set(&RawSettings::format, CORVANE_PICTURE_I420);
    manager.Raw().SetCallback(&RawSettings::first,
                              {[](void* count, uint32_t, void*) { ++*static_cast<std::atomic<int>*>(count); }, &calls});
    present(40);
    EXPECT_TRUE(test::Eventually([&] { return calls == 1; }));
    EXPECT_TRUE(test::Eventually([&] { return picture.references == 0; }));
}

// What is shown instead of a picture does not wait for a client that asks for the picture again and again.
TEST(RawPictures, ANewStateEndsTheRepetitions) {
    struct {
        std::atomic<int> calls{0}, states{0};
        std::atomic<bool> ended{false};
    } told;
    const test::PlainPicture picture(64, 48);
    CRenderMgr manager(&picture, 0, 0);
    const auto onPicture = [](void* context, const PseudoFrame* frame) {
        static_cast<decltype(told)*>(context)->states += frame->data == nullptr;
    };
    const auto onRaw = [](void* context, uint32_t, void* record) {
        auto& all = *static_cast<decltype(told)*>(context);
        static_cast<RawPictureInfo*>(record)->repeat = all.ended ? 0 : 1;
        ++all.calls;
    };
    manager.SetPictureCallback({onPicture, &told}, 4);
    manager.Stop(false);
    manager.Raw().Set(&RawSettings::format, CORVANE_PICTURE_I420);
    manager.Raw().SetCallback(&RawSettings::first, {onRaw, &told});
    manager.PresentFrame(test::MakeFrame(CORVANE_STREAM_H264, {1}, true, 0), picture.Picture(), true);
    EXPECT_TRUE(test::Eventually([&] { return told.calls > 3; }));
    manager.InputAudio(test::MakeFrame(CORVANE_STREAM_H264, {1}, true, 5000), true, true);
    EXPECT_TRUE(test::Eventually([&] { return told.states > 0; }));
    told.ended = true;
}

}    // namespace
}    // namespace corvane
