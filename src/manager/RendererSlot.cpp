#include "manager/RendererSlot.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "base/Log.h"
#include "render/DDrawRenderer.h"
#include "render/GDIRenderer.h"

namespace corvane {

namespace {

// The log line for a fall-back, which takes the manager's address and nothing else. Null for a pair without a line.
const char* FailureLine(std::string_view failed, std::string_view next) {
    static constexpr struct {
        std::string_view failed, next;
        const char* line;
    } lines[] = {
        {"DirectDraw", "GDI", "[%p] DirectDraw renderer failed, reset to GDI renderer"},
        {"Fisheye/OpenGL", "GDI", "[%p] Fisheye/OpenGL renderer failed, reset to GDI renderer"},
        {"Fisheye/OpenGL", "DirectDraw", "[%p] Fisheye/OpenGL renderer failed, reset to DirectDraw renderer"},
    };
    for (const auto& row : lines)
        if (row.failed == failed && row.next == next)
            return row.line;
    return nullptr;
}

}    // namespace

RendererMakers BuiltRenderers() {
    static constexpr RendererMaker makers[] = {
        {"DirectDraw", [](uint32_t flags) { return (flags & kGdiFlags) == 0; },
         [](const PresentSettings& settings, Clock& clock) -> RendererPtr {
             return std::make_shared<CDDrawRenderer>(settings, Blitter::Processor(), clock);
         }},
        {"GDI", [](uint32_t) { return true; },
         [](const PresentSettings&, Clock& clock) -> RendererPtr { return std::make_shared<CGDIRenderer>(clock); }},
    };
    return makers;
}

RendererSlot::RendererSlot(const void* owner, const PresentSettings& settings, RendererMakers makers, Clock& clock)
    : m_owner(owner), m_makers(makers), m_clock(clock), m_seat{MakeDefault(settings), 1} {}

RendererPtr RendererSlot::MakeDefault(const PresentSettings& settings) const {
    const auto row = std::ranges::find_if(m_makers, [&](const auto& maker) { return maker.admits(settings.flags); });
    return row->make(settings, m_clock);    // the last row admits all flags
}

RendererPtr RendererSlot::MakeNamed(const char* name, const PresentSettings& settings) const {
    const auto row =
        std::ranges::find_if(m_makers, [&](const auto& maker) { return std::string_view(maker.name) == name; });
    return row != m_makers.end() ? row->make(settings, m_clock) : nullptr;
}

RendererSlot::Seat RendererSlot::Current() const {
    MutexLock lock(m_lock);
    return m_seat;
}

void RendererSlot::ReplaceLocked(RendererPtr renderer) {
    m_retired.push_back(m_seat.renderer);
    m_anyRetired = true;
    m_seat = {std::move(renderer), m_seat.id + 1};
}

void RendererSlot::Replace(RendererPtr renderer) {
    MutexLock lock(m_lock);
    ReplaceLocked(std::move(renderer));
}

bool RendererSlot::ReplaceFailed(const Seat& failed, const PresentSettings& settings) {
    const RendererTraits& traits = failed.renderer->Traits();
    const char* line;
    {
        MutexLock lock(m_lock);
        if (m_seat.id != failed.id)
            return true;    // another thread has replaced it
        if (traits.followsOnFailure == nullptr)
            return false;
        const bool wasDefault = *traits.followsOnFailure != *kDefaultRenderer;
        if (wasDefault && (settings.flags & CORVANE_FLAG_NO_FALLBACK) != 0)
            return false;
        RendererPtr next = wasDefault ? MakeNamed(traits.followsOnFailure, settings) : MakeDefault(settings);
        if (next == nullptr)
            return false;
        line = FailureLine(traits.name, next->Traits().name);
        ReplaceLocked(std::move(next));
        if (wasDefault && m_fallbackEvent == 0)
            m_fallbackEvent = 1;
    }
    if (line != nullptr)
        log::Line(3, "src/RenderMgr", __LINE__, line, m_owner);
    return true;
}

bool RendererSlot::TakeFallbackEvent() {
    int32_t after = 1;
    return m_fallbackEvent == after && m_fallbackEvent.compare_exchange_strong(after, -1);
}

void RendererSlot::DestroyRetired() {
    while (m_anyRetired) {
        RendererPtr dying;    // destroyed after the lock is dropped
        MutexLock lock(m_lock);
        // Only the current renderer gains users, so the count of a replaced one can only fall.
        const auto free = std::ranges::find(m_retired, 1, &RendererPtr::use_count);
        if (free == m_retired.end())
            return;
        dying = std::move(*free);
        m_retired.erase(free);
        m_anyRetired = !m_retired.empty();
    }
}

void RendererSlot::DestroyAll() {
    std::vector<RendererPtr> dying;
    RendererPtr last;
    MutexLock lock(m_lock);
    dying.swap(m_retired);
    last.swap(m_seat.renderer);
}

}    // namespace corvane
