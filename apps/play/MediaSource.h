// Reads one video stream of a file or URL as whole encoded pictures, and its sound: start codes in front of units,
// parameter sets joined to their picture, decoding-order times that rise.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

struct SoundFormat {
    uint32_t type = 0;    // CORVANE_STREAM_*; 0: none
    uint32_t rate = 0;    // samples per second
    uint8_t channels = 0;
    uint32_t bitRate = 0;                 // of G.726, bits per second
    bool mostSignificantFirst = false;    // codes of G.726 in their bytes
};

struct EncodedPicture {
    const uint8_t* data;
    uint32_t size;    // bytes
    bool key;
    int64_t timeMs;       // rises, from 0; of sound by itself
    SoundFormat sound;    // of a frame of sound; type 0 of a picture
};

class MediaSource {
public:
    // Null with the reason in `error`.
    static std::unique_ptr<MediaSource> Open(const std::string& url, std::string& error);
    virtual ~MediaSource() = default;

    virtual uint32_t StreamType() const = 0;    // CORVANE_STREAM_*
    virtual uint32_t Width() const = 0;         // pixels
    virtual uint32_t Height() const = 0;
    virtual double PixelAspect() const = 0;    // width of a pixel over its height
    // The bytes in front of each payload (MediaFrameHeader.headerSize): none, or the mark of interlaced pictures, where
    // the container signals them. MPEG-4 and JPEG streams contain a mark of their own.
    virtual std::span<const uint8_t> FrameHeader() const = 0;
    virtual double DurationSeconds() const = 0;    // 0 when unknown
    virtual const char* CodecName() const = 0;
    // The codec of sound that is not played, since the library has no decoder for it; empty where all is well.
    virtual std::string SilentCodecName() const = 0;
    virtual int64_t WallStartSeconds()
        const = 0;    // of the first picture, since 1970 UTC; 0 when the stream does not say

    // The next picture or frame of sound, valid until the next call. False at the end.
    virtual bool Next(EncodedPicture& picture) = 0;
    // Goes back to the start; times go on rising. False where the source cannot do it.
    virtual bool Rewind() = 0;
};
