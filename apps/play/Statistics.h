// The measurements of one channel: the counters of the library, and figures on shown pictures that only the player can
// take.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "corvane/corvane.h"

// Of the pictures that were shown. Any thread.
class ShownPictures {
public:
    struct Now {
        int64_t streamMs = -1;    // of the stream: the picture shown last
        uint32_t width = 0;       // of the pictures
        uint32_t height = 0;
        double perSecond = 0;
        double longestGapMs = 0;    // between two of them
    };

    // The picture of that time was shown, the `count`-th of its channel; one that was shown before is nothing new.
    void Shown(int64_t streamMs, uint64_t count);
    void Size(uint32_t width, uint32_t height);
    Now Get() const;

private:
    mutable std::mutex m_mutex;    // guards everything below
    Now m_now;
    uint64_t m_count = 0;
    double m_firstAt = 0;    // seconds, monotonic
    double m_lastAt = 0;
};

// A channel's figures at one moment. `fed`: frames that were handed to the library.
struct Figures {
    uint64_t fed = 0;
    ChannelStatistics counters{};
    ShownPictures::Now pictures;
};

// The counters of all, added up; the ages are the greatest, the cause the newest.
ChannelStatistics SumOf(const std::vector<Figures>& channels);

// Put on a window or handed to a callback.
uint64_t ShownOf(const ChannelStatistics& counters);
// Decoded pictures that are to be shown, and those of them that were not.
uint64_t CommittedOf(const ChannelStatistics& counters);
uint64_t NotShownOf(const ChannelStatistics& counters);
// Frames that ended without a picture on the screen or in the callback, but for those that are not to be shown.
uint64_t LostOf(const ChannelStatistics& counters);
// Taken and not accounted for: they wait in the queue, are being decoded, or may still be shown.
uint64_t LeftOf(const ChannelStatistics& counters);
// Frames of sound that wait for the device.
uint64_t SoundLeftOf(const ChannelStatistics& counters);
// Taken and still in progress: in the queue, or between decoder and window or callback.
uint64_t WaitingOf(const ChannelStatistics& counters);

// A few words on one of CORVANE_CAUSE_*.
const char* TextOfCause(uint32_t cause);

double MonotonicSeconds();
double ProcessorSeconds();    // of this process so far
