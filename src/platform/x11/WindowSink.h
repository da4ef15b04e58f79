// Shows pictures on a window: lends one image of the window's size, puts rectangles of the image on the window, and
// keeps the image. One sink for each channel and window; several sinks may serve one window.
//
// The image lies in memory shared with the server (by descriptor, else by SysV segment), or is sent in bands. It is
// busy from a put until the server has read the image, or until the last band is sent. Visuals of depth 24 and 32 are
// written directly (alpha 0xFF); for 16 and 30 the put converts. Any other visual: the sink stays absent, with one log
// line.
//
// Render thread, but for Copy, which any thread may call. No call waits for an answer of the server. A put
// sends bands for 10 ms at most; the rest is sent by Resume, or by a later Prepare.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "base/Mutex.h"
#include "platform/Clock.h"
#include "platform/raster/Raster.h"
#include "platform/x11/WindowWatch.h"

namespace corvane {

class WindowSink {
public:
    enum class State {
        Ready,       // the image can be drawn and put
        Busy,        // the last put goes on: skip this picture; listeners of the watch are called when it has ended
        Hidden,      // the window is not viewable: no put
        TooLarge,    // the window is beyond the limits of pictures
        Absent,      // the window is dead, not known yet, or has another visual
    };

    // Locks the image against Copy while it is written. Never lives across a client's callback.
    class Writing {
    public:
        const PictureView& Image() const { return m_sink.Image(); }

    private:
        friend class WindowSink;
        explicit Writing(WindowSink& sink) : m_sink(sink), m_lock(sink.m_imageLock) {}
        WindowSink& m_sink;
        MutexLock m_lock;
    };

    // `owner` names the renderer's manager in log lines. `clock` outlives the sink; Trim goes by it. May raise
    // std::bad_alloc.
    static std::unique_ptr<WindowSink> Make(WindowWatchPtr watch, const void* owner, Clock& clock = Clock::System());
    virtual ~WindowSink() = default;

    // Gives the image the size that the window has now. Ready is valid until the next Put. The pixels of a new image
    // are undefined: it may lie in the memory of the last one.
    virtual State Prepare() = 0;
    // True from the making of an image to its first Put.
    virtual bool Fresh() const = 0;
    // The size that the last Prepare found; 0x0 where it was not Ready or Hidden. An image exists after Ready.
    virtual WindowWatch::Size Size() const = 0;

    Writing Write() { return Writing(*this); }
    // Shows these parts of the image (clipped to it) on the window. Only after Ready. False: nothing was sent, since
    // the parts lie outside or the server is gone.
    virtual bool Put(std::span<const Rect> parts) = 0;
    // Sends more of the last put, after listeners of the watch were called for room. True once all is sent, if a
    // Prepare was refused meanwhile.
    virtual bool Resume() = 0;

    // Frees memory beyond the image a second after the last change of size; until then a window that is being resized
    // uses it again. False when there is none left.
    virtual bool Trim() = 0;

    // A copy of the image as it was written last; false when none was put, or there is no memory. Any thread.
    virtual bool Copy(Raster& out) = 0;

protected:
    virtual const PictureView& Image() const = 0;

    Mutex m_imageLock;    // guards the image: its pixels and its replacement by the render thread; a leaf
};

}    // namespace corvane
