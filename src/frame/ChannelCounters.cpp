#include "frame/ChannelCounters.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <numeric>

namespace corvane {

namespace {

constexpr int64_t kNsPerMs = 1'000'000;

// The counters stand side by side in the record, from framesTaken and from soundHeard on.
constexpr size_t kFirstOfSound = static_cast<size_t>(Counter::SoundHeard);
constexpr size_t kCounters = static_cast<size_t>(Counter::Count);
static_assert(offsetof(ChannelStatistics, framesTaken) == 24);
static_assert(offsetof(ChannelStatistics, queueFrames) == 24 + 8 * kFirstOfSound);
static_assert(offsetof(ChannelStatistics, soundHeard) + 8 * (kCounters - kFirstOfSound) == sizeof(ChannelStatistics));
static_assert(sizeof(ChannelStatistics) == 328);

}    // namespace

void ChannelCounters::AddLost(Counter counter, uint32_t cause, uint64_t count) {
    if (count == 0)
        return;
    Add(counter, count);
    NoteCause(cause);
}

void ChannelCounters::NoteCause(uint32_t cause) {
    const int64_t now = m_clock.Now();
    MutexLock lock(m_mutex);
    m_cause = cause;
    m_causeAt = now;
}

void ChannelCounters::NoteAge(int64_t ageNs) {
    const auto ageMs = static_cast<uint32_t>(std::clamp<int64_t>(ageNs / kNsPerMs, 0, UINT32_MAX));
    MutexLock lock(m_mutex);
    m_ages[m_agesNoted++ % kAges] = ageMs;
}

void ChannelCounters::Fill(ChannelStatistics& out) const {
    std::array<uint64_t, kCounters> counters;
    for (size_t i = 0; i < counters.size(); ++i)
        counters[i] = m_counters[i].load(std::memory_order_relaxed);
    auto* const record = reinterpret_cast<uint8_t*>(&out);
    std::memcpy(record + offsetof(ChannelStatistics, framesTaken), counters.data(), 8 * kFirstOfSound);
    std::memcpy(record + offsetof(ChannelStatistics, soundHeard), &counters[kFirstOfSound],
                8 * (kCounters - kFirstOfSound));
    const uint64_t decoder = m_decoder.load(std::memory_order_relaxed);
    out.decoderKind = static_cast<uint32_t>(decoder >> 32);
    out.decoderThreads = static_cast<uint32_t>(decoder);

    std::array<uint32_t, kAges> ages;
    size_t count;
    size_t newest;
    {
        const int64_t now = m_clock.Now();
        MutexLock lock(m_mutex);
        out.lastCause = m_cause;
        out.lastCauseAgo =
            m_cause == CORVANE_CAUSE_NONE ? 0 : static_cast<uint64_t>(std::max<int64_t>(now - m_causeAt, 0) / kNsPerMs);
        ages = m_ages;
        count = static_cast<size_t>(std::min<uint64_t>(m_agesNoted, kAges));
        newest = (m_agesNoted + kAges - 1) % kAges;
    }
    if (count == 0)
        return;
    out.ageLast = ages[newest];
    out.ageMean = std::accumulate(ages.begin(), ages.begin() + static_cast<ptrdiff_t>(count), uint64_t{0}) / count;
    // The smallest age that at least 95 of 100 do not exceed.
    const auto rank = static_cast<ptrdiff_t>((count * 95 + 99) / 100 - 1);
    std::nth_element(ages.begin(), ages.begin() + rank, ages.begin() + static_cast<ptrdiff_t>(count));
    out.age95 = ages[static_cast<size_t>(rank)];
}

}    // namespace corvane
