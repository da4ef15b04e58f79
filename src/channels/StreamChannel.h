// The common part of all channels that carry a stream: a queue that clients push into, a worker that takes from it, a
// video stage, a render manager and stills. A kind of channel adds the worker's loop and the rule of admission.
//
//   Stopped --Start--> Running --Stop--> Stopping --worker joined, queue empty--> Stopped
//
// The owner ends a channel before it destroys it (IChannel::End): the destructor joins nobody.
//
// Locks, in their order: m_mutex, m_settingsMutex; the video stage's; then those of the render manager. m_mutex and the
// video stage's are never held together, and neither is held while a client callback runs.
#pragma once

#include <atomic>
#include <cstdint>

#include "base/Mutex.h"
#include "base/Status.h"
#include "base/Thread.h"
#include "channels/IChannel.h"
#include "channels/StillPipeline.h"
#include "channels/VideoStage.h"
#include "corvane/corvane.h"
#include "frame/ChannelCounters.h"
#include "frame/JitterQueue.h"
#include "frame/MediaFrameImpl.h"
#include "manager/RenderMgr.h"
#include "platform/Clock.h"

namespace corvane {

class StreamChannel : public IChannel {
public:
    void End() final;

    // Before the first start.
    void Apply(const ChannelSettings& settings);
    void SetFactories(const DecoderFactories& factories) { m_video.Settings().SetFactories(factories); }

    // Status::Failed when no thread can be made, on a library thread while a stop is in progress, and after End.
    Status Start(bool clear);
    // Status::Failed on the channel's own threads, and where two stops would wait for each other.
    Status Stop();
    Status Input(const MediaFrameHeader& header);
    Status SetOption(int32_t id, uint64_t value, uint64_t extra);
    Status Update(const ChannelUpdate& update);
    void SetBufferTime(uint32_t milliseconds);
    void SetDisplayMode(uint32_t mode);
    void SetMediaMode(uint32_t mode) { m_mediaMode = mode; }
    void SetBlockWhenFull(bool on);
    void EmptyQueue();
    bool IsBuffering();
    // All but recordSize, which says how much of the record counts.
    void GetStatistics(ChannelStatistics& out);

    CRenderMgr& Render() { return m_render; }
    StillPipeline& Stills() { return m_stills; }
    VideoStage& Video() { return m_video; }

protected:
    enum class Run { Stopped, Running, Stopping };

    // Starts the render thread. Raises std::bad_alloc and std::system_error; nothing is left then.
    StreamChannel(uintptr_t window, uint32_t flags, Clock& clock, RendererMakers makers,
                  SoundSystem& sound = SoundSystem::Sdl());

    // The worker, from a start to the stop: it returns as soon as m_run is not Running.
    virtual void Work() = 0;
    // Takes `frame` into the queue; `lock` is on m_mutex, and may be dropped for a wait. Any status but Status::Ok
    // refuses the frame.
    virtual Status Admit(const FramePtr& frame, MutexLock& lock) REQUIRES(m_mutex) = 0;

    uint32_t MediaMode() const { return m_mediaMode; }
    bool BlocksWhenFull();
    // Sleeps until `deadline` of the clock, or until a stop.
    void SleepUntil(int64_t deadline);

    Clock& m_clock;    // constant

    // The queue and the run.
    Mutex m_mutex;
    Condition m_frameReady;    // wakes the worker
    Condition m_spaceReady;    // wakes producers that wait for space
    Run m_run GUARDED_BY(m_mutex) = Run::Stopped;
    JitterQueue m_queue GUARDED_BY(m_mutex);
    uint32_t m_displayMode GUARDED_BY(m_mutex) = 0;    // as VideoStage::Decode takes it

    CRenderMgr m_render;
    ChannelCounters& m_counters = m_render.Counters();    // brings its own lock
    VideoStage m_video;

private:
    void JoinWorker();    // and empties the queue and the decoder, and ends sound
    Status Accepts(uint32_t streamType);
    void CountTaken() REQUIRES(m_mutex);

    Condition m_stopped;    // wakes the threads that wait for the end of a stop
    Thread m_thread GUARDED_BY(m_mutex);
    bool m_ended GUARDED_BY(m_mutex) = false;    // never starts again

    // The pacing sleep; only a stop wakes it.
    Mutex m_paceMutex;
    Condition m_paceWake;
    bool m_paceStop GUARDED_BY(m_paceMutex) = false;

    Mutex m_settingsMutex;
    std::atomic<uint32_t> m_mediaMode{CORVANE_MEDIA_BOTH};
    bool m_blockWhenFull GUARDED_BY(m_settingsMutex) = false;

    StillPipeline m_stills{Handle(), m_video, m_render};
};

}    // namespace corvane
