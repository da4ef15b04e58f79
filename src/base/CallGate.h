// Lets a setter wait until the calls into the client that were running when it came are over. Any number of threads may
// be inside.
//
// The caller enters before it reads what to call; the setter stores first and waits then: so a call either sees the new
// value or is waited for.
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
            m_side = m_gate.m_side;
            ++m_gate.m_running[m_side];
        }
        ~Scope() {
            MutexLock lock(m_gate.m_mutex);
            --m_gate.m_running[m_side];
            m_gate.m_changed.NotifyAll();
        }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        CallGate& m_gate;
        uint32_t m_side;
    };

    // Returns at once from inside a callback: one that waited for another could be waited for by it.
    void WaitForRunning() {
        if (Thread::CurrentOwner() != nullptr)
            return;
        MutexLock lock(m_mutex);
        while (m_draining)
            m_changed.WaitOnce(lock);
        m_draining = true;
        const uint32_t old = m_side;
        m_side = 1 - m_side;    // calls that begin from here on are not waited for
        while (m_running[old] != 0)
            m_changed.WaitOnce(lock);
        m_draining = false;
        m_changed.NotifyAll();
    }

private:
    Mutex m_mutex;
    Condition m_changed;
    uint32_t m_side GUARDED_BY(m_mutex) = 0;
    uint64_t m_running[2] GUARDED_BY(m_mutex) = {};
    bool m_draining GUARDED_BY(m_mutex) = false;    // a setter waits for the other side
};

}    // namespace corvane
