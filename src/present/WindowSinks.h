// The sinks of the windows of one channel, one for each window, used by all of its renderers. A sink lives until the
// channel gives the window up, and is destroyed on the render thread.
#pragma once

#include <initializer_list>
#include <memory>
#include <vector>

#include "base/Mutex.h"
#include "platform/Clock.h"
#include "platform/x11/WindowSink.h"

namespace corvane {

class WindowSinks {
public:
    // `owner` names the manager in log lines. `clock` outlives the sinks.
    WindowSinks(const void* owner, Clock& clock) : m_owner(owner), m_clock(clock) {}

    // ---- The render thread ----

    // The sink of this window, made where there is none yet; null for a null watch. May raise std::bad_alloc.
    WindowSink* Of(const WindowWatchPtr& window);
    // Ends the sinks of all other windows. May raise std::bad_alloc.
    void Keep(std::initializer_list<WindowWatchPtr> windows);
    // Ends all of them.
    void Clear() noexcept;
    // WindowSink::Resume and WindowSink::Trim of all sinks; true where one returns true.
    bool Resume();
    bool Trim();

    // ---- Any thread ----

    // A copy of the last image of `window`, empty where there is none.
    Raster LastImage(const WindowWatchPtr& window) const;

private:
    struct Entry {
        WindowWatchPtr window;
        std::shared_ptr<WindowSink> sink;
    };
    using Entries = std::vector<Entry>;
    void Publish();

    const void* const m_owner;
    Clock& m_clock;
    Entries m_entries;                                                 // only on the render thread
    mutable Mutex m_mutex;                                             // no other lock is taken inside
    std::shared_ptr<const Entries> m_published GUARDED_BY(m_mutex);    // a copy of m_entries, for grabs
};

}    // namespace corvane
