#include "present/WindowSinks.h"

#include <algorithm>
#include <utility>

namespace corvane {

WindowSink* WindowSinks::Of(const WindowWatchPtr& window) {
    if (window == nullptr)
        return nullptr;
    const auto found = std::ranges::find(m_entries, window, &Entry::window);
    if (found != m_entries.end())
        return found->sink.get();
    m_entries.push_back({window, WindowSink::Make(window, m_owner, m_clock)});
    Publish();
    return m_entries.back().sink.get();
}

void WindowSinks::Keep(std::initializer_list<WindowWatchPtr> windows) {
    const auto given = [&](const Entry& entry) { return std::ranges::find(windows, entry.window) != windows.end(); };
    if (std::ranges::all_of(m_entries, given))
        return;
    std::erase_if(m_entries, [&](const Entry& entry) { return !given(entry); });
    Publish();
}

void WindowSinks::Clear() noexcept {
    std::shared_ptr<const Entries> gone;    // dies after the lock is dropped
    m_entries.clear();
    MutexLock lock(m_mutex);
    gone.swap(m_published);
}

void WindowSinks::Publish() {
    std::shared_ptr<const Entries> next =
        std::make_shared<const Entries>(m_entries);    // the old one dies after the lock is dropped
    MutexLock lock(m_mutex);
    m_published.swap(next);
}

bool WindowSinks::Resume() {
    bool wanted = false;
    for (const Entry& entry : m_entries)
        wanted |= entry.sink->Resume();
    return wanted;
}

bool WindowSinks::Trim() {
    bool spare = false;
    for (const Entry& entry : m_entries)
        spare |= entry.sink->Trim();
    return spare;
}

Raster WindowSinks::LastImage(const WindowWatchPtr& window) const {
    std::shared_ptr<const Entries> entries;
    {
        MutexLock lock(m_mutex);
        entries = m_published;
    }
    Raster image;
    if (entries == nullptr)
        return image;
    const auto found = std::ranges::find(*entries, window, &Entry::window);
    if (found != entries->end() && !found->sink->Copy(image))
        image.Free();
    return image;
}

}    // namespace corvane
