// What the player knows of its frames: when each was fed, which are on their way, which were shown.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
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
        double ageMs = 0;        // of the last shown picture, since it was fed
        int64_t shownMs = -1;    // of the stream: the last shown picture
    };

    // Time stamps are milliseconds of the stream and rise.
    void Fed(int64_t streamMs, uint32_t bytes);
    void Refused();
    // The frame of this time was shown. False when it was shown already or is unknown.
    bool Shown(int64_t streamMs, uint32_t width, uint32_t height);
    void DecoderKind(uint32_t kind);
    // A picture was put on the window, perhaps not for the first time.
    void Put();
    void WindowSize(uint32_t width, uint32_t height);

    Snapshot Now() const;

    // All figures as one JSON object.
    std::string Json(const std::string& input, const char* codec, uint32_t channels) const;

private:
    struct Pending {
        int64_t streamMs;
        double fedAt;    // seconds, monotonic
        uint32_t bytes;
    };

    mutable std::mutex m_mutex;    // guards everything below
    std::deque<Pending> m_pending;
    Snapshot m_sum;
    uint64_t m_worstWaiting = 0;
    uint64_t m_worstWaitingBytes = 0;
    uint32_t m_width = 0;
    uint32_t m_height = 0;
    uint32_t m_kind = 0;
    uint64_t m_put = 0;
    uint32_t m_windowWidth = 0;    // 0 without a window
    uint32_t m_windowHeight = 0;
    double m_firstShownAt = 0;
    double m_lastShownAt = 0;
    double m_longestGap = 0;      // seconds between two shown pictures
    std::vector<float> m_ages;    // ms
};

double MonotonicSeconds();
double ProcessorSeconds();
