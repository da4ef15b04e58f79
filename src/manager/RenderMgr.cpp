#include "manager/RenderMgr.h"

#include <algorithm>
#include <utility>

#include "base/Limits.h"
#include "present/PictureTarget.h"

namespace corvane {

namespace {

constexpr int kAttempts = 2;              // of a pass to prepare for the window as it is
constexpr int64_t kTick = 500'000'000;    // ns: how long a push may wait, and the step of the waiting picture
constexpr std::chrono::milliseconds kLatchLimit(20);    // how long a push waits for the picture before it to be taken

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

RenderInfo StartInfo(uint32_t flags) {
    RenderInfo info;
    info.flags = flags;
    return info;
}

uint32_t RoundedUpToEven(uint32_t value) {
    return value == UINT32_MAX ? value - 1 : (value + 1) & ~1u;
}

}    // namespace

// Lends the current renderer's buffer; a renderer that has none is replaced by the next of the chain.
class CRenderMgr::RendererTarget final : public PictureTarget {
public:
    RendererTarget(RendererSlot& slot, RendererPtr renderer, const RenderInfo& info)
        : m_slot(slot), m_renderer(std::move(renderer)), m_info(info) {}

    PictureLease Lend(uint32_t width, uint32_t height, uint32_t preferredFormat) override {
        if (!limits::FitsPicture(width, height))
            return PictureLease();    // no renderer has such a buffer: none of them has failed
        for (;;) {
            uint8_t* buffer = nullptr;
            uint32_t stride = 0;
            uint32_t format = preferredFormat;
            if (m_renderer->GetBuffer(width, height, &buffer, &stride, &format) >= 0)
                return PictureLease(this, buffer, stride, format);
            if (!m_slot.ReplaceFailed(m_renderer, m_info))
                return PictureLease();
            m_renderer = m_slot.Current();
        }
    }

    bool Take(const DecodedFrame& picture) override { return m_renderer->TakePicture(picture); }

private:
    void Finish(bool commit) override {
        if (commit)
            m_renderer->Commit();
    }
    void TakeBack() override { m_renderer->TakeBack(); }

