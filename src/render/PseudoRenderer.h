// The off-screen renderer: hands every finished picture to a client callback.
#pragma once

#include <atomic>

#include "base/AlignedBuffer.h"
#include "filters/FilterChain.h"
#include "present/IVideoRenderer.h"

namespace corvane {

class CPseudoRenderer final : public IVideoRenderer {
public:
    // `format`: 1, 7, 8, 9 or 17 by way of the export; any format with planes or rows of our own layout works.
    CPseudoRenderer(CorvanePictureCallback callback, void* context, uint32_t format)
        : m_callback(callback), m_context(context), m_format(format) {}

    RendererType GetType() const override { return RendererType::OffScreen; }
    Outcome Present(const FramePtr* frame, const RenderInfo* info) override;
    int32_t GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride, uint32_t* format) override;
    void Commit() override;
    void TakeBack() override;
    void Latch(const RenderInfo&) override;
    void NotifyAudioOnly(const FramePtr& frame, const RenderInfo& info) override;

private:
    struct Slot {
        AlignedBuffer memory;
        uint32_t stride = 0;
        uint32_t size = 0;
        uint32_t width = 0;
        uint32_t height = 0;
        bool complete = false;    // was committed since it was lent last
        bool Fits(uint32_t w, uint32_t h) const { return memory && width == w && height == h; }
    };

    // Constant after construction.
    const CorvanePictureCallback m_callback;
    void* const m_context;
    const uint32_t m_format;

    // True from a Latch to the end of the Present that follows: *m_shown is the client's. Written by the render thread.
    std::atomic<bool> m_presenting{false};

    // Under the manager's picture lock: exclusively by the worker, shared by the render thread. One slot serves as long
    // as the client is done with a picture when the next one comes; the second is filled only while it is not.
    Slot m_slots[2];
    Slot* m_lent = nullptr;    // since the last GetBuffer
    Slot m_next;               // lent in its place for another size: the picture in it is good until the commit
    bool m_lentNext = false;
    bool m_wasComplete = false;     // *m_lent, when it was lent itself
    Slot* m_committed = nullptr;    // complete and not yet latched
    Slot* m_shown = &m_slots[0];
};

}    // namespace corvane
