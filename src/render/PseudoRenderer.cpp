#include "render/PseudoRenderer.h"

#include <time.h>

#include "base/PictureLayout.h"

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

const RendererTraits& CPseudoRenderer::Traits() const {
    static constexpr RendererTraits traits{.name = "OffScreen",
                                           .needsWindow = false,
                                           .takesReferences = false,
                                           .scalesItself = false,
                                           .followsOnFailure = nullptr};
    return traits;
}

Outcome CPseudoRenderer::Present(const FinishedPicture& picture, Pass& pass) {
    if (!m_callback || !pass.settings.presentEnabled)
        return Outcome::NotDue;
    struct tm time {};
    PseudoFrame record = Describe(picture.frame.get(), pass.flags.fresh ? kFreshInfo : 0, &time);
    if (const BufferSlot* const buffer = picture.Buffer()) {
        record.width = buffer->view.size.width;
        record.height = buffer->view.size.height;
        record.data = buffer->view.Memory();
        record.size = static_cast<uint32_t>(PictureBytes(m_format, record.width, record.height));
    }
    const PictureMailbox::ClientCall call(pass.mailbox);
    m_callback(&record);
    return record.data != nullptr ? Outcome::HandedOver : Outcome::NotDue;
}

void CPseudoRenderer::NotifyAudioOnly(const MediaFrameImpl* frame, Pass& pass) {
    if (!m_callback || !pass.settings.presentEnabled)
        return;
    struct tm time {};
    const PseudoFrame record = Describe(frame, kAudioOnly, &time);
    const PictureMailbox::ClientCall call(pass.mailbox);
    m_callback(&record);
}

}    // namespace corvane
