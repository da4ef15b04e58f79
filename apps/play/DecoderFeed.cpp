#include "DecoderFeed.h"

bool DecoderFeed::Open(void* instance) {
    m_instance = instance;
    DecoderChannelSettings settings{};
    settings.format = CORVANE_PICTURE_BGRA32;
    if (Corvane_CreateDecoderChannel(instance, &m_channel, &settings) != Status_Ok)
        return false;
    SetDecoders(m_channel, m_options);
    Corvane_SetChannelOption(m_channel, CORVANE_OPTION_DECODER_THREADS, m_options.threads, 0);
    Corvane_SetChannelOption(m_channel, CORVANE_OPTION_COLOURS, m_options.colours, 0);
    Corvane_SetChannelOption(m_channel, CORVANE_OPTION_RAW_SOUND, m_raw != nullptr, 0);
    // The callback that may ask for the same picture again: for the sheet, then for the file.
    Corvane_SetChannelOption(m_channel, CORVANE_OPTION_RAW_CALLBACK_2, reinterpret_cast<uint64_t>(this),
                             reinterpret_cast<uint64_t>(&DecoderFeed::OnDecoded));
    const uint32_t first = m_sheet != nullptr || m_options.rawFormat == 0 ? m_options.kind : m_options.rawFormat;
    Corvane_SetChannelOption(m_channel, CORVANE_OPTION_RAW_FORMAT, first, 0);
    if (m_options.width != 0)
        Corvane_SetDecodeSize(m_channel, m_options.width, m_options.height);
    return true;
}

void DecoderFeed::Decode(const MediaFrameHeader& frame) {
    ++m_fed;
    m_timeMs = StreamMs(frame);
    Corvane_InputToBeDecodedMediaFrame(m_channel, &frame);
}

Figures DecoderFeed::Now() const {
    ChannelStatistics counters = m_atEnd;
    if (m_channel != nullptr) {
        counters.recordSize = sizeof counters;
        Corvane_GetChannelStatistics(m_channel, &counters);
    }
    return {m_fed, counters, m_pictures.Get()};
}

void DecoderFeed::Delete() {
    if (m_channel == nullptr)
        return;
    m_atEnd = Now().counters;
    Corvane_DeleteDecoderChannel(m_instance, &m_channel);
}

void DecoderFeed::OnDecoded(void* context, uint32_t code, void* record) {
    auto& self = *static_cast<DecoderFeed*>(context);
    if (code == CORVANE_RAW_PICTURE)
        self.OnPicture(*static_cast<RawPictureInfo*>(record));
    else if (self.m_raw != nullptr)
        self.m_raw->Take(code, record);
}

void DecoderFeed::OnPicture(RawPictureInfo& picture) {
    if (picture.count == 1) {
        m_pictures.Size(picture.width, picture.height);
        m_pictures.Shown(m_timeMs, ++m_pictureCount);
    }
    const bool toSheet = m_sheet != nullptr && picture.count == 1;
    const bool toFile = m_raw != nullptr && m_options.rawFormat != 0;
    if (toSheet)
        m_sheet->Offer(picture.pixels, picture.width, picture.height, m_options.kind, false, m_pictureCount, m_timeMs);
    if (toFile && picture.format == m_options.rawFormat) {
        m_raw->Take(CORVANE_RAW_PICTURE, &picture);
    } else if (toFile) {
        picture.requestedFormat = m_options.rawFormat;
        picture.repeat = 1;
    }
}