    RendererSlot& m_slot;
    RendererPtr m_renderer;
    const RenderInfo& m_info;
};

CRenderMgr::CRenderMgr(const void* owner, uintptr_t window, uint32_t flags, Clock& clock, const RendererMakers& makers)
    : m_clock(clock),
      m_counters(clock),
      m_info(StartInfo(flags)),
      m_chainSettings(std::make_shared<const ChainSettings>()),
      m_slot(this, StartInfo(flags), makers),
      m_sinks(this),
      m_statePicture(clock),
      m_window(WindowWatch::Open(window, WindowWatch::Purpose::Draw), this) {
    {
        MutexLock lock(m_lock);    // the watch may tell of changes already
        m_info.window = m_window.Watch();
        m_info.sinks = &m_sinks;
        m_info.textFresh = &m_textFresh;
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
        m_ending = true;
        WakeLocked();
    }
    m_thread.Join();
}

// ---- The worker's side ----

CRenderMgr::PicturePlan CRenderMgr::Plan() const {
    MutexLock lock(m_lock);
    return {m_info, m_chainSettings, m_angle, m_rawMaxWidth, m_rawMaxHeight};
}

void CRenderMgr::PresentFrame(const FramePtr& frame, const DecodedFrame& decoded, bool wait) NO_THREAD_SAFETY_ANALYSIS {
    CountAtEnd fate(m_counters, Counter::PicturesLost, CORVANE_CAUSE_OUT_OF_MEMORY);
    m_chain.UpdateDewarp(*frame);
    const PictureSize size = ShownSize(*frame, decoded);
    ReportFrame(*frame, size);
    if (wait)
        AwaitLatch();
    {
        TryExclusiveLock picture(m_pictureLock, wait ? std::chrono::nanoseconds(kTick) : std::chrono::nanoseconds(0));
        if (!picture)
            return fate.Is(Counter::PicturesLost, CORVANE_CAUSE_REPLACED);
        CallGate::Scope call(m_filterCalls);
        const PicturePlan plan = Plan();
        RendererPtr renderer = m_slot.Current();
        const RendererType type = renderer->GetType();
        const PictureSize target = TargetSize(plan, type, size);
        RendererTarget lender(m_slot, std::move(renderer), plan.info);
        const CarryResult carried = CarryPicture(lender, m_chain, *plan.chain, Rotation(plan.angle), *frame, decoded,
                                                 target.width, target.height);
        if (carried.smoothing != Smoothing::None)
            m_counters.Add(carried.smoothing == Smoothing::Done ? Counter::PicturesSmoothed
                                                                : Counter::PicturesRefusedSmoothing);
        if (carried.Lost())
            return fate.Is(Counter::PicturesLost, carried.fate == CarryResult::Fate::LostNotRotatable
                                                      ? CORVANE_CAUSE_NOT_ROTATABLE
                                                      : CORVANE_CAUSE_NO_BUFFER);
        fate.IsNothing();
        m_committed = frame;
        Store(frame, size);
    }
    m_frameReady.NotifyAll();    // not sooner: the render thread would wait for these locks
    SendFallbackEvent();
}

// A picture that the render thread was woken for is not overwritten before it had its turn. A present that goes on, a
// client's callback say, is not waited for.
void CRenderMgr::AwaitLatch() {
    const auto deadline = std::chrono::steady_clock::now() + kLatchLimit;
    MutexLock lock(m_lock);
    while (m_unlatched && !m_presenting && m_latched.WaitOnce(lock, deadline)) {
    }
}

void CRenderMgr::ReportFrame(const MediaFrameImpl& frame, PictureSize size) {
    PicturePlan plan = Plan();
    FramePtr previous;
    bool resized;
    bool dirty;
    {
        MutexLock lock(m_lock);
        previous = m_frame;
        resized = m_frame != nullptr && m_frameSize != size;
        dirty = std::exchange(m_infoUnsent, false);    // what is set while the callback runs counts for the next frame
    }
    if (plan.info.streamInfo == nullptr)
        return;
    PictureSize shown = size;
    (void)m_chain.OutputSize(&shown.width, &shown.height);
    if (const RotateFilter* rotate = Rotation(plan.angle))
        rotate->OutputSize(shown.width, shown.height, &shown.width, &shown.height);
    ReportStreamInfo(plan.info.streamInfo, plan.info.streamInfoContext, frame, previous.get(), resized, dirty, shown);
}

PictureSize CRenderMgr::TargetSize(const PicturePlan& plan, RendererType type, PictureSize size) const {
    if (type == RendererType::OffScreen) {
        if (plan.rawMaxWidth == 0 || plan.rawMaxHeight == 0)
            return size;
        return {std::min(size.width, RoundedUpToEven(plan.rawMaxWidth)),
                std::min(size.height, RoundedUpToEven(plan.rawMaxHeight))};
    }
    // The plain renderer never converts a picture at more than twice the window's size; smaller reductions are left to
    // it. The default one scales by itself, and takes whole pictures by reference.
    if (type != RendererType::Gdi || plan.info.area.zoomEnabled != 0 || plan.angle || plan.info.window == nullptr)
        return size;
    const std::optional<Rect> window = plan.info.window->ScreenRect();
    if (!window || window->Width() < 2 || window->Height() < 2)
        return size;
    const PictureSize even{RoundedUpToEven(static_cast<uint32_t>(window->Width())),
                           RoundedUpToEven(static_cast<uint32_t>(window->Height()))};
    return even.width <= size.width / 2 && even.height <= size.height / 2 ? even : size;
}

RotateFilter* CRenderMgr::Rotation(const std::optional<double>& angle) {
    if (!angle) {
        m_rotate.reset();
    } else if (m_rotate == nullptr) {
        m_rotate = std::make_unique<RotateFilter>(*angle);
        m_rotateAngle = *angle;
    } else if (m_rotateAngle != *angle) {
        m_rotate->SetAngle(*angle);
        m_rotateAngle = *angle;
    }
    return m_rotate.get();
}

void CRenderMgr::Store(const FramePtr& frame, PictureSize size) {
    MutexLock lock(m_lock);
    m_frame = frame;
    m_frameSize = size;
    m_info.forceRedraw |= m_state != RenderState::Playing;    // the state's picture lies where margins and text go
    m_state = RenderState::Playing;
    m_unlatched = true;
    if (std::exchange(m_untaken, true))
        m_counters.AddLost(Counter::PicturesReplaced, CORVANE_CAUSE_REPLACED);
    ++m_generation;
}

void CRenderMgr::SendFallbackEvent() {
    if (!m_slot.TakeFallbackEvent())
        return;
    const PicturePlan plan = Plan();
    if (plan.info.streamInfo != nullptr)
        plan.info.streamInfo(plan.info.streamInfoContext, 9, 2, 0);
}

void CRenderMgr::SendDecoderKind(uint32_t kind) {
    const PicturePlan plan = Plan();
    if (plan.info.streamInfo != nullptr)
        plan.info.streamInfo(plan.info.streamInfoContext, 13, kind, 0);
}

void CRenderMgr::InputAudio(const FramePtr& frame, bool mix, bool show) {
    (void)mix;    // the sound output takes the frame here; without one the notice is all that a frame of sound does
    if (!show)
        return;
    MutexLock lock(m_lock);
    if (m_frame != nullptr && m_frame->Header().timeSeconds == frame->Header().timeSeconds)
        return;
    m_frame = frame;
    m_frameSize = {};
    m_state = RenderState::AudioOnly;
    WakeLocked();
}

void CRenderMgr::ShowTimeOnly(const FramePtr& frame) {
    MutexLock lock(m_lock);
    m_frame = frame;
    m_frameSize = {};
    m_state = RenderState::TimeOnly;
    WakeLocked();
}

// ---- The render thread ----

void CRenderMgr::WakeLocked() {
    ++m_generation;
    m_frameReady.NotifyAll();
}

void CRenderMgr::RenderLoop() {
    uint64_t seen = UINT64_MAX;    // the first turn counts as woken
    bool inTime = true;
    int64_t deadline = 0;
    for (;;) {
        RenderState state;
        bool tidyUp;
        bool woken;
        bool room;
        bool spare = false;    // memory that goes back after a while
        {
            MutexLock lock(m_lock);
            if (m_ending)
                break;
            woken = m_generation != seen;
            seen = m_generation;
            state = m_state;
            tidyUp = std::exchange(m_tidyUp, false);
            room = std::exchange(m_sinkRoom, false);
            if (state != RenderState::Playing) {    // nobody will take it
                m_unlatched = false;
                if (std::exchange(m_untaken, false))
                    m_counters.AddLost(Counter::PicturesReplaced, CORVANE_CAUSE_REPLACED);
            }
        }
        try {
            if (tidyUp)
                TidyUp();
            if (room)
                woken |= m_sinks.Resume();
            if (state == RenderState::Playing && woken)
                PresentPass(seen);
            else if (state != RenderState::Playing && (woken || tidyUp || (!inTime && state == RenderState::Waiting)))
                DrawState();
            spare = m_sinks.Trim();
        } catch (...) {    // no memory for another renderer, or a callback that threw: this present is lost
        }
        const bool ticking = state == RenderState::Playing || state == RenderState::Waiting || spare;
        if (woken || tidyUp || !inTime)
            deadline = m_clock.Now() + kTick;
        MutexLock lock(m_lock);
        m_presenting = false;
        inTime = true;
        while (m_generation == seen && !m_ending && !m_tidyUp && !m_sinkRoom && inTime) {
            if (ticking)
                inTime = m_clock.WaitUntil(m_frameReady, lock, deadline);
            else
                m_frameReady.WaitOnce(lock);
        }
    }
    m_slot.DestroyAll();
    (void)m_sinks.Main(nullptr);
    (void)m_sinks.Overview(nullptr);
}

// Renderers that were replaced, and the way to a window that was given up, end here, on their thread.
void CRenderMgr::TidyUp() {
    {
        SharedLock picture(m_pictureLock);
        m_slot.DestroyRetired();
    }
    const PicturePlan plan = Plan();
    (void)m_sinks.Main(plan.info.window);
    if (plan.info.area.overviewEnabled == 0 || plan.info.overviewWindow == nullptr)
        (void)m_sinks.Overview(nullptr);
}

void CRenderMgr::DrawState() {
    CallGate::Scope call(m_renderCalls);
    RenderInfo info;
    FramePtr frame;
    BitmapPtr logo;
    StatePicture::Look look;
    {
        MutexLock lock(m_lock);
        info = m_info;
        frame = m_frame;
        look.frame = frame.get();
        switch (m_state) {
        case RenderState::Stopped:
            look.flags = CORVANE_OSD_STOPPED | CORVANE_OSD_FRESH;
            logo = m_logo;
            look.logo = logo.get();
            break;
        case RenderState::Waiting:
            look.flags = CORVANE_OSD_WAITING;
            look.wallTime = true;
            look.counter = m_waitCounter;
            m_waitCounter = (m_waitCounter + 1) % 10;
            break;
        case RenderState::AudioOnly:
            look.flags = CORVANE_OSD_AUDIO_ONLY;
            break;
        case RenderState::TimeOnly:
            look.flags = CORVANE_OSD_TIME_ONLY;
            look.wallTime = true;
            break;
        case RenderState::Idle:
        case RenderState::Playing:    // since the wake-up, and woken again
            return;
        }
    }
    const RendererPtr renderer = m_slot.Current();
    if (look.flags == CORVANE_OSD_AUDIO_ONLY && renderer->GetType() == RendererType::OffScreen)
        renderer->NotifyAudioOnly(frame, info);
    else
        m_statePicture.Draw(info, look);
}

void CRenderMgr::PresentPass(uint64_t& seen) {
    CallGate::Scope call(m_renderCalls);
    m_statePicture.Free();
    Pass pass;
    for (int left = kAttempts; left > 0; --left) {
        pass.renderer = m_slot.Current();
        {
            MutexLock lock(m_lock);
            pass.info = m_info;
            pass.redraws = m_redraws;
        }
        pass.renderer->Prepare(pass.info);
        if (LatchPicture(pass, seen, left == 1))
            break;
    }
    if (pass.frame == nullptr)
        return;
    const RenderInfo& info = pass.info;
    if (pass.fresh)
        m_tally.Begin(pass.frame->ArrivedAt());
    const int64_t begun = m_clock.Now();    // the client's callback takes the time that it takes
    const Outcome outcome = pass.renderer->Present(&pass.frame, &info);
    m_tally.Note(outcome, info, outcome == Outcome::HandedOver ? begun : m_clock.Now());
    if (outcome == Outcome::Failed) {
        (void)m_slot.ReplaceFailed(pass.renderer, info);
        return;
    }
    if (info.afterDisplay != nullptr) {    // whether something was put or not
        const MediaFrameImpl& frame = *pass.frame;
        const AfterDisplayRecord record{0, 0, &frame.Header(), frame.PresentTime(), frame.BaseTime()};
        info.afterDisplay(info.afterDisplayContext, &record);
    }
    // Deliveries of raw pictures follow here.
}

// False when what was prepared is not what is to be shown any more: another renderer, another window, or the same
// window with a news that this pass must not swallow. The last attempt of a pass shows what is prepared where it can,
// so that a window that changes all the time shows pictures, and the news calls for one more pass.
bool CRenderMgr::LatchPicture(Pass& pass, uint64_t& seen, bool last) {
    SharedLock picture(m_pictureLock);
    m_slot.DestroyRetired();
    {
        MutexLock lock(m_lock);
        m_unlatched = false;
        m_presenting = true;
        m_latched.NotifyAll();
        if (m_state != RenderState::Playing || m_ending)
            return true;    // changed since the wake-up, and woken again
        const bool other = m_slot.Current() != pass.renderer || m_info.window != pass.info.window ||
                           m_info.overviewWindow != pass.info.overviewWindow;
        const bool news = other || m_redraws != pass.redraws;
        if (news && !last)
            return false;
        // What was committed until now is latched here: it must not wake the thread once more.
        seen = news ? m_generation - 1 : m_generation;
        if (other)
            return true;
        pass.info = m_info;
        if (!news)
            m_info.forceRedraw = m_info.osdPolicy == kOsdAlways;
        if (!m_infoUnsent && m_info.presentEnabled)
            m_textFresh |= std::exchange(m_info.infoDirty, false);    // this present is the one that sees it
        if (m_info.osd == nullptr)
            m_textFresh = false;
        pass.fresh = std::exchange(m_untaken, false);
    }
    pass.frame = m_committed;
    pass.renderer->Latch(pass.info);
    return true;
}

}    // namespace corvane
