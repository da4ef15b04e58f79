// The current renderer, the rules by which one follows another, and those that wait for their end on the render thread.
#pragma once

#include <memory>
#include <vector>

#include "base/Mutex.h"
#include "present/IVideoRenderer.h"

namespace corvane {

using RendererPtr = std::shared_ptr<IVideoRenderer>;

// How renderers are made; tests put scripted ones in.
struct RendererMakers {
    RendererPtr (*gdi)(const RenderInfo& info);
    RendererPtr (*directDraw)(const RenderInfo& info);

    // This build's.
    static const RendererMakers& Built();
};

class RendererSlot {
public:
    // `owner` names the manager in log lines. Makes the default renderer. May raise std::bad_alloc.
    RendererSlot(const void* owner, const RenderInfo& info, const RendererMakers& makers);

    RendererPtr Current() const;

    // Puts `renderer` in; the one before dies on the render thread. May raise std::bad_alloc, nothing is changed then.
    void Replace(RendererPtr renderer);

    // Replaces `failed`, when it still is the current one, by the next of the chain: fisheye or OpenGL, default, plain.
    // False where the chain ends: the frame is lost. True when the caller may try again.
    bool ReplaceFailed(const RendererPtr& failed, const RenderInfo& info);

    // True once, after the default renderer gave way to the plain one for the first time.
    bool TakeFallbackEvent();

    // Destroys those that were replaced. The caller is the render thread and holds the picture lock, so no run uses
    // them.
    void DestroyRetired();

    // At the end of the render loop, on its thread.
    void DestroyAll();

private:
    RendererPtr MakeDefault(const RenderInfo& info) const;
    void ReplaceLocked(RendererPtr renderer) REQUIRES(m_lock);

    // Constant after construction.
    const void* const m_owner;
    const RendererMakers& m_makers;

    mutable Mutex m_lock;    // taken last
    RendererPtr m_renderer GUARDED_BY(m_lock);
    std::vector<RendererPtr> m_retired GUARDED_BY(m_lock);
    int32_t m_fallbackEvent GUARDED_BY(m_lock) = 0;    // 0, 1 after a fall-back, -1 once the client was told
};

}    // namespace corvane
