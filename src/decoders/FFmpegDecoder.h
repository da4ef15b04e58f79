// The software decoder of pictures: one FFmpeg codec context with the decoder interface. Where no setting of the
// context keeps libavcodec from printing, HeaderCheck.h keeps the units from the codec that it can recognise, and names
// the rest.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "base/ColourSignal.h"
#include "base/Status.h"
#include "corvane/decoder.h"
#include "decoders/DecoderFactories.h"
#include "decoders/FFmpegContext.h"
#include "decoders/FrameQueue.h"
#include "decoders/HeaderCheck.h"

struct SwsContext;

namespace corvane {

// The outcome of the last video unit, for which the decoder interface has no field: a damaged unit is no failure there.
enum class UnitEnd {
    Taken,      // it has a picture, now or later
    Nothing,    // it had no picture
    Refused,    // it is damaged
    Size,       // it states, or has, a picture size beyond the limits
};

class DecoderIsolated_FFmpeg final : public DecoderContext {
public:
    // An open context.
    DecoderIsolated_FFmpeg(FFmpegContext context, FFmpegCodec codec) : m_codec(codec), m_context(std::move(context)) {}

    int32_t DecodeVideo(DecodedFrame* out, uint32_t* got, const EncodedUnit* in) override;
    int32_t DecodeAudio(uint8_t*, uint32_t*, const EncodedUnit*) override {
        return static_cast<int32_t>(Status::NotSupported);
    }
    void Destroy() override { delete this; }
    int32_t ShareFrame(DecodedFrame* out, int32_t version) override;

    // Of the last DecodeVideo. With n frame threads the end of a unit is known, and reported here, n - 1 calls later.
    UnitEnd LastEnd() const { return m_end; }
    // The unit that ended without a picture, as the number of units that went in after it. Nothing where unknown.
    std::optional<uint32_t> UnitsSinceEnded() const { return m_sinceEnded; }
    // How many units may have gone in after that of the current picture; earlier units bring no picture any more.
    uint32_t Delay() const;
    // By how many pictures the delay has grown since the first came. It never falls again in H.264.
    uint32_t DelayGrowth() const;
    uint32_t Threads() const;
    // The colours of the current picture, as the stream signals them, else the usual ones.
    const ColourSignal& Colours() const { return m_colours; }

private:
    using FrameRef = QMRX::SDK::Utility::FrameReference<FFmpegContext::Frame>;
    enum class Turn { Drained, Stopped };

    ~DecoderIsolated_FFmpeg();
    HeaderVerdict CheckHeaders(const EncodedUnit& in) const;
    void End(UnitEnd end, std::optional<uint32_t> unitsSince);
    void CloseAccount();
    // Units that the codec holds in regular decoding: one for each frame thread but the first, and those that it
    // reorders.
    uint32_t ThreadDelay() const;
    uint32_t CodecDelay() const;
    // Appends the pictures of the unit to m_output. Negative when the decoder cannot go on; 0 for a damaged unit.
    int32_t Feed(const EncodedUnit& in);
    // Takes all that is ready. Stopped: an error on the way.
    Turn Receive();
    bool IsKept(const AVFrame& frame) const;
    bool IsLastAgain(const AVFrame& frame);
    // Replaces the front of m_output by a three-plane 4:2:0 picture.
    bool ConvertFront();
    int32_t NextPicture(DecodedFrame* out, uint32_t* got, const EncodedUnit& in);

    const FFmpegCodec m_codec;
    // Used by one thread at a time.
    FFmpegContext m_context;
    QMRX::SDK::Utility::FrameQueue<FFmpegContext::Frame> m_frames;       // as the codec gives them
    QMRX::SDK::Utility::FrameQueue<FFmpegContext::Frame> m_converted;    // 4:2:0 copies of other formats
    SwsContext* m_scaler = nullptr;
    std::vector<FrameRef> m_output;    // received and not yet superseded, oldest first; few, as a rule
    bool m_frontIsCurrent = false;     // the front was handed out by the last DecodeVideo
    ColourSignal m_colours;            // of the current picture
    int64_t m_sent = 0;                // units, which counts as their time
    int64_t m_lastTime = -1;           // of the picture received last, with the place of its pixels
    const uint8_t* m_lastPixels = nullptr;
    uint32_t m_held = 0;                     // video units in the codec whose pictures are to come
    uint32_t m_pictureDelay = 0;             // CodecDelay when a picture last came
    std::optional<uint32_t> m_firstDelay;    // the same when the first came
    UnitEnd m_end = UnitEnd::Nothing;
    std::optional<uint32_t> m_sinceEnded;
};

using FFmpegDecoderPtr = std::unique_ptr<DecoderIsolated_FFmpeg, DecoderDestroyer>;

// A new decoder, or null when the codec is missing, does not open, or there is no memory. `threads` is raised to 1 and
// bounded by 32 for H.265 and 16 for the others.
FFmpegDecoderPtr MakeVideoDecoder(FFmpegCodec codec, uint32_t threads) noexcept;

}    // namespace corvane
