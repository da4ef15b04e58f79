// A renderer that does as the test says.
#pragma once

#include <atomic>
#include <functional>

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

}    // namespace corvane::test
