#include "decoders/AudioDecoderHolder.h"

#include "decoders/AacDecoder.h"
#include "decoders/FFmpegSoundDecoder.h"
#include "decoders/G7221Decoder.h"
#include "decoders/G726Decoder.h"
#include "decoders/G729Decoder.h"

namespace corvane {

namespace {

DecoderPtr MakeDecoder(const MediaFrameHeader& header) {
    const uint32_t sampleRate = header.audioSampleRate;
    const uint32_t channels = header.audioChannels;
    switch (header.streamType) {
    case CORVANE_STREAM_G7221:
        return MakeG7221Decoder();
    case CORVANE_STREAM_G729A:
        return MakeG729Decoder();
    case CORVANE_STREAM_AAC:
        return MakeAacDecoder(sampleRate, channels);
    case CORVANE_STREAM_AMR:
        return MakeAudioDecoder(FFmpegCodec::AmrNb, 8000, 1, 0);
    case CORVANE_STREAM_MULAW:
        return MakeAudioDecoder(FFmpegCodec::MuLaw, sampleRate, channels, 0);
    case CORVANE_STREAM_ALAW:
        return MakeAudioDecoder(FFmpegCodec::ALaw, sampleRate, channels, 0);
    case CORVANE_STREAM_G726:
        return MakeG726Decoder(header.detail.audio.audioBitRate, header.detail.audio.audioPacking != 0
                                                                     ? G726Packing::MostSignificantFirst
                                                                     : G726Packing::LeastSignificantFirst);
    default:
        return nullptr;
    }
}

}    // namespace

int32_t AudioDecoderHolder::Decode(uint8_t* pcm, uint32_t* size, const MediaFrameImpl& frame) {
    const MediaFrameHeader& header = frame.Header();
    const Parameters wanted{header.streamType, header.audioSampleRate, header.audioChannels,
                            header.detail.audio.audioBitRate, header.detail.audio.audioPacking != 0};
    if (m_decoder == nullptr || !(m_parameters == wanted)) {
        Reset();
        m_decoder = MakeDecoder(header);
        if (m_decoder == nullptr)
            return -1;
        m_parameters = wanted;
    }
    const EncodedUnit unit{frame.Payload(), frame.PayloadSize(), header.audioBlockCount};
    return m_decoder->DecodeAudio(pcm, size, &unit);
}

void AudioDecoderHolder::Reset() {
    m_decoder.reset();
    m_parameters = Parameters{};
}

}    // namespace corvane
