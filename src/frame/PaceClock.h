// Turns the times of frames into the moments at which they are due. The schedule is absolute: errors of single sleeps
// do not add up. Pure: time comes in, a decision goes out; used by one worker thread.
#pragma once

#include <cstdint>

namespace corvane {

class PaceClock {
public:
    // Enters a frame of time `t_ms` that is played at `rate` (above 0) times the natural speed. Returns the
    // milliseconds to sleep when above 0, else the lateness: 0 or negative. `now_ns` is monotonic and not negative.
    int64_t Pace(int64_t t_ms, float rate, int64_t now_ns);

    // The next frame is due at once and starts the schedule afresh. The last step stays.
    void Unset() { m_due_ns = -1; }

    // In reverse, frames come with falling times.
    void SetReverse(bool reverse) { m_reverse = reverse; }

    // When the frame entered last is over; -1 when unset.
    int64_t DueNs() const { return m_due_ns; }

private:
    int64_t m_due_ns = -1;
    int64_t m_last_time_ms = 0;
    int64_t m_last_step_ms = 0;
    bool m_reverse = false;
};

}    // namespace corvane
