#include "channels/ChannelLive.h"

#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "base/EndScope.h"
#include "frame/StreamType.h"

namespace corvane {

namespace {

constexpr int64_t kNsPerMs = 1'000'000;
constexpr int64_t kBufferingTick = 500 * kNsPerMs;    // how long the worker sleeps at most while the queue fills
constexpr int64_t kSkipLateness = -499;               // ms: later than this, queued time is dropped
constexpr uint32_t kOverForSpeed = 16;                // pops over the buffer time before the worker plays faster
constexpr float kCatchUpRate = 1.2f;

// How a frame counts by what its decoding came to.
void CountUnit(CountAtEnd& fate, DecodeOutcome outcome) {
    switch (outcome) {
    case DecodeOutcome::Picture:
        return fate.Is(Counter::PicturesDecoded);
    case DecodeOutcome::HeldBack:
        return fate.Is(Counter::UnitsWithoutPicture, CORVANE_CAUSE_HELD_BACK);
    case DecodeOutcome::NoPicture:
        return fate.Is(Counter::UnitsWithoutPicture, CORVANE_CAUSE_NO_PICTURE);
    case DecodeOutcome::NoDecoder:
        return fate.Is(Counter::UnitsWithoutDecoder, CORVANE_CAUSE_NO_DECODER);
    case DecodeOutcome::AwaitsKeyFrame:
        return fate.Is(Counter::UnitsAwaitingKeyFrame, CORVANE_CAUSE_NO_KEY_FRAME);
    case DecodeOutcome::NoStartCode:
        return fate.Is(Counter::UnitsFailed, CORVANE_CAUSE_NO_START_CODE);
    case DecodeOutcome::WrongType:
        return fate.Is(Counter::UnitsFailed, CORVANE_CAUSE_WRONG_TYPE);
    case DecodeOutcome::Failed:
        return fate.Is(Counter::UnitsFailed, CORVANE_CAUSE_DAMAGED);
    case DecodeOutcome::Size:
        return fate.Is(Counter::UnitsFailed, CORVANE_CAUSE_SIZE);
    case DecodeOutcome::Dropped:
        return fate.Is(Counter::UnitsFailed, CORVANE_CAUSE_DECODER_STUCK);
    }
}

}    // namespace

CChannelLive::CChannelLive(uintptr_t window, uint32_t flags, Clock& clock, const RendererMakers& makers)
    : m_clock(clock), m_render(this, window, flags, clock, makers) {
    m_decoder.SetFallbackAllowed((flags & CORVANE_FLAG_DECODER_FALLBACK) != 0);
}

CChannelLive::~CChannelLive() {
    CChannelLive::End();
}

void CChannelLive::End() {
    {
        MutexLock lock(m_mutex);
        m_dying = true;    // a callback that still runs on the render thread may try to start it again
    }
    JoinWorker();
    m_render.End();    // its callbacks may ask for stills until here
}

void CChannelLive::SetFactories(const DecoderFactories& factories) {
    m_decoder.SetFactories(factories);
}

// ---- Start and stop
// ----------------------------------------------------------------------------------------------------

Status CChannelLive::Start(bool clear) {
    MutexLock lock(m_mutex);
    if (m_run == Run::Stopping) {
        if (Thread::CurrentOwner() != nullptr)
            return Status::Failed;    // the stop may be waiting for this very callback
        while (m_run == Run::Stopping)
            m_stopped.WaitOnce(lock);
    }
    if (m_dying)
        return Status::Failed;
    m_render.Stop(clear);
    if (m_run == Run::Running)
        return Status::Ok;
    {
        MutexLock pace(m_paceMutex);
        m_paceStop = false;
    }
    try {
        m_thread = Thread("corvane-worker", this, [this] { Work(); });
    } catch (const std::system_error&) {
        return Status::Failed;
    }
    m_run = Run::Running;
    return Status::Ok;
}

Status CChannelLive::Stop() {
    const EndScope end(this);
    if (!end.Allowed())
        return Status::Failed;
    JoinWorker();
    return Status::Ok;
}

void CChannelLive::JoinWorker() {
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
    worker.Join();
    ResetDecoder();
    JitterQueue::Entries removed;    // freed outside the lock
    MutexLock lock(m_mutex);
    removed = m_queue.Reset();
    m_counters.AddLost(Counter::FramesEmptied, CORVANE_CAUSE_EMPTIED, removed.size());
    m_run = Run::Stopped;
    m_stopped.NotifyAll();
}

void CChannelLive::ResetDecoder() {
    ExclusiveLock lock(m_decoderLock);
    m_decoder.Reset(false);
    m_counters.NoteDecoder(0, 0);
}

// ---- Input
// -------------------------------------------------------------------------------------------------------------

uint32_t CChannelLive::MediaMode() {
    MutexLock lock(m_settingsMutex);
    return m_mediaMode;
}

Status CChannelLive::Accepts(uint32_t streamType) {
    constexpr uint32_t kVideoOnly = 1;
    constexpr uint32_t kAudioOnly = 2;
    switch (ClassOf(streamType)) {
    case StreamClass::Video:
    case StreamClass::Metadata:
        if (MediaMode() != kAudioOnly)
            return Status::Ok;
        break;
    case StreamClass::Audio:
        if (MediaMode() != kVideoOnly)
            return Status::Ok;
        break;
    case StreamClass::Placeholder:
    case StreamClass::Unknown:
        return Status::UnsupportedMedia;
    }
    m_counters.AddLost(Counter::FramesRefusedMode, CORVANE_CAUSE_MEDIA_MODE);
    return Status::UnsupportedMedia;
}

Status CChannelLive::Input(const MediaFrameHeader& header) {
    const int64_t now = m_clock.Now();
    if (const Status status = Accepts(header.streamType); !Ok(status))
        return status;
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
    Status status = Status::Ok;
    const bool pushed = PushOrWait(lock, frame, status);
    if (pushed)
        CountTaken();
    lock.Unlock();
    if (pushed)
        m_frameReady.NotifyOne();    // not sooner: the worker would wait for the lock
    else if (status == Status::QueueFull)
        m_counters.AddLost(Counter::FramesRefusedFull, CORVANE_CAUSE_QUEUE_FULL);
    return status;
}

void CChannelLive::CountTaken() {
    m_counters.Add(Counter::FramesTaken);
    if (!m_queue.StepWasMissing())
        return;
    m_counters.Add(Counter::FramesWithoutStep);
    if (m_queue.IsBuffering())
        m_counters.NoteCause(CORVANE_CAUSE_TIMES_DO_NOT_RISE);
}

void CChannelLive::GetStatistics(ChannelStatistics& out) {
    m_counters.Fill(out);
    MutexLock lock(m_mutex);
    out.queueFrames = m_queue.Count();
    out.queueBytes = m_queue.Bytes();
    out.queueMilliseconds = m_queue.LevelMs();
}

bool CChannelLive::PushOrWait(MutexLock& lock, const FramePtr& frame, Status& status) {
    for (;;) {
        if (m_run != Run::Running) {
            status = Status::ChannelNotStarted;
            return false;
        }
        if (m_queue.Push(frame))
            return true;
        bool block;
        {
            MutexLock settings(m_settingsMutex);
            block = m_blockWhenFull;
        }
        if (!block || Thread::CurrentOwner() != nullptr) {    // a callback must not wait for the worker that may run it
            status = Status::QueueFull;
            return false;
        }
        m_spaceReady.WaitOnce(lock);
    }
}

// ---- The worker
// --------------------------------------------------------------------------------------------------------

void CChannelLive::Work() {
    WorkerState worker;
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
        if (!frame->NotForDisplay())
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

bool CChannelLive::CompletesPicture(const MediaFrameImpl& frame) {
    ExclusiveLock lock(m_decoderLock);
    return m_decoder.Completes(frame);
}

// False when there is nothing to present. On true `frame` is the one that the picture came from.
bool CChannelLive::DecodeVideo(WorkerState& worker, FramePtr& frame, SharedPicture& picture) {
    CountAtEnd fate(m_counters, Counter::UnitsFailed, CORVANE_CAUSE_OUT_OF_MEMORY);
    const bool thinned = worker.keyFramesOnly && !frame->IsKeyFrame() && !CompletesPicture(*frame);
    if (!thinned)
        worker.keyFramesOnly = worker.displayMode >= 8;
    if (thinned || worker.thinner.ShouldThin(frame->Header(), worker.displayMode & 7)) {
        fate.Is(Counter::FramesThinned, CORVANE_CAUSE_THINNED);
        return false;
    }
    uint32_t got = 0;
    uint32_t kind;
    {
        ExclusiveLock lock(m_decoderLock);
        m_decoder.SetAdapter(m_render.GetAdapterIndex());
        if (m_decoder.Decode(frame, &got) < 0)
            got = 0;
        kind = m_decoder.ActiveKind();
        m_counters.NoteDecoder(kind, m_decoder.ThreadsInUse());
        if (got != 0) {
            (void)m_decoder.CurrentInput(frame);
            picture = m_decoder.ShareCurrent();
        }
    }
    if (kind != worker.lastKind) {
        worker.lastKind = kind;
        m_render.SendDecoderKind(kind);
    }
    CountUnit(fate, m_decoder.LastOutcome());    // only this thread decodes
    if (got != 0 && frame->NotForDisplay())
        m_counters.AddLost(Counter::PicturesNotForDisplay, CORVANE_CAUSE_NOT_FOR_DISPLAY);
    return got != 0 && !frame->NotForDisplay();
}

void CChannelLive::HandleVideo(WorkerState& worker, FramePtr& frame) {
    SharedPicture picture;
    if (!DecodeVideo(worker, frame, picture))
        return;
    // The picture stays valid without the lock: only this thread decodes, and who resets joins it first.
    m_render.PresentFrame(frame, picture.Get(), worker.over < kOverForSpeed);
    Pace(worker, *frame);
}

void CChannelLive::HandleAudio(WorkerState& worker, const FramePtr& frame) {
    const bool audioOnly = MediaMode() == 2;
    m_render.InputAudio(frame, true, audioOnly);
    if (audioOnly)
        Pace(worker, *frame);
}

void CChannelLive::Pace(WorkerState& worker, const MediaFrameImpl& frame) {
    const float rate = worker.over >= kOverForSpeed ? kCatchUpRate : 1.0f;
    worker.late = worker.clock.Pace(TimeMs(frame), rate, m_clock.Now());
    if (worker.late < 1)
        return;
    const int64_t deadline = m_clock.Now() + worker.late * kNsPerMs;
    MutexLock lock(m_paceMutex);
    while (!m_paceStop && m_clock.WaitUntil(m_paceWake, lock, deadline)) {
    }
}

}    // namespace corvane
