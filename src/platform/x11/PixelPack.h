// Rows of 32 bit pixels (B, G, R, X) to and from the layouts of visuals. Private to x11/. Any thread.
#pragma once

#include <cstdint>

#include "platform/x11/ServerInfo.h"

namespace corvane {

// `to` has room for `count` pixels of the layout. Samples are cut to 5 and 6 bits, and widened to 10 by a repetition of
// their upper bits.
void PackRow(PixelLayout layout, const uint8_t* from, uint8_t* to, uint32_t count);

// The inverse; X becomes 0. Samples of 5 and 6 bits are widened to 8 likewise, those of 10 bits are cut.
void UnpackRow(PixelLayout layout, const uint8_t* from, uint8_t* to, uint32_t count);

}    // namespace corvane
