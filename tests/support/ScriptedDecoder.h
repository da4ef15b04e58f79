// A decoder of a plug-in that does as the test says; one test at a time.
#pragma once

#include "corvane/decoder.h"
#include "support/Testing.h"

namespace corvane::test {

struct ScriptedDecoder final : DecoderContext {
    // A picture without a width: none came. Both may throw.
    static inline std::function<DecodedFrame(const EncodedUnit&)> picture;
    static inline std::function<int32_t(DecodedFrame&, int32_t)> share;
    static inline uint32_t got = 1;      // of a picture
    static inline int32_t result = 0;    // of each decode
    static inline int made = 0;

    // Everything as it is at first, with pictures of 16 x 2.
    static void Begin() {
        static uint8_t pixels[48];
        picture = [](const EncodedUnit&) {
            return DecodedFrame{{pixels, pixels, nullptr}, {16, 16, 0}, 16, 2, nullptr, nullptr, nullptr, {}};
        };
        share = [](DecodedFrame&, int32_t) { return -1; };
        got = 1;
        result = made = 0;
    }
    static DecoderContext* Make() {
        ++made;
        return new ScriptedDecoder;
    }

    int32_t DecodeVideo(DecodedFrame* out, uint32_t* outGot, const EncodedUnit* in) override {
        *out = picture(*in);
        *outGot = out->width != 0 ? got : 0;
        return result;
    }
    int32_t DecodeAudio(uint8_t*, uint32_t*, const EncodedUnit*) override { return -1; }
    void Destroy() override { delete this; }
    int32_t ShareFrame(DecodedFrame* out, int32_t version) override { return share(*out, version); }
};

}    // namespace corvane::test
