// Reading back what a window shows.
#pragma once

#include <chrono>

#include "base/Status.h"
#include "platform/raster/Raster.h"
#include "platform/x11/WindowWatch.h"

namespace corvane {

// Fills `out` with the inside of the window, X bytes 0. What other windows cover, and what lies outside the screen,
// cannot be read: there `out` shows `last` (the sink's last image; may be empty: black), as it does altogether while
// the window is not viewable. Any client thread, no lock held; waits for the server, at most `limit`. Failed: the
// window is not alive, its visual cannot be read, nothing can be shown (not viewable and `last` is empty), or the
// server did not answer in time. OutOfMemory.
Status GrabWindow(const WindowWatchPtr& watch, const ConstPictureView& last, std::chrono::milliseconds limit,
                  Raster& out);

}    // namespace corvane
