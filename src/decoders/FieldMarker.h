// The marker text that some cameras put into JPEG and MPEG-4 pictures: ten characters, as in "FL_IL Mode", which state
// whether the two fields lie one above the other and whether the lines come from two moments.
#pragma once

#include <cstdint>

namespace corvane {

struct FieldMarks {
    bool fieldLMode = false;        // the fields lie one above the other
    bool interlacedMode = false;    // the lines come from two moments
};

// Looks for the text in an APP2 segment of a JPEG picture, or in the user data of an MPEG-4 picture, and updates
// `marks`; without a text they are unchanged. Reads nothing outside (data, size).
void ReadJpegMarker(const uint8_t* data, uint32_t size, FieldMarks& marks);
void ReadMpeg4Marker(const uint8_t* data, uint32_t size, FieldMarks& marks);

}    // namespace corvane
