// Raw data: what the client wants, and the turnstile that the calls of its raw callbacks pass, one at a time.
//
// Pictures come from the render thread, sound from the thread of the sound device. No lock is held while a callback
// runs. A thread that waits for its turn gives up when its reason to call ends: it is asked again after each change of
// the settings and after each Wake.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <type_traits>
#include <utility>

#include "base/ClientCallback.h"
#include "base/Mutex.h"
#include "corvane/corvane.h"

namespace corvane {

struct RawSettings {
    ClientCallback<CorvaneRawCallback> first;     // option 18
    ClientCallback<CorvaneRawCallback> second;    // option 22: while it is set, the first is not called
    bool pictures = true;
    bool sound = true;
    uint32_t format = 0;    // CORVANE_PICTURE_*; 0: none
    uint32_t prefix = 0;    // bytes

    const ClientCallback<CorvaneRawCallback>& Callback() const { return second ? second : first; }
    bool WantsPictures() const { return pictures && static_cast<bool>(Callback()); }
    bool WantsSound() const { return sound && static_cast<bool>(Callback()); }
};

class RawClient {
public:
    // ---- Any thread ----

    template <typename T>
    void Set(T RawSettings::*field, std::type_identity_t<T> value) {
        MutexLock lock(m_mutex);
        m_settings.*field = value;
        Changed();
    }
    // Waits for the end of a running call, not on a thread of the library.
    void SetCallback(ClientCallback<CorvaneRawCallback> RawSettings::*which,
                     ClientCallback<CorvaneRawCallback> callback) {
        Set(which, callback);
        AwaitCall();
    }
    RawSettings Settings() const {
        MutexLock lock(m_mutex);
        return m_settings;
    }
    bool WantsPictures() const { return m_wantsPictures; }
    bool WantsSound() const { return m_wantsSound; }
    // The threads that wait for their turn look again whether they shall go on.
    void Wake();
    // Waits for the end of a running call, not on a thread of the library.
    void AwaitCall();

    // ---- The threads that call ----

    // One turn, held from the construction on. `goesOn` is called with no lock held, before and while the thread waits.
    class Turn {
    public:
        Turn(RawClient& client, const std::function<bool()>& goesOn) : m_client(client), m_held(client.Enter(goesOn)) {}
        ~Turn() {
            if (m_held)
                m_client.Leave();
        }
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

        explicit operator bool() const { return m_held; }

    private:
        RawClient& m_client;
        const bool m_held;
    };

private:
    bool Enter(const std::function<bool()>& goesOn);
    void Leave();
    void Changed() REQUIRES(m_mutex);

    mutable Mutex m_mutex;
    Condition m_changed;
    RawSettings m_settings GUARDED_BY(m_mutex);
    bool m_inside GUARDED_BY(m_mutex) = false;    // a call runs
    uint64_t m_calls GUARDED_BY(m_mutex) = 0;     // that have ended
    uint64_t m_wakes GUARDED_BY(m_mutex) = 0;     // reasons to ask a waiting thread again
    std::atomic<bool> m_wantsPictures{false};     // of m_settings
    std::atomic<bool> m_wantsSound{false};        // likewise
};

}    // namespace corvane
