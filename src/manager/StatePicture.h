// What a window shows while there is no picture: background, logo, on-screen text. Render thread only.
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
        bool wallTime = false;           // the text's time is the local wall clock, else the frame's in UTC
        const Raster* logo = nullptr;    // fills the window in the place of background and text
    };

    explicit StatePicture(Clock& clock) : m_clock(clock) {}

    // Draws into the window of the pass, as far as it can be drawn on now. No lock held: the text callback runs inside.
    void Draw(Pass& pass, const Look& look);
    // Frees the memory between two states.
    void Free() { m_memory.Free(); }

private:
    Clock& m_clock;
    Raster m_memory;    // composed here, so that neither the window nor a copy of its image shows half a picture
};

}    // namespace corvane
