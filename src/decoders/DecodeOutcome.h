// The outcome of one call of VideoDecoderHolder::Decode. Every frame has exactly one.
#pragma once

#include <cstdint>

namespace corvane {

enum class DecodeOutcome : uint32_t {
    Picture,           // a picture came out; with a delay it is the picture of an earlier frame
    HeldBack,          // taken: its picture comes later, or it waits for the frame that completes it
    NoDecoder,         // there is no decoder for this stream type and vendor tag, or none could be made
    AwaitsKeyFrame,    // a dependent frame before the first key frame, in forward play
    NoStartCode,       // NAL units with lengths in front, as in MP4 files, where start codes are expected
    WrongType,         // certainly the payload of another stream type
    Failed,            // the decoder refused a unit as damaged
    Size,              // a picture size beyond the limits
    Dropped,           // the decoder had stopped answering and was dropped with this frame
    NoPicture,         // the decoder has finished a unit without a picture
};

}    // namespace corvane
