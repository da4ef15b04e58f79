// A look at the sizes that the headers inside a unit announce, before libavcodec sees it.
//
// Libavcodec prints its complaint of a picture size that cannot be in a way that no setting of a context can silence,
// and may ask for the memory of an absurd picture. Units that would bring that about are damaged or hostile: they are
// left out. In doubt a unit goes through, since a line is less than a lost picture.
//
// Lines of libavcodec that damage can still bring to the terminal: "delta scale is invalid" (scaling lists of H.264),
// "nb_cpb invalid" (buffer timing of H.265), "Broken frame packetizing" (two H.264 pictures in one unit, more than one
// thread), and rarely "Picture size is invalid" (a header of MPEG-4 so short that the layer's behind it is not found,
// and studio profiles).
#pragma once

#include <cstdint>

namespace corvane {

// Bound on a coded size: limits::kMaxPicturePixels, with room for the rounding up of a codec.
inline constexpr uint64_t kMaxCodedPixels = (1ull << 26) + (1ull << 21);

enum class HeaderVerdict {
    Stand,      // or in doubt
    Damaged,    // a header ends before its size, or the one that is needed is missing
    Size,       // a size beyond the bounds
};

// All but Stand: the unit must not be decoded. Nothing outside (data, size) is read.

// JPEG: every frame header up to the end of the image.
HeaderVerdict CheckJpegHeaders(const uint8_t* data, uint32_t size);

// MPEG-4 Visual: the first video object layer, the only one of a unit that libavcodec reads. It must be there.
HeaderVerdict CheckMpeg4Layer(const uint8_t* data, uint32_t size);

// H.264 and H.265, Annex B: every sequence parameter set.
HeaderVerdict CheckH264Sequences(const uint8_t* data, uint32_t size);
HeaderVerdict CheckHevcSequences(const uint8_t* data, uint32_t size);

}    // namespace corvane
