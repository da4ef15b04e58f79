// Where pictures and sound lie in a file, by the times of their frames. Pure: time comes in as arguments.
#pragma once

#include <cstdint>
#include <vector>

namespace movarix {

// Time between two pictures of a file, in seconds: number / unit.
struct Period {
    uint32_t number = 1;
    uint32_t unit = 25;

    double Ms() const { return 1000.0 * number / unit; }
};

// Of the steps between the first pictures of a file, whose times need not rise: whole pictures per second or a whole
// number of milliseconds, where the steps allow that; else the least that they allow, since a file whose pictures come
// faster than its rate cannot keep their times. 25 pictures per second where there is no step.
Period PeriodOf(std::vector<int64_t> timesMs);

// A step of so many milliseconds counts as long as the step before it.
inline constexpr int64_t kLiveJumpMs = 11'000;
inline constexpr int64_t kJumpMs = 3'600'000;    // in channels that are not live, where gaps are wanted

class PictureClock {
public:
    PictureClock() = default;
    PictureClock(Period period, bool live) : m_periodMs(period.Ms()), m_jumpMs(live ? kLiveJumpMs : kJumpMs) {}

    // The place of the next picture, counted in periods: above that of the last one.
    int64_t Place(int64_t timeMs);

    // The time in the file of the last picture, in milliseconds.
    double LastMs() const { return static_cast<double>(m_place) * m_periodMs; }

    // The end of the last picture.
    double EndMs() const { return static_cast<double>(m_place + 1) * m_periodMs; }

    // Pictures come faster than the file's rate, so that the last one lies a second after its time.
    bool IsTooSlow() const { return m_tooSlow; }

private:
    void Restart(int64_t timeMs);

    double m_periodMs = 40;
    int64_t m_jumpMs = kLiveJumpMs;
    int64_t m_place = -1;      // of the last picture
    double m_base = 0;         // the time that has place 0
    int64_t m_highest = 0;     // of the times since m_base was set
    double m_lastStep = 40;    // the last step that counts
    uint32_t m_behind = 0;     // pictures in a row whose times do not exceed m_highest
    bool m_tooSlow = false;
};

class SoundClock {
public:
    SoundClock() = default;
    // `originMs`: the time of the file's first picture. `placeMs`: where pictures are now, for sound of another clock.
    SoundClock(uint32_t rate, bool live, int64_t originMs, double placeMs)
        : m_rate(rate), m_jumpMs(live ? kLiveJumpMs : kJumpMs), m_origin(originMs), m_placeMs(placeMs) {}

    // Samples of silence that must come before sound of this time; -1: it lies before the file's beginning.
    int64_t Silence(int64_t timeMs, uint64_t samples);

    void Advance(uint64_t samples) { m_samples += samples; }

    double EndMs() const { return 1000.0 * static_cast<double>(m_samples) / m_rate; }

private:
    uint32_t m_rate = 1;
    int64_t m_jumpMs = kLiveJumpMs;
    double m_origin = 0;    // the time that has place 0
    double m_placeMs = 0;
    uint64_t m_samples = 0;    // that were written
    int64_t m_last = 0;        // time
    bool m_started = false;
};

}    // namespace movarix
