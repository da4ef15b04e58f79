// The library's record of a frame of the reel.
#pragma once

#include <cstdint>

#include "MediaSource.h"
#include "Reel.h"
#include "corvane/corvane.h"

// What all pictures of a source have in common.
struct StreamFacts {
    uint32_t type = 0;          // CORVANE_STREAM_* of its pictures
    uint32_t headerSize = 0;    // bytes in front of each payload
    int64_t wallStart = 0;      // seconds since 1970 of the first picture
};

StreamFacts FactsOf(const MediaSource& source);
// Valid as long as the frame.
MediaFrameHeader RecordOf(const Reel::Picture& frame, const StreamFacts& stream);
int64_t StreamMs(const MediaFrameHeader& header);
