// Classes of `streamType`.
#pragma once

#include <cstdint>

#include "corvane/corvane.h"

namespace corvane {

enum class StreamClass { Video, Placeholder, Audio, Metadata, Unknown };

constexpr StreamClass ClassOf(uint32_t streamType) {
    switch (streamType) {
    case CORVANE_STREAM_JPEG:
    case CORVANE_STREAM_H263:
    case CORVANE_STREAM_MPEG4:
    case CORVANE_STREAM_H264:
    case CORVANE_STREAM_H265:
        return StreamClass::Video;
    case CORVANE_STREAM_PLACEHOLDER:
        return StreamClass::Placeholder;
    case CORVANE_STREAM_G7221:
    case CORVANE_STREAM_G729A:
    case CORVANE_STREAM_AAC:
    case CORVANE_STREAM_AMR:
    case CORVANE_STREAM_MULAW:
    case CORVANE_STREAM_ALAW:
    case CORVANE_STREAM_G726:
        return StreamClass::Audio;
    case CORVANE_STREAM_METADATA_XML:
    case CORVANE_STREAM_METADATA_JSON:
        return StreamClass::Metadata;
    default:
        return StreamClass::Unknown;
    }
}

}    // namespace corvane
