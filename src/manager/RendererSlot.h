// The current renderer, the rules by which one follows another, and those that wait for their end on the render thread.
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

// How renderers are made, by the name in their traits. The first row that a channel's flags admit is its default
// renderer. Tests bring tables of their own.
struct RendererMaker {
    const char* name;
    bool (*admits)(uint32_t flags);
    // The clock outlives the renderer. May raise std::bad_alloc.
    RendererPtr (*make)(const PresentSettings& settings, Clock& clock);
};
using RendererMakers = std::span<const RendererMaker>;

// This build's.
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

    // Puts `renderer` in; the one before dies on the render thread. May raise std::bad_alloc, nothing is changed then.
    void Replace(RendererPtr renderer);

    // Replaces the renderer of `failed`, when it still is the current one, by the one that its traits name. False where
    // they name none, or the flags forbid it: the frame is lost. True when the caller may try again.
    bool ReplaceFailed(const Seat& failed, const PresentSettings& settings);

    // True once, after a default renderer gave way to another for the first time.
    bool TakeFallbackEvent();

    // Destroys those that were replaced and that nobody uses any more. Render thread.
    void DestroyRetired();

    // At the end of the render loop, on its thread.
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
