// The listeners of a watch. Private to x11/.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "base/Mutex.h"
#include "platform/x11/WindowWatch.h"

namespace corvane {

class ListenerList {
public:
    // Any thread; may raise std::bad_alloc.
    void Add(WindowWatch::Listener* listener) {
        MutexLock lock(m_lock);
        m_entries.push_back({listener, ++m_lastSerial});
    }

    // Any thread but the one that calls listeners. Waits for a running call of this listener.
    void Remove(WindowWatch::Listener* listener) {
        MutexLock lock(m_lock);
        const auto found = std::find_if(m_entries.begin(), m_entries.end(),
                                        [&](const Entry& entry) { return entry.listener == listener; });
        if (found == m_entries.end())
            return;
        const uint64_t serial = found->serial;
        m_entries.erase(found);
        while (m_calling == serial)
            m_called.WaitOnce(lock);
    }

    // One thread at a time. No lock is held during a call; a listener that is added meanwhile is called as well.
    void Tell(void (WindowWatch::Listener::*news)() noexcept) noexcept {
        MutexLock lock(m_lock);
        uint64_t last = 0;
        for (;;) {
            const auto next = std::find_if(m_entries.begin(), m_entries.end(),
                                           [&](const Entry& entry) { return entry.serial > last; });
            if (next == m_entries.end())
                return;
            WindowWatch::Listener* const listener = next->listener;
            last = m_calling = next->serial;
            lock.Unlock();
            (listener->*news)();
            lock.Lock();
            m_calling = 0;
            m_called.NotifyAll();
        }
    }

private:
    struct Entry {
        WindowWatch::Listener* listener;
        uint64_t serial;
    };

    Mutex m_lock;    // a leaf
    Condition m_called;
    std::vector<Entry> m_entries GUARDED_BY(m_lock);    // by ascending serial
    uint64_t m_lastSerial GUARDED_BY(m_lock) = 0;
    uint64_t m_calling GUARDED_BY(m_lock) = 0;    // serial of the listener that is called now; 0: none
};

}    // namespace corvane
