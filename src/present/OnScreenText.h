// On-screen text: when it is due and what the client is told. Used by every way of presenting.
#pragma once

#include <time.h>

#include <cstdint>

#include "corvane/corvane.h"
#include "frame/MediaFrameImpl.h"
#include "platform/raster/Raster.h"
#include "present/Pass.h"

namespace corvane {

// The times that the last refresh showed.
struct TextTimes {
    int64_t wall = -1;    // seconds since 1970, -1: never
    uint32_t timeSeconds = 0;
    uint32_t presentSeconds = 0;
    uint32_t baseSeconds = 0;
};

// Whether text must be drawn anew for `frame` at `wall`, by the bits of `policy`: 0 the wall clock's second, 1 the
// frame's second, 2 that of its presentation time, 3 that of its base time.
bool TextDue(uint32_t policy, const TextTimes& last, int64_t wall, const MediaFrameImpl& frame);

// A record with its own broken-down time: not copied while `info` is in use.
class OsdRecord {
public:
    // `frame` may be null. `seconds` is what the time is made from, in UTC or in local time.
    OsdRecord(const MediaFrameImpl* frame, int64_t seconds, bool local);
    OsdRecord(const OsdRecord&) = delete;
    OsdRecord& operator=(const OsdRecord&) = delete;

    // Calls `callback` with a fresh context on `raster`, clipped to the record's width and height. No lock may be held.
    // Nothing happens without a callback.
    void Call(CorvaneOsdCallback callback, void* context, const RasterView& raster);
    // The same with the text callback of a pass, which is told once that size and state must be reported.
    void CallIn(Pass& pass, const RasterView& raster);

    OsdInfo info{};

private:
    struct tm m_time {};
};

}    // namespace corvane
