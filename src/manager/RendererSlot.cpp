#include "manager/RendererSlot.h"

#include <utility>

#include "base/Log.h"
#include "render/DDrawRenderer.h"
#include "render/GDIRenderer.h"

namespace corvane {

const RendererMakers& RendererMakers::Built() {
    static constexpr RendererMakers makers{
        [](const RenderInfo&) -> RendererPtr { return std::make_shared<CGDIRenderer>(); },
        [](const RenderInfo& info) -> RendererPtr { return std::make_shared<CDDrawRenderer>(info); }};
    return makers;
}

RendererSlot::RendererSlot(const void* owner, const RenderInfo& info, const RendererMakers& makers)
    : m_owner(owner), m_makers(makers), m_renderer(MakeDefault(info)) {}

RendererPtr RendererSlot::MakeDefault(const RenderInfo& info) const {
    return (info.flags & kGdiFlags) != 0 ? m_makers.gdi(info) : m_makers.directDraw(info);
}

RendererPtr RendererSlot::Current() const {
    MutexLock lock(m_lock);
    return m_renderer;
}

void RendererSlot::ReplaceLocked(RendererPtr renderer) {
    m_retired.push_back(m_renderer);
    m_renderer = std::move(renderer);
}

void RendererSlot::Replace(RendererPtr renderer) {
    MutexLock lock(m_lock);
    ReplaceLocked(std::move(renderer));
}

bool RendererSlot::ReplaceFailed(const RendererPtr& failed, const RenderInfo& info) {
    MutexLock lock(m_lock);
    if (m_renderer != failed)
        return true;    // somebody else put another one in
    switch (failed->GetType()) {
    case RendererType::DirectDraw:
        if ((info.flags & CORVANE_FLAG_NO_FALLBACK) != 0)
            return false;
        ReplaceLocked(m_makers.gdi(info));
        if (m_fallbackEvent == 0)
            m_fallbackEvent = 1;
        log::Line(3, __FILE__, __LINE__, "[%p] DirectDraw renderer failed, reset to GDI renderer", m_owner);
        return true;
    case RendererType::Fisheye:
    case RendererType::OpenGL:
        ReplaceLocked(MakeDefault(info));
        if ((info.flags & kGdiFlags) != 0)
            log::Line(3, __FILE__, __LINE__, "[%p] Fisheye/OpenGL renderer failed, reset to GDI renderer", m_owner);
        else
            log::Line(3, __FILE__, __LINE__, "[%p] Fisheye/OpenGL renderer failed, reset to DirectDraw renderer",
                      m_owner);
        return true;
    case RendererType::Gdi:
    case RendererType::OffScreen:
        break;
    }
    return false;
}

bool RendererSlot::TakeFallbackEvent() {
    MutexLock lock(m_lock);
    if (m_fallbackEvent != 1)
        return false;
    m_fallbackEvent = -1;
    return true;
}

void RendererSlot::DestroyRetired() {
    std::vector<RendererPtr> dying;    // dies after the lock is dropped
    MutexLock lock(m_lock);
    dying.swap(m_retired);
}

void RendererSlot::DestroyAll() {
    DestroyRetired();
    RendererPtr last;
    MutexLock lock(m_lock);
    last.swap(m_renderer);
}

}    // namespace corvane
