// Checks the picture sizes in the headers of a unit before libavcodec gets it.
//
// Libavcodec reports an impossible picture size on the terminal, which no setting of a context silences, and may
// allocate the memory of an absurd one. Such units are damaged or hostile, and are not decoded. In doubt a unit is
// decoded, since a line on the terminal costs less than a lost picture.
//
// Lines of libavcodec that damaged input can still cause: "delta scale is invalid" (scaling lists of H.264),
// "nb_cpb invalid" (buffer timing of H.265), "Broken frame packetizing" (two H.264 pictures in one unit, more than one
// thread), and rarely "Picture size is invalid" (a header of MPEG-4 so short that the layer header after it is not
// found, and studio profiles).
#pragma once

#include <cstdint>

namespace corvane {

// Bound on a coded size: limits::kMaxPicturePixels, with room for the rounding up of a codec.
inline constexpr uint64_t kMaxCodedPixels = (1ull << 26) + (1ull << 21);

enum class HeaderVerdict {
    Valid,      // valid, or not certainly invalid
    Damaged,    // a header ends before its size field, or the required header is missing
    Size,       // a size out of bounds
};

// All but Valid: the unit must not be decoded. Nothing outside (data, size) is read.

// JPEG: every frame header up to the end of the image.
HeaderVerdict CheckJpegHeaders(const uint8_t* data, uint32_t size);

// H.263: the header of the first picture. A size above kMostH263Width x kMostH263Height is out of bounds here.
inline constexpr uint32_t kMostH263Width = 704, kMostH263Height = 576;
HeaderVerdict CheckH263Picture(const uint8_t* data, uint32_t size);

// MPEG-4 Visual: the first video object layer, the only one of a unit that libavcodec reads. It must be there.
HeaderVerdict CheckMpeg4Layer(const uint8_t* data, uint32_t size);

// H.264 and H.265, Annex B: every sequence parameter set.
HeaderVerdict CheckH264Sequences(const uint8_t* data, uint32_t size);
HeaderVerdict CheckHevcSequences(const uint8_t* data, uint32_t size);

}    // namespace corvane
