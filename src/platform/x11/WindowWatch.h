// Keeps size, place, visibility and life of a client's X11 window. One watch serves all channels of the process on that
// window. No call here waits for the server: its answers arrive on the event thread ("corvane-x11") of the connection
// of the process, which opens with the first watch and closes with the last.
//
//   Life       until                                         getters
//   Unknown    the server has answered                       size 0x0, no place, not viewable
//   Alive      DestroyNotify, or the connection is lost      as the server reported last
//   Dead       never: this watch asks no more         as Unknown
//
// A new window with the same id needs a new watch: Open returns one.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "base/Rectangle.h"
#include "platform/x11/Beam.h"

namespace corvane {

// A monitor of a server. The handle stays the same while the server has the monitor.
struct Monitor {
    uint64_t handle = 0;    // 0: unknown
    Rect place;             // on its screen, in coordinates of the root window

    bool operator==(const Monitor&) const = default;
};

class WindowWatch {
public:
    // Draw sets the background of the window to None, so that the server never paints over a picture. Look changes
    // nothing but the events that our own connection gets.
    enum class Purpose { Look, Draw };
    enum class Life : uint32_t { Unknown, Alive, Dead };

    // Called on the event thread; must not block, and takes at most a leaf lock. OnWindowChange asks for a redraw: the
    // window was exposed, moved (also by an ancestor), resized, mapped, or became known. OnSinkReady: a sink that was
    // busy is ready; the window still shows what it showed.
    class Listener {
    public:
        virtual void OnWindowChange() noexcept = 0;
        virtual void OnSinkReady() noexcept { OnWindowChange(); }
        // There is room for more bands of a sink.
        virtual void OnSinkRoom() noexcept {}

    protected:
        ~Listener() = default;
    };

    // The watch of `window`, one for all its users; null for window 0. Any thread, does not block. May raise
    // std::bad_alloc. Without a display, or where no thread can be started, the watch is dead.
    static std::shared_ptr<WindowWatch> Open(uintptr_t window, Purpose purpose);

    virtual ~WindowWatch() = default;

    virtual uintptr_t Window() const = 0;
    virtual Life GetLife() const = 0;
    virtual bool Viewable() const = 0;    // the window and all its ancestors are mapped
    // Inside of the window in pixels, at least 1x1 once known; {} before.
    struct Size {
        uint32_t width = 0;
        uint32_t height = 0;
        bool operator==(const Size&) const = default;
    };
    virtual Size ClientSize() const = 0;
    // The window's outside (with its border) in coordinates of the root window.
    virtual std::optional<Rect> ScreenRect() const = 0;
    // The monitor that shows most of the window, else the nearest one: its index in the server's list; 0 while unknown.
    virtual uint32_t MonitorIndex() const = 0;
    // The same monitor; handle 0 while the window's place or the list of monitors is unknown.
    virtual Monitor GetMonitor() const { return {}; }
    // The beam of that monitor; no value while it is unknown: no monitor, made-up timings, or a compositor. May raise
    // std::bad_alloc.
    virtual std::optional<Beam> GetBeam() const { return std::nullopt; }
    // Whether a dead watch died because the server is gone, or was never there.
    virtual bool ServerLost() const { return false; }

    // Any thread but the event thread, at any time. Remove waits for a running call.
    virtual void AddListener(Listener* listener) = 0;
    virtual void RemoveListener(Listener* listener) = 0;
};

using WindowWatchPtr = std::shared_ptr<WindowWatch>;

// The open connections of the process, 0 or 1. For tests and statistics.
uint32_t OpenConnections();

}    // namespace corvane
