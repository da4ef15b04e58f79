// Counts the frames of one channel by their outcome: every accepted frame is counted once, where it ends, and so is
// every picture. Any thread counts and any thread reads; frames in progress are missing from a reading.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "base/Mutex.h"
#include "corvane/corvane.h"
#include "platform/Clock.h"

namespace corvane {

// The 64 bit counters of ChannelStatistics, in the order of that record, where they stand in two places.
enum class Counter : uint8_t {
    FramesTaken,
    FramesRefusedFull,
    FramesRefusedMode,
    FramesWithoutStep,
    FramesEmptied,
    FramesSkippedLate,
    FramesThinned,
    MetadataFrames,
    SoundFrames,
    UnitsWithoutDecoder,
    UnitsAwaitingKeyFrame,
    UnitsFailed,
    UnitsWithoutPicture,
    PicturesDecoded,
    PicturesNotForDisplay,
    PicturesSmoothed,
    PicturesRefusedSmoothing,
    PicturesLost,
    PicturesReplaced,
    PicturesTaken,
    PicturesPut,
    PicturesHandedOver,
    PicturesNotPutBusy,
    PicturesNotPutNowhere,
    PicturesNotPutOff,
    // At the end of the record.
    SoundHeard,
    SoundLostRing,
    SoundLostDecoder,
    SoundNotPlayed,
    Count
};

class ChannelCounters {
public:
    explicit ChannelCounters(Clock& clock) : m_clock(clock) {}

    void Add(Counter counter, uint64_t count = 1) {
        m_counters[static_cast<size_t>(counter)].fetch_add(count, std::memory_order_relaxed);
    }
    // `cause`: CORVANE_CAUSE_*, the latest of which is reported. A count of 0 changes nothing.
    void AddLost(Counter counter, uint32_t cause, uint64_t count = 1);
    void NoteCause(uint32_t cause);
    // 0 threads: there is no decoder.
    void NoteDecoder(uint32_t kind, uint32_t threads) {
        m_decoder.store(uint64_t{kind} << 32 | threads, std::memory_order_relaxed);
    }
    // A picture was shown: ns from the call that took its frame until then.
    void NoteAge(int64_t ageNs);

    // Fills all fields but the size of the record and those of the queue.
    void Fill(ChannelStatistics& out) const;

private:
    static constexpr size_t kAges = 256;

    Clock& m_clock;    // constant
    std::array<std::atomic<uint64_t>, static_cast<size_t>(Counter::Count)> m_counters{};
    std::atomic<uint64_t> m_decoder{0};

    mutable Mutex m_mutex;    // a leaf, held for a copy
    uint32_t m_cause GUARDED_BY(m_mutex) = CORVANE_CAUSE_NONE;
    int64_t m_causeAt GUARDED_BY(m_mutex) = 0;                   // ns
    std::array<uint32_t, kAges> m_ages GUARDED_BY(m_mutex){};    // ms, the newest overwrites the oldest
    uint64_t m_agesNoted GUARDED_BY(m_mutex) = 0;
};

// Counts one frame or picture in its destructor, by the counter of its constructor unless Is named another. An
// exception in between thus counts as the loss that it causes.
class CountAtEnd {
public:
    CountAtEnd(ChannelCounters& counters, Counter counter, uint32_t cause)
        : m_counters(counters), m_counter(counter), m_cause(cause) {}
    ~CountAtEnd() {
        if (m_cause != CORVANE_CAUSE_NONE)
            m_counters.AddLost(m_counter, m_cause);
        else if (m_counter != Counter::Count)
            m_counters.Add(m_counter);
    }
    CountAtEnd(const CountAtEnd&) = delete;
    CountAtEnd& operator=(const CountAtEnd&) = delete;

    void Is(Counter counter, uint32_t cause = CORVANE_CAUSE_NONE) {
        m_counter = counter;
        m_cause = cause;
    }
    void IsNothing() { Is(Counter::Count); }    // counted elsewhere

private:
    ChannelCounters& m_counters;
    Counter m_counter;
    uint32_t m_cause;
};

}    // namespace corvane
