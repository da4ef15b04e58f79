// Small files, read at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/AlignedBuffer.h"
#include "base/Status.h"

namespace corvane {

// Reads a regular file of at most `maxBytes` into `memory`; `bytes` is the part of it that the file fills. Failed:
// there is no such file, or it is empty, larger, a folder, a pipe or a device; does not wait for a pipe. OutOfMemory.
Status ReadWholeFile(const char* path, uint64_t maxBytes, AlignedBuffer& memory, std::span<const uint8_t>& bytes);

}    // namespace corvane
