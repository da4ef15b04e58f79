// Lets a setter wait until a call into the client that was running when it came is over. One thread at a time enters.
//
// The caller enters before it reads what to call; the setter stores first and waits then: so the call either sees the
// new value or is waited for.
#pragma once

#include <cstdint>

#include "base/Mutex.h"
#include "base/Thread.h"

namespace corvane {

class CallGate {
public:
    class Scope {
    public:
        explicit Scope(CallGate& gate) : m_gate(gate) {
            MutexLock lock(m_gate.m_mutex);
            ++m_gate.m_entered;
        }
        ~Scope() {
            MutexLock lock(m_gate.m_mutex);
            ++m_gate.m_left;
            m_gate.m_changed.NotifyAll();
        }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        CallGate& m_gate;
    };

    // Returns at once on the library's own threads: a callback that waited for another could be waited for by it.
    void WaitForRunning() {
        if (Thread::CurrentOwner() != nullptr)
            return;
        MutexLock lock(m_mutex);
        const uint64_t running = m_entered;
        while (m_left < running)
            m_changed.WaitOnce(lock);
    }

private:
    Mutex m_mutex;
    Condition m_changed;
    uint64_t m_entered GUARDED_BY(m_mutex) = 0;
    uint64_t m_left GUARDED_BY(m_mutex) = 0;
};

}    // namespace corvane
