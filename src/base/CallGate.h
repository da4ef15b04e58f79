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

// The counting, under a lock of its owner: every call of one gate holds the same mutex.
class GateCount {
public:
    // What it returns goes to Leave.
    uint32_t Enter() {
        ++m_running[m_side];
        return m_side;
    }
    void Leave(uint32_t side) {
        if (--m_running[side] == 0 && m_draining)
            m_changed.NotifyAll();
    }
    // Returns at once from inside a callback: one that waited for another could be waited for by it.
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

// With a lock of its own.
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

// A callback of the client: pointer, context and gate in one. `Function` is the pointer's type, whose first parameter
// is the context.
template <typename Function>
class ClientCallback {
public:
    // Waits for a running call of the callback that it replaces, not from inside any callback.
    void Set(Function function, void* context) {
        MutexLock lock(m_mutex);
        m_function = function;
        m_context = context;
        m_count.WaitForRunning(lock);
    }

    // Around a call: Set waits for its end. Null where there is no callback.
    class Call {
    public:
        explicit Call(ClientCallback& callback) : m_callback(callback) {
            MutexLock lock(m_callback.m_mutex);
            m_side = m_callback.m_count.Enter();
            m_function = m_callback.m_function;
            m_context = m_callback.m_context;
        }
        ~Call() {
            MutexLock lock(m_callback.m_mutex);
            m_callback.m_count.Leave(m_side);
        }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

        explicit operator bool() const { return m_function != nullptr; }
        Function Pointer() const { return m_function; }
        void* Context() const { return m_context; }

    private:
        ClientCallback& m_callback;
        uint32_t m_side;
        Function m_function;
        void* m_context;
    };

private:
    Mutex m_mutex;
    GateCount m_count GUARDED_BY(m_mutex);
    Function m_function GUARDED_BY(m_mutex) = nullptr;
    void* m_context GUARDED_BY(m_mutex) = nullptr;
};

}    // namespace corvane
