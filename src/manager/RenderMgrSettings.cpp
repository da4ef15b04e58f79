// The setters of the render manager, for any thread.
#include <algorithm>
#include <utility>

#include "manager/DisplaySettings.h"
#include "manager/RenderMgr.h"
#include "platform/x11/WindowGrab.h"
#include "present/Layout.h"
#include "render/PseudoRenderer.h"

namespace corvane {

namespace {

constexpr std::chrono::milliseconds kGrabLimit(1000);

}    // namespace

void CRenderMgr::Stop(bool waiting) {
    MutexLock lock(m_lock);
    m_raw.Begin();
    m_schedule.OnInformation();
    if (waiting && m_schedule.State() != RenderState::Waiting)
        SetState(RenderState::Waiting, nullptr);
}

void CRenderMgr::ResetToStopped() {
    MutexLock lock(m_lock);
    SetState(RenderState::Stopped, nullptr);
}

void CRenderMgr::RequestRedraw() {
    MutexLock lock(m_lock);
    m_schedule.OnRedraw();
    m_due.NotifyAll();
}

void CRenderMgr::OnSinkReady() noexcept {
    MutexLock lock(m_lock);
    m_schedule.OnSinkReady();
    m_due.NotifyAll();
}

void CRenderMgr::OnSinkRoom() noexcept {
    MutexLock lock(m_lock);
    m_schedule.OnSinkRoom();
    m_due.NotifyAll();
}

void CRenderMgr::SetWindow(WindowWatchPtr window) {
    const bool given = window != nullptr;
    MutexLock windows(m_windowLock);
    WindowSubscription next(std::move(window), this);
    if (next.Watch() == m_window.Watch())
        return;
    {
        MutexLock lock(m_lock);
        ChangeSettings([&](PresentSettings& settings) { settings.window = next.Watch(); });
        m_schedule.OnGivenUp();
        m_due.NotifyAll();
    }
    m_window = std::move(next);    // `next` destroys the last one when it goes out of scope
    if (given)
        RequestRedraw();
}

void CRenderMgr::EnableSound(bool on) {
    m_audio.Enable(on);
    m_raw.Client().Wake();
}

void CRenderMgr::SetMargin(uint32_t Edges::*edge, uint32_t pixels) {
    MutexLock lock(m_lock);
    ChangeSettings([&](PresentSettings& settings) { settings.margin.*edge = pixels; });
}

void CRenderMgr::SetBorder(const Edges& border) {
    MutexLock lock(m_lock);
    ChangeSettings([&](PresentSettings& settings) {
        settings.hasBorder = true;
        settings.border = border;
    });
}

Status CRenderMgr::SetDisplayArea(const DisplayArea& area, uint32_t mask) {
    MutexLock windows(m_windowLock);
    DisplayArea next = GetDisplayArea();
    const Status status = ApplyDisplayArea(next, area, mask);
    const auto drawn = next.overviewEnabled != 0 ? WindowWatch::Purpose::Draw : WindowWatch::Purpose::Look;
    WindowSubscription overview(WindowWatch::Open(next.overviewIsWindow != 0 ? next.overview.window : 0, drawn), this);
    WindowSubscription zoom(
        WindowWatch::Open(next.zoomIsWindow != 0 ? next.zoom.window : 0, WindowWatch::Purpose::Look), this);
    {
        MutexLock lock(m_lock);
        ChangeSettings([&](PresentSettings& settings) {
            settings.area = next;
            settings.overviewWindow = overview.Watch();
            settings.zoomWindow = zoom.Watch();
        });
        m_schedule.OnGivenUp();
        m_due.NotifyAll();
    }
    m_overviewWindow = std::move(overview);
    m_zoomWindow = std::move(zoom);
    if (Ok(status))
        RequestRedraw();
    return status;
}

DisplayArea CRenderMgr::GetDisplayArea() const {
    return Settings()->area;
}

uint32_t CRenderMgr::GetAdapterIndex() const {
    const PresentSettingsPtr settings = Settings();
    return settings->window != nullptr ? settings->window->MonitorIndex() : 0;
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
    const WindowWatchPtr window = Settings()->window;
    if (window == nullptr)
        return Status::Failed;
    const Raster last = m_sinks.LastImage(window);
    return corvane::GrabWindow(window, last.View(), kGrabLimit, out);
}

int32_t CRenderMgr::GetLogoPicture(BitmapPtr& out) const {
    MutexLock lock(m_lock);
    if (m_schedule.State() != RenderState::Stopped)
        return 1;
    if (m_logo == nullptr)
        return -1;
    out = m_logo;
    return 0;
}

CRenderMgr::PresentRects CRenderMgr::GetPresentRects(WindowWatch::Size otherwise) const {
    PresentSettings settings = *Settings();
    settings.fullWindow = false;    // drawings on another target keep the margins
    WindowWatch::Size client = settings.window != nullptr ? settings.window->ClientSize() : WindowWatch::Size{};
    if (client == WindowWatch::Size{})
        client = otherwise;
    return {client, PictureRect(settings, client)};
}

bool CRenderMgr::HasWindow() const {
    return Settings()->window != nullptr;
}

RenderState CRenderMgr::State() const {
    MutexLock lock(m_lock);
    return m_schedule.State();
}

Status CRenderMgr::InsertFilter(QMRX::Filter::IFilter* filter) {
    MutexLock lock(m_lock);
    if (std::ranges::find(m_settings->chain.clientFilters, filter) != m_settings->chain.clientFilters.end())
        return Status::Failed;
    ChangeSettings([&](PresentSettings& settings) { settings.chain.clientFilters.push_back(filter); });
    return Status::Ok;
}

void CRenderMgr::RemoveFilter(QMRX::Filter::IFilter* filter) {
    bool removed = false;
    {
        MutexLock lock(m_lock);
        ChangeSettings(
            [&](PresentSettings& settings) { removed = std::erase(settings.chain.clientFilters, filter) != 0; });
    }
    if (!removed)
        return;
    m_filters.gate.WaitForRunning();
    if (HasWindow())    // so that the window shows a picture without the filter
        RequestRedraw();
}

void CRenderMgr::SetDeinterlace(bool on) {
    MutexLock lock(m_lock);
    ChangeSettings([&](PresentSettings& settings) { settings.chain.deinterlaceEnabled = on; });
}

void CRenderMgr::SetResizeType(uint32_t type) {
    if (type > 3)
        return;
    MutexLock lock(m_lock);
    ChangeSettings([&](PresentSettings& settings) { settings.chain.resizeType = type; });
}

Status CRenderMgr::EnableRotateFilter(double angle) {
    return ChangeAngle(false, angle);
}

Status CRenderMgr::SetRotateOption(double angle) {
    return ChangeAngle(true, angle);
}

// Failed unless rotation is on (`on`), or off.
Status CRenderMgr::ChangeAngle(bool on, std::optional<double> angle) {
    MutexLock lock(m_lock);
    if (m_settings->angle.has_value() != on)
        return Status::Failed;
    ChangeSettings([&](PresentSettings& settings) { settings.angle = angle; });
    m_schedule.OnInformation();
    return Status::Ok;
}

void CRenderMgr::DisableRotateFilter() {
    MutexLock lock(m_lock);
    ChangeSettings([](PresentSettings& settings) { settings.angle.reset(); });
    m_schedule.OnInformation();
}

void CRenderMgr::SetPictureCallback(ClientCallback<CorvanePictureCallback> callback, uint32_t format) {
    m_slot.Replace(std::make_shared<CPseudoRenderer>(callback, format));
    m_mailbox.Interrupt();
    MutexLock lock(m_lock);
    m_schedule.OnGivenUp();
    m_due.NotifyAll();
    m_renderCalls.WaitForRunning(lock);
}

void CRenderMgr::SetRawDataCallbackSize(uint32_t width, uint32_t height) {
    SetField(&PresentSettings::rawMost, PictureSize{width, height});
}

}    // namespace corvane
