// Renderers for tests: a scripted one, and one that relays to another renderer.
#pragma once

#include <atomic>
#include <functional>
#include <utility>

#include "base/Thread.h"
#include "present/IVideoRenderer.h"

namespace corvane::test {

// The record of the renderers of one script, and their behaviour.
struct RendererScript {
    RendererTraits traits{.name = "DirectDraw",
                          .needsWindow = true,
                          .takesReferences = false,
                          .scalesItself = false,
                          .followsOnFailure = "GDI"};
    std::function<Outcome(const FinishedPicture&, Pass&)> present;    // Put where there is none
    std::atomic<int> refuseBuffers{0}, failPresents{0};               // Lend or Present fails this many times
    std::atomic<int> buffers{0}, presents{0}, destroyed{0};
    std::atomic<bool> diedOnRenderThread{true};
};

class ScriptedRenderer final : public IVideoRenderer {
public:
    explicit ScriptedRenderer(RendererScript& script) : m_script(script) {}
    ~ScriptedRenderer() override {
        if (Thread::CurrentOwner() == nullptr)
            m_script.diedOnRenderThread = false;
        ++m_script.destroyed;
    }
    const RendererTraits& Traits() const override { return m_script.traits; }
    uint32_t FormatFor(uint32_t) const override { return PF_BGRA32; }
    bool HasFreeBuffer() const override { return m_buffers.HasFree(); }
    LentBuffer Lend(PictureSize size, uint32_t) override {
        ++m_script.buffers;
        return m_script.refuseBuffers-- > 0 ? LentBuffer() : m_buffers.Lend(size, PF_BGRA32);
    }
    Outcome Present(const FinishedPicture& picture, Pass& pass) override {
        ++m_script.presents;
        if (m_script.failPresents-- > 0)
            return Outcome::Failed;
        return m_script.present ? m_script.present(picture, pass) : Outcome::Put;
    }

private:
    RendererScript& m_script;
    MemoryBuffers m_buffers;
};

// Hands everything on to `inner`, and tells of each pass: before it, and what it came to.
template <typename Inner>
class RelayingRenderer final : public IVideoRenderer {
public:
    struct Hooks {
        std::function<void(const PresentSettings&)> before;
        std::function<void(const FinishedPicture&, Outcome)> after;
    };
    template <typename... Arguments>
    explicit RelayingRenderer(const Hooks& hooks, Arguments&&... arguments) : m_hooks(hooks), m_inner(arguments...) {}
    const RendererTraits& Traits() const override { return m_inner.Traits(); }
    uint32_t FormatFor(uint32_t preferred) const override { return m_inner.FormatFor(preferred); }
    bool HasFreeBuffer() const override { return m_inner.HasFreeBuffer(); }
    LentBuffer Lend(PictureSize size, uint32_t preferred) override { return m_inner.Lend(size, preferred); }
    bool TakesReference(const ConstPictureView& picture) override { return m_inner.TakesReference(picture); }
    Outcome Present(const FinishedPicture& picture, Pass& pass) override {
        if (m_hooks.before)
            m_hooks.before(pass.settings);
        const Outcome outcome = m_inner.Present(picture, pass);
        if (m_hooks.after)
            m_hooks.after(picture, outcome);
        return outcome;
    }

private:
    const Hooks& m_hooks;
    Inner m_inner;
};

}    // namespace corvane::test
