// The size of a key frame of JPEG or H.263, from its own header.
#pragma once

#include "Unit.h"

namespace movarix {

// Whether the bytes begin as a picture of the format's type does; then `format` gets the size, where the header states
// it.
bool ReadPictureSize(const View& bytes, PictureFormat& format);

}    // namespace movarix
