// Sound, real encoders for it, and what their own libraries decode. Failure raises std::runtime_error.
#pragma once

#include <cstdint>
#include <vector>

#include "corvane/corvane.h"
#include "support/BitWriter.h"

namespace corvane::test {

using Samples = std::vector<int16_t>;

// A few sentences of espeak-ng, one channel, at the rate.
Samples Speech(int rate);
// A sine from one frequency to another, a quarter of full scale.
Samples Sweep(int rate, double seconds, double from, double to);
// Every sample `channels` times, each channel at half of the one before.
Samples Spread(const Samples& mono, int channels);

// Blocks of 1024 samples of each channel, raw.
std::vector<Bytes> EncodeAac(const Samples& samples, int rate, int channels);
// A raw block as an ADTS frame; `sum`: with room for a check sum.
Bytes AdtsFrame(const Bytes& raw, int rate, int channels, bool sum = false);
// All samples that libavcodec decodes of raw blocks, in 16 bits.
Samples BareAac(const std::vector<Bytes>& blocks, int rate, int channels);

std::vector<Bytes> EncodeG729(const Samples& samples);
Samples BareG729(const std::vector<Bytes>& blocks);

// One code a byte.
Bytes EncodeG726(const Samples& samples, int bits);
// Of one code a byte.
Samples BareG726(const Bytes& codes, int bits);
// As a stream of bits, and the samples that libspandsp decodes of that.
Bytes PackG726(const Bytes& codes, int bits, bool mostFirst);

// Ratio of the power of `wanted` to that of the difference, in dB.
double SignalToNoise(const Samples& wanted, const Samples& got);

// A record over `bytes`, as VideoHeader.
MediaFrameHeader SoundHeader(uint32_t streamType, const Bytes& bytes, uint32_t rate, uint8_t channels = 1,
                             uint32_t blocks = 1);

}    // namespace corvane::test
