// Counts the outcome of each picture that the render thread took. A picture counts as put once, however often it is
// drawn again. One that was not put at first may be put later, so it counts as not put when the next picture arrives.
// Render thread only.
#pragma once

#include <cstdint>

#include "frame/ChannelCounters.h"
#include "present/Outcome.h"
#include "present/PresentSettings.h"

namespace corvane {

class ShownTally {
public:
    explicit ShownTally(ChannelCounters& counters) : m_counters(counters) {}

    // A pass begins with a new picture. `arrivedAt`: arrival of its frame, ns; 0: unknown.
    void Begin(int64_t arrivedAt);
    // A pass with the latest picture ended at `now` with `outcome`.
    void Note(Outcome outcome, const PresentSettings& settings, int64_t now);

private:
    ChannelCounters& m_counters;
    bool m_open = false;    // the latest picture is not shown so far
    int64_t m_arrivedAt = 0;
    Counter m_otherwise = Counter::PicturesNotPutOff;    // how it counts if it is never shown
};

}    // namespace corvane
