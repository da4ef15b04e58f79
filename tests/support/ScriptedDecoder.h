// A decoder of a plug-in, whose pictures the test makes; one test at a time.
#pragma once

#include <functional>

#include "corvane/decoder.h"

namespace corvane::test {

struct ScriptedDecoder final : DecoderContext {
    static inline std::function<DecodedFrame(const EncodedUnit&)> picture;
    static DecoderContext* Make() { return new ScriptedDecoder; }

    int32_t DecodeVideo(DecodedFrame* out, uint32_t* got, const EncodedUnit* in) override {
        *out = picture(*in);
        *got = 1;
        return 0;
    }
    int32_t DecodeAudio(uint8_t*, uint32_t*, const EncodedUnit*) override { return -1; }
    void Destroy() override { delete this; }
    int32_t ShareFrame(DecodedFrame*, int32_t) override { return -1; }
};

}    // namespace corvane::test
