#include "audio/AudioOut.h"

#include <algorithm>
#include <utility>

#include "base/Limits.h"

namespace corvane {

namespace {

constexpr int64_t kFirstPause = 1'000'000'000;
constexpr int64_t kLongestPause = 32 * kFirstPause;

}    // namespace

AudioOut::AudioOut(ChannelCounters& counters, Clock& clock, Hook hook, SoundSystem& system)
    : m_clock(clock),
      m_keeper(DeviceKeeper::Process()),
      m_shared(std::make_shared<SoundShared>(std::move(hook), counters)),
      m_place(std::make_shared<SoundPlace>(system)),
      m_pause(kFirstPause) {}

void AudioOut::Enqueue(const FramePtr& frame, bool dropWhenFull) noexcept {
    const SoundFormat format{frame->Header().audioSampleRate, frame->Header().audioChannels};
    SoundVoice::Frames removed;    // freed after the lock is dropped
    SoundVoice::Frames late;
    MutexLock lock(m_lock);
    try {
        if (m_enabled && limits::FitsSound(format.rate, format.channels) && Ready(format, removed)) {
            m_voice->Put(frame, dropWhenFull, late);
            return;
        }
    } catch (...) {    // no memory
    }
    m_shared->counters.Add(Counter::SoundNotPlayed);
}

// Whether a device is open in this format, or being opened; tries to open one if it is time to.
bool AudioOut::Ready(const SoundFormat& format, SoundVoice::Frames& removed) {
    const auto state = m_voice != nullptr ? m_voice->Now() : SoundVoice::State::Opening;
    if (state == SoundVoice::State::Failed) {
        NoteFailure(m_voice->Format(), m_voice->ClosedBefore());
        EndVoice(removed);
    } else if (state == SoundVoice::State::Open) {
        ForgetFailure();
    }
    if (m_voice != nullptr && m_voice->Format() == format)
        return true;
    if (!(m_failed == format) || m_keeper.Closed() != m_closedBefore)
        ForgetFailure();
    else if (m_clock.Now() < m_retryAt)
        return false;
    EndVoice(removed);
    auto next = std::make_shared<SoundVoice>(m_shared, format);
    if (!m_keeper.Want(m_place, next)) {
        NoteFailure(format, m_keeper.Closed());
        return false;
    }
    m_voice = std::move(next);
    return true;
}

void AudioOut::NoteFailure(const SoundFormat& format, uint64_t closedBefore) {
    m_failed = format;
    m_closedBefore = closedBefore;
    m_retryAt = m_clock.Now() + m_pause;
    m_pause = std::min(2 * m_pause, kLongestPause);
}

void AudioOut::ForgetFailure() {
    m_failed = {};
    m_pause = kFirstPause;
}

void AudioOut::EndVoice(SoundVoice::Frames& removed) {
    if (m_voice == nullptr)
        return;
    m_voice->End(removed);
    m_voice.reset();
    (void)m_keeper.Want(m_place, nullptr);
}

void AudioOut::Flush() noexcept {
    SoundVoice::Frames removed;
    {
        MutexLock lock(m_lock);
        EndVoice(removed);
        ForgetFailure();
    }
    MutexLock lock(m_shared->lock);
    while (m_shared->hooksRunning > 0 && m_shared->hookThread != std::this_thread::get_id())
        m_shared->hookEnded.WaitOnce(lock);
}

void AudioOut::Enable(bool on) noexcept {
    SoundVoice::Frames removed;
    MutexLock lock(m_lock);
    m_enabled = on;
    if (!on)
        EndVoice(removed);
    ForgetFailure();
}

void AudioOut::SetVolume(int32_t volume) noexcept {
    MutexLock lock(m_shared->lock);
    m_shared->volume = static_cast<uint32_t>(std::clamp<int32_t>(volume, 0, SoundShared::kMaxVolume));
}

void AudioOut::SetFocus(uintptr_t window, uint32_t mode) noexcept {
    MutexLock lock(m_lock);
    m_focusWindow = window;
    m_focusMode = mode;
}

}    // namespace corvane
