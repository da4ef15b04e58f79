// What one opening of a device plays for a channel: the rings, the decoder and the samples of the frame at hand.
// Another format is another voice. A voice lives until its device is really closed, which may be long after the end of
// its channel; of the channel it uses only what SoundShared has, and that only until its End.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "base/Mutex.h"
#include "decoders/AudioDecoderHolder.h"
#include "frame/ChannelCounters.h"
#include "frame/MediaFrameImpl.h"
#include "platform/sound/SoundDevice.h"

namespace corvane {

// What a channel's AudioOut and its voices have in common. `lock` is held for moments.
struct SoundShared {
    // Called on the device's thread after each decoded frame, with no lock held: `bytes` of `samples`, as decoded,
    // before the volume counts. `goesOn` says whether the sound still plays: a hook that waits gives up otherwise.
    using Hook = std::function<void(const MediaFrameImpl& frame, const uint8_t* samples, uint32_t bytes,
                                    const std::function<bool()>& goesOn)>;
    static constexpr uint32_t kMaxVolume = 5000;

    SoundShared(Hook toCall, ChannelCounters& toCount) : hook(std::move(toCall)), counters(toCount) {}

    // Both are of the channel: only a voice that has not ended uses them.
    const Hook hook;
    ChannelCounters& counters;

    Mutex lock;    // a leaf
    Condition hookEnded;
    uint32_t volume GUARDED_BY(lock) = kMaxVolume;
    uint32_t hooksRunning GUARDED_BY(lock) = 0;
    std::thread::id hookThread GUARDED_BY(lock);    // of the last call of the hook
};

class SoundVoice final : public SoundSource {
public:
    using Frames = std::vector<FramePtr>;
    enum class State : uint8_t { Opening, Open, Failed };

    // May raise std::bad_alloc.
    SoundVoice(std::shared_ptr<SoundShared> shared, const SoundFormat& format);

    const SoundFormat& Format() const { return m_format; }
    State Now() const { return m_state.load(std::memory_order_acquire); }

    // ---- From any thread ----

    // Takes a frame. Where the ring is full the frame is lost with `dropWhenFull`; else the ring doubles. While the
    // device is being opened, frames more than 150 ms older than this one are moved to `late` and lost: else sound
    // would stay behind by what the opening took. May raise std::bad_alloc: the frame was not taken.
    void Put(const FramePtr& frame, bool dropWhenFull, Frames& late);
    // Silent from now on; neither counts frames nor begins a call of the hook. The frames that waited are not played.
    void End(Frames& removed);

    // ---- From the thread that opens ----

    // Makes the room for samples, and the silence that is played first. Before the device opens. May raise
    // std::bad_alloc.
    void Prepare();
    // `closedBefore`: how many devices of the process had been closed when the opening began.
    void Opened(bool open, uint64_t closedBefore) noexcept;
    uint64_t ClosedBefore() const { return m_closedBefore; }    // in state Failed

    // ---- From the device's thread ----

    void Fill(uint8_t* stream, size_t bytes) noexcept override;

private:
    bool Pop(FramePtr& frame) noexcept;
    void Refill() noexcept;
    bool Decode(const MediaFrameImpl& frame) noexcept;
    void Deliver(const MediaFrameImpl& frame, bool decoded) noexcept;
    void Lose(Counter counter, uint64_t count) REQUIRES(m_shared->lock);

    const std::shared_ptr<SoundShared> m_shared;
    const SoundFormat m_format;
    std::atomic<State> m_state{State::Opening};
    std::atomic<bool> m_ended{false};    // written under the lock; read without it before a decode
    uint64_t m_closedBefore = 0;         // written before m_state

    // The input ring, its capacity, and how many frames of this voice have no outcome yet.
    Frames m_input GUARDED_BY(m_shared->lock);
    size_t m_capacity GUARDED_BY(m_shared->lock);
    uint64_t m_waiting GUARDED_BY(m_shared->lock) = 0;

    // Only on the device's thread.
    Frames m_drain;    // the other ring, from m_next on
    size_t m_next = 0;
    AudioDecoderHolder m_decoder;
    std::unique_ptr<int16_t[]> m_samples;
    uint32_t m_length = 0;      // bytes of m_samples that are valid
    uint32_t m_position = 0;    // bytes of them that were played
};

}    // namespace corvane
