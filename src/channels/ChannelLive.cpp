#include "channels/ChannelLive.h"

#include "frame/StreamType.h"

namespace corvane {

namespace {

constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kBufferingTick = 500 * kNsPerMs;    // the worker's longest sleep while the queue fills
constexpr int64_t kSkipLateness = -499;               // ms: later than this, queued time is dropped
constexpr uint32_t kOverForSpeed = 16;                // pops over the buffer time before the worker plays faster
constexpr float kCatchUpRate = 1.2f;

}    // namespace

CChannelLive::CChannelLive(uintptr_t window, uint32_t flags, Clock& clock, RendererMakers makers, SoundSystem& sound)
    : StreamChannel(window, flags, clock, makers, sound) {}

Status CChannelLive::Admit(const FramePtr& frame, MutexLock& lock) {
    for (;;) {
        if (m_run != Run::Running)
            return Status::ChannelNotStarted;
        if (m_queue.Push(frame))
            return Status::Ok;
        if (!BlocksWhenFull() || Thread::CurrentOwner() != nullptr)    // a callback must not wait for its own worker
            return Status::QueueFull;
        m_spaceReady.WaitOnce(lock);
    }
}

void CChannelLive::Work() {
    WorkerState worker;
    m_video.BeginRun();
    FramePtr frame;
    MutexLock lock(m_mutex);
    while (m_run == Run::Running) {
        if (worker.late < kSkipLateness) {
            JitterQueue::Entries skipped = m_queue.Skip(-worker.late);
            worker.late = 0;
            m_counters.AddLost(Counter::FramesSkippedLate, CORVANE_CAUSE_LATE, skipped.size());
            lock.Unlock();
            m_spaceReady.NotifyAll();
            skipped.clear();
            lock.Lock();
            continue;
        }
        const int popped = m_queue.Pop(frame);
        if (popped < 0) {
            worker.clock.Unset();
            const int64_t deadline = m_clock.Now() + kBufferingTick;
            while (m_run == Run::Running && m_queue.IsBuffering() && m_clock.WaitUntil(m_frameReady, lock, deadline)) {
            }
            continue;
        }
        worker.over = popped == 0 ? worker.over + 1 : 0;
        worker.displayMode = m_displayMode;
        lock.Unlock();
        m_spaceReady.NotifyAll();
        try {
            HandleFrame(worker, frame);
        } catch (...) {    // no memory for this frame, or a callback that threw: the frame is lost, the run goes on
        }
        frame.reset();
        lock.Lock();
    }
}

void CChannelLive::HandleFrame(WorkerState& worker, FramePtr& frame) {
    switch (ClassOf(frame->Header().streamType)) {
    case StreamClass::Video:
        HandleVideo(worker, frame);
        break;
    case StreamClass::Audio:
        m_counters.Add(Counter::SoundFrames);
        if (frame->NotForDisplay())
            m_counters.Add(Counter::SoundNotPlayed);
        else
            HandleAudio(worker, frame);
        break;
    case StreamClass::Metadata:    // its parser takes the frame here
        m_counters.Add(Counter::MetadataFrames);
        break;
    case StreamClass::Placeholder:    // refused at the input
    case StreamClass::Unknown:
        break;
    }
}

void CChannelLive::HandleVideo(WorkerState& worker, FramePtr& frame) {
    SharedPicture picture;
    if (!m_video.Decode(frame, worker.displayMode, picture))
        return;
    // The picture stays valid without the lock: only this thread decodes, and a reset joins it first.
    m_render.PresentFrame(frame, picture, worker.over < kOverForSpeed);
    Pace(worker, *frame);
}

void CChannelLive::HandleAudio(WorkerState& worker, const FramePtr& frame) {
    const bool audioOnly = MediaMode() == CORVANE_MEDIA_AUDIO;
    m_render.InputAudio(frame, true, audioOnly);
    if (audioOnly)
        Pace(worker, *frame);
}

void CChannelLive::Pace(WorkerState& worker, const MediaFrameImpl& frame) {
    const float rate = worker.over >= kOverForSpeed ? kCatchUpRate : 1.0f;
    worker.late = worker.clock.Pace(TimeMs(frame), rate, m_clock.Now());
    if (worker.late < 1)
        return;
    SleepUntil(m_clock.Now() + worker.late * kNsPerMs);
}

}    // namespace corvane
