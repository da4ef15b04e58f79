// What came of each picture that the render thread took. A picture is put once, however often it is drawn anew; what
// was not put at first may be put later, so it counts as not put when the next one takes its place. Render thread only.
#pragma once

#include <cstdint>

#include "frame/ChannelCounters.h"
#include "present/Outcome.h"
#include "present/PresentSettings.h"

namespace corvane {

class ShownTally {
public:
    explicit ShownTally(ChannelCounters& counters) : m_counters(counters) {}

    // A pass begins to show a picture that none has shown before. `arrivedAt`: of its frame, ns; 0 unknown.
    void Begin(int64_t arrivedAt);
    // What a pass with the latest picture came to, at `now`.
    void Note(Outcome outcome, const PresentSettings& settings, int64_t now);

private:
    ChannelCounters& m_counters;
    bool m_open = false;    // not shown so far
    int64_t m_arrivedAt = 0;
    Counter m_otherwise = Counter::PicturesNotPutOff;    // how it counts if it never is
};

}    // namespace corvane
