// Baseline JPEG streams out of planar pictures. What options, requests and failures mean stands in corvane/jpegenc.h; here
// the same operations on an object. For the picture makers and for the exports.
//
// Memory: one block of kJpegEncoderBytes that may begin on any address, with the packer behind it when the client gave the
// memory. Threads: one encodes; with a pool one more may Take, Filled and Quit meanwhile.
#pragma once

#include <cstdint>
#include <memory>

#include "base/Status.h"
#include "corvane/jpegenc.h"

namespace corvane {

class JpegEncoder {
public:
    struct Deleter {
        void operator()(JpegEncoder* encoder) const noexcept { Release(encoder); }
    };
    using Pointer = std::unique_ptr<JpegEncoder, Deleter>;

    // Bytes for JPEGEncOptions::Memory; all ones when they pass 32 bits.
    static uint32_t MemoryBytes(const JPEGEncOptions& options) noexcept;
    // Null for whatever JPEGEnc_Initial refuses.
    static Pointer Create(const JPEGEncOptions& options) noexcept;
    static void Release(JpegEncoder* encoder) noexcept;

    // Encodes and commits one picture; EncodedBytes is 0 on failure.
    Status OneFrame(JPEGEncFrame& frame) noexcept;
    Status SetOptions(const JPEGEncRequest& request) noexcept;
    Status TakeData(void* destination, uint32_t count) noexcept;
    uint32_t FilledBytes() const noexcept;
    void Quit() noexcept;
};

}    // namespace corvane
