// FNV-1a, a value at a time: for answers that are too many to be listed.
#pragma once

#include <cstdint>

namespace corvane::test {

struct Digest {
    uint64_t value = 0xCBF29CE484222325;

    void Note(auto... values) { ((value = (value ^ static_cast<uint64_t>(values)) * 0x100000001B3), ...); }
    void NoteEach(const auto& values) {
        for (const auto one : values)
            Note(one);
    }
};

}    // namespace corvane::test
