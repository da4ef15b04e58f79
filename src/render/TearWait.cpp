#include "render/TearWait.h"

#include <limits>

namespace corvane {

TearWait::TearWait(const Rect& window, int64_t height, float blankHit)
    : m_height(height), m_blankHit(blankHit), m_previous(std::numeric_limits<int32_t>::min()) {
    const int64_t guard = window.Width() * window.Height() / 25600;
    m_low = window.top - guard;
    m_high = window.bottom - 2 * guard;
}

TearWait::Step TearWait::Next(BlitResult result, uint32_t line, int64_t now) {
    if (m_deadline == 0)
        m_deadline = now + kLongest;
    int64_t at = line;
    if (result == BlitResult::InBlank) {
        m_startedInBlank = true;
        if (m_blankHit >= 0.5f)
            return Step::Copy;
        at = -1;
    } else if (Failed(result)) {
        return Step::Copy;
    } else {
        m_startedInBlank = false;
    }
    if (at < m_previous || at < m_low || at >= m_high || now >= m_deadline)
        return Step::Copy;
    m_previous = at;
    return (m_high - at) * 10 >= m_height ? Step::Sleep : Step::Spin;
}

float TearWait::Judged(BlitResult result, uint32_t line) const {
    const bool endedInBlank = result == BlitResult::InBlank;
    if ((Failed(result) && !endedInBlank) || !m_startedInBlank)
        return m_blankHit;
    const bool passed = !endedInBlank && m_low < int64_t{line} && int64_t{line} < m_high;
    return m_blankHit + ((passed ? 0.0f : 1.0f) - m_blankHit) * 0.01f;
}

}    // namespace corvane
