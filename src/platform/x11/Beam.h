// The beam that draws the picture of a monitor line by line: computed from the timings of the monitor's mode and from
// the time at which one refresh began.
#pragma once

#include <cstdint>

namespace corvane {

struct Beam {
    uint32_t visible = 0;    // lines with pixels, from the top
    uint32_t total = 0;      // lines with the vertical blank that follows
    int64_t period = 0;      // ns of a refresh; 0: the beam is unknown
    int64_t start = 0;       // monotonic ns: line 0 of some refresh

    static constexpr int64_t kBlank = -1;
    // The line that the beam draws at `now`, or kBlank. The period must be known; `now` may lie before `start`.
    int64_t LineAt(int64_t now) const {
        const int64_t since = (now - start) % period;
        const int64_t line = (since < 0 ? since + period : since) * total / period;
        return line < int64_t{visible} ? line : kBlank;
    }
};

// Measures a beam by the vertical blanks that the server reports. The timings of the mode count only while both agree,
// since a server without a monitor makes up timings, or blanks.
class BeamMeasure {
public:
    // Timings of a mode: pixel clock in Hz, pixels of a line with its blank, lines. Zeros count as made up.
    void SetMode(uint64_t clock, uint32_t lineTotal, uint32_t visible, uint32_t total) {
        const int64_t pixels = int64_t{lineTotal} * total;
        const int64_t period = clock > 0 ? pixels * 1'000'000'000 / static_cast<int64_t>(clock) : 0;
        if (period == m_told.period && visible == m_told.visible && total == m_told.total)
            return;
        *this = {};
        if (visible > 0 && visible <= total)
            m_told = {visible, total, period, 0};
    }
    bool Real() const { return m_told.period > 0; }

    // Refresh number `count` began at `time`, monotonic ns; the report was read at `now`.
    void Add(uint64_t count, int64_t time, int64_t now) {
        constexpr int64_t kSecond = 1'000'000'000;
        if (!Real() || time > now + kSecond || time < now - kSecond) {    // a time of another clock
            m_measured = {};
            m_count = 0;
            return;
        }
        const auto refreshes = static_cast<int64_t>(count - m_count);
        const int64_t period = m_count != 0 && refreshes > 0 ? (time - m_time) / refreshes : 0;
        const int64_t off = period > m_told.period ? period - m_told.period : m_told.period - period;
        m_measured = off <= m_told.period / kExactness ? Beam{m_told.visible, m_told.total, period, time} : Beam();
        m_count = count;
        m_time = time;
    }
    // Unknown (period 0) until two refreshes have agreed with the mode.
    const Beam& Measured() const { return m_measured; }

private:
    static constexpr int64_t kExactness = 200;    // a period may differ by one part in so many

    Beam m_told;
    Beam m_measured;
    uint64_t m_count = 0;    // number of the refresh that was reported last; 0: none
    int64_t m_time = 0;
};

}    // namespace corvane
