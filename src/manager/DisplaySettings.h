// Rules of the display rectangles.
#pragma once

#include "base/Status.h"
#include "corvane/corvane.h"

namespace corvane {

// Copies the fields that `mask` names, in the order of its bits. A null window or an empty rectangle is
// Status::InvalidArgument; fields of lower bits are then set already.
Status ApplyDisplayArea(DisplayArea& into, const DisplayArea& from, uint32_t mask);

}    // namespace corvane
