// A picture that is ready to be shown: the value that goes from the worker to the render thread.
#pragma once

#include <cstdint>
#include <optional>
#include <variant>

#include "base/PictureView.h"
#include "base/SharedPicture.h"
#include "frame/MediaFrameImpl.h"
#include "present/LentBuffer.h"

namespace corvane {

// Identifies a renderer of one manager, and is never used for another renderer; 0: none.
using RendererId = uint64_t;

struct FinishedPicture {
    FramePtr frame;                           // null: there is no picture
    RendererId madeFor = 0;                   // only this renderer may show `pixels`
    std::optional<ColourSignal> colours{};    // of the pixels, as PictureView has it
    // A decoder's picture by reference, which is never written; or a buffer of the renderer; or no pixels, where that
    // renderer was replaced.
    std::variant<std::monostate, SharedPicture, LentBuffer> pixels{};
    // The decoder's picture beside a lent buffer, while a client wants raw pictures; else empty.
    SharedPicture decoded{};

    const SharedPicture* Reference() const { return std::get_if<SharedPicture>(&pixels); }
    // The decoder's picture, where one is held; else null.
    const SharedPicture* Decoded() const {
        const SharedPicture* const picture = Reference() != nullptr ? Reference() : &decoded;
        return picture->View() ? picture : nullptr;
    }
    const BufferSlot* Buffer() const {
        const auto* const lent = std::get_if<LentBuffer>(&pixels);
        return lent != nullptr && *lent ? &lent->Slot() : nullptr;
    }
};

}    // namespace corvane
