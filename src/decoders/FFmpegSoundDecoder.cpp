#include "decoders/FFmpegSoundDecoder.h"

#include <algorithm>
#include <climits>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

#include "base/FailurePoint.h"

namespace corvane {

namespace {

bool MustFail() {
    return failure::MustFail(failure::Site::PlatformCall);
}

// Bytes of the first AMR block with its header byte, by the table of RFC 4867; libavcodec decodes one block a packet. 0
// for an empty unit and for a header that no block has: the rest of the unit is then lost.
uint32_t AmrBlockBytes(const EncodedUnit& unit) {
    constexpr uint8_t kBytes[16] = {13, 14, 16, 18, 20, 21, 27, 32, 6, 0, 0, 0, 0, 0, 0, 1};
    return unit.size == 0 ? 0 : kBytes[unit.data[0] >> 3 & 15];
}

}    // namespace

DecoderIsolated_FFmpegSound::DecoderIsolated_FFmpegSound(FFmpegContext context, FFmpegCodec codec)
    : m_codec(codec),
      m_sampleRate(context->sample_rate),
      m_channels(context->ch_layout.nb_channels),
      m_context(std::move(context)) {}

bool DecoderIsolated_FFmpegSound::Feed(const EncodedUnit& in) {
    m_refused = false;
    if (!FFmpegContext::CanSend(in))
        return true;
    if (m_restore && !RestoreConfiguration())
        return false;
    for (int attempt = 0; attempt < 2; ++attempt) {
        const int sent = m_context.Send(in, m_sent++);
        m_refused = sent < 0 && sent != AVERROR(EAGAIN);
        if (m_refused)
            return true;
        if (sent == AVERROR(EAGAIN) && attempt == 1)
            break;
        if (!Receive() || sent >= 0)
            return true;
    }
    m_refused = true;
    return false;
}

bool DecoderIsolated_FFmpegSound::Receive() {
    for (;;) {
        FrameRef frame(m_frames.Get());
        const int received = m_context.Receive(*frame->av);
        if (received == AVERROR(EAGAIN))
            return true;
        if (received < 0) {
            m_refused = true;
            return false;
        }
        if (frame->av->data[0] == nullptr)
            return true;
        if (m_output.size() >= FFmpegContext::kMaxOutput) {
            avcodec_flush_buffers(m_context.operator->());
            return false;
        }
        if (frame->av->nb_samples > 0)
            m_output.push_back(std::move(frame));
    }
}

bool DecoderIsolated_FFmpegSound::RestoreConfiguration() {
    const auto size = static_cast<size_t>(m_context->extradata_size);
    uint8_t* const copy =
        MustFail() ? nullptr : av_packet_new_side_data(m_context.Packet(), AV_PKT_DATA_NEW_EXTRADATA, size);
    if (copy == nullptr)
        return false;
    std::copy_n(m_context->extradata, size, copy);
    return true;
}

bool DecoderIsolated_FFmpegSound::WriteSamples(uint8_t* pcm, uint32_t capacity, uint32_t* written) {
    for (const FrameRef& frame : m_output) {
        const int64_t bytes = SampleConverter::OutputBytes(*frame->av);
        const bool fits = frame->av->sample_rate == m_sampleRate && frame->av->ch_layout.nb_channels == m_channels;
        if (!fits || bytes < 0 || bytes > capacity - *written || m_samples.Convert(*frame->av, pcm + *written) < 0)
            return false;
        *written += static_cast<uint32_t>(bytes);
    }
    return true;
}

bool DecoderIsolated_FFmpegSound::DecodeBlocks(const EncodedUnit& in, uint8_t* pcm, uint32_t capacity,
                                               uint32_t* written) {
    EncodedUnit block = in;
    for (uint32_t at = 0; at < in.size || at == 0; at += block.size) {
        block.data = in.data + at;
        block.size = in.size - at;
        if (m_codec == FFmpegCodec::AmrNb)
            block.size = std::min(block.size, AmrBlockBytes(block));
        const bool good = Feed(block) && WriteSamples(pcm, capacity, written);
        m_output.clear();
        if (!good || block.size == 0)
            return good;
    }
    return true;
}

int32_t DecoderIsolated_FFmpegSound::DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) {
    uint32_t written = 0;
    bool decoded = false;
    try {
        decoded = DecodeBlocks(*in, pcm, *size, &written);
    } catch (...) {
        m_output.clear();
    }
    m_restore = (!decoded || written == 0 || m_refused) && m_context->extradata_size > 0;
    if (!decoded)
        return -1;
    *size = written;
    return 0;
}

DecoderPtr MakeAudioDecoder(FFmpegCodec codec, uint32_t sampleRate, uint32_t channels, uint32_t bitsPerSample,
                            std::span<const uint8_t> configuration) noexcept {
    if (sampleRate > INT_MAX || channels == 0 || channels > INT16_MAX)
        return nullptr;
    FFmpegContext context(codec);
    if (!context)
        return nullptr;
    context->sample_rate = static_cast<int>(sampleRate);
    av_channel_layout_default(&context->ch_layout, static_cast<int>(channels));
    context->bits_per_coded_sample = static_cast<int>(bitsPerSample);
    context->request_sample_fmt = AV_SAMPLE_FMT_S16;
    if (!configuration.empty()) {
        const size_t bytes = configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE;
        context->extradata = static_cast<uint8_t*>(MustFail() ? nullptr : av_mallocz(bytes));
        if (context->extradata == nullptr)
            return nullptr;
        std::copy(configuration.begin(), configuration.end(), context->extradata);
        context->extradata_size = static_cast<int>(configuration.size());
    }
    if (!context.Open())
        return nullptr;
    try {
        return DecoderPtr(new DecoderIsolated_FFmpegSound(std::move(context), codec));
    } catch (...) {
        return nullptr;
    }
}

}    // namespace corvane
