#include "frame/PaceClock.h"

#include <algorithm>

namespace corvane {

namespace {

constexpr int64_t kLongestStepMs = 11000;    // from here on a step is a gap or a jump, and the last one is repeated
constexpr float kNsPerMs = 1'000'000.0f;
constexpr float kMostNs = 1e18f;    // 31 years: a sleep for good, at a rate next to nothing

}    // namespace

int64_t PaceClock::Pace(int64_t t_ms, float rate, int64_t now_ns) {
    int64_t step_ms = m_reverse ? m_last_time_ms - t_ms : t_ms - m_last_time_ms;
    if (step_ms < 1 || step_ms >= kLongestStepMs)
        step_ms = m_last_step_ms;
    m_last_step_ms = step_ms;
    m_last_time_ms = t_ms;
    if (m_due_ns < 0) {
        m_due_ns = now_ns;
        return 0;
    }
    const float step_ns = static_cast<float>(step_ms) / rate * kNsPerMs;
    if (step_ns > 0)    // not so where the rate is no number
        m_due_ns += std::min(static_cast<int64_t>(std::min(step_ns, kMostNs)), INT64_MAX - m_due_ns);
    return (m_due_ns - now_ns) / 1'000'000;
}

}    // namespace corvane
