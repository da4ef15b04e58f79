// A live channel: encoded frames in, pictures and sound out at the spacing of their times.
//
//   Stopped --Start--> Running --Stop--> Stopping --worker joined, queue empty--> Stopped
//
// Client threads push into m_queue; one worker takes from it, decodes, presents and sleeps between pictures.
//
// Locks, in their order: m_mutex, m_settingsMutex; m_decoderLock; then those of the render manager. m_mutex and
// m_decoderLock are never held together, and neither is held while a client callback runs.
#pragma once

#include <cstdint>

#include "base/Mutex.h"
#include "base/Status.h"
#include "base/Thread.h"
#include "channels/IChannel.h"
#include "channels/StillRoad.h"
#include "corvane/corvane.h"
#include "decoders/FrameThinner.h"
#include "decoders/VideoDecoderHolder.h"
#include "frame/ChannelCounters.h"
#include "frame/JitterQueue.h"
#include "frame/MediaFrameImpl.h"
#include "frame/PaceClock.h"
#include "manager/RenderMgr.h"
#include "platform/Clock.h"

namespace corvane {

class CChannelLive : public IChannel {
public:
    // Starts the render thread. Raises std::bad_alloc and std::system_error; nothing is left then.
    CChannelLive(uintptr_t window, uint32_t flags, Clock& clock = Clock::System(),
                 const RendererMakers& makers = RendererMakers::Built());
    ~CChannelLive() override;    // ends what has not been ended
    ChannelType GetChannelType() const override { return ChannelType::Live; }
    void End() override;

    // Before the first start.
    void Apply(const ChannelSettings& settings);
    void SetFactories(const DecoderFactories& factories);

    // Status::Failed when no thread can be made, on a library thread while a stop is in progress, and while it dies.
    Status Start(bool clear);
    // Status::Failed on the channel's own threads, and where two stops would wait for each other.
    Status Stop();
    Status Input(const MediaFrameHeader& header);
    Status SetOption(int32_t id, uint64_t value, uint64_t extra);
    Status Update(const ChannelUpdate& update);
    void SetBufferTime(uint32_t milliseconds);
    void SetDisplayMode(uint32_t mode);
    bool IsBuffering();
    void GetStatistics(ChannelStatistics& out);    // all but recordSize

    CRenderMgr& Render() { return m_render; }
    StillRoad& Stills() { return m_stills; }

private:
    enum class Run { Stopped, Running, Stopping };

    // What the worker keeps between frames of one run.
    struct WorkerState {
        PaceClock clock;
        FrameThinner thinner;
        bool keyFramesOnly = false;
        int64_t late = 0;     // ms, negative when late
        uint32_t over = 0;    // pops in a row that left the queue over its buffer time
        uint32_t displayMode = 0;
        int64_t lastKind = -1;
    };

    void Work();
    void HandleFrame(WorkerState& worker, FramePtr& frame);
    void HandleVideo(WorkerState& worker, FramePtr& frame);
    bool DecodeVideo(WorkerState& worker, FramePtr& frame, SharedPicture& picture);
    // A second field belongs to its key frame although it is none itself.
    bool CompletesPicture(const MediaFrameImpl& frame);
    void HandleAudio(WorkerState& worker, const FramePtr& frame);
    void Pace(WorkerState& worker, const MediaFrameImpl& frame);
    void JoinWorker();    // and empty what it worked on
    void ResetDecoder();
    uint32_t MediaMode();
    Status Accepts(uint32_t streamType);
    void CountTaken() REQUIRES(m_mutex);
    bool PushOrWait(MutexLock& lock, const FramePtr& frame, Status& status) REQUIRES(m_mutex);

    Clock& m_clock;    // constant

    // The queue and the run.
    Mutex m_mutex;
    Condition m_frameReady;    // wakes the worker
    Condition m_spaceReady;    // wakes producers that wait for space
    Condition m_stopped;       // wakes who waits for the end of a stop
    Thread m_thread GUARDED_BY(m_mutex);
    Run m_run GUARDED_BY(m_mutex) = Run::Stopped;
    bool m_dying GUARDED_BY(m_mutex) = false;    // never starts again
    JitterQueue m_queue GUARDED_BY(m_mutex);
    uint32_t m_displayMode GUARDED_BY(m_mutex) = 0;    // 0 all frames, 1 to 7 thinning, 8 key frames only

    // The pacing sleep; only a stop wakes it.
    Mutex m_paceMutex;
    Condition m_paceWake;
    bool m_paceStop GUARDED_BY(m_paceMutex) = false;

    Mutex m_settingsMutex;
    uint32_t m_mediaMode GUARDED_BY(m_settingsMutex) = 3;
    bool m_blockWhenFull GUARDED_BY(m_settingsMutex) = false;
    bool m_audioEnabled GUARDED_BY(m_settingsMutex) = true;    // kept for the sound output, as the volume
    uint32_t m_volume GUARDED_BY(m_settingsMutex) = 0;

    // Exclusive for decoding and resets, shared for whoever reads the current picture beside the worker. Settings of
    // the holder have a lock of their own.
    SharedMutex m_decoderLock;
    VideoDecoderHolder m_decoder;

    CRenderMgr m_render;
    ChannelCounters& m_counters = m_render.Counters();    // brings its own lock
    StillRoad m_stills{this, m_decoderLock, m_decoder, m_render};
};

}    // namespace corvane
