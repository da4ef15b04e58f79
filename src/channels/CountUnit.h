// The counter of a frame of video, by the outcome of its decode.
#pragma once

#include "decoders/DecodeOutcome.h"
#include "frame/ChannelCounters.h"

namespace corvane {

void CountUnit(CountAtEnd& fate, DecodeOutcome outcome);

}    // namespace corvane
