#include "manager/RenderMgr.h"

#include <algorithm>
#include <utility>

#include "base/Limits.h"
#include "present/PictureTarget.h"

namespace corvane {

namespace {

constexpr int64_t kTakenLimit = 500'000'000;    // ns: how long a picture waits until the one before is taken

// The size that a frame is shown at: as it states it, as decoded where it states nothing; line-doubled for half-height
// pictures of the H.263 family.
PictureSize ShownSize(const MediaFrameImpl& frame, const DecodedFrame& decoded) {
    PictureSize size{frame.DecodedWidth(), frame.DecodedHeight()};
    if (size.width == 0 || size.height == 0)
        size = {decoded.width, decoded.height};
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

// Lends the current renderer's buffer; a renderer that has none is replaced by the one that follows it. What was
// committed is in `picture`.
class CRenderMgr::RendererTarget final : public PictureTarget {
public:
    RendererTarget(CRenderMgr& manager, const PresentSettings& settings, FinishedPicture& picture)
        : m_manager(manager), m_settings(settings), m_seat(manager.m_slot.Current()), m_picture(picture) {}

    const RendererTraits& Traits() const { return m_seat.renderer->Traits(); }
    uint32_t FormatFor(uint32_t preferred) const override { return m_seat.renderer->FormatFor(preferred); }

    bool Take(const DecodedFrame& decoded) override {
        if (!Traits().takesReferences || !m_seat.renderer->TakesReference(decoded))
            return false;
        m_picture.pixels.emplace<SharedPicture>(decoded);
        m_picture.madeFor = m_seat.id;
        return true;
    }

    PictureLease Lend(uint32_t width, uint32_t height, uint32_t preferredFormat) override {
        if (!limits::FitsPicture(width, height))
            return PictureLease();    // no renderer has such a buffer: none of them has failed
        for (;;) {
            if (!m_seat.renderer->HasFreeBuffer() && m_manager.m_mailbox.TakeBack())
                m_manager.m_counters.AddLost(Counter::PicturesReplaced, CORVANE_CAUSE_REPLACED);
            m_lent = m_seat.renderer->Lend({width, height}, preferredFormat);
            if (m_lent)
                return PictureLease(this, m_lent.Slot().data, m_lent.Slot().stride, m_lent.Slot().format);
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

CRenderMgr::CRenderMgr(const void* owner, uintptr_t window, uint32_t flags, Clock& clock, RendererMakers makers)
    : m_clock(clock),
      m_counters(clock),
      m_settings(std::make_shared<const PresentSettings>(WithFlags(flags))),
      m_slot(this, *m_settings, makers),
      m_sinks(this),
      m_statePicture(clock),
      m_window(WindowWatch::Open(window, WindowWatch::Purpose::Draw), this) {
    {
        const WindowWatchPtr watch = m_window.Watch();
        MutexLock lock(m_lock);    // the watch may tell of changes already
        ChangeSettings([&](PresentSettings& settings) { settings.window = watch; });
    }
    m_thread = Thread("corvane-render", owner, [this] { RenderLoop(); });
}

CRenderMgr::~CRenderMgr() {
    End();
}

void CRenderMgr::End() {
    if (!m_thread.Running())
        return;
    {
        MutexLock lock(m_lock);
        m_schedule.OnEnd();
        m_due.NotifyAll();
    }
    m_mailbox.Interrupt();
    m_thread.Join();
}

PresentSettingsPtr CRenderMgr::Settings() const {
    MutexLock lock(m_lock);
    return m_settings;
}

// ---- The worker's side ----

void CRenderMgr::PresentFrame(const FramePtr& frame, const DecodedFrame& decoded, bool wait,
                              const ColourSignal& signal) {
    CountAtEnd fate(m_counters, Counter::PicturesLost, CORVANE_CAUSE_OUT_OF_MEMORY);
    m_run.Follow(*frame);
    const PictureSize size = ShownSize(*frame, decoded);
    ReportFrame(*frame, size);
    if (wait)
        (void)m_mailbox.AwaitTaken(kTakenLimit);    // the newest picture counts, in time or not
    FinishedPicture picture{.frame = frame};
    {
        CallGate::Scope call(m_filterCalls);
        const PresentSettingsPtr settings = Settings();
        RendererTarget target(*this, *settings, picture);
        const PictureRequest request{.frame = *frame,
                                     .decoded = decoded,
                                     .size = TargetSize(*settings, target.Traits(), size),
                                     .angle = settings->angle,
                                     .colours = EffectiveColours(*settings, signal)};
        picture.colours = request.colours.value_or(ColourSignal());
        const RunResult carried = m_run.Carry(request, settings->chain, target);
        if (carried.smoothing != Smoothing::None)
            m_counters.Add(carried.smoothing == Smoothing::Done ? Counter::PicturesSmoothed
                                                                : Counter::PicturesRefusedSmoothing);
        if (carried.Lost())
            return fate.Is(Counter::PicturesLost, carried.fate == RunResult::Fate::LostNotRotatable
                                                      ? CORVANE_CAUSE_NOT_ROTATABLE
                                                      : CORVANE_CAUSE_NO_BUFFER);
    }
    fate.IsNothing();
    Post(picture, size);
    SendFallbackEvent();
}

// The picture, its frame and the state become one at once. What was replaced is destroyed by the caller.
void CRenderMgr::Post(FinishedPicture& picture, PictureSize size) {
    {
        MutexLock lock(m_lock);
        m_frame = picture.frame;
        m_frameSize = size;
        m_schedule.OnPosted();
        if (m_mailbox.Post(picture))
            m_counters.AddLost(Counter::PicturesReplaced, CORVANE_CAUSE_REPLACED);
    }
    m_due.NotifyAll();    // not sooner: the render thread would wait for the lock
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
        dirty = m_schedule.TakeUnsent();    // what is set while the callback runs counts for the next frame
    }
    if (settings->streamInfo == nullptr)
        return;
    PictureSize shown = size;
    (void)m_run.OutputSize(shown);
    shown = m_run.RotatedSize(shown, settings->angle);
    ReportStreamInfo(settings->streamInfo, settings->streamInfoContext, frame, previous.get(), resized, dirty, shown);
}

PictureSize CRenderMgr::TargetSize(const PresentSettings& settings, const RendererTraits& traits,
                                   PictureSize size) const {
    if (!traits.needsWindow) {
        if (settings.rawMost.Empty())
            return size;
        return {std::min(size.width, RoundedUpToEven(settings.rawMost.width)),
                std::min(size.height, RoundedUpToEven(settings.rawMost.height))};
    }
    // A renderer that does not scale well never gets a picture at more than twice the window's size; smaller reductions
    // are left to it.
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
    if (settings->streamInfo != nullptr)
        settings->streamInfo(settings->streamInfoContext, 9, 2, 0);
}

void CRenderMgr::SendDecoderKind(uint32_t kind) {
    const PresentSettingsPtr settings = Settings();
    if (settings->streamInfo != nullptr)
        settings->streamInfo(settings->streamInfoContext, 13, kind, 0);
}

void CRenderMgr::InputAudio(const FramePtr& frame, bool mix, bool show) {
    (void)mix;    // the sound output takes the frame here; without one the notice is all that a frame of sound does
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
}

// ---- The render thread ----

void CRenderMgr::RenderLoop() {
    for (;;) {
        PassSchedule::Due due = AwaitDue();
        if (due.end)
            break;
        bool spare = false;    // memory that goes back after a while
        try {
            DoWhatIsDue(due);
            spare = m_sinks.Trim();
        } catch (...) {    // no memory for another renderer, or a callback that threw: this present is lost
        }
        MutexLock lock(m_lock);
        m_schedule.SetSpare(spare, m_clock.Now());
    }
    m_kept = {};
    m_slot.DestroyAll();
    (void)m_sinks.Main(nullptr);
    (void)m_sinks.Overview(nullptr);
}

PassSchedule::Due CRenderMgr::AwaitDue() {
    FinishedPicture before;    // destroyed with no lock held
    MutexLock lock(m_lock);
    for (;;) {
        const int64_t now = m_clock.Now();
        if (m_schedule.IsDue(now)) {
            // Outside of Playing nobody takes a picture. Under the lock that Post takes as well: a picture that comes
            // from here on is of the next turn.
            const PassSchedule::Due due = m_schedule.Take(now);
            if ((due.state != RenderState::Playing || due.end) && m_mailbox.Take(m_kept, before))
                m_counters.AddLost(Counter::PicturesReplaced, CORVANE_CAUSE_REPLACED);
            return due;
        }
        if (m_schedule.WakeAt() == PassSchedule::kNever)
            m_due.WaitOnce(lock);
        else
            (void)m_clock.WaitUntil(m_due, lock, m_schedule.WakeAt());
    }
}

void CRenderMgr::DoWhatIsDue(PassSchedule::Due& due) {
    if (due.tidy)
        TidyUp();
    if (due.room && m_sinks.Resume()) {
        MutexLock lock(m_lock);
        m_schedule.OnSinkReady();
        due.draw = true;
    }
    if (due.state != RenderState::Playing)
        m_kept = {};
    if (!due.draw)
        return;
    if (due.state == RenderState::Playing)
        PresentPass();
    else
        DrawState();
}

// Renderers that were replaced, and the way to a window that was given up, end here, on their thread.
void CRenderMgr::TidyUp() {
    m_slot.DestroyRetired();
    const PresentSettingsPtr settings = Settings();
    (void)m_sinks.Main(settings->window);
    if (settings->area.overviewEnabled == 0 || settings->overviewWindow == nullptr)
        (void)m_sinks.Overview(nullptr);
}

void CRenderMgr::DrawState() {
    CallGate::Scope call(m_renderCalls);
    PresentSettingsPtr settings;
    FramePtr frame;
    BitmapPtr logo;
    StatePicture::Look look;
    {
        MutexLock lock(m_lock);
        settings = m_settings;
        frame = m_frame;
        look.frame = frame.get();
        if (!TellState(look, logo))
            return;
    }
    Pass pass{.settings = *settings, .sinks = m_sinks, .mailbox = &m_mailbox};
    const RendererPtr renderer = m_slot.Current().renderer;
    if (look.flags == CORVANE_OSD_AUDIO_ONLY && !renderer->Traits().needsWindow)
        renderer->NotifyAudioOnly(frame.get(), pass);
    else
        m_statePicture.Draw(pass, look);
}

// What the picture of the state looks like; false where it has none.
bool CRenderMgr::TellState(StatePicture::Look& look, BitmapPtr& logo) {
    switch (m_schedule.State()) {
    case RenderState::Stopped:
        look.flags = CORVANE_OSD_STOPPED | CORVANE_OSD_FRESH;
        logo = m_logo;
        look.logo = logo.get();
        return true;
    case RenderState::Waiting:
        look.flags = CORVANE_OSD_WAITING;
        look.wallTime = true;
        look.counter = m_schedule.TakeWaitCounter();
        return true;
    case RenderState::AudioOnly:
        look.flags = CORVANE_OSD_AUDIO_ONLY;
        return true;
    case RenderState::TimeOnly:
        look.flags = CORVANE_OSD_TIME_ONLY;
        look.wallTime = true;
        return true;
    case RenderState::Idle:
    case RenderState::Playing:    // since the wake-up, and woken again
        break;
    }
    return false;
}

void CRenderMgr::PresentPass() {
    CallGate::Scope call(m_renderCalls);
    m_statePicture.Free();
    m_slot.DestroyRetired();
    PresentSettingsPtr settings;
    const std::optional<PassFlags> flags = TakePicture(settings);
    if (!flags)
        return;
    const RendererSlot::Seat seat = m_slot.Current();
    if (!MatchPicture(seat.id))
        m_kept.pixels = std::monostate();    // those of another renderer
    Pass pass{.settings = *settings, .sinks = m_sinks, .mailbox = &m_mailbox, .flags = *flags};
    const int64_t begun = m_clock.Now();    // the client's callback takes the time that it takes
    const Outcome outcome = seat.renderer->Present(m_kept, pass);
    m_tally.Note(outcome, *settings, outcome == Outcome::HandedOver ? begun : m_clock.Now());
    {
        MutexLock lock(m_lock);
        m_schedule.EndPass(pass);
    }
    if (outcome == Outcome::Failed) {
        (void)m_slot.ReplaceFailed(seat, *settings);
        return;
    }
    AfterDisplay(pass);    // whether something was put or not
    // Deliveries of raw pictures follow here.
}

// Takes the newest picture, where there is one, and begins a pass with it or with the last one. No value where there is
// nothing to present.
std::optional<PassFlags> CRenderMgr::TakePicture(PresentSettingsPtr& settings) {
    FinishedPicture before;    // destroyed with no lock held
    MutexLock lock(m_lock);
    if (m_schedule.State() != RenderState::Playing)
        return std::nullopt;    // changed since the wake-up, and woken again
    m_fresh = m_mailbox.Take(m_kept, before);
    settings = m_settings;
    const std::optional<PassFlags> flags = m_schedule.BeginPass(m_fresh, settings->osdPolicy == kOsdAlways,
                                                                settings->presentEnabled, settings->osd != nullptr);
    return m_kept.frame != nullptr ? flags : std::nullopt;
}

// Whether this renderer may show the kept picture; counts a fresh one as taken, or as lost.
bool CRenderMgr::MatchPicture(RendererId id) {
    const bool shows = m_kept.madeFor == id;
    if (std::exchange(m_fresh, false)) {
        if (shows)
            m_tally.Begin(m_kept.frame->ArrivedAt());
        else
            m_counters.AddLost(Counter::PicturesReplaced, CORVANE_CAUSE_REPLACED);
    }
    return shows;
}

void CRenderMgr::AfterDisplay(Pass& pass) {
    if (pass.settings.afterDisplay == nullptr)
        return;
    const MediaFrameImpl& frame = *m_kept.frame;
    const AfterDisplayRecord record{0, 0, &frame.Header(), frame.PresentTime(), frame.BaseTime()};
    const PictureMailbox::ClientCall call(&m_mailbox);
    pass.settings.afterDisplay(pass.settings.afterDisplayContext, &record);
}

}    // namespace corvane
