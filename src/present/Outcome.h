// The outcome of one pass.
#pragma once

#include <cstdint>

namespace corvane {

enum class Outcome : uint32_t {
    Failed,             // the renderer cannot go on: the manager replaces it
    Put,                // a picture was put on a window, the channel's own or that of its overview
    HandedOver,         // off-screen: a callback got the picture
    Busy,               // nothing shown now: the server has not read the last put, or the window changed too fast
    NothingToDrawOn,    // no window, or one that is destroyed, unmapped, beyond limits or all margin
    NotDue,             // presenting is off, there is no callback, or no picture
};

}    // namespace corvane
