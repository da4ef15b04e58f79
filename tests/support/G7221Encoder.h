// An encoder of Recommendation G.722.1, coded apart from the decoder: it shares only the printed code words with it.
#pragma once

#include <cstdint>
#include <vector>

#include "support/BitWriter.h"
#include "support/SoundMaker.h"

namespace corvane::test {

// The modulated lapped transform of 640 samples, by its formula: 320 coefficients. `sine`: in the place of its cosine.
std::vector<double> LappedTransform(const int16_t* samples, bool sine = false);

struct G7221Stream {
    std::vector<Bytes> blocks;
    // What each decodes to, at the scale of LappedTransform, by a model of the decoder that is coded apart from it.
    std::vector<std::vector<double>> coefficients;
};

// One block for each 320 samples; the first transforms 320 zeros and the first samples. Blocks of 40, 60 or 80 bytes.
G7221Stream ModelG7221(const Samples& samples, size_t blockBytes);
inline std::vector<Bytes> EncodeG7221(const Samples& samples, size_t blockBytes) {
    return ModelG7221(samples, blockBytes).blocks;
}

// A block of 40 bytes that states these powers and this way to divide the bits, and has ones for the rest.
Bytes G7221Ones(const std::vector<int>& powers, unsigned control);

}    // namespace corvane::test
