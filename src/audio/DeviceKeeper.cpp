#include "audio/DeviceKeeper.h"

#include <utility>

#include "platform/Clock.h"

namespace corvane {

namespace {

constexpr int64_t kExitLimit = 500'000'000;    // ns that the end of the process waits for devices to close

}    // namespace

// The keeper is never destroyed: a sound server that hangs may keep its thread inside beyond the end of main.
DeviceKeeper& DeviceKeeper::Process() {
    static DeviceKeeper* const keeper = new DeviceKeeper;
    struct AtExit {
        ~AtExit() {
            if (!keeper->WaitIdle(kExitLimit))
                return;
            MutexLock lock(keeper->m_lock);
            if (!keeper->m_running && keeper->m_thread.Running())
                keeper->m_thread.Join();
        }
    };
    static const AtExit atExit;
    return *keeper;
}

bool DeviceKeeper::Want(const std::shared_ptr<SoundPlace>& place, std::shared_ptr<SoundVoice> voice) noexcept {
    MutexLock lock(m_lock);    // dropped before `voice`, which takes the place of the one that was wanted
    place->wanted.swap(voice);
    if (place->listed || place->held == place->wanted)
        return true;    // the thread looks at a listed place again
    if (!m_running) {
        try {
            if (m_thread.Running())
                m_thread.Join();    // its last act was to leave m_running false
            m_thread = Thread("corvane-sound", nullptr, [this] { Run(); });
        } catch (...) {
            place->wanted.reset();    // nothing is held, since the thread lives as long as a device
            return false;
        }
        m_running = true;
    }
    place->listed = true;
    if (m_first == nullptr)
        m_first = place;
    else
        m_last->next = place;
    m_last = place.get();
    m_wanted.NotifyAll();
    return true;
}

uint64_t DeviceKeeper::Closed() {
    MutexLock lock(m_lock);
    return m_closed;
}

bool DeviceKeeper::WaitIdle(int64_t limitNs) {
    ThreadWait wait(limitNs);
    MutexLock lock(m_lock);
    while (m_running)
        if (!wait.On(m_idle, lock))
            return !m_running;
    return true;
}

bool DeviceKeeper::WaitSettled(int64_t limitNs) {
    ThreadWait wait(limitNs);
    MutexLock lock(m_lock);
    while (m_first != nullptr)
        if (!wait.On(m_idle, lock))
            return m_first == nullptr;
    return true;
}

void DeviceKeeper::Run() {
    for (;;) {
        Task task;
        if (!Next(task))
            return;
        if (task.device != nullptr) {
            task.device.reset();
        } else {
            try {
                task.voice->Prepare();
                task.device = task.place->system.Open(task.voice->Format(), *task.voice);
            } catch (...) {    // no memory: as a device that cannot be opened
            }
            task.voice->Opened(task.device != nullptr, task.closedBefore);
        }
        Done(task);
    }
}

// Takes what is to be done next; false when the thread has no more to do.
bool DeviceKeeper::Next(Task& task) {
    std::shared_ptr<SoundPlace> done;    // destroyed after the lock is dropped
    MutexLock lock(m_lock);
    for (;;) {
        if (m_first == nullptr)
            m_idle.NotifyAll();
        while (m_first == nullptr && m_devices > 0)
            m_wanted.WaitOnce(lock);
        if (m_first == nullptr) {
            m_running = false;
            m_idle.NotifyAll();
            return false;
        }
        SoundPlace& place = *m_first;
        if (place.held != place.wanted)
            break;
        place.listed = false;
        done = std::exchange(m_first, std::move(place.next));
    }
    task.place = m_first;
    task.closedBefore = m_closed;
    task.device = std::move(m_first->device);
    task.voice = task.device != nullptr ? m_first->held : m_first->wanted;
    return true;
}

// The place stays the first of the list, so that it is looked at again.
void DeviceKeeper::Done(Task& task) {
    MutexLock lock(m_lock);
    SoundPlace& place = *task.place;
    if (task.voice == place.held) {
        place.held.reset();    // task.voice keeps it until the lock is dropped
        --m_devices;
        ++m_closed;
    } else if (task.device != nullptr) {
        place.held = task.voice;
        place.device = std::move(task.device);
        ++m_devices;
    } else if (place.wanted == task.voice) {
        place.wanted.reset();
    }
}

}    // namespace corvane
