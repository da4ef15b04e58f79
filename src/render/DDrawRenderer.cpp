#include "render/DDrawRenderer.h"

#include <utility>

#include "base/Limits.h"
#include "filters/FilterChain.h"
#include "present/Layout.h"
#include "present/WindowSinks.h"

namespace corvane {

namespace {

constexpr Rect Whole(WindowWatch::Size size) {
    return {0, 0, size.width, size.height};
}

// What `inner` leaves of `outer`: top, bottom, left, right. Any of them may be empty.
std::array<Rect, 4> Around(const Rect& outer, const Rect& inner) {
    const Rect in = inner.Intersected(outer);
    if (in.Empty())
        return {outer, Rect{}, Rect{}, Rect{}};
    return {Rect{outer.left, outer.top, outer.right, in.top}, Rect{outer.left, in.bottom, outer.right, outer.bottom},
            Rect{outer.left, in.top, in.left, in.bottom}, Rect{in.right, in.top, outer.right, in.bottom}};
}

// No device, or no surfaces to compose on: neither can be mended by another picture.
constexpr BlitResult kNoView = BlitResult::Failed;

}    // namespace

CDDrawRenderer::CDDrawRenderer(const RenderInfo& info, Blitter& blitter)
    : m_blitter(blitter), m_view(MonitorView::Make(blitter, info.window)) {}

CDDrawRenderer::~CDDrawRenderer() {
    m_video.reset();
    m_set.reset();
}

std::shared_ptr<MonitorView> CDDrawRenderer::View() const {
    MutexLock lock(m_lock);
    return m_view;
}

// ---- The worker's side ----

bool CDDrawRenderer::EnsureVideo(const std::shared_ptr<MonitorView>& view, uint32_t width, uint32_t height,
                                 uint32_t fourCC) {
    if (m_video != nullptr && m_video->Is(width, height, fourCC))
        return true;
    m_video.reset();
    m_video = VideoSurface::Make(view, width, height, fourCC);
    return m_video != nullptr;
}

// The view that new surfaces are made on; what is of a device that is given up goes before.
std::shared_ptr<MonitorView> CDDrawRenderer::ViewForVideo() {
    std::unique_ptr<VideoSurface> gone;    // dies after the lock is dropped
    MutexLock lock(m_lock);
    if (std::exchange(m_dropVideo, false))
        gone = std::move(m_video);
    return m_view;
}

bool CDDrawRenderer::TakePicture(const DecodedFrame& picture) {
    const std::shared_ptr<MonitorView> view = ViewForVideo();
    if (view == nullptr || (picture.strides[2] == 0 && !m_nv12Allowed))
        return false;
    std::unique_ptr<VideoSurface> taken = VideoSurface::Wrap(view, picture);
    if (taken == nullptr)
        return false;
    m_video = std::move(taken);
    return true;
}

int32_t CDDrawRenderer::GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride,
                                  uint32_t* format) {
    const std::shared_ptr<MonitorView> view = ViewForVideo();
    if (m_video != nullptr && m_video->Wraps())
        m_video.reset();
    const bool wantsNv12 = *format == PF_NV12 && m_nv12Allowed;
    if (view == nullptr && (m_video == nullptr || !m_video->Is(width, height, wantsNv12 ? kFourCCNV12 : kFourCCYV12)))
        return -1;
    if (wantsNv12)
        m_nv12Allowed = EnsureVideo(view, width, height, kFourCCNV12);
    if ((!wantsNv12 || !m_nv12Allowed) && !EnsureVideo(view, width, height, kFourCCYV12))
        return -1;
    if (!m_video->Locked())
        return static_cast<int32_t>(BlitResult::SurfaceLost);
    *buffer = m_video->Data();
    *stride = m_video->Pitch();
    *format = m_video->FourCC() == kFourCCNV12 ? uint32_t{PF_NV12} : uint32_t{PF_YV12};
    return 0;
}

// ---- A pass: prepare without a lock, compose under the picture lock, text and the copy without one ----

// Makes a new view where the window is another one, or on another monitor. What was not known before is not another:
// the surface of the first pictures stays.
bool CDDrawRenderer::FollowWindow(const WindowWatchPtr& window) {
    std::shared_ptr<MonitorView> before = View();
    const std::optional<Monitor> monitor = m_blitter.FindMonitor(window);
    if (before != nullptr && before->Window() == window && monitor &&
        (monitor->handle == before->On().handle || monitor->handle == 0))
        return true;
    const bool known = window != nullptr && monitor && monitor->handle != 0;
    const bool moved = known && before != nullptr && before->Window() != nullptr && before->On().handle != 0 &&
                       monitor->handle != before->On().handle;
    m_set.reset();
    std::shared_ptr<MonitorView> view = MonitorView::Make(m_blitter, window);
    MutexLock lock(m_lock);
    m_view = std::move(view);
    m_dropVideo |= moved;
    return m_view != nullptr;
}

