// The ways to the windows of one channel: its own and that of the overview. Both live as long as the window stays the
// same, whatever renderer draws, and die on the render thread.
#pragma once

#include <memory>

#include "base/Mutex.h"
#include "platform/Clock.h"
#include "platform/x11/WindowSink.h"

namespace corvane {

class WindowSinks {
public:
    // `owner` names the manager in log lines. `clock` outlives the sinks.
    WindowSinks(const void* owner, Clock& clock) : m_owner(owner), m_clock(clock) {}

    // Render thread. The sink of this window, made when it is another than before; null for a null watch. May raise
    // std::bad_alloc.
    WindowSink* Main(const WindowWatchPtr& window);
    WindowSink* Overview(const WindowWatchPtr& window);

    // Render thread: see WindowSink::Resume; of either.
    bool Resume();
    // Render thread: see WindowSink::Trim; of both.
    bool Trim();

    // Any thread: a copy of the last image of `window`, empty where there is none.
    Raster LastImage(const WindowWatchPtr& window) const;

private:
    struct Way {
        WindowWatchPtr window;
        std::shared_ptr<WindowSink> sink;
    };
    WindowSink* Of(Way& way, const WindowWatchPtr& window);

    const void* const m_owner;
    Clock& m_clock;
    mutable Mutex m_mutex;    // taken last
    Way m_main GUARDED_BY(m_mutex);
    Way m_overview GUARDED_BY(m_mutex);
};

}    // namespace corvane
