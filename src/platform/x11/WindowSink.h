// The way of pictures to a window: lends one image of the window's size, puts rectangles of it on the window, and keeps
// it. One sink for each channel and window; several sinks may serve one window.
//
// The image lies in memory shared with the server (by descriptor, else by SysV segment), or is sent in bands. It is
// busy from a put until the server has read it, or until the last band is sent. Visuals of depth 24 and 32 are written
// directly (alpha 0xFF); for 16 and 30 the put converts. Any other visual: the sink stays absent, with one log line.
//
// All calls come from the render thread, but Copy, which any thread may make. None waits for the server's answer. A put
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
        Ready,       // draw and put
        Busy,        // the last put goes on: skip this picture; the watch's listeners are told when to look again
        Hidden,      // the window is not viewable: no put
        TooLarge,    // beyond the limits of pictures, until it is smaller
        Absent,      // dead, unknown yet, or of a kind that cannot be drawn on
    };

    // Holds the image while it is written, against Copy. Never across a client's callback.
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

    // Gives the image the window's present size. Ready holds until the next Put. What a new image holds is not said: it
    // may lie in the memory of the one before.
    virtual State Prepare() = 0;
    // True from the making of an image to its first Put: nothing on the window is from it yet.
    virtual bool Fresh() const = 0;
    // The size that Prepare settled on; 0x0 where it was not Ready or Hidden. An image exists when it was Ready.
    virtual WindowWatch::Size Size() const = 0;

    Writing Write() { return Writing(*this); }
    // Shows these parts of the image (clipped to it) on the window. Only after Ready. False: nothing is on its way
    // there, since the parts lie outside or the server is gone.
    virtual bool Put(std::span<const Rect> parts) = 0;
    // Sends more of the last put, when the watch's listeners were told of room. True once it is all sent, if a Prepare
    // was refused meanwhile.
    virtual bool Resume() = 0;

    // Memory beyond the image, which a window that changes its size needs again and again, goes back a second after the
    // last change. False when none is left.
    virtual bool Trim() = 0;

    // A copy of the image as it was last written; false when none was put, or no memory. Any thread.
    virtual bool Copy(Raster& out) = 0;

protected:
    virtual const PictureView& Image() const = 0;

    Mutex m_imageLock;    // the image's pixels and its being replaced, both by the render thread; a leaf
};

}    // namespace corvane
