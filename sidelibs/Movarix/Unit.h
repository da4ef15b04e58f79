// What goes into a file: one picture, or some blocks of sound.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "corvane/movarix.h"

namespace movarix {

using Bytes = std::vector<uint8_t>;

struct View {
    const uint8_t* data = nullptr;
    size_t size = 0;
};

struct PictureFormat {
    uint32_t type = 0;     // CORVANE_STREAM_*
    uint32_t width = 0;    // pixels; 0: not known
    uint32_t height = 0;

    bool operator==(const PictureFormat&) const = default;
};

// An encoded picture. The bytes are valid during the call that gets it.
struct Picture {
    View bytes;
    View sets;    // parameter sets that must stand before it where a file begins with it; empty: it has its own
    bool begins = false;    // a file may begin with it
    bool key = false;
    int64_t timeMs = 0;
    PictureFormat format;
};

// The type of sound in samples of 16 bits, which is no type of stream.
inline constexpr uint32_t kPcm = 0;

struct SoundFormat {
    uint32_t type = kPcm;    // kPcm, CORVANE_STREAM_AAC, _MULAW, _ALAW or _G726
    uint32_t rate = 0;       // samples per second
    uint32_t channels = 0;
    uint32_t bits = 0;    // of a code of G.726

    bool operator==(const SoundFormat&) const = default;

    // Bytes that belong together, and the samples of each channel that they hold: chunks hold whole blocks. 0 bytes: a
    // chunk is a block.
    uint32_t BlockBytes() const;
    uint32_t BlockSamples() const;
    // A block that is silent.
    Bytes SilentBlock() const;
};

// Blocks of sound that belong into one chunk.
struct Sound {
    View bytes;
    uint64_t samples = 0;    // of each channel
    int64_t timeMs = 0;
    SoundFormat format;
};

}    // namespace movarix