bool CDDrawRenderer::EnsureSet(const RenderInfo& info, WindowWatch::Size size) {
    const Rect spare = SurfaceSet::SpareRect(info, size);
    if (m_set != nullptr && m_set->Fits(size, spare))
        return true;
    m_textKnown = false;
    if (m_set != nullptr && m_set->Resize(size, spare))
        return true;
    m_set.reset();
    m_set = SurfaceSet::Make(View(), size, spare);
    return m_set != nullptr;
}

void CDDrawRenderer::Prepare(const RenderInfo& info) {
    m_force |= info.forceRedraw;
    m_result = BlitResult::Ok;
    m_pass = info.presentEnabled ? Begin(info) : Pass::Nothing;
}

CDDrawRenderer::Pass CDDrawRenderer::Begin(const RenderInfo& info) {
    const WindowWatchPtr& window = info.window;
    if (window != nullptr && window->GetLife() != WindowWatch::Life::Alive) {
        if (window->ServerLost()) {
            m_result = BlitResult::SurfaceLost;
            return Pass::Failed;
        }
        if (window->GetLife() == WindowWatch::Life::Dead)
            m_set.reset();
        return Pass::Nothing;
    }
    m_result = kNoView;
    if (!FollowWindow(window))
        return Pass::Failed;
    if (window == nullptr)
        return Pass::TextOnly;
    const bool viewable = window->Viewable();
    BlitTarget target{.window = window, .size = {}, .hidden = !viewable, .room = {}};
    target.sink = info.sinks != nullptr ? info.sinks->Main(window) : nullptr;
    const bool aside = info.area.overviewEnabled != 0 && info.area.overviewIsWindow != 0;
    if (info.sinks != nullptr)
        target.overview = info.sinks->Overview(aside ? info.overviewWindow : nullptr);
    // The window may get another size at any moment: once more, and if it still does, with the next pass.
    for (int attempt = 0; attempt < 2; ++attempt) {
        target.size = m_client = window->ClientSize();
        const Rect spare = SurfaceSet::SpareRect(info, m_client);
        if (!limits::FitsPicture(static_cast<uint64_t>(spare.right), static_cast<uint64_t>(spare.bottom))) {
            m_set.reset();
            return Pass::Nothing;    // no surfaces are as large, with room for the overview: the device has not failed
        }
        if (!EnsureSet(info, m_client))
            return Pass::Failed;
        target.room = aside ? m_set->Spare() : Rect{};
        m_result = viewable || aside ? m_set->Composite().Begin(target) : BlitResult::Ok;
        if (m_result != BlitResult::InvalidArgument)
            break;
    }
    if (m_result == BlitResult::Ok)
        return viewable ? Pass::Draw : aside ? Pass::Aside : Pass::TextOnly;
    if (m_result == BlitResult::StillDrawing || m_result == BlitResult::InvalidArgument)
        return Pass::Skip;
    return window->GetLife() == WindowWatch::Life::Dead && !window->ServerLost() ? Pass::Nothing : Pass::Failed;
}

void CDDrawRenderer::Latch(const RenderInfo& info) {
    m_force |= info.forceRedraw;
    (void)ViewForVideo();
    m_picture = m_video != nullptr ? WindowWatch::Size{m_video->Width(), m_video->Height()} : WindowWatch::Size{};
    m_overviewPlace = m_overviewInside = {};
    if ((m_pass == Pass::Draw || m_pass == Pass::Aside) && info.presentEnabled)
        Compose(info);
}

// What the blits come to does not count: a surface that is lost is restored by its lock, and what could not be drawn
// is drawn with the next picture.
void CDDrawRenderer::Compose(const RenderInfo& info) {
    if (m_video == nullptr) {
        if (m_pass == Pass::Draw)
            (void)m_set->Composite().Fill(Whole(m_client), 0);
        return;
    }
    m_video->Unlock();
    if (m_pass == Pass::Draw)
        ComposePicture(info);
    ComposeOverview(info, Whole(m_picture));
    if (!m_video->Lock())
        m_video.reset();
}

void CDDrawRenderer::ComposePicture(const RenderInfo& info) {
    BlitComposite& composite = m_set->Composite();
    const Rect window = Whole(m_client);
    const Rect whole = Whole(m_picture);
    Rect source = whole;
    if (info.area.zoomEnabled != 0)
        source = ZoomSource(info, m_picture.width, m_picture.height).value_or(whole);
    const Rect destination = PictureRect(info, m_client);
    for (const Rect& band : Around(window, destination))
        if (!band.Empty())
            (void)composite.Fill(band, 0);
    if (!destination.Empty())
        (void)composite.Blit(destination, m_video->Surface(), source);
}

// Text, which comes later, is kept off its place.
void CDDrawRenderer::ComposeOverview(const RenderInfo& info, const Rect& whole) {
    const DisplayArea& area = info.area;
    if (area.overviewEnabled == 0)
        return;
    if (area.overviewIsWindow != 0) {
        const Rect& spare = m_set->Spare();
        if (info.overviewWindow == nullptr || spare.Contains(Whole(m_client)))
            return;    // asked for since the pass began
        m_overviewPlace = Whole(info.overviewWindow->ClientSize()).Moved(spare.left, spare.top);
    } else if (const auto outer = info.window->ScreenRect()) {
        const auto& place = area.overview.rectangle;
        m_overviewPlace = Rect{place[0], place[1], place[2], place[3]}.Moved(-outer->left, -outer->top);
        m_overviewInside = m_overviewPlace.Intersected(Whole(m_client));
    }
    if (!m_overviewPlace.Empty())
        (void)m_set->Composite().Blit(m_overviewPlace, m_video->Surface(), whole);
}

