// The one interface behind which every way of showing a picture stands. The worker asks for a buffer, fills it and
// commits; the render thread then prepares, latches and presents what was committed.
#pragma once

#include <cstdint>

#include "corvane/decoder.h"
#include "frame/MediaFrameImpl.h"
#include "present/Outcome.h"
#include "present/RenderInfo.h"

namespace corvane {

// Fixed: the manager's fall-back table is written in these numbers.
enum class RendererType : uint32_t { DirectDraw = 0, Gdi = 1, OffScreen = 2, Fisheye = 3, OpenGL = 4 };

class IVideoRenderer {
public:
    virtual ~IVideoRenderer() = default;    // on the render thread

    virtual RendererType GetType() const = 0;

    // Shows what was latched. Render thread, no lock held: client callbacks may run inside. NotDue at once when
    // `info->presentEnabled` is false.
    virtual Outcome Present(const FramePtr* frame, const RenderInfo* info) = 0;

    // Lends the buffer for the next picture until Commit or the next GetBuffer. `format` enters as the one that the
    // caller would like and leaves as the one that the renderer takes. Worker, picture lock held exclusively. Negative
    // on failure.
    virtual int32_t GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride,
                              uint32_t* format) = 0;

    // Takes a picture by reference and commits it, in the place of GetBuffer and Commit: the caller does not touch its
    // pixels any more. False: it takes none, or not this one, and GetBuffer tells why. Same thread and lock. Optional.
    virtual bool TakePicture(const DecodedFrame& /*picture*/) { return false; }

    // The buffer is complete. Worker, picture lock held exclusively.
    virtual void Commit() = 0;

    // The buffer comes back as it was lent, in the place of Commit: the picture before is still the last one. Same
    // thread and lock. Optional.
    virtual void TakeBack() {}

    // Readies what the picture is drawn on. Render thread, no lock held; may be called again before Latch. Optional.
    virtual void Prepare(const RenderInfo&) {}

    // Takes what Present needs of the last committed picture, so that the worker may fill the next buffer meanwhile.
    // `info` is that of the Present that follows and of the Prepare before, but for fields that changed in between
    // other than windows. Render thread, picture lock held shared. Mandatory.
    virtual void Latch(const RenderInfo& info) = 0;

    // A sound-only notice in the place of a picture. Render thread, no lock held. Optional.
    virtual void NotifyAudioOnly(const FramePtr&, const RenderInfo&) {}
};

}    // namespace corvane
