// A still as a JPEG file: the library's own encoder on one picture.
#pragma once

#include <cstdint>

namespace corvane {

// A picture in PF_I420. The planes have height / 2 chroma rows of width / 2 samples; what an odd size lacks is made up by
// the encoder's caller (WriteJpegPicture), so nothing outside is read.
struct JpegPicture {
    const uint8_t* data;
    uint32_t stride;    // bytes of a luma row; a multiple of 64
    uint32_t width;
    uint32_t height;
};

// Bytes that any picture of this size fits into, headers included.
uint64_t JpegPictureCapacity(uint32_t width, uint32_t height);

// Writes a baseline file, 4:2:0, one interleaved scan, without a JFIF header. `quality` as JPEGEncOptions has it. Bytes
// written; 0 where it failed.
uint32_t WriteJpegPicture(const JpegPicture& picture, uint32_t quality, uint8_t* out, uint64_t capacity);

}    // namespace corvane
