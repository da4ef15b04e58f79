#include "FileClock.h"

#include <algorithm>
#include <cmath>

namespace movarix {

namespace {

// Pictures may come in the order of decoding with the times of their presentation: so many in a row then have times
// before one that came already, by at most so much. Beyond that the clock was set back.
constexpr uint32_t kMaxReordered = 16;
constexpr int64_t kMaxReorderMs = 1000;

constexpr double kTooSlowMs = 1000;
constexpr double kLeastSilenceMs = 40;    // times of sound are rarely more exact

}    // namespace

Period PeriodOf(std::vector<int64_t> timesMs) {
    std::sort(timesMs.begin(), timesMs.end());
    std::vector<int64_t> steps;
    size_t equal = 0;    // times that came twice
    for (size_t at = 1; at < timesMs.size(); ++at) {
        const int64_t step = timesMs[at] - timesMs[at - 1];
        if (step > 0 && step < kLiveJumpMs)
            steps.push_back(step);
        equal += step == 0 ? 1 : 0;
    }
    if (steps.empty())
        return {};
    std::sort(steps.begin(), steps.end());
    const int64_t median = steps[(steps.size() - 1) / 2];
    std::erase_if(steps, [&](int64_t step) { return 2 * step < median || 2 * step > 3 * median; });    // lost pictures
    double sum = 0;
    for (const int64_t step : steps)
        sum += static_cast<double>(step);
    const auto count = static_cast<double>(steps.size() + equal);
    const double mean = sum / count;
    const double error = std::max<double>(static_cast<double>(steps.back() - steps.front()), 1) / count;
    const double perSecond = std::clamp(std::round(1000 / mean), 1.0, 1000.0);
    if (std::abs(1000 / perSecond - mean) <= error)
        return {1, static_cast<uint32_t>(perSecond)};
    if (std::abs(std::round(mean) - mean) <= error)
        return {static_cast<uint32_t>(std::round(mean)), 1000};
    return {static_cast<uint32_t>(std::max(1000.0, (mean - error) * 1000)), 1'000'000};
}

// The picture of this time follows the last one by the last step that counted.
void PictureClock::Restart(int64_t timeMs) {
    m_base = static_cast<double>(timeMs) - (LastMs() + m_lastStep);
    m_highest = timeMs;
    m_behind = 0;
}

int64_t PictureClock::Place(int64_t timeMs) {
    if (m_place < 0) {
        m_base = static_cast<double>(timeMs);
        m_highest = timeMs;
        m_lastStep = m_periodMs;
        return m_place = 0;
    }
    const int64_t step = timeMs - m_highest;
    bool rises = false;
    if (step >= m_jumpMs || step < -kMaxReorderMs || (step <= 0 && ++m_behind > kMaxReordered)) {
        Restart(timeMs);
    } else if (step > 0) {
        rises = true;
        m_lastStep = static_cast<double>(step);
        m_highest = timeMs;
        m_behind = 0;
    }
    const double fileMs = static_cast<double>(timeMs) - m_base;
    m_place = std::max(m_place + 1, static_cast<int64_t>(std::llround(fileMs / m_periodMs)));
    m_tooSlow = rises && LastMs() - fileMs > kTooSlowMs;
    return m_place;
}

int64_t SoundClock::Silence(int64_t timeMs, uint64_t samples) {
    const auto time = static_cast<double>(timeMs);
    const double duration = 1000.0 * static_cast<double>(samples) / m_rate;
    if (!m_started) {
        if (time - m_origin >= static_cast<double>(m_jumpMs) || m_origin - time >= static_cast<double>(kLiveJumpMs))
            m_origin = time - m_placeMs;
        if (time + duration / 2 < m_origin)
            return -1;
        m_started = true;
    } else if (timeMs - m_last >= m_jumpMs || timeMs - m_last < -kMaxReorderMs) {
        m_origin = time - EndMs();
    }
    m_last = timeMs;
    const double lag = time - m_origin - EndMs();
    return lag > std::max(duration, kLeastSilenceMs) ? static_cast<int64_t>(lag * m_rate / 1000) : 0;
}

}    // namespace movarix
