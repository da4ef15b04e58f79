// A window on a monitor: the device that serves it, and the copy of a composed picture to the screen, timed against the
// beam. Owned by a renderer; made and used on its render thread. The worker, too, asks the device for surfaces.
#pragma once

#include <memory>

#include "platform/Clock.h"
#include "platform/blitter/Blitter.h"

namespace corvane {

class MonitorView {
public:
    // Keeps the devices open while it lives. Null where the window's monitor is unknown or has no device. A null window
    // uses the device of the desktop. `clock` outlives the view. May raise std::bad_alloc.
    static std::shared_ptr<MonitorView> Make(Blitter& blitter, const WindowWatchPtr& window, Clock& clock);

    const WindowWatchPtr& Window() const { return m_window; }
    const Monitor& On() const { return m_monitor; }
    BlitDevice& Device() const { return *m_device; }

    // Waits until the beam is outside the window, at most TearWait::kLongest, and shows (0, 0) .. size of `from` there.
    // `outer`: the place of the window on the screen. StillDrawing: the device is busy, and the picture is skipped.
    BlitResult Show(BlitComposite& from, const Rect& outer, WindowWatch::Size size);
    // Shows a part at once, on any window of the same device. `destination`: in coordinates of the monitor.
    BlitResult CopyToScreen(const WindowWatch& window, const Rect& destination, BlitComposite& from,
                            const Rect& source);

private:
    MonitorView(Blitter& blitter, WindowWatchPtr window, Clock& clock)
        : m_use(blitter.Devices()), m_window(std::move(window)), m_clock(clock) {}

    const DeviceMap::Use m_use;
    const WindowWatchPtr m_window;
    Clock& m_clock;
    Monitor m_monitor;
    BlitDevice* m_device = nullptr;    // lasts as long as the use
    float m_blankHit = 1;              // see TearWait
};

}    // namespace corvane
