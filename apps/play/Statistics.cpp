#include "Statistics.h"

#include <sys/resource.h>
#include <time.h>

#include <algorithm>

double MonotonicSeconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double ProcessorSeconds() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void Statistics::Snapshot::Add(const Snapshot& other) {
    fed += other.fed;
    refused += other.refused;
    shown += other.shown;
    lost += other.lost;
    waiting += other.waiting;
    waitingBytes += other.waitingBytes;
    committed += other.committed;
    notPresented += other.notPresented;
    lostSmoothing += other.lostSmoothing;
    put += other.put;
    ageMs = std::max(ageMs, other.ageMs);
    shownMs = std::max(shownMs, other.shownMs);
}

void Statistics::Fed(int64_t streamMs, uint32_t bytes) {
    const std::lock_guard lock(m_mutex);
    m_pending.push_back({streamMs, MonotonicSeconds(), bytes});
    ++m_sum.fed;
    ++m_sum.waiting;
    m_sum.waitingBytes += bytes;
    m_end.waitingMost = std::max(m_end.waitingMost, m_sum.waiting);
    m_end.waitingBytesMost = std::max(m_end.waitingBytesMost, m_sum.waitingBytes);
}

void Statistics::Refused() {
    const std::lock_guard lock(m_mutex);
    ++m_sum.refused;
}

void Statistics::Committed(int64_t streamMs, bool smoothing) {
    const std::lock_guard lock(m_mutex);
    m_handedOn.push_back({streamMs, smoothing});
    ++m_sum.committed;
    ++m_sum.notPresented;
    m_sum.lostSmoothing += smoothing ? 1 : 0;
}

uint64_t Statistics::Shown(int64_t streamMs) {
    const std::lock_guard lock(m_mutex);
    const auto found = std::ranges::find(m_pending, streamMs, &Pending::streamMs);
    if (found == m_pending.end())
        return 0;
    const double now = MonotonicSeconds();
    m_sum.ageMs = (now - found->fedAt) * 1000;
    m_end.agesMs.push_back(static_cast<float>(m_sum.ageMs));
    const auto end = found + 1;
    m_sum.lost += static_cast<uint64_t>(found - m_pending.begin());
    for (auto pending = m_pending.begin(); pending != end; ++pending) {
        --m_sum.waiting;
        m_sum.waitingBytes -= pending->bytes;
    }
    m_pending.erase(m_pending.begin(), end);
    for (bool reached = false; !reached && !m_handedOn.empty(); m_handedOn.pop_front()) {
        const HandedOn& frame = m_handedOn.front();
        if (frame.streamMs > streamMs)
            break;
        reached = frame.streamMs == streamMs;
        m_sum.notPresented -= reached ? 1 : 0;
        m_sum.lostSmoothing -= reached && frame.smoothing ? 1 : 0;
    }
    if (m_sum.shown++ == 0)
        m_firstShownAt = now;
    else
        m_end.longestGapMs = std::max(m_end.longestGapMs, (now - m_lastShownAt) * 1000);
    m_lastShownAt = now;
    m_sum.shownMs = streamMs;
    return m_sum.fed - m_pending.size();
}

void Statistics::PictureSize(uint32_t width, uint32_t height) {
    const std::lock_guard lock(m_mutex);
    m_end.width = width;
    m_end.height = height;
}

void Statistics::DecoderKind(uint32_t kind) {
    const std::lock_guard lock(m_mutex);
    m_end.decoderKind = kind;
}

void Statistics::Put() {
    const std::lock_guard lock(m_mutex);
    ++m_sum.put;
}

Statistics::Snapshot Statistics::Now() const {
    const std::lock_guard lock(m_mutex);
    return m_sum;
}

Statistics::Summary Statistics::AtEnd() const {
    const std::lock_guard lock(m_mutex);
    Summary end = m_end;
    const double played = m_lastShownAt - m_firstShownAt;
    end.picturesPerSecond = played > 0 ? static_cast<double>(m_sum.shown - 1) / played : 0.0;
    std::ranges::sort(end.agesMs);
    return end;
}
