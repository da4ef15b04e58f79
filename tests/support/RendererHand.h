// Drives a renderer by hand, as the worker and the render thread do.
#pragma once

#include "present/IVideoRenderer.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {

struct RendererHand {
    // Lends a buffer, which the next pass shows. False where there is none.
    bool Lend(IVideoRenderer& renderer, uint32_t width, uint32_t height, uint32_t wish = PF_I420) {
        LentBuffer lent = renderer.Lend({width, height}, wish);
        if (!lent)
            return false;
        EXPECT_EQ(lent.Slot().view.format, PixelFormat(renderer.FormatFor(wish)));
        shown.pixels = std::move(lent);
        return true;
    }
    // With one value in all of its bytes.
    void Fill(IVideoRenderer& renderer, uint32_t side, uint8_t value) {
        ASSERT_TRUE(Lend(renderer, side, side));
        const PictureView& view = shown.Buffer()->view;
        std::fill_n(view.Memory(), static_cast<size_t>(std::abs(view.stride[0])) * side, value);
    }
    // The same of a decoder's picture.
    bool Take(IVideoRenderer& renderer, SharedPicture picture) {
        if (!renderer.Traits().takesReferences || !renderer.TakesReference(picture.View()))
            return false;
        shown.pixels = std::move(picture);
        return true;
    }
    // What a pass could not do of `flags` is asked for again.
    Outcome Pass(IVideoRenderer& renderer) {
        corvane::Pass pass{.settings = settings, .sinks = sinks, .mailbox = nullptr, .flags = flags};
        const Outcome outcome = renderer.Present(shown, pass);
        flags.redraw &= !pass.redrawn;
        flags.textFresh &= !pass.textTold;
        return outcome;
    }

    PresentSettings settings;
    WindowSinks sinks{this, Clock::System()};
    PassFlags flags;
    FinishedPicture shown{.frame = MakeFrame(CORVANE_STREAM_H264, {}, true, 5000)};
};

}    // namespace corvane::test
