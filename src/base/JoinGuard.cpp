#include "base/JoinGuard.h"

#include "base/Mutex.h"
#include "base/Thread.h"

namespace corvane {

namespace {
Mutex mutex;    // taken last; held for one walk over the waits in progress
JoinGuard* waits GUARDED_BY(mutex) = nullptr;
}    // namespace

// Whether `target` waits for `waiter`, directly or through other owners. An owner has several threads, so the walk
// follows all waits of each owner that it reaches. It links the waits themselves and allocates nothing.
bool JoinGuard::Reaches(const void* target, const void* waiter) noexcept NO_THREAD_SAFETY_ANALYSIS {
    for (JoinGuard* wait = waits; wait != nullptr; wait = wait->m_next)
        wait->m_reached = false;
    JoinGuard* last = nullptr;    // waits reached and not followed yet, newest first
    for (const void* owner = target; owner != waiter;) {
        for (JoinGuard* wait = waits; wait != nullptr; wait = wait->m_next) {
            if (wait->m_waiter != owner || wait->m_reached)
                continue;
            wait->m_reached = true;
            wait->m_nextReached = last;
            last = wait;
        }
        if (last == nullptr)
            return false;
        owner = last->m_target;
        last = last->m_nextReached;
    }
    return true;
}

JoinGuard::JoinGuard(const void* target) noexcept : m_waiter(Thread::ThreadOwner()), m_target(target) {
    if (Thread::WorksFor(target) || Thread::InPlugin()) {
        m_allowed = false;
        return;
    }
    if (m_waiter == nullptr)
        return;
    MutexLock lock(mutex);
    if (Reaches(m_target, m_waiter)) {
        m_allowed = false;
        return;
    }
    m_next = waits;
    waits = this;
    m_listed = true;
}

JoinGuard::~JoinGuard() {
    if (!m_listed)
        return;
    MutexLock lock(mutex);
    JoinGuard** link = &waits;
    while (*link != this)
        link = &(*link)->m_next;
    *link = m_next;
}

}    // namespace corvane
