#include "manager/RenderMgr.h"

#include <algorithm>
#include <utility>

#include "base/Limits.h"
#include "present/PictureTarget.h"

namespace corvane {

namespace {

constexpr int64_t kTakenLimit = 500'000'000;    // ns that a picture waits until the last one is taken

// The size that a frame is shown at: the size that it states, else the decoded one. Half-height pictures of the H.263
// family are shown at twice their height.
PictureSize ShownSize(const MediaFrameImpl& frame, PictureSize decoded) {
    PictureSize size{frame.DecodedWidth(), frame.DecodedHeight()};
    if (size.Empty())
        size = decoded;
    if (frame.Header().streamType == CORVANE_STREAM_H263 && size.width >= 361 &&
        (size.height == 240 || size.height == 288))
        size.height *= 2;
    return size;
}

PresentSettings WithFlags(uint32_t flags) {
    PresentSettings settings;
    settings.flags = flags;
    return settings;
}

uint32_t RoundedUpToEven(uint32_t value) {
    return value == UINT32_MAX ? value - 1 : (value + 1) & ~1u;
}

}    // namespace

// Lends a buffer of the current renderer. A renderer that fails to lend is replaced by the one that follows it. A
// commit moves the pixels into `picture`.
class CRenderMgr::RendererTarget final : public PictureTarget {
public:
    RendererTarget(CRenderMgr& manager, const PresentSettings& settings, FinishedPicture& picture)
        : m_manager(manager), m_settings(settings), m_seat(manager.m_slot.Current()), m_picture(picture) {}

    const RendererTraits& Traits() const { return m_seat.renderer->Traits(); }
    uint32_t FormatFor(uint32_t preferred) const override { return m_seat.renderer->FormatFor(preferred); }

    bool Take(const SharedPicture& decoded) override {
        if (!Traits().takesReferences || !m_seat.renderer->TakesReference(decoded.View()))
            return false;
        m_picture.pixels = decoded.Share();
        m_picture.madeFor = m_seat.id;
        return true;
    }

    PictureLease Lend(PictureSize size, uint32_t preferredFormat) override {
        if (!limits::FitsPicture(size.width, size.height))
            return PictureLease();    // too large for every renderer, so none has failed
        for (;;) {
            if (!m_seat.renderer->HasFreeBuffer() && m_manager.m_mailbox.TakeBack())
                m_manager.m_counters.AddLost(Counter::PicturesReplaced, CORVANE_CAUSE_REPLACED);
            m_lent = m_seat.renderer->Lend(size, preferredFormat);
            if (m_lent)
                return PictureLease(this, m_lent.Slot().view);
            if (!m_manager.m_slot.ReplaceFailed(m_seat, m_settings))
                return PictureLease();
            m_seat = m_manager.m_slot.Current();
        }
    }

private:
    void Finish(bool commit) override {
        if (commit) {
            m_picture.pixels = std::move(m_lent);
            m_picture.madeFor = m_seat.id;
        }
        m_lent = LentBuffer();
    }

