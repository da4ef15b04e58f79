// Decides when to copy a picture to the screen, so that the beam does not cross the window during the copy. Lines and
// times come in, decisions go out. One object for each copy.
//
// The beam must be outside a zone from a few lines above the window to a few lines above its bottom, since the copy
// overtakes the beam. These few lines grow with the window's area, as the time of a copy does.
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
    // The longest wait in ns, for a beam that does not move (a screen that sleeps).
    static constexpr int64_t kLongest = 100'000'000;

    // `window` in coordinates of its monitor of `height` lines. `blankHit`: the share, from 0 to 1, of copies begun in
    // vertical blank that ended before the beam reached the window; from 0.5 on copies begin in blank.
    TearWait(const Rect& window, int64_t height, float blankHit);

    // What to do after a look at the beam at `now`, monotonic ns.
    Step Next(BlitResult result, uint32_t line, int64_t now);
    // After the copy and another look at the beam: the new average. A copy that began in blank counts a hundredth.
    float Judged(BlitResult result, uint32_t line) const;

private:
    const int64_t m_height;
    const float m_blankHit;
    int64_t m_low;     // the first line of the zone
    int64_t m_high;    // the first line after the zone
    int64_t m_previous;
    int64_t m_deadline = 0;    // 0: Next was not called yet
    bool m_startedInBlank = false;
};

}    // namespace corvane
