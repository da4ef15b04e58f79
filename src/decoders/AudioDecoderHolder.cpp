#include "decoders/AudioDecoderHolder.h"

#include "decoders/FFmpegDecoder.h"

namespace corvane {

namespace {

// G.722.1, G.729A, AAC and G.726 have no decoder in this version.
DecoderPtr MakeDecoder(uint32_t codec, uint32_t sampleRate, uint32_t channels) {
    switch (codec) {
    case CORVANE_STREAM_AMR:
        return MakeAudioDecoder(FFmpegCodec::AmrNb, 8000, 1, 0);
    case CORVANE_STREAM_MULAW:
        return MakeAudioDecoder(FFmpegCodec::MuLaw, sampleRate, channels, 0);
    case CORVANE_STREAM_ALAW:
        return MakeAudioDecoder(FFmpegCodec::ALaw, sampleRate, channels, 0);
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
        m_decoder = MakeDecoder(wanted.codec, wanted.sampleRate, wanted.channels);
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
