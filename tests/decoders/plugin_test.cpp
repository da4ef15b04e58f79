// A plug-in written in C, really loaded, behind the holder.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "decoders/VideoDecoderHolder.h"
#include "support/StreamMaker.h"

namespace corvane {
namespace {

TEST(Plugin, PlainCObjectDecodesBehindTheHolder) {
    void* library = dlopen(PLAIN_C_DECODER, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto factory = reinterpret_cast<DecoderFactories::Plain>(dlsym(library, "GetDecoderIsolated_QuickSync"));
    const auto liveDecoders = reinterpret_cast<int (*)()>(dlsym(library, "LiveDecoders"));
    VideoDecoderHolder holder;
    holder.SetFactories({.GetDecoderIsolated_QuickSync = factory});
    holder.SetH264Kind(3);
    uint32_t got = 0;
    for (const uint8_t value : {7, 99, 200}) {
        ASSERT_EQ(holder.Decode(test::MakeFrame(CORVANE_STREAM_H264, {value, 1, 2}, value == 7, 0), &got), 0);
        EXPECT_EQ(holder.ActiveKind(), 3u);
        const DecodedFrame& frame = holder.CurrentFrame();
        EXPECT_EQ(frame.width * 1000 + frame.height, 16008u);
        EXPECT_EQ(frame.planes[0][16 * 8 - 1], value);
        EXPECT_EQ(frame.planes[1][16 * 4 - 1], value == 7 ? 0 : 1);
    }
    EXPECT_EQ(holder.Decode(test::MakeFrame(CORVANE_STREAM_H264, {}, false, 0), &got), -1);
    EXPECT_EQ(liveDecoders(), 1);
    holder.Reset(false);
    EXPECT_EQ(liveDecoders(), 0);    // ended by Destroy

    [factory]() CORVANE_CALLS_PLUGIN {    // the entries that the holder does not use
        const DecoderPtr decoder(factory());
        DecodedFrame picture{};
        EXPECT_EQ(decoder->DecodeAudio(nullptr, nullptr, nullptr), 4);
        EXPECT_EQ(decoder->ShareFrame(&picture, 2), 2);
        EXPECT_EQ(picture.owner, decoder.get());
    }();
    dlclose(library);
}

}    // namespace
}    // namespace corvane
