#include "render/PseudoRenderer.h"

#include <time.h>

#include <utility>

namespace corvane {

namespace {

constexpr uint32_t kFreshInfo = 0x20;
constexpr uint32_t kAudioOnly = 8;

PseudoFrame Describe(const MediaFrameImpl* frame, uint32_t flags, struct tm* time) {
    PseudoFrame record{};
    record.flags = flags;
    record.time = time;
    if (frame == nullptr)
        return record;
    const FrameTimeRecord& when = frame->PresentTimeGiven() ? frame->PresentTime() : frame->BaseTime();
    const time_t seconds = static_cast<time_t>(frame->Header().timeSeconds);
    gmtime_r(&seconds, time);
    record.seconds = when.seconds;
    record.milliseconds = when.milliseconds;
    record.timeSeconds = frame->Header().timeSeconds;
    record.timeZone = when.timeZone;
    record.daylight = when.daylight;
    record.header = &frame->Header();
    return record;
}

}    // namespace

int32_t CPseudoRenderer::GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride,
                                   uint32_t* format) {
    if (m_committed != nullptr)
        m_lent = m_committed;    // nobody saw that picture: the new one takes its place
    else if (m_presenting.load(std::memory_order_acquire))
        m_lent = m_shown == &m_slots[0] ? &m_slots[1] : &m_slots[0];
    else
        m_lent = m_shown;
    m_lentNext = !m_lent->Fits(width, height);
    Slot& slot = m_lentNext ? m_next : *m_lent;
    if (!slot.Fits(width, height)) {
        const uint64_t size = m_format == PF_NV12 ? 0 : PictureBytes(m_format, width, height);
        AlignedBuffer memory;
        if (size == 0 || !memory.Allocate(size))
            return -1;
        slot.memory = std::move(memory);
        slot.stride = RowBytes(m_format, width);
        slot.size = static_cast<uint32_t>(size);
        slot.width = width;
        slot.height = height;
    }
    m_wasComplete = std::exchange(slot.complete, false);
    *buffer = slot.memory.Data();
    *stride = slot.stride;
    *format = m_format;
    return 0;
}

void CPseudoRenderer::Commit() {
    if (m_lentNext)
        *m_lent = std::exchange(m_next, Slot());
    m_lentNext = false;
    m_lent->complete = true;
    m_committed = m_lent;
}

void CPseudoRenderer::TakeBack() {
    if (!m_lentNext)
        m_lent->complete = m_wasComplete;
}

void CPseudoRenderer::Latch(const RenderInfo&) {
    if (Slot* const fresh = std::exchange(m_committed, nullptr))
        m_shown = fresh;
    m_presenting.store(true, std::memory_order_relaxed);
}

Outcome CPseudoRenderer::Present(const FramePtr* frame, const RenderInfo* info) {
    const struct Done {
        std::atomic<bool>& presenting;
        ~Done() { presenting.store(false, std::memory_order_release); }
    } done{m_presenting};
    if (m_callback == nullptr || !info->presentEnabled)
        return Outcome::NotDue;
    struct tm time {};
    PseudoFrame record = Describe(frame->get(), info->infoDirty ? kFreshInfo : 0, &time);
    if (m_shown->complete) {
        record.width = m_shown->width;
        record.height = m_shown->height;
        record.data = m_shown->memory.Data();
        record.size = m_shown->size;
    }
    m_callback(m_context, &record);
    return record.data != nullptr ? Outcome::HandedOver : Outcome::NotDue;
}

void CPseudoRenderer::NotifyAudioOnly(const FramePtr& frame, const RenderInfo& info) {
    if (m_callback == nullptr || !info.presentEnabled)
        return;
    struct tm time {};
    const PseudoFrame record = Describe(frame.get(), kAudioOnly, &time);
    m_callback(m_context, &record);
}

}    // namespace corvane
