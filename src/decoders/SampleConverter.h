// Brings decoded sound of any sample format to interleaved signed 16-bit samples; never changes rate or channels.
#pragma once

#include <cstdint>

extern "C" {
#include <libavutil/channel_layout.h>
}

struct AVFrame;
struct SwrContext;

namespace corvane {

class SampleConverter {
public:
    SampleConverter() = default;
    ~SampleConverter();
    SampleConverter(const SampleConverter&) = delete;
    SampleConverter& operator=(const SampleConverter&) = delete;

    // Bytes that Convert writes for `frame`; negative when the frame cannot stand.
    static int64_t OutputBytes(const AVFrame& frame);

    // Writes OutputBytes(frame) bytes to `pcm`. Negative on failure.
    int32_t Convert(const AVFrame& frame, uint8_t* pcm);

private:
    bool Prepare(const AVFrame& frame);

    SwrContext* m_resampler = nullptr;
    // What m_resampler was made for.
    AVChannelLayout m_layout{};
    int32_t m_sampleFormat = -1;
    int32_t m_sampleRate = 0;    // samples per second
};

}    // namespace corvane
