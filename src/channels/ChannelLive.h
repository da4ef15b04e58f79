// A live channel: encoded frames in, pictures and sound out at the spacing of their times. Its worker takes from the
// queue, decodes, presents and sleeps between pictures.
#pragma once

#include "channels/StreamChannel.h"
#include "frame/PaceClock.h"

namespace corvane {

class CChannelLive final : public StreamChannel {
public:
    // Starts the render thread. Raises std::bad_alloc and std::system_error; nothing is left then.
    CChannelLive(uintptr_t window, uint32_t flags, Clock& clock = Clock::System(),
                 RendererMakers makers = BuiltRenderers(), SoundSystem& sound = SoundSystem::Sdl());
    ChannelType GetChannelType() const override { return ChannelType::Live; }

private:
    // The worker's state between frames of one run.
    struct WorkerState {
        PaceClock clock;
        int64_t late = 0;     // ms, negative when late
        uint32_t over = 0;    // pops in a row that left the queue over its buffer time
        uint32_t displayMode = 0;
    };

    void Work() override;
    // While the queue is full: refuses or waits for space, by option 42.
    Status Admit(const FramePtr& frame, MutexLock& lock) override REQUIRES(m_mutex);
    void HandleFrame(WorkerState& worker, FramePtr& frame);
    void HandleVideo(WorkerState& worker, FramePtr& frame);
    void HandleAudio(WorkerState& worker, const FramePtr& frame);
    void Pace(WorkerState& worker, const MediaFrameImpl& frame);
};

}    // namespace corvane
