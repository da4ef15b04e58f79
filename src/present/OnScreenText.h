// On-screen text: when it is due, and the record that the client gets. Used by all renderers and by stills.
#pragma once

#include <time.h>

#include <cstdint>

#include "base/ClientCallback.h"
#include "corvane/corvane.h"
#include "frame/MediaFrameImpl.h"
#include "platform/raster/Raster.h"
#include "present/Pass.h"

namespace corvane {

// The times that were shown when the text was drawn last.
struct TextTimes {
    int64_t wall = -1;    // seconds since 1970, -1: never
    uint32_t timeSeconds = 0;
    uint32_t presentSeconds = 0;
    uint32_t baseSeconds = 0;
};

// Whether text must be drawn anew for `frame` at `wall` (seconds since 1970). `policy`: bits of CORVANE_TEXT_*; the
// caller handles CORVANE_TEXT_ALWAYS.
bool TextDue(uint32_t policy, const TextTimes& last, int64_t wall, const MediaFrameImpl& frame);

// The record together with the broken-down time that it points at, for which reason it cannot be copied.
class OsdRecord {
public:
    // `frame` may be null. `seconds`: since 1970; broken down in local time or in UTC.
    OsdRecord(const MediaFrameImpl* frame, int64_t seconds, bool local);
    OsdRecord(const OsdRecord&) = delete;
    OsdRecord& operator=(const OsdRecord&) = delete;

    // Calls `callback`, where there is one, with a new context on `picture` that is clipped to the width and height of
    // the record. No lock may be held.
    void Call(const ClientCallback<CorvaneOsdCallback>& callback, const PictureView& picture);
    // Calls the text callback of a pass. CORVANE_OSD_FRESH is set where the pass asks for it.
    void CallIn(Pass& pass, const PictureView& picture);

    OsdInfo info{};

private:
    struct tm m_time {};
};

}    // namespace corvane
