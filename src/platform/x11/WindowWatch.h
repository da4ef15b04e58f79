// What the library knows of a client's X11 window: size, place, visibility, life. One watch serves all channels of the
// process on that window. No call here waits for the server: answers come to the event thread of the process-wide
// connection ("corvane-x11"), which opens with the first watch and closes with the last.
//
//   Life       until                                         getters
//   Unknown    the server has answered                       size 0x0, no place, not viewable
//   Alive      DestroyNotify, or the connection is lost      as the server told last
//   Dead       for good: this watch never asks again         as Unknown
//
// A new window with the same id needs a new watch, and Open gives one.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "base/Rectangle.h"
#include "platform/x11/Beam.h"

namespace corvane {

// A monitor of a server. The handle stays the same as long as the server has it.
struct Monitor {
    uint64_t handle = 0;    // 0: which one is not known (yet)
    Rect place;             // on its screen, in coordinates of the root window

    bool operator==(const Monitor&) const = default;
};

class WindowWatch {
public:
    // Drawing on a window takes its background away (pixmap None), so that the server never paints over a picture;
    // looking changes nothing but the events that our own connection gets.
    enum class Purpose { Look, Draw };
    enum class Life : uint32_t { Unknown, Alive, Dead };

    // Told of a change that calls for a redraw: exposed, moved (also by an ancestor), resized, mapped, become known;
    // and of a sink that is ready again after it was busy, which lost nothing of what the window shows. On the event
    // thread; must not block and takes at most a leaf lock.
    class Listener {
    public:
        virtual void OnWindowChange() noexcept = 0;
        virtual void OnSinkReady() noexcept { OnWindowChange(); }
        // A sink that sends its image in bands may send more.
        virtual void OnSinkRoom() noexcept {}

    protected:
        ~Listener() = default;
    };

    // The watch of `window`, shared with all who watch it already; null for window 0. Any thread, does not block. May
    // raise std::bad_alloc. Without a display, or where no thread can be started, the watch is dead.
    static std::shared_ptr<WindowWatch> Open(uintptr_t window, Purpose purpose);

    virtual ~WindowWatch() = default;

    virtual uintptr_t Window() const = 0;
    virtual Life GetLife() const = 0;
    virtual bool Viewable() const = 0;    // mapped, as are all its ancestors
    // Inside of the window in pixels, at least 1x1 once known; {} before.
    struct Size {
        uint32_t width = 0;
        uint32_t height = 0;
        bool operator==(const Size&) const = default;
    };
    virtual Size ClientSize() const = 0;
    // The window's outside (with its border) in coordinates of the root window.
    virtual std::optional<Rect> ScreenRect() const = 0;
    // The monitor that shows most of the window, else the nearest: its place in the server's list; 0 while unknown.
    virtual uint32_t MonitorIndex() const = 0;
    // The same monitor by itself; handle 0 while the window's place or the list of monitors is not known.
    virtual Monitor GetMonitor() const { return {}; }
    // The beam of that monitor; nothing where it cannot be told (yet): no monitor, made-up timings, or a compositor.
    // May raise std::bad_alloc.
    virtual std::optional<Beam> GetBeam() const { return std::nullopt; }
    // A dead watch: whether it died because the server is gone or was never there, so that no other window of it can
    // take this one's place.
    virtual bool ServerLost() const { return false; }

    // A listener may come and go at any time on any thread but the event thread; Remove waits for a running call.
    virtual void AddListener(Listener* listener) = 0;
    virtual void RemoveListener(Listener* listener) = 0;
};

using WindowWatchPtr = std::shared_ptr<WindowWatch>;

// Connections to the server now open in the process, 0 or 1. For tests and statistics.
uint32_t OpenConnections();

}    // namespace corvane
