// Whether a stream of H.264 may have fields.
#pragma once

#include "Unit.h"

namespace movarix {

// False: the sequence parameter set at `set`, which is the unit from its header byte on, says that all pictures are
// frames. True also where it cannot be read.
bool MayHaveFields(const View& set);

}    // namespace movarix
