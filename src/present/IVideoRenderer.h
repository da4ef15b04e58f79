// The interface of all renderers. The worker asks for a buffer and fills it, or passes a decoder's picture by
// reference; the render thread presents the picture that it takes from the mailbox.
#pragma once

#include <cstdint>

#include "base/PictureView.h"
#include "present/FinishedPicture.h"
#include "present/Outcome.h"
#include "present/Pass.h"

namespace corvane {

// The properties of a kind of renderer that other rooms use.
struct RendererTraits {
    const char* name;        // in the table of makers, and in the log
    bool needsWindow;        // draws on windows, and the pictures of states are drawn for it; else it calls a client
    bool takesReferences;    // shows decoders' pictures as they lie in memory
    bool scalesItself;       // gets pictures whole; for any other the chain makes them as small as the window
    // The renderer that replaces a failed one: null for none, kDefaultRenderer, or a name.
    const char* followsOnFailure;
};
inline constexpr char kDefaultRenderer[] = "";

class IVideoRenderer {
public:
    virtual ~IVideoRenderer() = default;    // on the render thread

    virtual const RendererTraits& Traits() const = 0;

    // ---- The worker, no lock held ----

    // The format, as it lies in memory, of the buffer that Lend gives for this wish.
    virtual uint32_t FormatFor(uint32_t preferred) const = 0;
    // False where both buffers are lent, one to a picture that is shown and one to a picture in the mailbox.
    virtual bool HasFreeBuffer() const = 0;
    // Lends a buffer for the next picture. Never waits. Empty: the renderer has failed; or no buffer was free.
    virtual LentBuffer Lend(PictureSize size, uint32_t preferredFormat) = 0;
    // Whether the renderer can show this picture of a decoder by reference now.
    virtual bool TakesReference(const ConstPictureView& /*picture*/) { return false; }

    // ---- The render thread, no lock held ----

    // Shows `picture`, which was made for this renderer or has no pixels; its frame is not null. Calls clients, each
    // inside a PictureMailbox::ClientCall. NotDue at once where presenting is off.
    virtual Outcome Present(const FinishedPicture& picture, Pass& pass) = 0;
    // Reports a frame of sound, to a renderer that needs no window.
    virtual void NotifyAudioOnly(const MediaFrameImpl* /*frame*/, Pass&) {}
};

}    // namespace corvane
