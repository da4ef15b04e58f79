// Shows pictures nowhere: what a channel without a window and without a picture callback presents to. It takes them in
// the format that costs least, so that client filters and the after-display callback run as with any other renderer.
#pragma once

#include "base/AlignedBuffer.h"
#include "present/IVideoRenderer.h"

namespace corvane {

class CNullRenderer final : public IVideoRenderer {
public:
    RendererType GetType() const override { return RendererType::Gdi; }    // the end of the fall-back chain
    int32_t Present(const FramePtr*, const RenderInfo*) override { return 0; }
    int32_t GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride, uint32_t* format) override;
    void Commit() override {}
    void Latch() override {}

private:
    // Under the manager's picture lock.
    AlignedBuffer m_memory;
};

}    // namespace corvane
