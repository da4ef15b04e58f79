// Turns the times of frames into the moments at which they are due. The schedule is absolute: errors of single sleeps
// do not add up. It has no clock inside: time is an argument, the decision the result. Used by one worker thread.
#pragma once

#include <cstdint>

namespace corvane {

class PaceClock {
public:
    // Enters a frame of time `tMs` that is played at `rate` (above 0) times the natural speed. Returns the
    // milliseconds to sleep when above 0, else the lateness: 0 or negative. `nowNs` is monotonic and not negative.
    int64_t Pace(int64_t tMs, float rate, int64_t nowNs);

    // The next frame is due at once and starts the schedule afresh. The last step stays.
    void Unset() { m_dueNs = -1; }

    // In reverse, frames come with falling times.
    void SetReverse(bool reverse) { m_reverse = reverse; }

    // When the frame entered last is over; -1 when unset.
    int64_t DueNs() const { return m_dueNs; }

private:
    int64_t m_dueNs = -1;
    int64_t m_lastTimeMs = 0;
    int64_t m_lastStepMs = 0;
    bool m_reverse = false;
};

}    // namespace corvane
