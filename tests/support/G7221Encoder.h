// An encoder of Recommendation G.722.1, coded apart from the decoder: it shares only the printed code words with it.
#pragma once

#include <cstdint>
#include <vector>

#include "support/BitWriter.h"
#include "support/SoundMaker.h"

namespace corvane::test {

// The modulated lapped transform of 640 samples, by its formula: 320 coefficients. `sine`: in the place of its cosine.
std::vector<double> LappedTransform(const int16_t* samples, bool sine = false);

// One block for each 320 samples; the first transforms 320 zeros and the first samples. Blocks of 40, 60 or 80 bytes.
std::vector<Bytes> EncodeG7221(const Samples& samples, size_t blockBytes);

}    // namespace corvane::test
