#include "present/RawDelivery.h"

#include <cstddef>
#include <cstring>
#include <utility>

#include "present/MakerTarget.h"

namespace corvane {

static_assert(sizeof(RawPictureInfo) == 240 && offsetof(RawPictureInfo, pixels) == 16 &&
              offsetof(RawPictureInfo, header) == 40 && offsetof(RawPictureInfo, count) == 160 &&
              offsetof(RawPictureInfo, repeat) == 172);

void RawDelivery::Free() {
    m_maker.reset();
    m_run.reset();
}

void RawDelivery::Deliver(const FinishedPicture& picture, PictureMailbox* mailbox,
                          const std::function<bool()>& goesOn) {
    if (picture.Decoded() == nullptr)
        return;
    PresentSettingsPtr settings = m_settings();
    const ClientCallback<CorvaneRawCallback> callback = settings->raw.Callback();
    uint32_t format = settings->raw.format;
    uint32_t count = 0;
    for (bool repeat = true; repeat; settings = m_settings()) {
        // A client that registers another callback waits for this delivery.
        if (settings->raw.Callback() != callback || !settings->raw.WantsPictures() ||
            !Make(picture, format, goesOn))
            return;
        RawPictureInfo info{};
        info.width = m_maker->GetWidth();
        info.height = m_maker->GetHeight();
        info.size = m_maker->GetSize();
        info.prefix = settings->raw.prefix;
        info.buffer = m_maker->GetData();
        info.pixels = info.buffer + info.prefix;
        std::memcpy(info.header, &picture.frame->Header(), sizeof info.header);
        info.count = ++count;
        info.format = info.requestedFormat = format;
        {
            const PictureMailbox::ClientCall call(mailbox);
            callback(uint32_t{CORVANE_RAW_PICTURE}, &info);
        }
        repeat = info.repeat != 0;
        format = info.requestedFormat;
    }
}

// A step of the chain that fails costs only its own work.
bool RawDelivery::Make(const FinishedPicture& picture, uint32_t format, const std::function<bool()>& goesOn) {
    const CallGate::Scope call(m_filterCalls);    // enter the gate, then look whether the channel stops, and for filters
    if (!goesOn())
        return false;
    const PresentSettingsPtr settings = m_settings();
    if (m_maker == nullptr || m_format != format) {
        m_maker = MakePicture(format);
        m_format = format;
    }
    if (m_maker == nullptr)
        return false;
    if (m_run == nullptr)
        m_run = std::make_unique<PictureRun>();
    m_maker->SetQuality(0);
    m_maker->SetPrefix(settings->raw.prefix);
    m_run->Follow(*picture.frame);
    const ConstPictureView decoded = ViewUnder(*settings, *picture.Decoded());
    MakerTarget target(*m_maker);
    if (m_run->Carry({.frame = *picture.frame, .picture = decoded, .size = decoded.size}, settings->chain, target)
            .Lost())
        return false;
    if (decoded.colours)
        m_maker->NormaliseColours(*decoded.colours);
    return Ok(m_maker->Make());
}

}    // namespace corvane
