// Real encoded streams, made at test time. Every picture carries its number in its luma, so that a test can find the
// input of a decoded picture. Nothing is printed; failure raises std::runtime_error.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "corvane/corvane.h"
#include "frame/MediaFrameImpl.h"
#include "support/BitWriter.h"

namespace corvane::test {

inline constexpr uint32_t kJpeg = CORVANE_STREAM_JPEG, kH263 = CORVANE_STREAM_H263, kMpeg4 = CORVANE_STREAM_MPEG4,
                          kH264 = CORVANE_STREAM_H264, kH265 = CORVANE_STREAM_H265;

enum class Sampling { Yuv420, Yuv422, Yuv444, Gray };

struct VideoSpec {
    uint32_t streamType = CORVANE_STREAM_H264;    // JPEG, H263, MPEG4, H264 or H265
    int width = 320;                              // pixels, at least kStampWidth; odd only for JPEG and MPEG-4,
                                                  // times of 4 for H.263
    int height = 240;                             // at least kStampHeight
    int frames = 10;
    int gop = 5;                             // pictures from key frame to key frame
    int bFrames = 0;                         // between two others; H.264, H.265 and MPEG-4
    int firstNumber = 0;                     // stamp of the first picture, 0 to 65535
    Sampling sampling = Sampling::Yuv420;    // JPEG: any but Gray; H.264 and H.265: any; MPEG-4: Yuv420
    int bitDepth = 8;                        // 8 or 10; 10 for H.264 and H.265 only
    std::string options = {};                // more for x264 or x265, as "name=value:name=value"
    std::string signal = {};                 // more for libavcodec, as ",colorspace=bt709,color_range=pc"
    bool noVui = false;      // H.264: as most cameras, which do not signal how many pictures change their order
    bool packed = false;     // MPEG-4: a B picture comes with the picture before it, one that is not coded in its place
    bool openGop = false;    // H.264 and H.265: key frames are where the encoder puts them
    bool interlaced = false;    // H.264 and MPEG-4: both fields of a frame in one packet
};

// In decoding order, 40 ms apart. `ptsMs` is the time of presentation from 0; with B-frames it does not rise.
struct EncodedPicture {
    std::vector<uint8_t> bytes;    // Annex B for H.264 and H.265, parameter sets in front of each key frame
    bool key = false;
    int64_t ptsMs = 0;
    int number = 0;    // the picture's stamp
};

std::vector<EncodedPicture> MakeVideo(const VideoSpec& spec);

// Rewrites the sequence parameter set of an H.264 unit, if it has one: without VUI, or with a bitstream_restriction of
// so many reordered frames.
void RewriteVui(Bytes& unit, std::optional<uint32_t> reordered);

// A picture of MPEG-4 that is not coded: the one before it is shown longer, or it came with that.
inline const Bytes kNotCoded = {0, 0, 1, 0xB6, 0x51, 0x4F};

// An extension: the picture is not for display.
inline constexpr uint8_t kNotForDisplay[] = {0, 0, 0, 0, 104, 1, 1};

// `header` with that extension, where it is to be hidden.
inline MediaFrameHeader Hidden(MediaFrameHeader header, bool hidden = true) {
    header.extension = kNotForDisplay;
    header.extensionSize = hidden ? sizeof kNotForDisplay : 0;
    return header;
}

// Another: the vendor tag DAHU.
inline constexpr uint8_t kOtherVendor[] = {0, 0, 0, 0, 105, 4, 'D', 'A', 'H', 'U'};

// Sixteen bits of number and four of check, in blocks of 8 x 8 pixels in the upper left corner.
inline constexpr int kStampBlock = 8;
inline constexpr int kStampWidth = 10 * kStampBlock;
inline constexpr int kStampHeight = 2 * kStampBlock;

// The number in a luma plane of at least kStampWidth x kStampHeight; -1 when there is none.
int ReadStamp(const uint8_t* luma, uint32_t stride);

// A record over `bytes`, which must live as long as it is used. The time goes to the stream clock and the wall clock.
MediaFrameHeader VideoHeader(uint32_t streamType, const std::vector<uint8_t>& bytes, bool key, int64_t timeMs,
                             uint32_t width = 0, uint32_t height = 0);

// The private copy of what VideoHeader describes.
FramePtr MakeFrame(uint32_t streamType, const std::vector<uint8_t>& bytes, bool key, int64_t timeMs, uint32_t width = 0,
                   uint32_t height = 0);

}    // namespace corvane::test
