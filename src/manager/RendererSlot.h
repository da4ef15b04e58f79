// The current renderer, the rules by which another one follows it, and replaced renderers until the render thread
// destroys them.
#pragma once

#include <atomic>
#include <memory>
#include <span>
#include <vector>

#include "base/Mutex.h"
#include "platform/Clock.h"
#include "present/IVideoRenderer.h"

namespace corvane {

using RendererPtr = std::shared_ptr<IVideoRenderer>;

// How each renderer is made, by the name in its traits. The default renderer of a channel is the first row that its
// flags admit. Tests have tables of their own.
struct RendererMaker {
    const char* name;
    bool (*admits)(uint32_t flags);
    // The clock outlives the renderer. May raise std::bad_alloc.
    RendererPtr (*make)(const PresentSettings& settings, Clock& clock);
};
using RendererMakers = std::span<const RendererMaker>;

// The renderers of this build.
RendererMakers BuiltRenderers();

class RendererSlot {
public:
    struct Seat {
        RendererPtr renderer;
        RendererId id = 0;
    };

    // `owner` names the manager in log lines. Makes the default renderer. May raise std::bad_alloc.
    RendererSlot(const void* owner, const PresentSettings& settings, RendererMakers makers, Clock& clock);

    Seat Current() const;

    // Makes `renderer` the current one; the render thread destroys the last one. May raise std::bad_alloc, and nothing
    // is changed then.
    void Replace(RendererPtr renderer);

    // Replaces the renderer of `failed`, if it is still the current one, by the one that its traits name. True when the
    // caller may try again. False where they name none, or the flags forbid it: the frame is lost.
    bool ReplaceFailed(const Seat& failed, const PresentSettings& settings);

    // True once: after a default renderer was replaced for the first time because it failed.
    bool TakeFallbackEvent();

    // Destroys replaced renderers that have no other user. Render thread.
    void DestroyRetired();

    // Render thread, at the end of its loop.
    void DestroyAll();

private:
    RendererPtr MakeDefault(const PresentSettings& settings) const;
    RendererPtr MakeNamed(const char* name, const PresentSettings& settings) const;
    void ReplaceLocked(RendererPtr renderer) REQUIRES(m_lock);

    // Constant after construction.
    const void* const m_owner;
    const RendererMakers m_makers;
    Clock& m_clock;

    mutable Mutex m_lock;    // taken last
    Seat m_seat GUARDED_BY(m_lock);
    std::vector<RendererPtr> m_retired GUARDED_BY(m_lock);
    std::atomic<bool> m_anyRetired{false};      // m_retired is not empty; read without the lock, once a turn
    std::atomic<int32_t> m_fallbackEvent{0};    // 0; 1 after a fall-back; -1 after its code was sent
};

}    // namespace corvane
