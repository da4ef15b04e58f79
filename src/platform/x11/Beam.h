// The beam that draws a monitor's picture, line by line, as far as it can be told: by the timings of the monitor's mode
// and by the time at which one of its refreshes began.
#pragma once

#include <cstdint>

namespace corvane {

struct Beam {
    uint32_t visible = 0;    // lines that are seen, from the top
    uint32_t total = 0;      // and with the vertical blank that follows them
    int64_t period = 0;      // ns of a refresh; 0: nothing is known
    int64_t start = 0;       // monotonic ns: line 0 of some refresh

    static constexpr int64_t kBlank = -1;
    // The line that is drawn at `now`, or kBlank. Only with a period; `now` may lie before `start`.
    int64_t LineAt(int64_t now) const {
        const int64_t since = (now - start) % period;
        const int64_t line = (since < 0 ? since + period : since) * total / period;
        return line < int64_t{visible} ? line : kBlank;
    }
};

// Measures a beam by what the server tells of vertical blanks, and believes the timings of a mode only as long as both
// agree: a server without a monitor makes up either.
class BeamMeasure {
public:
    // By the timings of a mode: pixel clock in Hz, pixels of a whole line, lines. Zeros are made up.
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

    // The refresh with number `count` began at `time`, monotonic ns; seen at `now`.
    void Add(uint64_t count, int64_t time, int64_t now) {
        constexpr int64_t kSecond = 1'000'000'000;
        if (!Real() || time > now + kSecond || time < now - kSecond) {    // of another clock
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
    // Nothing, with period 0, until two refreshes have agreed with the mode.
    const Beam& Measured() const { return m_measured; }

private:
    static constexpr int64_t kExactness = 200;    // parts that a period may be off by

    Beam m_told;
    Beam m_measured;
    uint64_t m_count = 0;    // of the last refresh told; 0: none
    int64_t m_time = 0;
};

}    // namespace corvane
