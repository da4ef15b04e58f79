#include "present/RawDelivery.h"

#include <cstddef>
#include <cstring>
#include <utility>

#include "present/MakerTarget.h"

namespace corvane {

static_assert(sizeof(RawPictureInfo) == 240 && offsetof(RawPictureInfo, pixels) == 16 &&
              offsetof(RawPictureInfo, header) == 40 && offsetof(RawPictureInfo, count) == 160 &&
              offsetof(RawPictureInfo, repeat) == 172);
static_assert(sizeof(RawAudioInfo) == 240 && offsetof(RawAudioInfo, samples) == 8 &&
              offsetof(RawAudioInfo, timeSeconds) == 16 && offsetof(RawAudioInfo, header) == 24);

void RawDelivery::End() {
    m_running = false;
    Cut();
}

void RawDelivery::Cut() {
    ++m_cuts;
    m_client.Wake();
}

SharedPicture RawDelivery::Keep(const SharedPicture& decoded) {
    if (!m_client.WantsPictures())
        return SharedPicture();
    return decoded.Shared() ? decoded.Share() : m_copies.Copy(decoded);
}

void RawDelivery::Deliver(const FinishedPicture& picture, PictureMailbox* mailbox,
                          const std::function<PresentSettingsPtr()>& current) {
    if (!m_client.WantsPictures()) {
        m_maker.reset();
        m_run.reset();
    }
    if (!std::exchange(m_due, false) || !m_client.WantsPictures() || picture.Decoded() == nullptr)
        return;
    const auto goesOn = [this, cuts = m_cuts.load()] { return m_running && m_cuts == cuts; };
    RawSettings wanted = m_client.Settings();
    const ClientCallback<CorvaneRawCallback> callback = wanted.Callback();
    RawPictureInfo info{};
    info.requestedFormat = wanted.format;
    do {
        {
            const CallGate::Scope call(m_filters.gate);    // enter the gate, then look at the stop and the filters
            if (!goesOn() || !Make(picture, *current(), info.requestedFormat, wanted.prefix))
                return;
        }
        info.width = m_maker->GetWidth();
        info.height = m_maker->GetHeight();
        info.size = m_maker->GetSize();
        info.buffer = m_maker->GetData();
        info.pixels = info.buffer + wanted.prefix;
        info.prefix = wanted.prefix;
        std::memcpy(info.header, &picture.frame->Header(), sizeof info.header);
        ++info.count;
        info.format = info.requestedFormat;
        info.repeat = 0;
        const PictureMailbox::ClientCall call(mailbox);
        const RawClient::Turn turn(m_client, goesOn);
        wanted = m_client.Settings();
        // A client that registers another callback does not get the rest of this delivery.
        if (!turn || !wanted.WantsPictures() || wanted.Callback() != callback)
            return;
        callback(uint32_t{CORVANE_RAW_PICTURE}, &info);
    } while (info.repeat != 0);
}

// A step of the chain that fails costs only its own work.
bool RawDelivery::Make(const FinishedPicture& picture, const PresentSettings& settings, uint32_t format,
                       uint32_t prefix) {
    if (m_maker == nullptr || m_format != format) {
        m_maker = MakePicture(format, AlignedBuffer::Use::Kept);
        m_format = format;
    }
    if (m_maker == nullptr)
        return false;
    if (m_run == nullptr)
        m_run = std::make_unique<PictureRun>();
    m_maker->SetQuality(0);
    m_maker->SetPrefix(prefix);
    m_run->Follow(*picture.frame);
    const ConstPictureView decoded = ViewUnder(settings, *picture.Decoded());
    MakerTarget target(*m_maker);
    if (m_run->Carry({.frame = *picture.frame, .picture = decoded, .size = decoded.size}, settings.chain, target)
            .Lost())
        return false;
    if (decoded.colours)
        m_maker->NormaliseColours(*decoded.colours);
    return Ok(m_maker->Make());
}

void RawDelivery::DeliverSound(const MediaFrameImpl& frame, const uint8_t* samples, uint32_t bytes,
                               const std::function<bool()>& goesOn) {
    const auto wanted = [&] { return m_client.WantsSound() && goesOn(); };
    if (!wanted())    // no lock where the client wants no sound
        return;
    const RawClient::Turn turn(m_client, wanted);
    const RawSettings settings = m_client.Settings();
    if (!turn || !settings.WantsSound())
        return;
    const MediaFrameHeader& header = frame.Header();
    RawAudioInfo info{};
    info.duration = AudioDurationMs(header);
    info.size = bytes;
    info.samples = samples;
    info.timeSeconds = header.timeSeconds;
    info.timeMilliseconds = header.timeMilliseconds;
    std::memcpy(info.header, &header, sizeof info.header);
    settings.Callback()(uint32_t{CORVANE_RAW_SOUND}, &info);
}

}    // namespace corvane
