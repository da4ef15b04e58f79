#include "ChannelFeed.h"

#include <cstddef>
#include <cstdio>
#include <limits>
#include <string>

namespace {

// Prints what a stream-info callback got, addresses as a dash.
void PrintInfo(uint32_t code, uint64_t a, uint64_t b) {
    const bool aIsAddress = code == CORVANE_INFO_MOTION;
    const bool bIsAddress = code == CORVANE_INFO_FRAME || (code == CORVANE_INFO_LENS_CIRCLE && a != 0);
    std::printf("info %u %s %s\n", code, aIsAddress ? "-" : std::to_string(a).c_str(),
                bIsAddress ? "-" : std::to_string(b).c_str());
}

}    // namespace

bool ChannelFeed::Open(void* instance, const StreamFacts& stream, std::string& error) {
    m_stream = stream;
    ChannelSettings settings{};
    settings.mask = CORVANE_SETTINGS_STREAM_INFO | CORVANE_SETTINGS_STREAM_INFO_CONTEXT;
    settings.streamInfo = &ChannelFeed::OnStreamInfo;
    settings.streamInfoContext = this;
    settings.mask |= CORVANE_SETTINGS_VOLUME | CORVANE_SETTINGS_AUDIO;
    settings.volume = m_options.volume * 50;
    settings.audioEnabled = m_heard && !m_options.mute ? 1 : 0;
    if (m_view != nullptr)
        m_view->Prepare(settings);
    if (Corvane_CreateChannel(instance, &m_channel, &settings) != Status_Ok) {
        error = "a channel cannot be made";
        return false;
    }
    m_instance = instance;
    Corvane_SetBufferTime(m_channel, m_options.bufferMs);
    SetDecoders(m_channel, m_options);
    Corvane_SetChannelOption(m_channel, CORVANE_OPTION_DECODER_THREADS, m_options.threads, 0);
    Corvane_SetChannelOption(m_channel, CORVANE_OPTION_COLOURS, m_options.colours, 0);
    Corvane_SetDisplayMode(m_channel, m_options.displayMode);
    if (m_options.rotate != 0)
        Corvane_EnableRotateFilter(m_channel, m_options.rotate);
    if (m_raw != nullptr)
        m_raw->Attach(m_channel);
    error = "a channel cannot be started";
    const uint32_t waiting =
        m_options.logo.empty() ? CORVANE_START_WAITING : 0;    // 0: the logo stays until the first picture
    if (!Deliver(error) || Corvane_StartChannel(m_channel, waiting) != Status_Ok)
        return false;
    error.clear();
    return true;
}

bool ChannelFeed::Deliver(std::string& error) {
    if (m_view != nullptr) {
        m_view->SetChannel(m_channel);
        const auto logo = reinterpret_cast<uint64_t>(m_options.logo.c_str());
        if (!m_options.logo.empty() &&
            Corvane_SetChannelOption(m_channel, CORVANE_OPTION_LOGO_FILE, logo, 0) != Status_Ok) {
            error = m_options.logo + ": not a picture that can be shown";
            return false;
        }
        return Corvane_RegisterAfterDisplayCallback(m_channel, &ChannelFeed::OnDisplayed, this) == Status_Ok;
    }
    Corvane_SetRawDataCallbackSize(m_channel, m_options.width, m_options.height);
    return Corvane_RegisterRawDataCallback(m_channel, &ChannelFeed::OnPicture, this, m_options.kind,
                                           m_options.bottomUp ? 1 : 0) == Status_Ok;
}

void ChannelFeed::EndBuffering() {
    QueueState state{};
    Corvane_GetRemainingQueueElementCount(m_channel, &state);
    if (state.state == CORVANE_QUEUE_BUFFERING)
        Corvane_SetBufferTime(m_channel, static_cast<uint32_t>(Now().counters.queueMilliseconds));
}

void ChannelFeed::Stop() {
    m_atStop = Now().counters;
    Corvane_StopChannel(m_channel);
}

Figures ChannelFeed::Now() const {
    ChannelStatistics counters = m_atStop;
    if (m_channel != nullptr && m_atStop.recordSize == 0) {
        counters.recordSize = sizeof counters;
        Corvane_GetChannelStatistics(m_channel, &counters);
    }
    return {m_next, counters, m_pictures.Get()};
}

void ChannelFeed::Delete() {
    if (m_channel != nullptr)
        Corvane_DeleteChannel(m_instance, &m_channel);
}

// ---- Callbacks -----------------------------------------------------------------------------------------------------

void ChannelFeed::OnStreamInfo(void* context, uint32_t code, uint64_t a, uint64_t b) {
    auto* const self = static_cast<ChannelFeed*>(context);
    if (self->m_printsInfo)
        PrintInfo(code, a, b);
    if (code == CORVANE_INFO_SIZE && self->m_view != nullptr)
        self->m_pictures.Size(static_cast<uint32_t>(a), static_cast<uint32_t>(b));
}

// Runs also after passes that put nothing; the counter tells whether the pass put a picture.
void ChannelFeed::OnDisplayed(void* context, const AfterDisplayRecord* record) {
    auto* const self = static_cast<ChannelFeed*>(context);
    ChannelStatistics counters{};
    counters.recordSize = offsetof(ChannelStatistics, picturesHandedOver);
    Corvane_GetChannelStatistics(self->m_channel, &counters);
    if (record->header != nullptr)
        self->m_pictures.Shown(StreamMs(*record->header), counters.picturesPut);
}

void ChannelFeed::OnPicture(void* context, const PseudoFrame* frame) {
    auto* const self = static_cast<ChannelFeed*>(context);
    if (frame->data == nullptr || frame->header == nullptr)
        return;
    const int64_t streamMs = StreamMs(*frame->header);
    if (streamMs == self->m_pictures.Get().streamMs)
        return;    // a redraw of the same picture
    self->m_pictures.Size(frame->width, frame->height);
    self->m_pictures.Shown(streamMs, ++self->m_handedOver);
    if (self->m_sheet != nullptr)
        self->m_sheet->Offer(frame->data, frame->width, frame->height, self->m_options.kind, self->m_options.bottomUp,
                             self->m_handedOver, streamMs);
}

// ---- Input ---------------------------------------------------------------------------------------------------------

double ChannelFeed::NextAt() const {
    const Reel::Picture* const next = m_reel.At(m_next);
    return next != nullptr ? m_delay + static_cast<double>(next->timeMs) / 1000
                           : std::numeric_limits<double>::infinity();
}

void ChannelFeed::Feed(double elapsed) {
    while (NextAt() <= elapsed)
        Input(*m_reel.At(m_next++));
}

void ChannelFeed::Input(const Reel::Picture& picture) {
    const MediaFrameHeader header = RecordOf(picture, m_stream);
    Corvane_InputEncodedMediaFrame(m_channel, &header);    // the library counts refused frames
    if (m_recorder != nullptr)
        m_recorder->Input(header);
    if (picture.sound.type == 0)
        m_fedMs = picture.timeMs;
}
