// One pass of the render thread: what it works with, what it is asked for, and what it has done of that.
#pragma once

#include "present/PictureMailbox.h"
#include "present/PresentSettings.h"
#include "present/WindowSinks.h"

namespace corvane {

// What a pass is asked for once. What it could not do counts for the next pass.
struct PassFlags {
    bool redraw = false;       // margins and text are drawn even if nothing changed
    bool fresh = false;        // size and state must be reported: a picture callback is told
    bool textFresh = false;    // the next text is told the same
};

struct Pass {
    const PresentSettings& settings;
    WindowSinks& sinks;
    PictureMailbox* mailbox = nullptr;    // whose worker waits for no pass that is inside a client's call
    PassFlags flags{};

    // Set by the renderer.
    bool redrawn = false;    // margins and text are as they should be
    bool textTold = false;
};

}    // namespace corvane
