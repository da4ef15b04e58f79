// A still as a JPEG file: the library's own encoder on one picture.
#pragma once

#include <cstdint>

#include "base/AlignedBuffer.h"
#include "picture/jpeg/JpegEncoder.h"

namespace corvane {

// A picture in PF_I420. The planes have height / 2 chroma rows of width / 2 samples; what an odd size lacks is made up
// before the encoder sees it, so nothing outside is read.
struct JpegPicture {
    const uint8_t* data;
    uint32_t stride;    // bytes of a luma row; a multiple of 64
    uint32_t width;
    uint32_t height;
};

// Bytes that any picture of this size fits into, headers included.
uint64_t JpegPictureCapacity(uint32_t width, uint32_t height);

// One baseline file: 4:2:0, one interleaved scan, without a JFIF header.
class JpegWriter {
public:
    // Takes all memory that the file costs; false where there is none. `quality` as JPEGEncOptions has it. The picture
    // lives until Write.
    [[nodiscard]] bool Prepare(const JpegPicture& picture, uint32_t quality);
    // Bytes written; 0 where it failed.
    uint32_t Write(uint8_t* out, uint64_t capacity);

private:
    const uint8_t* CompletedPlane(uint32_t index, const uint8_t* from);

    JpegPicture m_picture{};
    AlignedBuffer m_completed;    // both colour planes of an odd-sized picture
    JpegEncoder::Pointer m_encoder;
};

}    // namespace corvane
