// What the player knows of the frames of one channel: when each was fed, which are on their way, which were decoded and
// handed on to be presented, which were shown.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <vector>

class Statistics {
public:
    struct Snapshot {
        uint64_t fed = 0;
        uint64_t refused = 0;    // by the library, with a status
        uint64_t shown = 0;
        uint64_t lost = 0;       // fed, and passed over by a later shown frame
        uint64_t waiting = 0;    // fed and not yet shown or passed over
        uint64_t waitingBytes = 0;
        uint64_t committed = 0;        // decoded and handed on to be presented
        uint64_t notPresented = 0;     // of these, not shown: passed over by a later one, or still to come
        uint64_t lostSmoothing = 0;    // of these, handed on while pictures were deinterlaced
        uint64_t put = 0;              // shown, each repetition counted too
        double ageMs = 0;              // of the last shown picture, since it was fed
        int64_t shownMs = -1;          // of the stream: the last shown picture

        // Sums; the age is the greater.
        void Add(const Snapshot& other);
    };
    // What is told at the end only.
    struct Summary {
        uint64_t waitingMost = 0;
        uint64_t waitingBytesMost = 0;
        uint32_t width = 0;    // of the pictures
        uint32_t height = 0;
        uint32_t decoderKind = 0;
        double picturesPerSecond = 0;
        double longestGapMs = 0;    // between two shown pictures
        std::vector<float> agesMs;
    };

    // Time stamps are milliseconds of the stream and rise.
    void Fed(int64_t streamMs, uint32_t bytes);
    void Refused();
    // The frame was decoded and is handed on, with smoothing switched on or not.
    void Committed(int64_t streamMs, bool smoothing);
    // The frame of this time was shown. Its number from 1 on; 0 when it was shown already or is unknown.
    uint64_t Shown(int64_t streamMs);
    void PictureSize(uint32_t width, uint32_t height);
    void DecoderKind(uint32_t kind);
    // A picture was put on the window, perhaps not for the first time.
    void Put();

    Snapshot Now() const;
    Summary AtEnd() const;

private:
    struct Pending {
        int64_t streamMs;
        double fedAt;    // seconds, monotonic
        uint32_t bytes;
    };
    struct HandedOn {
        int64_t streamMs;
        bool smoothing;
    };

    mutable std::mutex m_mutex;    // guards everything below
    std::deque<Pending> m_pending;
    std::deque<HandedOn> m_handedOn;    // since the last shown frame
    Snapshot m_sum;
    Summary m_end;
    double m_firstShownAt = 0;
    double m_lastShownAt = 0;
};

double MonotonicSeconds();
double ProcessorSeconds();
