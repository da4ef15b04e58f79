// A still as a JPEG file: the library's own encoder on one picture.
#pragma once

#include <cstdint>

#include "base/AlignedBuffer.h"
#include "base/PictureView.h"
#include "picture/jpeg/JpegEncoder.h"

namespace corvane {

// Bytes that any picture of this size fits into, headers included.
uint64_t JpegPictureCapacity(PictureSize size);

// Bytes that the file of a picture of this size has at most, whatever its samples and quality.
uint64_t JpegPictureMost(PictureSize size);

// One baseline file: 4:2:0, one interleaved scan, without a JFIF header.
class JpegWriter {
public:
    // Allocates all memory that the file needs; false where there is none. `picture`: PF_I420 with height / 2 chroma
    // rows of width / 2 samples, whose luma rows have a multiple of 64 bytes and chroma rows half as many; chroma that
    // an odd size lacks is added in a copy, so nothing outside is read. The picture lives until Write. `quality` as
    // JPEGEncOptions has it.
    [[nodiscard]] bool Prepare(const ConstPictureView& picture, uint32_t quality);
    // Bytes written; 0 where it failed.
    uint32_t Write(uint8_t* out, uint64_t capacity);

private:
    const uint8_t* CompletedPlane(int index);

    ConstPictureView m_picture;
    AlignedBuffer m_completed;    // both colour planes of an odd-sized picture
    JpegEncoder::Pointer m_encoder;
};

}    // namespace corvane
