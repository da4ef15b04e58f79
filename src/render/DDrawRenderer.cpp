#include "render/DDrawRenderer.h"

#include <utility>

#include "base/Limits.h"
#include "base/PictureLayout.h"
#include "present/Layout.h"
#include "present/WindowSinks.h"

namespace corvane {

namespace {

constexpr Rect Whole(WindowWatch::Size size) {
    return {0, 0, size.width, size.height};
}

// The parts of `outer` around `inner`: top, bottom, left, right. Any of them may be empty.
std::array<Rect, 4> Around(const Rect& outer, const Rect& inner) {
    const Rect in = inner.Intersected(outer);
    if (in.Empty())
        return {outer, Rect{}, Rect{}, Rect{}};
    return {Rect{outer.left, outer.top, outer.right, in.top}, Rect{outer.left, in.bottom, outer.right, outer.bottom},
            Rect{outer.left, in.top, in.left, in.bottom}, Rect{in.right, in.top, outer.right, in.bottom}};
}

// There is no device, or no surface to compose on: another picture would not help.
constexpr BlitResult kNoView = BlitResult::Failed;

}    // namespace

CDDrawRenderer::CDDrawRenderer(const PresentSettings& settings, Blitter& blitter, Clock& clock)
    : m_blitter(blitter),
      m_clock(clock),
      m_stage{MonitorView::Make(blitter, settings.window, clock)},
      m_workersStage(m_stage) {}

CDDrawRenderer::~CDDrawRenderer() {
    m_set.reset();
}

const RendererTraits& CDDrawRenderer::Traits() const {
    static constexpr RendererTraits traits{.name = "DirectDraw",
                                           .needsWindow = true,
                                           .takesReferences = true,
                                           .scalesItself = true,
                                           .followsOnFailure = "GDI"};
    return traits;
}

CDDrawRenderer::Stage CDDrawRenderer::WorkersStage() const {
    MutexLock lock(m_lock);
    return m_workersStage;
}

void CDDrawRenderer::ChangeStage(std::shared_ptr<MonitorView> view, bool newEra) {
    m_stage.view.swap(view);
    m_stage.era += newEra ? 1 : 0;
    Stage before = m_stage;    // dies after the lock is dropped
    MutexLock lock(m_lock);
    std::swap(before, m_workersStage);
}

// ---- The worker's side ----

uint32_t CDDrawRenderer::FormatFor(uint32_t preferred) const {
    return preferred == PF_NV12 && m_nv12Allowed ? uint32_t{PF_NV12} : uint32_t{PF_YV12};
}

// Gives the slot a locked surface: its own one where that has this era and size, even where the device is gone; else a
// new one.
bool CDDrawRenderer::FitSlot(VideoSlot& slot, const Stage& stage, PictureSize size, uint32_t fourCC) {
    if (slot.surface != nullptr && slot.era == stage.era && slot.surface->Is(size.width, size.height, fourCC) &&
        (slot.surface->Locked() || slot.surface->Lock()))
        return true;
    slot.surface.reset();
    if (stage.view == nullptr)
        return false;
    slot.surface = VideoSurface::Make(stage.view, size.width, size.height, fourCC);
    slot.era = stage.era;
    return slot.surface != nullptr;
}

LentBuffer CDDrawRenderer::Lend(PictureSize size, uint32_t preferredFormat) {
    const Stage stage = WorkersStage();
    const std::shared_ptr<VideoSlot> slot = m_buffers.Free();
    if (slot == nullptr)
        return {};
    bool fits = false;
    if (preferredFormat == PF_NV12 && m_nv12Allowed && stage.view != nullptr)
        fits = m_nv12Allowed = FitSlot(*slot, stage, size, kFourCCNV12);
    if (!fits && !FitSlot(*slot, stage, size, kFourCCYV12))
        return {};
    slot->view = LayOut(slot->surface->Data(), slot->surface->Pitch(), size,
                        slot->surface->FourCC() == kFourCCNV12 ? PF_NV12 : PF_YV12);
    return LentBuffer(slot);
}

bool CDDrawRenderer::TakesReference(const ConstPictureView& picture) {
    const Stage stage = WorkersStage();
    return stage.view != nullptr && (picture.ThreePlanes() || m_nv12Allowed) && stage.view->Device().WrapsVideo();
}

// ---- A pass: no lock is held. The picture is composed, text comes over it, and both are copied to the screen ----

// Makes a new view for another window or another monitor. Surfaces from before the monitor was known stay in use; a
// move to another monitor begins a new era.
bool CDDrawRenderer::FollowWindow(const WindowWatchPtr& window) {
    const std::shared_ptr<MonitorView> before = m_stage.view;
    const std::optional<Monitor> monitor = m_blitter.FindMonitor(window);
    if (before != nullptr && before->Window() == window && monitor &&
        (monitor->handle == before->On().handle || monitor->handle == 0))
        return true;
    const bool known = window != nullptr && monitor && monitor->handle != 0;
    const bool moved = known && before != nullptr && before->Window() != nullptr && before->On().handle != 0 &&
                       monitor->handle != before->On().handle;
    m_set.reset();
    ChangeStage(MonitorView::Make(m_blitter, window, m_clock), moved);
    return m_stage.view != nullptr;
}

bool CDDrawRenderer::EnsureSet(const PresentSettings& settings, WindowWatch::Size size) {
    const Rect spare = SurfaceSet::SpareRect(settings, size);
    if (m_set != nullptr && m_set->Fits(size, spare))
        return true;
    m_textKnown = false;
    if (m_set != nullptr && m_set->Resize(size, spare))
        return true;
    m_set.reset();
    m_set = SurfaceSet::Make(m_stage.view, size, spare);
    return m_set != nullptr;
}

Outcome CDDrawRenderer::Present(const FinishedPicture& picture, Pass& pass) {
    if (!pass.settings.presentEnabled)
        return Outcome::NotDue;
    Work work{.pass = pass, .settings = pass.settings, .finished = picture};
    work.scope = Begin(work);
    if (work.scope == Scope::Nothing)
        return Outcome::NothingToDrawOn;
    if (work.scope == Scope::Busy)
        return Outcome::Busy;
    if (work.scope == Scope::Failed)
        return work.result == BlitResult::SurfaceLost ? Fail(work.result) : Outcome::Failed;
    const std::unique_ptr<BlitSurface> wrapped = FindVideo(work);
    Compose(work);
    if (work.settings.window == nullptr) {
        work.client = work.picture;
        if (work.client == WindowWatch::Size())
            return Outcome::NotDue;
        if (!EnsureSet(work.settings, work.client))
            return Outcome::Failed;
    }
    if (!RefreshText(work))
        return Outcome::Failed;
    if (work.scope == Scope::Draw)
        LayText(work);
    pass.redrawn = true;    // text that comes into view again is drawn from the kept surface
    return work.scope == Scope::TextOnly ? Outcome::NothingToDrawOn : Show(work);
}

CDDrawRenderer::Scope CDDrawRenderer::Begin(Work& work) {
    const WindowWatchPtr& window = work.settings.window;
    if (window != nullptr && window->GetLife() != WindowWatch::Life::Alive) {
        if (window->ServerLost()) {
            work.result = BlitResult::SurfaceLost;
            return Scope::Failed;
        }
        if (window->GetLife() == WindowWatch::Life::Dead)
            m_set.reset();
        return Scope::Nothing;
    }
    work.result = kNoView;
    if (!FollowWindow(window))
        return Scope::Failed;
    if (window == nullptr)
        return Scope::TextOnly;
    const bool viewable = window->Viewable();
    const Scope scope = BeginComposite(work, viewable);
    if (scope != Scope::Draw)
        return scope;
    if (viewable)
        return Scope::Draw;
    return work.settings.OverviewAside() != nullptr ? Scope::Aside : Scope::TextOnly;
}

// Draw: the composite is ready, where something will be drawn on it.
CDDrawRenderer::Scope CDDrawRenderer::BeginComposite(Work& work, bool viewable) {
    const PresentSettings& settings = work.settings;
    const WindowWatchPtr& window = settings.window;
    BlitTarget target{.window = window, .size = {}, .hidden = !viewable, .room = {}};
    target.sink = work.pass.sinks.Of(window);
    const bool aside = settings.OverviewAside() != nullptr;
    target.overview = work.pass.sinks.Of(settings.OverviewAside());
    // The window may change its size at any time: try once more, and leave a second change to the next pass.
    for (int attempt = 0; attempt < 2; ++attempt) {
        target.size = work.client = window->ClientSize();
        const Rect spare = SurfaceSet::SpareRect(settings, work.client);
        if (!limits::FitsPicture(static_cast<uint64_t>(spare.right), static_cast<uint64_t>(spare.bottom))) {
            m_set.reset();
            return Scope::Nothing;    // too large for any device: no failure of this one
        }
        if (!EnsureSet(settings, work.client))
            return Scope::Failed;
        target.room = aside ? m_set->Spare() : Rect{};
        work.result = viewable || aside ? m_set->Composite().Begin(target) : BlitResult::Ok;
        if (work.result != BlitResult::InvalidArgument)
            break;
    }
    if (work.result == BlitResult::Ok)
        return Scope::Draw;
    if (work.result == BlitResult::StillDrawing || work.result == BlitResult::InvalidArgument)
        return Scope::Busy;
    return window->GetLife() == WindowWatch::Life::Dead && !window->ServerLost() ? Scope::Nothing : Scope::Failed;
}

// Finds the surface of the picture, where its pixels can still be shown: pixels of this era, or a decoder's. The result
// owns the surface around a decoder's picture.
std::unique_ptr<BlitSurface> CDDrawRenderer::FindVideo(Work& work) {
    std::unique_ptr<BlitSurface> wrapped;
    if (const SharedPicture* const reference = work.finished.Reference()) {
        const ConstPictureView picture = reference->View();
        wrapped = m_stage.view->Device().WrapVideo(picture);
        work.video = wrapped.get();
        if (work.video != nullptr)
            work.picture = {picture.size.width, picture.size.height};
    } else if (const BufferSlot* const buffer = work.finished.Buffer()) {
        const auto& slot = static_cast<const VideoSlot&>(*buffer);
        if (slot.era != m_stage.era)
            return wrapped;
        slot.surface->Unlock();
        work.video = &slot.surface->Surface();
        work.picture = {buffer->view.size.width, buffer->view.size.height};
    }
    if (work.video != nullptr)
        work.video->SetColours(work.finished.colours);
    return wrapped;
}

// Results of blits are ignored: the lock of a lost surface restores it, and the next picture is drawn again.
void CDDrawRenderer::Compose(Work& work) {
    if (work.video == nullptr) {
        if (work.scope == Scope::Draw)
            (void)m_set->Composite().Fill(Whole(work.client), 0);
        return;
    }
    if (work.scope == Scope::Draw)
        ComposePicture(work);
    if (work.scope == Scope::Draw || work.scope == Scope::Aside)
        ComposeOverview(work);
}

void CDDrawRenderer::ComposePicture(Work& work) {
    BlitComposite& composite = m_set->Composite();
    const Rect window = Whole(work.client);
    const Rect whole = Whole(work.picture);
    Rect source = whole;
    if (work.settings.area.zoomEnabled != 0)
        source = ZoomSource(work.settings, work.picture.width, work.picture.height).value_or(whole);
    const Rect destination = PictureRect(work.settings, work.client);
    for (const Rect& band : Around(window, destination))
        if (!band.Empty())
            (void)composite.Fill(band, 0);
    if (!destination.Empty())
        (void)composite.Blit(destination, *work.video, source);
}

// LayText leaves out the place of the overview.
void CDDrawRenderer::ComposeOverview(Work& work) {
    const PresentSettings& settings = work.settings;
    const DisplayArea& area = settings.area;
    if (area.overviewEnabled == 0)
        return;
    if (const WindowWatchPtr aside = settings.OverviewAside()) {
        const Rect& spare = m_set->Spare();
        work.overviewPlace = Whole(aside->ClientSize()).Moved(spare.left, spare.top);
    } else if (area.overviewIsWindow != 0) {    // the channel's own
        if (settings.overviewWindow != nullptr)
            work.overviewPlace = work.overviewInside = Whole(work.client);
    } else if (const auto outer = settings.window->ScreenRect()) {
        const auto& place = area.overview.rectangle;
        work.overviewPlace = Rect{place[0], place[1], place[2], place[3]}.Moved(-outer->left, -outer->top);
        work.overviewInside = work.overviewPlace.Intersected(Whole(work.client));
    }
    if (!work.overviewPlace.Empty())
        (void)m_set->Composite().Blit(work.overviewPlace, *work.video, Whole(work.picture));
}

Outcome CDDrawRenderer::Show(Work& work) {
    const PresentSettings& settings = work.settings;
    const auto& view = m_stage.view;
    Outcome outcome = Outcome::NothingToDrawOn;
    if (work.scope == Scope::Draw) {
        const Rect outer = settings.window->ScreenRect().value_or(Whole(work.client));
        const BlitResult result = view->Show(m_set->Composite(), outer, work.client);
        if (Failed(result) && result != BlitResult::StillDrawing)
            return Fail(result);
        outcome = Failed(result) ? Outcome::Busy : Outcome::Put;
    }
    const WindowWatchPtr aside = settings.OverviewAside();
    if (aside != nullptr && !work.overviewPlace.Empty()) {
        const Rect there = aside->ScreenRect().value_or(work.overviewPlace);
        const Rect onMonitor = there.Moved(-view->On().place.left, -view->On().place.top);
        if (!Failed(view->CopyToScreen(*aside, onMonitor, m_set->Composite(), work.overviewPlace)))
            outcome = Outcome::Put;
    }
    return work.picture == WindowWatch::Size() ? Outcome::NotDue : outcome;
}

// Drops the surfaces of the failed pass; the next picture gets new ones. Where the screen is lost the device is dropped
// too, and the renderer has failed.
Outcome CDDrawRenderer::Fail(BlitResult result) {
    m_set.reset();
    const bool lost = result == BlitResult::SurfaceLost;
    ChangeStage(lost ? nullptr : m_stage.view, true);
    return lost ? Outcome::Failed : Outcome::Busy;
}

// ---- Text ----

// False where the device has no surfaces for it.
bool CDDrawRenderer::RefreshText(Work& work) {
    if (work.settings.fullWindow || !work.settings.osd) {
        m_set->FreeText();
        m_textKnown = false;
        return true;
    }
    if (!m_set->EnsureText())
        return false;
    if (work.pass.flags.redraw || !m_textKnown ||
        TextDue(work.settings.osdPolicy & ~uint32_t{CORVANE_TEXT_WALL_CLOCK}, m_lastText, 0, *work.finished.frame))
        CallText(work);
    return true;
}

void CDDrawRenderer::CallText(Work& work) {
    const MediaFrameImpl& frame = *work.finished.frame;
    const PresentSettings& settings = work.settings;
    BlitSurface& drawn = *m_set->TextSystem();
    (void)drawn.Fill(Whole(work.client), 0);
    OsdRecord record(&frame, int64_t{frame.Header().timeSeconds}, false);
    record.info.width = work.client.width;
    record.info.height = work.client.height;
    if (settings.hasBorder) {
        record.info.width = work.picture.width + settings.border.left + settings.border.right;
        record.info.height = work.picture.height + settings.border.top + settings.border.bottom;
        record.info.flags = CORVANE_OSD_BORDER;
    }
    record.CallIn(work.pass, drawn.Drawing());
    (void)m_set->Text()->Blit(Whole(work.client), drawn, Whole(work.client));
    m_lastText = {0, frame.Header().timeSeconds, record.info.presentTime.seconds, record.info.baseTime.seconds};
    m_textKnown = true;
}

void CDDrawRenderer::LayText(const Work& work) {
    if (m_set->Text() == nullptr)
        return;
    for (const Rect& part : Around(Whole(work.client), work.overviewInside))
        if (!part.Empty())
            (void)m_set->Composite().Blit(part, *m_set->Text(), part);
}

}    // namespace corvane
