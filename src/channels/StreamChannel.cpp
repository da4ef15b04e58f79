#include "channels/StreamChannel.h"

#include <cstddef>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/JoinGuard.h"
#include "frame/StreamType.h"

namespace corvane {

StreamChannel::StreamChannel(uintptr_t window, uint32_t flags, Clock& clock, RendererMakers makers, SoundSystem& sound)
    : m_clock(clock),
      m_render(Handle(), window, flags, clock, makers, sound),
      m_video(m_render, (flags & CORVANE_FLAG_DECODER_FALLBACK) != 0) {}

void StreamChannel::End() {
    {
        MutexLock lock(m_mutex);
        m_ended = true;    // a callback that still runs on the render thread may try to start it again
    }
    JoinWorker();
    m_render.End();    // its callbacks may ask for stills until here
}

// ---- Start and stop ----

Status StreamChannel::Start(bool clear) {
    MutexLock lock(m_mutex);
    if (m_run == Run::Stopping) {
        if (Thread::CurrentOwner() != nullptr)
            return Status::Failed;    // the stop may be waiting for this callback
        while (m_run == Run::Stopping)
            m_stopped.WaitOnce(lock);
    }
    if (m_ended)
        return Status::Failed;
    m_render.Stop(clear);
    if (m_run == Run::Running)
        return Status::Ok;
    {
        MutexLock pace(m_paceMutex);
        m_paceStop = false;
    }
    try {
        m_thread = Thread("corvane-worker", Handle(), [this] { Work(); });
    } catch (const std::system_error&) {
        return Status::Failed;
    }
    m_run = Run::Running;
    return Status::Ok;
}

Status StreamChannel::Stop() {
    const JoinGuard end(Handle());
    if (!end.Allowed())
        return Status::Failed;
    JoinWorker();
    return Status::Ok;
}

void StreamChannel::JoinWorker() {
    Thread worker;
    {
        MutexLock lock(m_mutex);
        while (m_run == Run::Stopping)
            m_stopped.WaitOnce(lock);
        if (m_run == Run::Stopped)
            return;
        m_run = Run::Stopping;
        worker = std::move(m_thread);
        m_frameReady.NotifyAll();
        m_spaceReady.NotifyAll();
    }
    {
        MutexLock pace(m_paceMutex);
        m_paceStop = true;
        m_paceWake.NotifyAll();
    }
    m_render.Interrupt();
    worker.Join();
    m_render.AwaitCalls();    // of a raw picture on the render thread
    m_video.Reset(false);
    m_render.Sound().Flush();
    JitterQueue::Entries removed;    // freed outside the lock
    MutexLock lock(m_mutex);
    removed = m_queue.Reset();
    m_counters.AddLost(Counter::FramesEmptied, CORVANE_CAUSE_EMPTIED, removed.size());
    m_run = Run::Stopped;
    m_stopped.NotifyAll();
}

void StreamChannel::SleepUntil(int64_t deadline) {
    MutexLock lock(m_paceMutex);
    while (!m_paceStop && m_clock.WaitUntil(m_paceWake, lock, deadline)) {
    }
}

// ---- Input ----

bool StreamChannel::BlocksWhenFull() {
    MutexLock lock(m_settingsMutex);
    return m_blockWhenFull;
}

Status StreamChannel::Accepts(uint32_t streamType) {
    switch (ClassOf(streamType)) {
    case StreamClass::Video:
    case StreamClass::Metadata:
        if (MediaMode() != CORVANE_MEDIA_AUDIO)
            return Status::Ok;
        break;
    case StreamClass::Audio:
        if (MediaMode() != CORVANE_MEDIA_VIDEO)
            return Status::Ok;
        break;
    case StreamClass::Placeholder:
    case StreamClass::Unknown:
        return Status::UnsupportedMedia;
    }
    m_counters.AddLost(Counter::FramesRefusedMode, CORVANE_CAUSE_MEDIA_MODE);
    return Status::UnsupportedMedia;
}

Status StreamChannel::Input(const MediaFrameHeader& header) {
    const int64_t now = m_clock.Now();
    CORVANE_RETURN_IF_FAILED(Accepts(header.streamType));
    FramePtr frame;
    try {
        frame = std::make_shared<MediaFrameImpl>(header);
        frame->SetArrival(now);
    } catch (const std::bad_alloc&) {
        return Status::OutOfMemory;
    } catch (const std::invalid_argument&) {
        return Status::InvalidArgument;
    } catch (const std::exception&) {
        return Status::Failed;
    }
    MutexLock lock(m_mutex);
    const Status status = Admit(frame, lock);
    if (Ok(status))
        CountTaken();
    lock.Unlock();
    if (Ok(status))
        m_frameReady.NotifyOne();    // not sooner: the worker would wait for the lock
    else if (status == Status::QueueFull)
        m_counters.AddLost(Counter::FramesRefusedFull, CORVANE_CAUSE_QUEUE_FULL);
    return status;
}

void StreamChannel::CountTaken() {
    m_counters.Add(Counter::FramesTaken);
    if (!m_queue.StepWasMissing())
        return;
    m_counters.Add(Counter::FramesWithoutStep);
    if (m_queue.IsBuffering())
        m_counters.NoteCause(CORVANE_CAUSE_TIMES_DO_NOT_RISE);
}

void StreamChannel::GetStatistics(ChannelStatistics& out) {
    m_counters.Fill(out);
    if (out.recordSize <= offsetof(ChannelStatistics, queueFrames))
        return;    // no thread uses the queue
    MutexLock lock(m_mutex);
    out.queueFrames = m_queue.Count();
    out.queueBytes = m_queue.Bytes();
    out.queueMilliseconds = m_queue.LevelMs();
}

}    // namespace corvane
