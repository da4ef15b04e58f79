#include "base/Mutex.h"

namespace corvane {

// Two rules make the lock fair. A reader that arrives while a writer waits gets the lock after that writer. A writer
// that leaves admits all readers that wait at that time before the next writer. So each side waits for at most one turn
// of the other.

bool SharedMutex::try_lock() NO_THREAD_SAFETY_ANALYSIS {
    MutexLock lock(m_mutex);
    if (m_writer || m_readers != 0 || m_readersToAdmit != 0)
        return false;
    m_writer = true;
    return true;
}

bool SharedMutex::LockUntil(std::chrono::steady_clock::time_point deadline) {
    MutexLock lock(m_mutex);
    ++m_waitingWriters;
    bool inTime = true;
    while (m_writer || m_readers != 0 || m_readersToAdmit != 0) {
        if (!inTime) {
            if (--m_waitingWriters == 0)
                m_changed.NotifyAll();    // readers that waited for this writer may go on
            return false;
        }
        if (deadline == std::chrono::steady_clock::time_point::max())
            m_changed.WaitOnce(lock);
        else
            inTime = m_changed.WaitOnce(lock, deadline);
    }
    --m_waitingWriters;
    m_writer = true;
    return true;
}

void SharedMutex::unlock() NO_THREAD_SAFETY_ANALYSIS {
    MutexLock lock(m_mutex);
    m_writer = false;
    m_readersToAdmit = m_waitingReaders;
    m_changed.NotifyAll();
}

void SharedMutex::lock_shared() NO_THREAD_SAFETY_ANALYSIS {
    MutexLock lock(m_mutex);
    if (m_writer || m_waitingWriters != 0) {
        ++m_waitingReaders;
        while (m_writer || (m_waitingWriters != 0 && m_readersToAdmit == 0))
            m_changed.WaitOnce(lock);
        --m_waitingReaders;
        if (m_readersToAdmit != 0)
            --m_readersToAdmit;
    }
    ++m_readers;
}

void SharedMutex::unlock_shared() NO_THREAD_SAFETY_ANALYSIS {
    MutexLock lock(m_mutex);
    if (--m_readers == 0)
        m_changed.NotifyAll();
}

}    // namespace corvane
