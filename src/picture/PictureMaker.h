// Makes a block of bytes for a client from one picture: a BMP or JPEG file in memory, or pixels in rows without
// padding. The maker lends a buffer in its own format, and makes its output of the picture that the caller has written
// there:
//
//     SetQuality, SetPrefix, GetBuffer, (the buffer is written), Make, then the getters;
//
// or, where FixedSize is not 0, MakeInto instead of Make, which saves a copy;
// or, where Over gives a view, nothing but SetPrefix and Over: the picture is written into the caller's memory.
//
// The output is valid until the next GetBuffer: where both have the same pixels in memory the output is the buffer. A
// maker can be used again, and keeps its buffers while the size is the same. It has no lock: one thread at a time.
#pragma once

#include <cstdint>
#include <memory>

#include "base/AlignedBuffer.h"
#include "base/PictureView.h"
#include "base/Status.h"

namespace corvane {

class IPictureMaker {
public:
    virtual ~IPictureMaker() = default;

    // Lends the input, zeroed when it is made anew. Failed for a size out of the limits; OutOfMemory.
    virtual Status GetBuffer(PictureSize size, PictureView& out) = 0;
    // Whether a client's drawing is laid over the input: where it is PF_I420 or PF_BGR24_FLIP in memory.
    virtual bool TakesOverlay() const = 0;
    // The samples in the buffer have these colours. A kind whose output is full-range BT.601 converts them; the others
    // leave them unchanged.
    virtual void NormaliseColours(const ColourSignal& from) = 0;
    // OutOfMemory: the output is unchanged.
    [[nodiscard]] virtual Status Make() = 0;
    // Of JPEG, as JPEGEncOptions::Quality: 50 leaves the quantisation tables unchanged, more is coarser. Other kinds
    // ignore the value.
    virtual void SetQuality(uint32_t quality) = 0;
    // Number of bytes that stay 0 before the output, from the next GetBuffer on.
    virtual void SetPrefix(uint32_t bytes) = 0;
    // The output with its prefix; null and 0 before the first Make.
    virtual const uint8_t* GetData() const = 0;
    virtual uint32_t GetSize() const = 0;
    // The size that the last GetBuffer was called with.
    virtual uint32_t GetWidth() const = 0;
    virtual uint32_t GetHeight() const = 0;

    // Bytes of the output without its prefix, where they follow from the size of the picture; else 0. `size` is within
    // the limits.
    virtual uint32_t FixedSize(PictureSize size) const = 0;
    // The same, or what the output of any picture of this size has at most.
    virtual uint64_t MostBytes(PictureSize size) const = 0;
    // Writes the output without its prefix to `to`: FixedSize bytes.
    virtual void MakeInto(uint8_t* to) const = 0;
    // Where the output of this size is pixels after a header, in rows without padding: writes prefix and header to
    // `to`, FixedSize bytes and the prefix, and gives the view of the pixels there, for the caller to write. Else an
    // empty view, and nothing is written.
    virtual PictureView Over(PictureSize size, uint8_t* to) const = 0;
};

using PictureMakerPtr = std::shared_ptr<IPictureMaker>;

// The maker of a still format, of CORVANE_PICTURE_*; null for any other number. `use`: of its buffer. May raise
// std::bad_alloc.
PictureMakerPtr MakePicture(uint32_t number, AlignedBuffer::Use use);

}    // namespace corvane
