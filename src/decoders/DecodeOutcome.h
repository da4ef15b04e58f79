// What one call of VideoDecoderHolder::Decode came to. Every frame that goes in has exactly one.
#pragma once

#include <cstdint>

namespace corvane {

enum class DecodeOutcome : uint32_t {
    Picture,           // a picture came out; with a delay it is the picture of an earlier frame
    HeldBack,          // taken: its picture comes later, or it waits for the frame that completes it
    NoDecoder,         // there is no decoder for this stream type and vendor tag, or none could be made
    AwaitsKeyFrame,    // a dependent frame before the first key frame, in forward play
    NoStartCode,       // NAL units behind their lengths, as MP4 files have them, where start codes are expected
    WrongType,         // certainly the payload of another stream type
    Failed,            // the decoder refused a unit as damaged
    Size,              // a picture size beyond the limits
    Dropped,           // the decoder had stopped answering and was dropped with this frame
    NoPicture,         // the decoder is done with a unit that brought nothing
};

}    // namespace corvane
