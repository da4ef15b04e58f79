// Stills: the current picture of a channel goes through a picture run of its own into a picture maker; the client draws
// its overlay; the result is written into memory, or drawn with a client's cairo context.
//
// Calls run on the thread of the caller, in parallel with the worker, the render thread and each other. A call takes a
// reference on the current picture under the decoder lock, so it waits for a decode in progress, but not while the
// worker sleeps. It converts the picture without that lock, unless the decoder does not share its pictures: then the
// worker waits for the conversion before it decodes again. No lock is held while the overlay callback runs, or while
// the picture is encoded, copied or drawn.
#pragma once

#include <cstdint>

#include "base/ClientCallback.h"
#include "base/Mutex.h"
#include "base/Status.h"
#include "channels/VideoStage.h"
#include "corvane/corvane.h"
#include "manager/RenderMgr.h"
#include "picture/PictureMaker.h"

namespace corvane {

// Provides `size` bytes: the caller's buffer where picture.data is not null, else new memory, to be released by
// std::free. On success data and size are set. BufferTooSmall, with `picture` unchanged; OutOfMemory.
Status ReservePicture(PictureBuffer& picture, uint64_t size);

class StillPipeline {
public:
    // `owner`: the channel's handle; the overlay callback counts as one of its callbacks. All three outlive this
    // object.
    StillPipeline(const void* owner, const VideoStage& video, const CRenderMgr& render)
        : m_owner(owner), m_video(video), m_render(render) {}

    void SetQuality(uint32_t quality);    // of JPEG
    // Waits for the end of a running call of the callback that it replaces; not on a thread of the library.
    void SetOverlay(const ClientCallback<CorvaneOsdCallback>& callback) { m_overlay.Set(callback); }

    // `format`: of CORVANE_PICTURE_*, else InvalidArgument. `zoomed`: only the part that the display area selects.
    // Failed: there is no picture. May raise std::bad_alloc.
    Status Snapshot(uint32_t format, bool zoomed, PictureBuffer& out);
    Status Display(struct _cairo* to, bool zoomed, DisplayFrameInfo& out);
    // The encoded payload of the current picture.
    Status CopyEncodedFrame(PictureBuffer& out);
    // The contents of the window, as a BMP file of 32 bits a pixel.
    Status GrabWindow(PictureBuffer& out);

private:
    struct Still {
        PictureMakerPtr maker;
        bool zoomed = false;
        // For Display: a picture of at least twice this size is made in this size. Empty for the others.
        WindowWatch::Size client{};
        FramePtr frame{};    // out: the frame of the picture
    };

    Status Take(Still& still);
    Status Convert(Still& still, const SharedPicture& picture);
    void DrawOverlay(const Still& still);

    // Constant, or with locks of their own.
    const void* const m_owner;
    const VideoStage& m_video;
    const CRenderMgr& m_render;
    GatedCallback<CorvaneOsdCallback> m_overlay;

    Mutex m_mutex;    // taken last
    uint32_t m_stillQuality GUARDED_BY(m_mutex) = 0;
};

}    // namespace corvane
