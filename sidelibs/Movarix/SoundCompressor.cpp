#include "SoundCompressor.h"

#include <cstring>
#include <utility>

#include "Writer.h"

namespace movarix {

uint32_t SoundCompressor::Open(const SoundFormat& format) {
    const AVCodec* const encoder =
        avcodec_find_encoder(m_type == CORVANE_STREAM_ALAW ? AV_CODEC_ID_PCM_ALAW : AV_CODEC_ID_PCM_MULAW);
    auto codec = Made<CodecPtr>(avcodec_alloc_context3(encoder));
    codec->log_level_offset = kSilent;
    codec->sample_fmt = AV_SAMPLE_FMT_S16;
    codec->sample_rate = static_cast<int>(format.rate);
    av_channel_layout_default(&codec->ch_layout, static_cast<int>(format.channels));
    if (encoder == nullptr || avcodec_open2(codec.get(), encoder, nullptr) < 0)
        return Status_NotSupported;
    m_codec = std::move(codec);
    m_packet = Made<PacketPtr>(av_packet_alloc());
    m_frame = Made<FramePtr>(av_frame_alloc());
    return Status_Ok;
}

uint32_t SoundCompressor::Compress(Sound& sound) {
    if (m_codec == nullptr || m_codec->sample_rate != static_cast<int>(sound.format.rate) ||
        m_codec->ch_layout.nb_channels != static_cast<int>(sound.format.channels))
        if (const uint32_t status = Open(sound.format); Failed(status))
            return status;
    av_packet_unref(m_packet.get());
    av_frame_unref(m_frame.get());
    m_frame->format = AV_SAMPLE_FMT_S16;
    m_frame->sample_rate = m_codec->sample_rate;
    m_frame->nb_samples = static_cast<int>(sound.samples);
    if (av_channel_layout_copy(&m_frame->ch_layout, &m_codec->ch_layout) < 0 ||
        av_frame_get_buffer(m_frame.get(), 0) < 0)
        throw std::bad_alloc();
    std::memcpy(m_frame->data[0], sound.bytes.data, sound.bytes.size);
    if (avcodec_send_frame(m_codec.get(), m_frame.get()) < 0 ||
        avcodec_receive_packet(m_codec.get(), m_packet.get()) < 0)
        return Status_Failed;
    sound.bytes = {m_packet->data, static_cast<size_t>(m_packet->size)};
    sound.format.type = m_type;
    return Status_Ok;
}

}    // namespace movarix
