// Reads the pixels that a window shows.
#pragma once

#include <chrono>

#include "base/Status.h"
#include "platform/raster/Raster.h"
#include "platform/x11/WindowWatch.h"

namespace corvane {

// Fills `out` with the inside of the window, X bytes 0. Parts that other windows cover and parts outside the screen
// cannot be read: they come from `last` (the last image of the sink; black where it is empty or smaller). A window that
// is not viewable comes from `last` as a whole. Any client thread, no lock held; waits for the server, at most `limit`.
// Failed: the window is not alive, its visual cannot be read, it is not viewable and `last` is empty, or the server did
// not answer in time. OutOfMemory.
Status GrabWindow(const WindowWatchPtr& watch, const ConstPictureView& last, std::chrono::milliseconds limit,
                  Raster& out);

}    // namespace corvane
