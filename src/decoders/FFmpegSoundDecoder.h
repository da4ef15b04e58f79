// Sound of the codecs that libavcodec decodes, as interleaved samples of 16 bits.
#pragma once

#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "decoders/DecoderFactories.h"
#include "decoders/FFmpegContext.h"
#include "decoders/SampleConverter.h"
#include "decoders/SoundDecoder.h"

namespace corvane {

class DecoderIsolated_FFmpegSound final : public SoundDecoder {
public:
    // An open context.
    DecoderIsolated_FFmpegSound(FFmpegContext context, FFmpegCodec codec);

    int32_t DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) override;

private:
    using FrameRef = QMRX::SDK::Utility::FrameReference<FFmpegContext::Frame>;

    // Appends the blocks of samples of the packet to m_output. False where the decoder cannot go on.
    bool Feed(const EncodedUnit& in);
    // Takes all that is ready. False after an error.
    bool Receive();
    // The next packet brings the configuration again. False without memory.
    bool RestoreConfiguration();
    bool DecodeBlocks(const EncodedUnit& in, uint8_t* pcm, uint32_t capacity, uint32_t* written);
    bool WriteSamples(uint8_t* pcm, uint32_t capacity, uint32_t* written);

    // Constant after construction.
    const FFmpegCodec m_codec;
    const int m_sampleRate;    // a block at another rate, or with other channels, is a failure
    const int m_channels;

    FFmpegContext m_context;
    QMRX::SDK::Utility::FrameQueue<FFmpegContext::Frame> m_frames;
    SampleConverter m_samples;
    std::vector<FrameRef> m_output;    // of one packet
    bool m_refused = false;            // the last packet
    bool m_restore = false;            // the last call failed: its block may have changed the configuration
    int64_t m_sent = 0;                // packets, which counts as their time
};

// A new decoder, or null when the codec is missing, does not open, or there is no memory. `configuration` is what comes
// with the stream outside its packets, none for most codecs.
DecoderPtr MakeAudioDecoder(FFmpegCodec codec, uint32_t sampleRate, uint32_t channels, uint32_t bitsPerSample,
                            std::span<const uint8_t> configuration = {}) noexcept;

}    // namespace corvane