Outcome CDDrawRenderer::Present(const FramePtr* frame, const RenderInfo* info) {
    if (!info->presentEnabled)
        return Outcome::NotDue;
    if (m_pass == Pass::Nothing)
        return Outcome::NothingToDrawOn;
    if (m_pass == Pass::Skip)
        return Outcome::Busy;
    if (m_pass == Pass::Failed)
        return m_result == BlitResult::SurfaceLost ? Fail(m_result) : Outcome::Failed;
    if (info->window == nullptr) {
        m_client = m_picture;
        if (m_client == WindowWatch::Size())
            return Outcome::NotDue;
        if (!EnsureSet(*info, m_client))
            return Outcome::Failed;
    }
    if (!RefreshText(**frame, *info))
        return Outcome::Failed;
    if (m_pass == Pass::Draw)
        LayText();
    m_force = false;    // text that comes into view again is drawn from what is kept
    return m_pass == Pass::TextOnly ? Outcome::NothingToDrawOn : Show(*info);
}

Outcome CDDrawRenderer::Show(const RenderInfo& info) {
    const auto view = View();
    Outcome outcome = Outcome::NothingToDrawOn;
    if (m_pass == Pass::Draw) {
        const Rect outer = info.window->ScreenRect().value_or(Whole(m_client));
        const BlitResult result = view->Show(m_set->Composite(), outer, m_client);
        if (Failed(result) && result != BlitResult::StillDrawing)
            return Fail(result);
        outcome = Failed(result) ? Outcome::Busy : Outcome::Put;
    }
    if (info.area.overviewIsWindow != 0 && !m_overviewPlace.Empty()) {
        const Rect there = info.overviewWindow->ScreenRect().value_or(m_overviewPlace);
        const Rect onMonitor = there.Moved(-view->On().place.left, -view->On().place.top);
        if (!Failed(view->CopyToScreen(*info.overviewWindow, onMonitor, m_set->Composite(), m_overviewPlace)))
            outcome = Outcome::Put;
    }
    return m_picture == WindowWatch::Size() ? Outcome::NotDue : outcome;
}

// Drops the surfaces of the pass that failed: the next picture starts afresh. With the screen lost the device goes too,
// and the failure is the manager's.
Outcome CDDrawRenderer::Fail(BlitResult result) {
    m_set.reset();
    std::shared_ptr<MonitorView> view;    // dies after the lock is dropped
    MutexLock lock(m_lock);
    m_dropVideo = true;
    if (result != BlitResult::SurfaceLost)
        return Outcome::Busy;
    view = std::move(m_view);
    return Outcome::Failed;
}

// ---- Text ----

// False where the device has no surfaces for it.
bool CDDrawRenderer::RefreshText(const MediaFrameImpl& frame, const RenderInfo& info) {
    if (info.fullWindow || info.osd == nullptr) {
        m_set->FreeText();
        m_textKnown = false;
        return true;
    }
    if (!m_set->EnsureText())
        return false;
    constexpr uint32_t kWallClock = 1;    // which text on a picture does not follow
    if (m_force || !m_textKnown || TextDue(info.osdPolicy & ~kWallClock, m_lastText, 0, frame))
        CallText(frame, info);
    return true;
}

void CDDrawRenderer::CallText(const MediaFrameImpl& frame, const RenderInfo& info) {
    BlitSurface& drawn = *m_set->TextSystem();
    (void)drawn.Fill(Whole(m_client), 0);
    OsdRecord record(&frame, int64_t{frame.Header().timeSeconds}, false);
    record.info.width = m_client.width;
    record.info.height = m_client.height;
    if (info.hasBorder) {
        record.info.width = m_picture.width + info.border.left + info.border.right;
        record.info.height = m_picture.height + info.border.top + info.border.bottom;
        record.info.flags = CORVANE_OSD_BORDER;
    }
    if (TakeTextFresh(info))
        record.info.flags |= CORVANE_OSD_FRESH;
    record.Call(info.osd, info.osdContext, drawn.Drawing());
    (void)m_set->Text()->Blit(Whole(m_client), drawn, Whole(m_client));
    m_lastText = {0, frame.Header().timeSeconds, record.info.presentTime.seconds, record.info.baseTime.seconds};
    m_textKnown = true;
}

void CDDrawRenderer::LayText() {
    if (m_set->Text() == nullptr)
        return;
    for (const Rect& part : Around(Whole(m_client), m_overviewInside))
        if (!part.Empty())
            (void)m_set->Composite().Blit(part, *m_set->Text(), part);
}

}    // namespace corvane
