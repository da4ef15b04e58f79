// Small files, read at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/AlignedBuffer.h"
#include "base/Status.h"

namespace corvane {

// Reads a regular file of at most `maxBytes` into `memory`, of which `bytes` is the part that the file fills. Failed:
// no such file, empty, larger, a folder, a pipe or a device, which it does not wait for. OutOfMemory.
Status ReadWholeFile(const char* path, uint64_t maxBytes, AlignedBuffer& memory, std::span<const uint8_t>& bytes);

}    // namespace corvane
