// The settings side of the render manager: what clients change from any thread.
#include <algorithm>
#include <utility>

#include "manager/DisplaySettings.h"
#include "manager/RenderMgr.h"
#include "platform/sink/WindowGrab.h"
#include "present/Layout.h"
#include "render/PseudoRenderer.h"

namespace corvane {

namespace {

constexpr std::chrono::milliseconds kGrabLimit(1000);

}    // namespace

void CRenderMgr::Stop(bool waiting) {
    MutexLock lock(m_lock);
    m_info.infoDirty = true;
    m_infoUnsent = true;
    if (waiting && m_state != RenderState::Waiting) {
        m_state = RenderState::Waiting;
        m_frame.reset();
        m_waitCounter = 0;
        WakeLocked();
    }
}

void CRenderMgr::ResetToStopped() {
    MutexLock lock(m_lock);
    m_frame.reset();
    m_state = RenderState::Stopped;
    WakeLocked();
}

void CRenderMgr::RequestRedraw() {
    MutexLock lock(m_lock);
    if (m_state == RenderState::Playing)
        m_info.forceRedraw = true;
    ++m_redraws;
    WakeLocked();
}

// What the sink could not take is drawn now; margins and text need nothing.
void CRenderMgr::OnSinkReady() noexcept {
    MutexLock lock(m_lock);
    ++m_redraws;
    WakeLocked();
}

void CRenderMgr::OnSinkRoom() noexcept {
    MutexLock lock(m_lock);
    m_sinkRoom = true;
    m_frameReady.NotifyAll();
}

void CRenderMgr::SetWindow(WindowWatchPtr window) {
    const bool given = window != nullptr;
    MutexLock windows(m_windowLock);
    WindowUse next(std::move(window), this);
    if (next.Watch() == m_window.Watch())
        return;
    {
        MutexLock lock(m_lock);
        m_info.window = next.Watch();
        m_tidyUp = true;
        m_frameReady.NotifyAll();
    }
    m_window = std::move(next);    // which holds the one before until the end
    if (given)
        RequestRedraw();
}

void CRenderMgr::SetStreamInfo(CorvaneStreamInfoCallback callback, void* context) {
    MutexLock lock(m_lock);
    m_info.streamInfo = callback;
    m_info.streamInfoContext = context;
}

void CRenderMgr::SetOsd(CorvaneOsdCallback callback, void* context) {
    MutexLock lock(m_lock);
    m_info.osd = callback;
    m_info.osdContext = context;
}

void CRenderMgr::SetMargin(uint32_t Edges::*edge, uint32_t pixels) {
    MutexLock lock(m_lock);
    m_info.margin.*edge = pixels;
}

void CRenderMgr::SetBorder(const Edges& border) {
    MutexLock lock(m_lock);
    m_info.hasBorder = true;
    m_info.border = border;
}

Status CRenderMgr::SetDisplayArea(const DisplayArea& area, uint32_t mask) {
    MutexLock windows(m_windowLock);
    DisplayArea next = GetDisplayArea();
    const Status status = ApplyDisplayArea(next, area, mask);
    const auto drawn = next.overviewEnabled != 0 ? WindowWatch::Purpose::Draw : WindowWatch::Purpose::Look;
    WindowUse overview(WindowWatch::Open(next.overviewIsWindow != 0 ? next.overview.window : 0, drawn), this);
    WindowUse zoom(WindowWatch::Open(next.zoomIsWindow != 0 ? next.zoom.window : 0, WindowWatch::Purpose::Look), this);
    {
        MutexLock lock(m_lock);
        m_info.area = next;
        m_info.overviewWindow = overview.Watch();
        m_info.zoomWindow = zoom.Watch();
        m_tidyUp = true;
        m_frameReady.NotifyAll();
    }
    m_overviewWindow = std::move(overview);
    m_zoomWindow = std::move(zoom);
    if (Ok(status))
        RequestRedraw();
    return status;
}

DisplayArea CRenderMgr::GetDisplayArea() const {
    MutexLock lock(m_lock);
    return m_info.area;
}

uint32_t CRenderMgr::GetAdapterIndex() const {
    MutexLock lock(m_lock);
    return m_info.window != nullptr ? m_info.window->MonitorIndex() : 0;
}

Status CRenderMgr::SetLogoFile(const char* path) {
    BitmapPtr logo;
    if (const Status status = BitmapPool::Load(path, logo); !Ok(status))
        return status;
    SetLogo(std::move(logo));
    return Status::Ok;
}

Status CRenderMgr::SetLogoBitmap(struct _cairo_surface* surface) {
    BitmapPtr logo;
    if (surface != nullptr)
        if (const Status status = BitmapPool::Copy(surface, logo); !Ok(status))
            return status;
    SetLogo(std::move(logo));
    return Status::Ok;
}

void CRenderMgr::SetLogo(BitmapPtr logo) {
    {
        MutexLock lock(m_lock);
        m_logo.swap(logo);    // the old one is freed outside the lock
    }
    RequestRedraw();
}

Status CRenderMgr::GrabWindow(Raster& out) const {
    const WindowWatchPtr window = Plan().info.window;
    if (window == nullptr)
        return Status::Failed;
    const Raster last = m_sinks.LastImage(window);
    return corvane::GrabWindow(window, last.View(), kGrabLimit, out);
}

int32_t CRenderMgr::GetLogoPicture(BitmapPtr& out) const {
    MutexLock lock(m_lock);
    if (m_state != RenderState::Stopped)
        return 1;
    if (m_logo == nullptr)
        return -1;
    out = m_logo;
    return 0;
}

CRenderMgr::PresentRects CRenderMgr::GetPresentRects(WindowWatch::Size otherwise) const {
    RenderInfo info = GetRenderInfo();
    info.fullWindow = false;    // what is drawn elsewhere keeps the margins
    WindowWatch::Size client = info.window != nullptr ? info.window->ClientSize() : WindowWatch::Size{};
    if (client == WindowWatch::Size{})
        client = otherwise;
    return {client, PictureRect(info, client)};
}

bool CRenderMgr::HasWindow() const {
    MutexLock lock(m_lock);
    return m_info.window != nullptr;
}

RenderState CRenderMgr::State() const {
    MutexLock lock(m_lock);
    return m_state;
}

template <typename Change>
void CRenderMgr::ChangeChain(Change change) {
    MutexLock lock(m_lock);
    auto next = std::make_shared<ChainSettings>(*m_chainSettings);
    change(*next);
    m_chainSettings = std::move(next);
}

Status CRenderMgr::InsertFilter(QMRX::Filter::IFilter* filter) {
    Status status = Status::Ok;
    ChangeChain([&](ChainSettings& chain) {
        if (std::ranges::find(chain.clientFilters, filter) != chain.clientFilters.end())
            status = Status::Failed;
        else
            chain.clientFilters.push_back(filter);
    });
    return status;
}

void CRenderMgr::RemoveFilter(QMRX::Filter::IFilter* filter) {
    bool removed = false;
    ChangeChain([&](ChainSettings& chain) { removed = std::erase(chain.clientFilters, filter) != 0; });
    if (!removed)
        return;
    m_filterCalls.WaitForRunning();
    if (HasWindow())    // what a window shows of the filter is painted over
        RequestRedraw();
}

void CRenderMgr::SetDeinterlace(bool on) {
    ChangeChain([&](ChainSettings& chain) { chain.deinterlaceEnabled = on; });
}

void CRenderMgr::SetResizeType(uint32_t type) {
    if (type <= 3)
        ChangeChain([&](ChainSettings& chain) { chain.resizeType = type; });
}

Status CRenderMgr::EnableRotateFilter(double angle) {
    MutexLock lock(m_lock);
    if (m_angle)
        return Status::Failed;
    m_angle = angle;
    m_info.infoDirty = true;
    m_infoUnsent = true;
    return Status::Ok;
}

Status CRenderMgr::SetRotateOption(double angle) {
    MutexLock lock(m_lock);
    if (!m_angle)
        return Status::Failed;
    m_angle = angle;
    m_info.infoDirty = true;
    m_infoUnsent = true;
    return Status::Ok;
}

void CRenderMgr::DisableRotateFilter() {
    MutexLock lock(m_lock);
    m_angle.reset();
    m_info.infoDirty = true;
    m_infoUnsent = true;
}

void CRenderMgr::RegisterRawDataCallback(CorvanePictureCallback callback, void* context, uint32_t format) {
    m_slot.Replace(std::make_shared<CPseudoRenderer>(callback, context, format));
    {
        MutexLock lock(m_lock);
        m_tidyUp = true;
        m_frameReady.NotifyAll();
    }
    m_renderCalls.WaitForRunning();
}

void CRenderMgr::SetRawDataCallbackSize(uint32_t width, uint32_t height) {
    MutexLock lock(m_lock);
    m_rawMaxWidth = width;
    m_rawMaxHeight = height;
}

void CRenderMgr::SetAfterDisplay(CorvaneAfterDisplayCallback callback, void* context) {
    {
        MutexLock lock(m_lock);
        m_info.afterDisplay = callback;
        m_info.afterDisplayContext = context;
    }
    m_renderCalls.WaitForRunning();
}

}    // namespace corvane
