// Stills: the picture that a channel shows now, through a chain of its own into a picture maker, with what the client
// draws over it, into a block of memory or onto a client's cairo context.
//
// Every call runs on the thread that asks, beside the worker and the render thread, any number at once. It takes a
// reference on the current picture under the decoder lock, so it waits for a decode in progress and for no pacing
// sleep, and converts without it. Only a picture that its decoder does not share is converted under that lock: the
// worker then waits before it decodes again. No lock is held while the overlay callback runs, or while the picture is
// encoded, copied or drawn.
#pragma once

#include <cstdint>

#include "base/CallGate.h"
#include "base/Mutex.h"
#include "base/Status.h"
#include "channels/VideoStage.h"
#include "corvane/corvane.h"
#include "manager/RenderMgr.h"
#include "picture/PictureMaker.h"

namespace corvane {

// Makes room for `size` bytes: in the caller's buffer where there is one, else in memory that std::free frees.
// BufferTooSmall, and `picture` is then unchanged; OutOfMemory. On success data and size are set.
Status ReservePicture(PictureBuffer& picture, uint64_t size);

class StillRoad {
public:
    // `owner`: the channel's handle, for which callbacks run. All must outlive the road.
    StillRoad(const void* owner, const VideoStage& video, const CRenderMgr& render)
        : m_owner(owner), m_video(video), m_render(render) {}

    void SetQuality(uint32_t quality);    // of JPEG
    // Waits for a running call of the callback that it replaces, not from inside any callback.
    void SetOverlay(CorvaneOsdCallback callback, void* context) { m_overlay.Set(callback, context); }

    // `format`: a picture format, 1 to 18, else InvalidArgument. `zoomed`: only what the display area selects. Failed:
    // there is no picture. May raise std::bad_alloc.
    Status Snapshot(uint32_t format, bool zoomed, PictureBuffer& out);
    Status Display(struct _cairo* to, bool zoomed, DisplayFrameInfo& out);
    // The payload that the current picture was decoded from.
    Status CopyEncodedFrame(PictureBuffer& out);
    // What the window shows, as a file of 32 bits a pixel.
    Status GrabWindow(PictureBuffer& out);

private:
    struct Still {
        PictureMakerPtr maker;
        bool zoomed = false;
        // In the display variants: a picture of at least twice this size is converted at this size.
        WindowWatch::Size client{};
        FramePtr frame{};    // out
    };

    Status Take(Still& still);
    Status Convert(Still& still, const SharedPicture& picture);
    void DrawOverlay(const Still& still);

    // Constant, or with locks of their own.
    const void* const m_owner;
    const VideoStage& m_video;
    const CRenderMgr& m_render;
    ClientCallback<CorvaneOsdCallback> m_overlay;

    Mutex m_mutex;    // taken last
    uint32_t m_stillQuality GUARDED_BY(m_mutex) = 0;
};

}    // namespace corvane
