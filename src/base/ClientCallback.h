// Callbacks that clients register.
//
// A ClientCallback is a value: a function and its context. The gate that a setter waits on belongs to the thread that
// calls, not to the callback, since that thread enters one gate for all its callbacks with a lock that it takes anyway
// (CRenderMgr). A callback that any thread may call is a GatedCallback, which has a gate and a lock of its own.
#pragma once

#include <cstdint>

#include "base/CallGate.h"
#include "base/Mutex.h"

namespace corvane {

// `Function`: the type of a pointer to a function whose first parameter is the context.
template <typename Function>
struct ClientCallback {
    Function function = nullptr;    // null: the client registered none
    void* context = nullptr;

    explicit operator bool() const { return function != nullptr; }
    bool operator==(const ClientCallback&) const = default;
    // Not of a null function. No lock may be held.
    template <typename... Arguments>
    void operator()(Arguments... arguments) const {
        function(context, arguments...);
    }
};

template <typename Function>
class GatedCallback {
public:
    // Waits for the end of a running call of the callback that it replaces; not on a thread of the library.
    void Set(ClientCallback<Function> callback) {
        MutexLock lock(m_mutex);
        m_callback = callback;
        m_calls.WaitForRunning(lock);
    }

    // The callback, whose next setter waits until this object is destroyed. Two lock takings.
    class Use {
    public:
        explicit Use(GatedCallback& from) : m_from(from) {
            MutexLock lock(m_from.m_mutex);
            m_side = m_from.m_calls.Enter();
            m_callback = m_from.m_callback;
        }
        ~Use() {
            MutexLock lock(m_from.m_mutex);
            m_from.m_calls.Leave(m_side);
        }
        Use(const Use&) = delete;
        Use& operator=(const Use&) = delete;

        const ClientCallback<Function>& Callback() const { return m_callback; }

    private:
        GatedCallback& m_from;
        uint32_t m_side;
        ClientCallback<Function> m_callback;
    };

private:
    Mutex m_mutex;
    GateCount m_calls GUARDED_BY(m_mutex);
    ClientCallback<Function> m_callback GUARDED_BY(m_mutex);
};

}    // namespace corvane
