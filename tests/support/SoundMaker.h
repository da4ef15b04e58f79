// Sound, encoders for it, and what decoders of other hands make of the streams. Failure raises std::runtime_error.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "decoders/AudioDecoderHolder.h"
#include "support/StreamMaker.h"

namespace corvane::test {

using Samples = std::vector<int16_t>;

struct SoundStream {
    std::vector<Bytes> blocks;
    Samples decoded;
};

// Two sentences of espeak-ng, one channel.
Samples Speech(int rate);
// A sine from one frequency to another, a quarter of full scale.
Samples Sweep(int rate, double seconds, double from, double to);

// Raw blocks of 1024 samples of each channel, all alike. Encoded and decoded by the program ffmpeg.
SoundStream MakeAac(const Samples& mono, int rate, int channels = 1);
// A raw block as an ADTS frame; `sum`: with room for a check sum.
Bytes AdtsFrame(const Bytes& raw, int rate, int channels, bool sum = false);
// By libbcg729, Annex A.
SoundStream MakeG729(const Samples& samples);
// By libspandsp.
Bytes EncodeG726(const Samples& samples, int bits, bool mostFirst);
Samples BareG726(const Bytes& bytes, int bits, bool mostFirst);

// Blocks of 60 or 80 bytes, from the vectors that tools/g7221_vectors.cpp made: speech60, speech80, loud60, loud80,
// sine60, and edges60, which has no samples.
SoundStream G7221Vectors(const std::string& name);

// Ratio of the power of `wanted` to that of the difference, in dB.
double SignalToNoise(const Samples& wanted, const Samples& got);

// A record over `bytes`, as VideoHeader.
MediaFrameHeader SoundHeader(uint32_t streamType, const Bytes& bytes, int rate, int channels = 1, uint32_t blocks = 1,
                             int64_t timeMs = 0);
// What a device plays of the frame with a volume of `mix` / 128.
Bytes Played(AudioDecoderHolder& decoder, const MediaFrameImpl& frame, int mix = 128);

}    // namespace corvane::test
