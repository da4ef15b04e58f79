#include "present/WindowSinks.h"

#include <algorithm>
#include <utility>

namespace corvane {

WindowSink* WindowSinks::Of(const WindowWatchPtr& window) {
    if (window == nullptr)
        return nullptr;
    const auto found = std::ranges::find(m_ways, window, &Way::window);
    if (found != m_ways.end())
        return found->sink.get();
    m_ways.push_back({window, WindowSink::Make(window, m_owner, m_clock)});
    Publish();
    return m_ways.back().sink.get();
}

void WindowSinks::Keep(std::initializer_list<WindowWatchPtr> windows) {
    const auto given = [&](const Way& way) { return std::ranges::find(windows, way.window) != windows.end(); };
    if (std::ranges::all_of(m_ways, given))
        return;
    std::erase_if(m_ways, [&](const Way& way) { return !given(way); });
    Publish();
}

void WindowSinks::Clear() noexcept {
    std::shared_ptr<const Ways> gone;    // dies after the lock is dropped
    m_ways.clear();
    MutexLock lock(m_mutex);
    gone.swap(m_published);
}

void WindowSinks::Publish() {
    std::shared_ptr<const Ways> next =
        std::make_shared<const Ways>(m_ways);    // the old one dies after the lock is dropped
    MutexLock lock(m_mutex);
    m_published.swap(next);
}

bool WindowSinks::Resume() {
    bool wanted = false;
    for (const Way& way : m_ways)
        wanted |= way.sink->Resume();
    return wanted;
}

bool WindowSinks::Trim() {
    bool spare = false;
    for (const Way& way : m_ways)
        spare |= way.sink->Trim();
    return spare;
}

Raster WindowSinks::LastImage(const WindowWatchPtr& window) const {
    std::shared_ptr<const Ways> ways;
    {
        MutexLock lock(m_mutex);
        ways = m_published;
    }
    Raster image;
    if (ways == nullptr)
        return image;
    const auto found = std::ranges::find(*ways, window, &Way::window);
    if (found != ways->end() && !found->sink->Copy(image))
        image.Free();
    return image;
}

}    // namespace corvane
