#include "present/WindowSinks.h"

#include <utility>

namespace corvane {

WindowSink* WindowSinks::Main(const WindowWatchPtr& window) NO_THREAD_SAFETY_ANALYSIS {
    return Of(m_main, window);
}

WindowSink* WindowSinks::Overview(const WindowWatchPtr& window) NO_THREAD_SAFETY_ANALYSIS {
    return Of(m_overview, window);
}

bool WindowSinks::Resume() NO_THREAD_SAFETY_ANALYSIS {
    bool wanted = false;
    for (const Way* way : {&m_main, &m_overview})
        wanted |= way->sink != nullptr && way->sink->Resume();
    return wanted;
}

bool WindowSinks::Trim() NO_THREAD_SAFETY_ANALYSIS {
    bool spare = false;
    for (const Way* way : {&m_main, &m_overview})
        spare |= way->sink != nullptr && way->sink->Trim();
    return spare;
}

WindowSink* WindowSinks::Of(Way& way, const WindowWatchPtr& window) {
    Way before;    // dies after the lock is dropped
    MutexLock lock(m_mutex);
    if (way.window != window) {
        std::shared_ptr<WindowSink> sink;
        if (window != nullptr)
            sink = WindowSink::Make(window, m_owner, m_clock);
        before = std::exchange(way, Way{window, std::move(sink)});
    }
    return way.sink.get();
}

Raster WindowSinks::LastImage(const WindowWatchPtr& window) const {
    std::shared_ptr<WindowSink> sink;
    {
        MutexLock lock(m_mutex);
        if (m_main.window == window)
            sink = m_main.sink;
    }
    Raster image;
    if (sink != nullptr && !sink->Copy(image))
        image.Free();
    return image;
}

}    // namespace corvane
