// Opens and closes the sound devices of the process on a thread of its own, "corvane-sound", since both may block as
// long as a sound server likes. The thread lives while there is a device, or one to be opened.
#pragma once

#include <cstdint>
#include <memory>

#include "audio/SoundVoice.h"
#include "base/Mutex.h"
#include "base/Thread.h"
#include "platform/sound/SoundDevice.h"

namespace corvane {

// The one device of a channel: which voice is to have it, and which has it. Outlives its channel while it is in use.
// But for `system`, guarded by the keeper's lock.
struct SoundPlace {
    explicit SoundPlace(SoundSystem& from) : system(from) {}

    SoundSystem& system;
    std::shared_ptr<SoundVoice> wanted;    // null: no device
    std::shared_ptr<SoundVoice> held;
    std::unique_ptr<SoundDevice> device;    // null without `held`
    bool listed = false;                    // among the places to look at, or being looked at
    std::shared_ptr<SoundPlace> next;       // in that list
};

class DeviceKeeper {
public:
    static DeviceKeeper& Process();

    // `voice` is to have the place's device, once the voice that has it has lost it; null: none. A voice that still
    // waits for its device is forgotten. Waits for nothing. False where no thread can be started: then no voice is
    // wanted.
    bool Want(const std::shared_ptr<SoundPlace>& place, std::shared_ptr<SoundVoice> voice) noexcept;
    // Devices that have been closed so far.
    uint64_t Closed();
    // Until all is closed that is to be closed, and no device is open; at most `limitNs`. False after that.
    bool WaitIdle(int64_t limitNs);
    // Until nothing is to be opened or closed; at most `limitNs`. False after that.
    bool WaitSettled(int64_t limitNs);

private:
    // One opening or closing, done without the lock.
    struct Task {
        std::shared_ptr<SoundPlace> place;
        std::shared_ptr<SoundVoice> voice;
        std::unique_ptr<SoundDevice> device;    // to be closed; null: one is to be opened
        uint64_t closedBefore = 0;
    };
    void Run();
    bool Next(Task& task);
    void Done(Task& task);

    Mutex m_lock;    // a leaf, held for moments
    Condition m_wanted;
    Condition m_idle;
    std::shared_ptr<SoundPlace> m_first GUARDED_BY(m_lock);
    SoundPlace* m_last GUARDED_BY(m_lock) = nullptr;    // of the list that m_first begins
    uint32_t m_devices GUARDED_BY(m_lock) = 0;          // open, or being closed
    uint64_t m_closed GUARDED_BY(m_lock) = 0;
    bool m_running GUARDED_BY(m_lock) = false;
    Thread m_thread GUARDED_BY(m_lock);    // one that ended is joined by the next start, and at the end of the process
};

}    // namespace corvane
