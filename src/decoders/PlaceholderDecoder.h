// The decoder of placeholder frames, which a stream carries in place of pictures: always the same black picture.
#pragma once

#include <cstdint>

#include "base/AlignedBuffer.h"
#include "corvane/decoder.h"
#include "decoders/DecoderFactories.h"
#include "decoders/FrameQueue.h"

namespace corvane {

class DecoderIsolated_SDK_DMYV final : public DecoderContext {
public:
    class Frame : public QMRX::SDK::Utility::PooledFrame<Frame> {
    public:
        DecodedFrame picture{};
        AlignedBuffer pixels;
    };

    // 352 x 288, luma stride 352. Raises std::bad_alloc.
    DecoderIsolated_SDK_DMYV();
    // Luma stride is the width rounded up to 32. Raises std::bad_alloc, also for sizes beyond the limits.
    DecoderIsolated_SDK_DMYV(uint32_t width, uint32_t height);

    int32_t DecodeVideo(DecodedFrame* out, uint32_t* got, const EncodedUnit* in) override;
    int32_t DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) override;
    void Destroy() override { delete this; }
    int32_t ShareFrame(DecodedFrame* out, int32_t version) override;

private:
    ~DecoderIsolated_SDK_DMYV() = default;
    void MakePicture(uint32_t width, uint32_t height, uint32_t stride);

    QMRX::SDK::Utility::FrameQueue<Frame> m_frames;
    QMRX::SDK::Utility::FrameReference<Frame> m_frame;
};

// Null without memory.
DecoderPtr MakePlaceholderDecoder() noexcept;

}    // namespace corvane
