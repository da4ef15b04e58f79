// Sound, encoders for it, and what decoders of other hands make of the streams. Failure raises std::runtime_error.
#pragma once

#include <cstdint>
#include <vector>

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

// Blocks of Recommendation G.722.1, by an encoder that is coded apart from the decoder: it shares only the printed code
// words and magnitudes with it. One block of 40, 60 or 80 bytes for each 320 samples; the first transforms 320 zeros
// and the first samples.
struct G7221Stream {
    std::vector<Bytes> blocks;
    // What each decodes to, at the scale of LappedTransform.
    std::vector<std::vector<double>> coefficients;
};
G7221Stream MakeG7221(const Samples& samples, size_t blockBytes);
// A block of 60 bytes that states these powers and this way to divide the bits, with ones to its last byte.
Bytes G7221Ones(const std::vector<int>& powers, unsigned control, uint8_t last = 0xFF);
// The modulated lapped transform of 640 samples, by its formula: 320 coefficients. `sine`: in the place of its cosine.
std::vector<double> LappedTransform(const int16_t* samples, bool sine = false);
// What libavcodec's decoder of the sister codec makes of blocks of 40 bytes, block by block; nothing of one that it
// refuses.
std::vector<Samples> BareSiren(const std::vector<Bytes>& blocks);

// Ratio of the power of `wanted` to that of the difference, in dB.
double SignalToNoise(const Samples& wanted, const Samples& got);

// A record over `bytes`, as VideoHeader.
MediaFrameHeader SoundHeader(uint32_t streamType, const Bytes& bytes, uint32_t rate, uint32_t channels = 1,
                             uint32_t blocks = 1);

}    // namespace corvane::test
