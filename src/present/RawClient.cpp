#include "present/RawClient.h"

#include "base/Thread.h"

namespace corvane {

void RawClient::Changed() {
    m_wantsPictures = m_settings.WantsPictures();
    m_wantsSound = m_settings.WantsSound();
    ++m_wakes;
    m_changed.NotifyAll();
}

void RawClient::Wake() {
    MutexLock lock(m_mutex);
    ++m_wakes;
    m_changed.NotifyAll();
}

void RawClient::AwaitCall() {
    if (Thread::CurrentOwner() != nullptr)    // two callbacks could wait for each other
        return;
    MutexLock lock(m_mutex);
    for (const uint64_t before = m_calls; m_inside && m_calls == before;)
        m_changed.WaitOnce(lock);
}

bool RawClient::Enter(const std::function<bool()>& goesOn) {
    for (;;) {
        uint64_t seen;
        {
            MutexLock lock(m_mutex);
            seen = m_wakes;
        }
        if (!goesOn())
            return false;
        MutexLock lock(m_mutex);
        while (m_inside && m_wakes == seen)
            m_changed.WaitOnce(lock);
        if (m_wakes == seen)
            return m_inside = true;
    }
}

void RawClient::Leave() {
    MutexLock lock(m_mutex);
    m_inside = false;
    ++m_calls;
    m_changed.NotifyAll();
}

}    // namespace corvane
