// Turns one picture into a block of bytes for a client: a BMP or JPEG file in memory, or tightly packed pixels. The maker
// first lends a buffer in the format that it wants, and builds its output from what was written there:
//
//     SetQuality, SetPrefix, GetBuffer, (the buffer is written), Make, then the getters;
//
// or, where FixedSize tells what the output will take, MakeInto instead of Make, which spares a copy.
//
// The output lives until the next Make. A maker may be used again; buffers of the same size are kept. No lock: one
// thread at a time.
#pragma once

#include <cstdint>
#include <memory>

#include "base/ColourSignal.h"

namespace corvane {

class IPictureMaker {
public:
    virtual ~IPictureMaker() = default;

    // Lends the input: `*stride` bytes a row of `*format` (PF_*). 0; -1 for a size out of the limits; Status::OutOfMemory
    // as a number. The buffer is zeroed when it is made anew.
    virtual int32_t GetBuffer(uint32_t width, uint32_t height, uint8_t** buffer, uint32_t* stride,
                              uint32_t* format) = 0;
    // The samples in the buffer are of `from`: a kind whose output is full-range BT.601 makes them that. Others leave
    // them as they are.
    virtual void NormaliseColours(const ColourSignal& from) = 0;
    // Without memory the output stays what it was.
    virtual void Make() = 0;
    // Of JPEG, as JPEGEncOptions has it: 50 leaves the quantisation tables as they are, higher is coarser. Ignored by
    // the others.
    virtual void SetQuality(uint32_t quality) = 0;
    // Bytes that are left free, as 0, at the front of the output.
    virtual void SetPrefix(uint32_t bytes) = 0;
    // The output with its prefix; null and 0 before the first.
    virtual const uint8_t* GetData() const = 0;
    virtual uint32_t GetSize() const = 0;
    // Of the last GetBuffer.
    virtual uint32_t GetWidth() const = 0;
    virtual uint32_t GetHeight() const = 0;

    // Bytes of the output without its prefix, for kinds where the size of the picture alone decides; else 0.
    virtual uint32_t FixedSize() const = 0;
    // Writes these bytes to `to` instead of an output of its own.
    virtual void MakeInto(uint8_t* to) const = 0;
};

using PictureMakerPtr = std::shared_ptr<IPictureMaker>;

// The maker of a picture format as clients number them (1 to 18); null for any other number. May raise std::bad_alloc.
PictureMakerPtr MakePicture(uint32_t number);

}    // namespace corvane
