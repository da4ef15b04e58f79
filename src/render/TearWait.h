// When to copy a picture to the screen so that the beam does not pass through the window meanwhile: lines and time in,
// decisions out. One object for one copy.
//
// The zone to keep out of begins a little above the window and ends a little above its bottom: the copy overtakes the
// beam. "A little" grows with the window's area, as the time of a copy does.
#pragma once

#include <cstdint>

#include "base/Rectangle.h"
#include "platform/blitter/Blitter.h"

namespace corvane {

class TearWait {
public:
    enum class Step {
        Copy,     // now
        Sleep,    // a millisecond, then ask for the line: the beam is a tenth of the screen away or more
        Spin,     // ask for the line at once
    };
    // A beam that does not come (a screen that sleeps) is waited for no longer than this, in ns.
    static constexpr int64_t kLongest = 100'000'000;

    // `window` in coordinates of its monitor of `height` lines. `blankHit`: how often, from 0 to 1, a copy begun in
    // vertical blank has ended clear of the window; from 0.5 on a blank is a good moment.
    TearWait(const Rect& window, int64_t height, float blankHit);

    // What to do after a look at the beam at `now`, monotonic ns.
    Step Next(BlitResult result, uint32_t line, int64_t now);
    // After the copy and another look: the new average. It moves by a hundredth of what this copy told, if it began in
    // blank.
    float Judged(BlitResult result, uint32_t line) const;

private:
    const int64_t m_height;
    const float m_blankHit;
    int64_t m_low;     // the first line of the zone
    int64_t m_high;    // the first line behind it
    int64_t m_previous;
    int64_t m_deadline = 0;    // 0: not asked yet
    bool m_startedInBlank = false;
};

}    // namespace corvane
