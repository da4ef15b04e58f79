// Plays the sound of one channel. Frames go into a ring as they come; the device's thread takes them out, decodes them
// and plays them at the channel's volume, at the rate of the device and by no clock of ours. Each channel has a device
// of its own, which the first frame opens, since only a frame says the format.
//
// Nothing here waits for a sound server: DeviceKeeper opens and closes, and what the device's thread uses (SoundVoice)
// outlives this object until the device is closed.
#pragma once

#include <cstdint>
#include <memory>

#include "audio/DeviceKeeper.h"
#include "audio/SoundVoice.h"
#include "platform/Clock.h"

namespace corvane {

class AudioOut {
public:
    using Hook = SoundShared::Hook;

    // `counters`, and what `hook` uses, outlive this object. May raise std::bad_alloc.
    AudioOut(ChannelCounters& counters, Clock& clock, Hook hook, SoundSystem& system = SoundSystem::Sdl());
    ~AudioOut() { Flush(); }
    AudioOut(const AudioOut&) = delete;
    AudioOut& operator=(const AudioOut&) = delete;

    // Any thread. A frame that is lost is counted with its cause. Where the ring is full the frame is lost with
    // `dropWhenFull`; else the ring grows. A device that could not be opened is tried again by the first frame after 1
    // s, then 2, 4 and up to 32 s; at once after the end of another device, a flush, Enable, or with another format.
    void Enqueue(const FramePtr& frame, bool dropWhenFull) noexcept;
    // Silent at once; the device closes meanwhile. Afterwards no call of the hook runs: waits for one that does, but
    // not inside it. The next frame opens a device again.
    void Flush() noexcept;
    // Any thread, also inside the hook. Off: silent at once, and the device closes. On: the next frame opens one.
    void Enable(bool on) noexcept;
    // 0 to 5000; beyond, the nearest of them.
    void SetVolume(int32_t volume) noexcept;
    // The window whose focus sound follows, and how. Kept: no sound system here knows a focus.
    void SetFocus(uintptr_t window, uint32_t mode) noexcept;

private:
    bool Ready(const SoundFormat& format, SoundVoice::Frames& removed) REQUIRES(m_lock);
    void EndVoice(SoundVoice::Frames& removed) REQUIRES(m_lock);
    void NoteFailure(const SoundFormat& format, uint64_t closedBefore) REQUIRES(m_lock);
    void ForgetFailure() REQUIRES(m_lock);

    Clock& m_clock;
    DeviceKeeper& m_keeper;
    const std::shared_ptr<SoundShared> m_shared;
    const std::shared_ptr<SoundPlace> m_place;

    Mutex m_lock;                                              // held for moments
    std::shared_ptr<SoundVoice> m_voice GUARDED_BY(m_lock);    // null: closed
    bool m_enabled GUARDED_BY(m_lock) = true;
    uintptr_t m_focusWindow GUARDED_BY(m_lock) = 0;
    uint32_t m_focusMode GUARDED_BY(m_lock) = 0;

    // The last opening, where it failed: rate 0, it did not.
    SoundFormat m_failed GUARDED_BY(m_lock);
    int64_t m_retryAt GUARDED_BY(m_lock) = 0;    // ns
    int64_t m_pause GUARDED_BY(m_lock);          // ns until the try after the next failure
    uint64_t m_closedBefore GUARDED_BY(m_lock) = 0;
};

}    // namespace corvane