    CRenderMgr& m_manager;
    const PresentSettings& m_settings;
    RendererSlot::Seat m_seat;
    FinishedPicture& m_picture;
    LentBuffer m_lent;
};

CRenderMgr::CRenderMgr(const void* owner, uintptr_t window, uint32_t flags, Clock& clock, RendererMakers makers,
                       SoundSystem& sound)
    : m_clock(clock),
      m_counters(clock),
      m_audio(
          m_counters, clock,
          [this, owner](const MediaFrameImpl& frame, const uint8_t* samples, uint32_t bytes,
                        const std::function<bool()>& goesOn) {
              const Thread::AdoptedThread acting(owner);
              m_raw.DeliverSound(frame, samples, bytes, goesOn);
          },
          sound),
      m_settings(std::make_shared<const PresentSettings>(WithFlags(flags))),
      m_slot(this, *m_settings, makers, clock),
      m_sinks(this, clock),
      m_statePicture(clock),
      m_window(WindowWatch::Open(window, WindowWatch::Purpose::Draw), this) {
    {
        const WindowWatchPtr watch = m_window.Watch();
        MutexLock lock(m_lock);    // the watch may already report changes
        ChangeSettings([&](PresentSettings& settings) {
            settings.window = watch;
            settings.chain.filterLock = &m_filters.lock;
        });
    }
    m_thread = Thread("corvane-render", owner, [this] { RenderLoop(); });
}

CRenderMgr::~CRenderMgr() {
    End();
}

void CRenderMgr::End() {
    m_audio.Flush();
    if (!m_thread.Running())
        return;
    {
        MutexLock lock(m_lock);
        m_schedule.OnEnd();
        m_due.NotifyAll();
    }
    Interrupt();
    m_thread.Join();
}

PresentSettingsPtr CRenderMgr::Settings() const {
    MutexLock lock(m_lock);
    return m_settings;
}

// ---- The worker's side ----

void CRenderMgr::PresentFrame(const FramePtr& frame, const SharedPicture& decoded, bool wait) {
    CountAtEnd fate(m_counters, Counter::PicturesLost, CORVANE_CAUSE_OUT_OF_MEMORY);
    m_run.Follow(*frame);
    const PictureSize size = ShownSize(*frame, decoded.View().size);
    ReportFrame(*frame, size);
    if (wait)
        (void)m_mailbox.AwaitTaken(kTakenLimit);    // after the limit the new picture replaces the old one
    FinishedPicture picture{.frame = frame};
    {
        PresentSettingsPtr settings = Settings();
        std::optional<CallGate::Scope> call;
        if (!settings->chain.clientFilters.empty()) {    // enter the gate, then read the filters
            call.emplace(m_filters.gate);
            settings = Settings();
        }
        RendererTarget target(*this, *settings, picture);
        const PictureRequest request{.frame = *frame,
                                     .picture = ViewUnder(*settings, decoded),
                                     .shared = &decoded,
                                     .size = TargetSize(*settings, target.Traits(), size),
                                     .angle = settings->angle};
        picture.colours = request.picture.colours;
        const RunResult carried = m_run.Carry(request, settings->chain, target);
        if (carried.smoothing != Smoothing::None)
            m_counters.Add(carried.smoothing == Smoothing::Done ? Counter::PicturesSmoothed
                                                                : Counter::PicturesRefusedSmoothing);
        if (picture.Reference() == nullptr)
            picture.decoded = m_raw.Keep(decoded);
        if (carried.Lost())
            return fate.Is(Counter::PicturesLost, carried.fate == RunResult::Fate::LostNotRotatable
                                                      ? CORVANE_CAUSE_NOT_ROTATABLE
                                                      : CORVANE_CAUSE_NO_BUFFER);
    }
    fate.IsNothing();
    Post(picture, size);
    SendFallbackEvent();
}

// Sets picture, frame and state in one step. `picture` becomes the one that was replaced, for the caller to destroy.
void CRenderMgr::Post(FinishedPicture& picture, PictureSize size) {
    {
        MutexLock lock(m_lock);
        m_frame = picture.frame;
        m_frameSize = size;
        m_schedule.OnPosted();
        if (m_mailbox.Post(picture))
            m_counters.AddLost(Counter::PicturesReplaced, CORVANE_CAUSE_REPLACED);
    }
    m_due.NotifyAll();    // without the lock, so that the render thread need not wait for the lock
}

void CRenderMgr::ReportFrame(const MediaFrameImpl& frame, PictureSize size) {
    PresentSettingsPtr settings;
    FramePtr previous;
    bool resized;
    bool dirty;
    {
        MutexLock lock(m_lock);
        settings = m_settings;
        previous = m_frame;
        resized = m_frame != nullptr && m_frameSize != size;
        dirty = m_schedule.TakeUnsent();    // a demand that is set during the callback counts for the next frame
    }
    if (!settings->streamInfo)
        return;
    PictureSize shown = size;
    (void)m_run.OutputSize(shown);
    shown = m_run.RotatedSize(shown, settings->angle);
    ReportStreamInfo(settings->streamInfo, frame, previous.get(), resized, dirty, shown);
}

PictureSize CRenderMgr::TargetSize(const PresentSettings& settings, const RendererTraits& traits,
                                   PictureSize size) const {
    if (!traits.needsWindow) {
        if (settings.rawMost.Empty())
            return size;
        return {std::min(size.width, RoundedUpToEven(settings.rawMost.width)),
                std::min(size.height, RoundedUpToEven(settings.rawMost.height))};
    }
    // A renderer that does not scale well gets no picture of twice the window's size or more; it makes smaller
    // reductions itself.
    if (traits.scalesItself || settings.area.zoomEnabled != 0 || settings.angle || settings.window == nullptr)
        return size;
    const std::optional<Rect> window = settings.window->ScreenRect();
    if (!window || window->Width() < 2 || window->Height() < 2)
        return size;
    const PictureSize even{RoundedUpToEven(static_cast<uint32_t>(window->Width())),
                           RoundedUpToEven(static_cast<uint32_t>(window->Height()))};
    return even.width <= size.width / 2 && even.height <= size.height / 2 ? even : size;
}

void CRenderMgr::SendFallbackEvent() {
    if (!m_slot.TakeFallbackEvent())
        return;
    const PresentSettingsPtr settings = Settings();
    if (settings->streamInfo)
        settings->streamInfo(CORVANE_INFO_FALLBACK, 2, 0);
}

void CRenderMgr::SendDecoderKind(uint32_t kind) {
    const PresentSettingsPtr settings = Settings();
    if (settings->streamInfo)
        settings->streamInfo(CORVANE_INFO_DECODER, kind, 0);
}

void CRenderMgr::InputAudio(const FramePtr& frame, bool dropWhenFull, bool show) {
    m_audio.Enqueue(frame, dropWhenFull);
    if (!show)
        return;
    MutexLock lock(m_lock);
    if (m_frame != nullptr && m_frame->Header().timeSeconds == frame->Header().timeSeconds)
        return;
    SetState(RenderState::AudioOnly, frame);
}

void CRenderMgr::ShowTimeOnly(const FramePtr& frame) {
    MutexLock lock(m_lock);
    SetState(RenderState::TimeOnly, frame);
}

void CRenderMgr::SetState(RenderState state, const FramePtr& frame) {
    m_frame = frame;
    m_frameSize = {};
    m_schedule.OnState(state);
    m_mailbox.Interrupt();
    m_due.NotifyAll();
    m_raw.Cut();
}

void CRenderMgr::Interrupt() {
    m_raw.End();
    m_mailbox.Interrupt();
}

void CRenderMgr::AwaitCalls() {
    m_filters.gate.WaitForRunning();
    m_raw.AwaitCall();
}

// ---- The render thread ----

void CRenderMgr::RenderLoop() {
    std::optional<Turn> turn(std::in_place);
    for (;;) {
        turn.emplace(Await(*turn));    // destroys the last turn, with no lock held
        if (turn->due.end)
            break;
        try {
            Do(*turn);
            turn->spare = m_sinks.Trim();
        } catch (...) {    // no memory for another renderer, or a callback raised an exception: this pass is lost
        }
    }
    m_kept = {};
    m_slot.DestroyAll();
    m_sinks.Clear();
}

// Ends a turn and waits for the next one. Most turns of the render thread take m_lock only here.
CRenderMgr::Turn CRenderMgr::Await(const Turn& ended) {
    FinishedPicture before, forgotten;    // destroyed with no lock held
    Turn next;
    MutexLock lock(m_lock);
    if (ended.pass)
        m_schedule.EndPass(*ended.pass);
    if (ended.inCalls)
        m_renderCalls.Leave(ended.side);
    int64_t now = m_clock.Now();
    for (m_schedule.SetSpare(ended.spare, now); !m_schedule.IsDue(now); now = m_clock.Now()) {
        if (m_schedule.WakeAt() == PassSchedule::kNever)
            m_due.WaitOnce(lock);
        else
            (void)m_clock.WaitUntil(m_due, lock, m_schedule.WakeAt());
    }
    next.due = m_schedule.Take(now);
    next.settings = m_settings;
    if (next.due.forget) {
        forgotten = std::exchange(m_kept, FinishedPicture());
        if (auto* const lent = std::get_if<LentBuffer>(&forgotten.pixels))
            lent->GiveBack();    // the worker counts on it, as in PictureMailbox::Take
    }
    next.fresh = m_mailbox.Take(m_kept, before);
    if (next.due.end || next.due.state != RenderState::Playing) {
        if (std::exchange(next.fresh, false))    // the picture is not shown
            m_counters.AddLost(Counter::PicturesReplaced, CORVANE_CAUSE_REPLACED);
        next.frame = m_frame;
        next.logo = m_schedule.State() == RenderState::Stopped ? m_logo : nullptr;
        next.counter = next.due.draw && next.due.state == RenderState::Waiting ? m_schedule.TakeWaitCounter() : 0;
    } else if (next.due.draw) {
        const std::optional<PassFlags> flags =
            m_schedule.BeginPass(next.fresh, m_kept.frame != nullptr, m_settings->osdPolicy == CORVANE_TEXT_ALWAYS,
                                 m_settings->presentEnabled, static_cast<bool>(m_settings->osd));
        next.due.draw = flags.has_value();
        if (flags)
            next.pass.emplace(
                Pass{.settings = *next.settings, .sinks = m_sinks, .mailbox = &m_mailbox, .flags = *flags});
    }
    next.inCalls = next.due.draw;
    if (next.inCalls)    // enter the gate, then read the filters
        next.side = m_renderCalls.Enter();
    return next;
}

void CRenderMgr::Do(Turn& turn) {
    m_slot.DestroyRetired();
    if (turn.due.tidy)
        TidyUp(*turn.settings);
    if (turn.due.room && m_sinks.Resume())
        OnSinkReady();
    if (turn.due.state != RenderState::Playing)
        m_kept = {};
    if (!turn.due.draw)
        return;
    if (turn.due.state == RenderState::Playing)
        PresentPass(turn);
    else
        DrawState(turn);
}

// Destroys the sinks of windows that were given up.
void CRenderMgr::TidyUp(const PresentSettings& settings) {
    m_sinks.Keep({settings.window, settings.area.overviewEnabled != 0 ? settings.overviewWindow : nullptr});
}

void CRenderMgr::DrawState(const Turn& turn) {
    StatePicture::Look look{.frame = turn.frame.get(), .counter = turn.counter, .logo = turn.logo.get()};
    switch (turn.due.state) {
    case RenderState::Stopped:
        look.flags = CORVANE_OSD_STOPPED | CORVANE_OSD_FRESH;
        break;
    case RenderState::Waiting:
        look.flags = CORVANE_OSD_WAITING;
        look.wallTime = true;
        break;
    case RenderState::AudioOnly:
        look.flags = CORVANE_OSD_AUDIO_ONLY;
        break;
    case RenderState::TimeOnly:
        look.flags = CORVANE_OSD_TIME_ONLY;
        look.wallTime = true;
        break;
    case RenderState::Idle:
    case RenderState::Playing:
        return;
    }
    Pass pass{.settings = *turn.settings, .sinks = m_sinks, .mailbox = &m_mailbox};
    const RendererPtr renderer = m_slot.Current().renderer;
    if (look.flags == CORVANE_OSD_AUDIO_ONLY && !renderer->Traits().needsWindow)
        renderer->NotifyAudioOnly(turn.frame.get(), pass);
    else
        m_statePicture.Draw(pass, look);
}

void CRenderMgr::PresentPass(Turn& turn) {
    m_statePicture.Free();
    Pass& pass = *turn.pass;
    if (turn.fresh)
        m_raw.OnFresh();
    const RendererSlot::Seat seat = m_slot.Current();
    if (!MatchPicture(seat.id, turn.fresh))
        m_kept.pixels = std::monostate();    // another renderer made them
    const int64_t begun = m_clock.Now();     // a time before the client's callback, which may take long
    const Outcome outcome = seat.renderer->Present(m_kept, pass);
    m_tally.Note(outcome, pass.settings, outcome == Outcome::HandedOver ? begun : m_clock.Now());
    if (outcome == Outcome::Failed) {
        (void)m_slot.ReplaceFailed(seat, pass.settings);
        return;
    }
    AfterDisplay(pass);    // also where nothing was put
    m_raw.Deliver(m_kept, &m_mailbox, [this] { return Settings(); });
    m_kept.decoded = SharedPicture();    // the decoder gets its picture back
}

// Whether this renderer may show the kept picture; counts a fresh one as taken, or as lost.
bool CRenderMgr::MatchPicture(RendererId id, bool fresh) {
    const bool shows = m_kept.madeFor == id;
    if (fresh && shows)
        m_tally.Begin(m_kept.frame->ArrivedAt());
    else if (fresh)
        m_counters.AddLost(Counter::PicturesReplaced, CORVANE_CAUSE_REPLACED);
    return shows;
}

void CRenderMgr::AfterDisplay(Pass& pass) {
    if (!pass.settings.afterDisplay)
        return;
    const MediaFrameImpl& frame = *m_kept.frame;
    const AfterDisplayRecord record{0, 0, &frame.Header(), frame.PresentTime(), frame.BaseTime()};
    const PictureMailbox::ClientCall call(&m_mailbox);
    pass.settings.afterDisplay(&record);
}

}    // namespace corvane
