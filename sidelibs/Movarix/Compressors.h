// The three numbers of a compressor, and how they are checked.
#pragma once

#include <cstdint>

#include "corvane/movarix.h"

namespace movarix {

constexpr bool IsPictureCompressor(uint32_t type) {
    return type == 0 || type == CORVANE_STREAM_JPEG || type == CORVANE_STREAM_MPEG4 || type == CORVANE_STREAM_H264;
}

constexpr bool IsSoundCompressor(uint32_t type) {
    return type == 0 || type == CORVANE_STREAM_MULAW || type == CORVANE_STREAM_ALAW;
}

// A client's numbers; false: one of them does not fit.
constexpr bool MakeCompressor(uint64_t type, uint64_t bitRate, uint64_t keyInterval, MovarixCompressor& compressor) {
    if (type > UINT32_MAX || bitRate > INT32_MAX || keyInterval > INT32_MAX)
        return false;
    compressor = {static_cast<uint32_t>(type), static_cast<uint32_t>(bitRate), static_cast<uint32_t>(keyInterval)};
    return true;
}

}    // namespace movarix
