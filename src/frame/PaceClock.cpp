#include "frame/PaceClock.h"

#include <algorithm>

namespace corvane {

namespace {

constexpr int64_t kLongestStepMs = 11000;    // from here on a step is a gap or a jump, and the last one is repeated
constexpr float kNsPerMs = 1'000'000.0f;
constexpr float kMostNs = 1e18f;    // 31 years: a sleep without end, at a rate near 0

}    // namespace

int64_t PaceClock::Pace(int64_t tMs, float rate, int64_t nowNs) {
    int64_t stepMs = m_reverse ? m_lastTimeMs - tMs : tMs - m_lastTimeMs;
    if (stepMs < 1 || stepMs >= kLongestStepMs)
        stepMs = m_lastStepMs;
    m_lastStepMs = stepMs;
    m_lastTimeMs = tMs;
    if (m_dueNs < 0) {
        m_dueNs = nowNs;
        return 0;
    }
    const float stepNs = static_cast<float>(stepMs) / rate * kNsPerMs;
    if (stepNs > 0)    // false where the rate is no number
        m_dueNs += std::min(static_cast<int64_t>(std::min(stepNs, kMostNs)), INT64_MAX - m_dueNs);
    return (m_dueNs - nowNs) / 1'000'000;
}

}    // namespace corvane
