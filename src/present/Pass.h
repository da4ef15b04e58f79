// One pass of the render thread: its inputs, its flags, and the flags that it served.
#pragma once

#include "present/PictureMailbox.h"
#include "present/PresentSettings.h"
#include "present/WindowSinks.h"

namespace corvane {

// Requests for one pass. A request that the pass could not serve counts for the next pass.
struct PassFlags {
    bool redraw = false;       // margins and text are drawn even if nothing changed
    bool fresh = false;        // a picture callback reports fresh size and state
    bool textFresh = false;    // the next text callback reports the same
};

struct Pass {
    const PresentSettings& settings;
    WindowSinks& sinks;
    PictureMailbox* mailbox = nullptr;    // its worker does not wait while the pass is inside a client's call
    PassFlags flags{};

    // Set by the renderer.
    bool redrawn = false;    // margins and text were drawn
    bool textTold = false;
};

}    // namespace corvane
