#include "decoders/SampleConverter.h"

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
}

#include "base/FailurePoint.h"
#include "decoders/FFmpegSilence.h"

namespace corvane {

SampleConverter::~SampleConverter() {
    swr_free(&m_resampler);
    av_channel_layout_uninit(&m_layout);
}

int64_t SampleConverter::OutputBytes(const AVFrame& frame) {
    return av_samples_get_buffer_size(nullptr, frame.ch_layout.nb_channels, frame.nb_samples, AV_SAMPLE_FMT_S16, 1);
}

bool SampleConverter::Prepare(const AVFrame& frame) {
    AVChannelLayout layout{};
    if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
        av_channel_layout_default(&layout, frame.ch_layout.nb_channels);
    else if (av_channel_layout_copy(&layout, &frame.ch_layout) < 0)
        return false;
    if (m_resampler != nullptr && av_channel_layout_compare(&layout, &m_layout) == 0 &&
        m_sampleFormat == frame.format && m_sampleRate == frame.sample_rate) {
        av_channel_layout_uninit(&layout);
        return true;
    }
    const bool made =
        !failure::MustFail(failure::Site::PlatformCall) &&
        swr_alloc_set_opts2(&m_resampler, &layout, AV_SAMPLE_FMT_S16, frame.sample_rate, &layout,
                            static_cast<AVSampleFormat>(frame.format), frame.sample_rate, kLogSilence, nullptr) >= 0 &&
        swr_init(m_resampler) >= 0;
    if (!made)
        swr_free(&m_resampler);
    av_channel_layout_uninit(&m_layout);
    m_layout = layout;
    m_sampleFormat = frame.format;
    m_sampleRate = frame.sample_rate;
    return made;
}

int32_t SampleConverter::Convert(const AVFrame& frame, uint8_t* pcm) {
    if (!Prepare(frame) || failure::MustFail(failure::Site::PlatformCall))
        return -1;
    uint8_t* planes[1] = {pcm};
    const auto** source = const_cast<const uint8_t**>(frame.extended_data);
    return swr_convert(m_resampler, planes, frame.nb_samples, source, frame.nb_samples) < 0 ? -1 : 0;
}

}    // namespace corvane
