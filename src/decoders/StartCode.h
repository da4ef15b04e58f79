// Start codes of MPEG-4 Visual, and of H.264 and H.265 in their Annex B.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace corvane {

// The byte after the next 00 00 01 in [at, end), or `end`.
inline const uint8_t* AfterStartCode(const uint8_t* at, const uint8_t* end) {
    for (const uint8_t* begin = at; at < end; ++at) {
        at = static_cast<const uint8_t*>(std::memchr(at, 1, static_cast<size_t>(end - at)));
        if (at == nullptr)
            return end;
        if (at - begin >= 2 && at[-1] == 0 && at[-2] == 0)
            return at + 1;
    }
    return end;
}

}    // namespace corvane
