// A look at the headers inside a unit before libavcodec sees it.
//
// Libavcodec prints a few of its complaints in ways that no setting of a context can silence: picture sizes that cannot
// be, and H.264 scaling lists out of range. Units that would bring those out are damaged or hostile: they are left out,
// which also keeps the memory for absurd pictures from being asked for. A unit is left out only where libavcodec is
// known to refuse its header: in doubt it goes through, since a message is less than a lost picture.
//
// Three complaints are known to be left, all rare: "Broken frame packetizing" for two H.264 pictures in one unit with
// more than one thread, "nb_cpb invalid" for damaged buffer timing in H.265 parameter sets, and "delta scale is
// invalid" for garbage in an H.264 picture parameter set, about ten in a million.
#pragma once

#include <bitset>
#include <cstdint>

namespace corvane {

// Bound on a coded size: limits::kMaxPicturePixels, with room for the rounding up of a codec.
inline constexpr uint64_t kMaxCodedPixels = (1ull << 26) + (1ull << 21);

// All: false when the unit must not be decoded. Nothing outside (data, size) is read.

// JPEG: every frame header up to the end of the image announces a size within the bounds.
bool JpegHeadersStand(const uint8_t* data, uint32_t size);

// MPEG-4 Visual: one of the video object layers announces a size within the bounds; false also when there is none.
bool Mpeg4LayerStands(const uint8_t* data, uint32_t size);

// H.265, Annex B.
bool HevcHeadersStand(const uint8_t* data, uint32_t size);

// H.264, Annex B.
class ParameterSetCheck {
public:
    bool H264Stands(const uint8_t* data, uint32_t size);

private:
    // By seq_parameter_set_id: picture parameter sets may bring scaling lists.
    std::bitset<32> m_extensible;
};

}    // namespace corvane
