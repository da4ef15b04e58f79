#include "render/MonitorView.h"

#include "render/TearWait.h"

namespace corvane {

std::shared_ptr<MonitorView> MonitorView::Make(Blitter& blitter, const WindowWatchPtr& window, Clock& clock) {
    std::shared_ptr<MonitorView> view(new MonitorView(blitter, window, clock));
    const std::optional<Monitor> monitor = blitter.FindMonitor(window);
    if (!monitor)
        return nullptr;
    view->m_monitor = *monitor;
    view->m_device = view->m_use.Find(*monitor);
    return view->m_device != nullptr ? view : nullptr;
}

BlitResult MonitorView::CopyToScreen(const WindowWatch& window, const Rect& destination, BlitComposite& from,
                                     const Rect& source) {
    {
        MutexLock lock(m_device->Lock());
        if (m_device->IsLost(window) == BlitResult::SurfaceLost &&
            m_device->RestorePrimary(window) == BlitResult::WrongMode)
            (void)m_device->Recreate();
    }
    return m_device->Copy(window, destination, from, source);
}

BlitResult MonitorView::Show(BlitComposite& from, const Rect& outer, WindowWatch::Size size) {
    const Rect place = outer.Moved(-m_monitor.place.left, -m_monitor.place.top);
    constexpr int64_t kMillisecond = 1'000'000;
    TearWait wait(place, m_monitor.place.Height(), m_blankHit);
    TearWait::Step step;
    uint32_t line = 0;
    do {
        const int64_t now = m_clock.Now();
        const BlitResult result = m_device->GetScanLine(*m_window, now, &line);
        step = wait.Next(result, line, now);
        if (step == TearWait::Step::Sleep)
            m_clock.SleepUntil(now + kMillisecond);
    } while (step != TearWait::Step::Copy);
    const BlitResult copied = CopyToScreen(*m_window, place, from, {0, 0, size.width, size.height});
    if (Failed(copied) && copied != BlitResult::StillDrawing)
        return copied;
    const BlitResult result = m_device->GetScanLine(*m_window, m_clock.Now(), &line);
    m_blankHit = wait.Judged(result, line);
    return copied;
}

}    // namespace corvane
