// A plug-in written in C, really loaded, behind the holder.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "decoders/VideoDecoderHolder.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

CORVANE_CALLS_PLUGIN void CallByHand(DecoderFactories::Plain factory, int (*live_objects)()) {
    DecoderPtr decoder(factory());
    const uint8_t byte = 5;
    const EncodedUnit unit{&byte, 1, 0};
    DecodedFrame picture{};
    uint32_t got = 0;
    uint32_t size = 0;
    EXPECT_EQ(decoder->ShareFrame(&picture, 2), -1);
    EXPECT_EQ(decoder->DecodeVideo(&picture, &got, &unit), 0);
    EXPECT_EQ(static_cast<uint32_t>(decoder->DecodeAudio(nullptr, &size, &unit)), 0x80000004u);
    EXPECT_EQ(static_cast<uint32_t>(decoder->ShareFrame(&picture, 1)), 0x80000005u);
    ASSERT_EQ(decoder->ShareFrame(&picture, 2), 0);
    decoder.reset();
    EXPECT_EQ(picture.planes[0][0], 5);    // shared pictures outlive their decoder
    picture.release(picture.owner);
    EXPECT_EQ(live_objects(), 0);
}

TEST(Plugin, PlainCObjectDecodesBehindTheHolder) {
    void* library = dlopen(PLAIN_C_DECODER, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto factory = reinterpret_cast<DecoderFactories::Plain>(dlsym(library, "GetDecoderIsolated_QuickSync"));
    const auto live_objects = reinterpret_cast<int (*)()>(dlsym(library, "LiveObjects"));
    ASSERT_NE(factory, nullptr);
    {
        VideoDecoderHolder holder;
        DecoderFactories factories;
        factories.GetDecoderIsolated_QuickSync = factory;
        holder.SetFactories(factories);
        holder.SetH264Kind(3);
        for (const uint8_t value : {7, 99, 200}) {
            uint32_t got = 0;
            const bool key = value == 7;
            ASSERT_EQ(holder.Decode(test::MakeFrame(CORVANE_STREAM_H264, {value, 1, 2}, key, 0), &got), 0);
            ASSERT_EQ(got, 2u);
            EXPECT_EQ(holder.ActiveKind(), 3u);
            const DecodedFrame& frame = holder.CurrentFrame();
            EXPECT_EQ(frame.width * 1000 + frame.height, 16008u);
            EXPECT_EQ(frame.planes[0][16 * 8 - 1], value);
            EXPECT_EQ(frame.planes[1][16 * 4 - 1], key ? 0 : 1);
            EXPECT_EQ(frame.strides[2], 0u);
        }
        uint32_t got = 0;
        EXPECT_EQ(holder.Decode(test::MakeFrame(CORVANE_STREAM_H264, {}, false, 0), &got), -1);
        EXPECT_EQ(live_objects(), 2);
    }
    EXPECT_EQ(live_objects(), 0);    // the holder ended it by Destroy

    CallByHand(factory, live_objects);
    dlclose(library);
}

}    // namespace
}    // namespace corvane
