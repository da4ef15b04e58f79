// How clients change the display area.
#pragma once

#include "base/Status.h"
#include "corvane/corvane.h"

namespace corvane {

// Copies the fields of the bits in `mask`, lowest bit first. Status::InvalidArgument for a null window or an empty
// rectangle; the fields of lower bits are set then.
Status ApplyDisplayArea(DisplayArea& into, const DisplayArea& from, uint32_t mask);

}    // namespace corvane
