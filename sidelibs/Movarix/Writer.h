// What Movarix.so and MovarixWriter.so share. Movarix.so is loaded into every host and links nothing of FFmpeg; the
// writer is opened by the first channel, or the first choice of a compressor that only libavcodec knows.
#pragma once

#include <cstddef>
#include <cstdint>

#include "corvane/movarix.h"

namespace movarix {

static_assert(sizeof(MovarixStart) == 48 && offsetof(MovarixStart, path) == 8 &&
              offsetof(MovarixStart, maxBytes) == 16 && offsetof(MovarixStart, maxSeconds) == 24 &&
              sizeof(MovarixCompressor) == 12);

// The type of MovarixCompressor that stands for the input's own: pictures stay as they come.
inline constexpr uint32_t kNoCompressor = 0;

// What streams are compressed to. The fields of pictures are 0 and those of sound not chosen in a new module.
struct CompressorChoice {
    MovarixCompressor pictures = {};
    MovarixCompressor sound = {};
    bool soundChosen = false;    // type 0 of sound is PCM, so that it cannot stand for "not chosen"
};

// Of one module, for all its channels; copied.
struct Host {
    void* instance = nullptr;
    AviHostCallbacks callbacks = {};
};

// Functions of the writer. Those of a channel are as the functions of the contract with the same names.
struct WriterFunctions {
    uint32_t (*createChannel)(const Host* host, const CompressorChoice* choice, uint32_t live, void** channel);
    uint32_t (*deleteChannel)(void** channel);
    uint32_t (*startChannel)(void* channel, uint64_t value);
    uint32_t (*stopChannel)(void* channel);
    uint32_t (*inputMedia)(void* channel, uint64_t value);
    uint32_t (*inputDecodedMedia)(void* channel, uint32_t kind, uint64_t value);
    uint32_t (*setPictureCompressor)(void* channel, const MovarixCompressor* compressor);
    uint32_t (*setSoundCompressor)(void* channel, const MovarixCompressor* compressor);
    uint32_t (*getPictureCompressor)(void* channel, MovarixCompressor* compressor);
    uint32_t (*getSoundCompressor)(void* channel, MovarixCompressor* compressor);
    uint32_t (*setChannelOption)(void* channel, uint32_t id, uint32_t value, uint32_t extra);
    uint32_t (*getCurrentFileSize)(void* channel, uint64_t value);
    // Status_NotSupported where this build of libavcodec has no encoder of that type.
    uint32_t (*checkPictureCompressor)(uint32_t type);
};

// The one function that MovarixWriter.so exports.
inline constexpr char kWriterEntry[] = "MovarixWriter_Functions";
using WriterEntry = const WriterFunctions* (*)();

constexpr bool Failed(uint32_t status) {
    return static_cast<int32_t>(status) < 0;
}

}    // namespace movarix
