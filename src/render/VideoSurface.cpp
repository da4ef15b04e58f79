#include "render/VideoSurface.h"

#include <utility>

namespace corvane {

std::unique_ptr<VideoSurface> VideoSurface::Make(std::shared_ptr<MonitorView> view, uint32_t width, uint32_t height,
                                                 uint32_t fourCC) {
    std::unique_ptr<BlitSurface> surface = view->Device().CreateVideo(width, height, fourCC);
    if (surface == nullptr)
        return nullptr;
    std::unique_ptr<VideoSurface> made(new VideoSurface(std::move(view), std::move(surface), width, height, fourCC));
    return made->Lock() ? std::move(made) : nullptr;
}

bool VideoSurface::Lock() {
    Unlock();
    BlitResult result = m_surface->Lock(true, &m_data, &m_pitch);
    if (result == BlitResult::InvalidArgument) {    // the device has no such lock
        result = m_surface->Lock(false, &m_data, &m_pitch);
    } else if (result == BlitResult::SurfaceLost) {
        (void)m_surface->Restore();
        result = m_surface->Lock(false, &m_data, &m_pitch);
    }
    m_locked = !Failed(result);
    return m_locked;
}

void VideoSurface::Unlock() {
    if (std::exchange(m_locked, false))
        (void)m_surface->Unlock();
}

}    // namespace corvane
