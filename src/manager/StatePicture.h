// The picture of a state without video: background, logo, on-screen text. Render thread only.
#pragma once

#include <cstdint>

#include "frame/MediaFrameImpl.h"
#include "picture/BitmapPool.h"
#include "platform/Clock.h"
#include "present/Pass.h"

namespace corvane {

class StatePicture {
public:
    struct Look {
        uint32_t flags = 0;    // CORVANE_OSD_* of the state
        const MediaFrameImpl* frame = nullptr;
        uint32_t counter = 0;
        bool wallTime = false;           // the time of the text is the local wall clock; else that of the frame, in UTC
        const Raster* logo = nullptr;    // fills the window instead of background and text; null: none
    };

    explicit StatePicture(Clock& clock) : m_clock(clock) {}

    // Draws on the window of the pass, if it can be drawn on now. No lock may be held: the text callback runs inside.
    void Draw(Pass& pass, const Look& look);
    // Frees the memory of the picture.
    void Free() { m_memory.Free(); }

private:
    Clock& m_clock;
    Raster m_memory;    // drawn here and then copied, so that neither the window nor a still of it shows half a picture
};

}    // namespace corvane
