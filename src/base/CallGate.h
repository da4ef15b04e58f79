// Lets a setter wait for the end of the calls into the client that run when it is called. Any number of threads may be
// inside a gate.
//
// A caller enters the gate before it reads which function to call. A setter stores the new function before it waits.
// So each call uses the new function, or the setter waits for its end.
#pragma once

#include <cstdint>

#include "base/Mutex.h"
#include "base/Thread.h"

namespace corvane {

// A gate under a lock of its owner: every call of one GateCount holds the same mutex.
class GateCount {
public:
    // The result is the argument of the Leave that follows.
    uint32_t Enter() {
        ++m_running[m_side];
        return m_side;
    }
    void Leave(uint32_t side) {
        if (--m_running[side] == 0 && m_draining)
            m_changed.NotifyAll();
    }
    // Returns at once on a thread of the library, which is inside a callback: two callbacks could wait for each other.
    void WaitForRunning(MutexLock& lock) {
        if (Thread::CurrentOwner() != nullptr)
            return;
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
    Condition m_changed;
    uint32_t m_side = 0;
    uint64_t m_running[2] = {};
    bool m_draining = false;    // a setter waits for the other side
};

// A gate with a lock of its own.
class CallGate {
public:
    class Scope {
    public:
        explicit Scope(CallGate& gate) : m_gate(gate) {
            MutexLock lock(m_gate.m_mutex);
            m_side = m_gate.m_count.Enter();
        }
        ~Scope() {
            MutexLock lock(m_gate.m_mutex);
            m_gate.m_count.Leave(m_side);
        }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        CallGate& m_gate;
        uint32_t m_side;
    };

    void WaitForRunning() {
        MutexLock lock(m_mutex);
        m_count.WaitForRunning(lock);
    }

private:
    Mutex m_mutex;
    GateCount m_count GUARDED_BY(m_mutex);
};

}    // namespace corvane
