// The off-screen renderer: passes every finished picture to a client's callback.
#pragma once

#include "present/IVideoRenderer.h"

namespace corvane {

class CPseudoRenderer final : public IVideoRenderer {
public:
    // `format`: PF_*, but not PF_NV12; the export allows 1, 7, 8, 9 and 17.
    CPseudoRenderer(const ClientCallback<CorvanePictureCallback>& callback, uint32_t format)
        : m_callback(callback), m_format(format) {}

    const RendererTraits& Traits() const override;
    uint32_t FormatFor(uint32_t) const override { return m_format; }
    bool HasFreeBuffer() const override { return m_buffers.HasFree(); }
    LentBuffer Lend(PictureSize size, uint32_t) override { return m_buffers.Lend(size, m_format); }
    // The client may use the pixels until its call returns.
    Outcome Present(const FinishedPicture& picture, Pass& pass) override;
    void NotifyAudioOnly(const MediaFrameImpl* frame, Pass& pass) override;

private:
    // Constant after construction.
    const ClientCallback<CorvanePictureCallback> m_callback;
    const uint32_t m_format;

    MemoryBuffers m_buffers;    // worker
};

}    // namespace corvane
