#include "base/EndScope.h"

#include "base/Mutex.h"
#include "base/Thread.h"

namespace corvane {

namespace {
Mutex mutex;    // taken last, held for a walk over the few waits in progress
EndScope* waits GUARDED_BY(mutex) = nullptr;
}    // namespace

EndScope::EndScope(const void* target) noexcept : m_waiter(Thread::ThreadOwner()), m_target(target) {
    if (Thread::WorksFor(target)) {
        m_allowed = false;
        return;
    }
    if (m_waiter == nullptr)
        return;
    MutexLock lock(mutex);
    // Does the target, directly or through others, wait for us? Each step follows one edge; a cycle among others cannot
    // exist, since it would have been refused here. An owner has two threads, so each step looks at all edges.
    const void* reached[64] = {m_target};
    int count = 1;
    for (int i = 0; i < count; ++i) {
        if (reached[i] == m_waiter)
            m_allowed = false;
        for (const EndScope* wait = waits; wait != nullptr; wait = wait->m_next)
            if (wait->m_waiter == reached[i] && count < 64)
                reached[count++] = wait->m_target;
    }
    if (!m_allowed || count == 64) {
        m_allowed = false;
        return;
    }
    m_next = waits;
    waits = this;
    m_listed = true;
}

EndScope::~EndScope() {
    if (!m_listed)
        return;
    MutexLock lock(mutex);
    EndScope** link = &waits;
    while (*link != this)
        link = &(*link)->m_next;
    *link = m_next;
}

}    // namespace corvane
