// A look at the headers inside a unit before libavcodec sees it.
//
// Libavcodec prints a few of its complaints in ways that no setting of a context can silence: picture sizes that cannot
// be, and H.264 scaling lists out of range. Units that would bring those out are damaged or hostile: they are left out,
// which also keeps the memory for absurd pictures from being asked for.
//
// Two complaints are known to be left, both rare: "Broken frame packetizing" for two H.264 pictures in one unit with
// more than one thread, and "nb_cpb invalid" for damaged buffer timing in H.265 parameter sets.
#pragma once

#include <cstdint>

namespace corvane {

// Bounds on a coded size: limits::kMaxPictureSide, and limits::kMaxPicturePixels with room for the rounding up of a
// codec.
inline constexpr uint64_t kMaxCodedPixels = (1ull << 26) + (1ull << 21);

// All: false when the unit must not be decoded. Nothing outside (data, size) is read.

// JPEG: every frame header announces a size within the bounds.
bool JpegHeadersStand(const uint8_t* data, uint32_t size);

// MPEG-4 Visual: the first video object layer announces a size within the bounds; false also when there is none.
bool Mpeg4LayerStands(const uint8_t* data, uint32_t size);

// H.264 and H.265, Annex B.
class ParameterSetCheck {
public:
    bool H264Stands(const uint8_t* data, uint32_t size);
    bool HevcStands(const uint8_t* data, uint32_t size) const;

private:
    uint32_t m_chroma_format =
        1;    // of the latest H.264 sequence parameter set; a picture parameter set is read by it
};

}    // namespace corvane
