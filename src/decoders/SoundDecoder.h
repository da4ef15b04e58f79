// What the decoders that bring sound alone have in common.
#pragma once

#include <cstdint>

#include "base/Status.h"
#include "corvane/decoder.h"

namespace corvane {

class SoundDecoder : public DecoderContext {
public:
    int32_t DecodeVideo(DecodedFrame*, uint32_t*, const EncodedUnit*) final { return -1; }
    void Destroy() final { delete this; }
    int32_t ShareFrame(DecodedFrame*, int32_t) final { return static_cast<int32_t>(Status::NotSupported); }

protected:
    SoundDecoder() = default;
    virtual ~SoundDecoder() = default;

    // Bytes of each block of a payload; 0 for a block count that the payload cannot have.
    static uint32_t BlockBytes(const EncodedUnit& unit) {
        return unit.type_or_count == 0 ? 0 : unit.size / unit.type_or_count;
    }
};

}    // namespace corvane
