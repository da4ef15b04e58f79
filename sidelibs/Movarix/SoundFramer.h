// Cuts frames of sound into blocks as a file holds them.
#pragma once

#include <vector>

#include "Unit.h"

namespace movarix {

class SoundFramer {
public:
    // The blocks of `header`, whose payload this is, of type AAC, MULAW, ALAW or G726. `*sounds` have bytes that are
    // valid until the next call. Status_InvalidArgument: the record's rate, channels or block count do not fit;
    // Status_Failed: the payload breaks its codec's rules; of it nothing is kept.
    uint32_t Split(const MediaFrameHeader& header, const View& payload, int64_t timeMs, std::vector<Sound>* sounds);

    // Samples of 16 bits.
    static uint32_t SplitSamples(uint32_t rate, uint32_t channels, const View& samples, int64_t timeMs,
                                 std::vector<Sound>* sounds);

private:
    uint32_t SplitAac(const View& payload, uint32_t blocks, Sound sound, std::vector<Sound>* sounds) const;
    uint32_t SplitG726(const View& payload, bool mostFirst, Sound sound, std::vector<Sound>* sounds);

    Bytes m_codes;    // whole blocks of G.726, the most significant bits first
    uint64_t m_heldBits = 0;
    uint32_t m_heldCount = 0;    // bits of a code that goes on in the next frame
    SoundFormat m_last;
    Bytes m_open;    // codes that do not fill a block yet, one a byte
};

}    // namespace movarix
