// The pictures and the sound of one source in memory, demuxed once for any number of channels that play it, each at its
// own place. Holds the pictures from the place of the last channel to that of the first, so an endless stream takes no
// more memory than a short one. One thread.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "MediaSource.h"

class Reel {
public:
    struct Picture {
        std::vector<uint8_t> bytes;    // the frame header of the source, then the payload
        bool key;
        int64_t timeMs;       // rises from 0, over all turns; of sound by itself
        SoundFormat sound;    // as EncodedPicture has it
    };

    // `turns` times through the source, and at most `seconds` of it, 0 all. The source outlives the reel.
    Reel(MediaSource& source, uint32_t turns, double seconds) : m_source(source), m_turns(turns), m_seconds(seconds) {}

    // Picture `number`, from 0 on, read from the source at the first call for it; valid until Forget passes it. Null
    // after the end.
    const Picture* At(uint64_t number);
    // Frees the pictures below `number`, which are not needed any more.
    void Forget(uint64_t number);

private:
    bool Read();

    MediaSource& m_source;
    uint32_t m_turns;
    const double m_seconds;
    std::deque<Picture> m_pictures;
    uint64_t m_first = 0;    // number of the front
    bool m_ended = false;
};
