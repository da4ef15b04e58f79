#include <corvane/bitpacker.h>
#include <corvane/corvane.h>
#include <corvane/decoder.h>
#include <corvane/filter.h>
#include <corvane/jpegenc.h>

#include <cstddef>

// The layouts that clients were built with.
static_assert(sizeof(MediaFrameHeader) == 264 && offsetof(MediaFrameHeader, detail) == 84 &&
              offsetof(MediaFrameHeader, reservedTail) == 112 && offsetof(MediaFrameHeader, extension) == 120 &&
              offsetof(MediaFrameHeader, references) == 136 && offsetof(MediaFrameHeader, pictureWidth) == 152 &&
              offsetof(MediaFrameHeader, daylight) == 180 && offsetof(MediaFrameHeader, captureWidth) == 204 &&
              offsetof(MediaFrameHeader, motionInfo) == 224 && offsetof(MediaFrameHeader, objects) == 256);
static_assert(sizeof(ObjectRecord) == 32 && offsetof(ObjectRecord, corner) == 14);
static_assert(sizeof(FrameTimeRecord) == 12 && sizeof(MotionEntry) == 8 && sizeof(FisheyeInfo) == 8);
static_assert(sizeof(ChannelSettings) == 136 && offsetof(ChannelSettings, volume) == 40 &&
              offsetof(ChannelSettings, logo) == 64 && offsetof(ChannelSettings, window) == 80 &&
              offsetof(ChannelSettings, presentEnabled) == 92 && offsetof(ChannelSettings, border) == 116);
static_assert(sizeof(ChannelUpdate) == 48 && offsetof(ChannelUpdate, fullWindow) == 16 &&
              offsetof(ChannelUpdate, window) == 40);
static_assert(sizeof(ChannelStatistics) == 328 && offsetof(ChannelStatistics, lastCauseAgo) == 16 &&
              offsetof(ChannelStatistics, unitsWithoutDecoder) == 96 &&
              offsetof(ChannelStatistics, picturesPut) == 184 && offsetof(ChannelStatistics, queueFrames) == 224 &&
              offsetof(ChannelStatistics, age95) == 264 && offsetof(ChannelStatistics, soundHeard) == 296);
static_assert(sizeof(QueueState) == 16 && offsetof(QueueState, state) == 12);
static_assert(sizeof(DisplayArea) == 88 && offsetof(DisplayArea, overview) == 8 && offsetof(DisplayArea, zoom) == 48 &&
              offsetof(DisplayArea, zoomEnabled) == 80);
static_assert(sizeof(PseudoFrame) == 64 && offsetof(PseudoFrame, width) == 32 && offsetof(PseudoFrame, data) == 40 &&
              offsetof(PseudoFrame, header) == 56);
static_assert(sizeof(RawPictureInfo) == 240 && offsetof(RawPictureInfo, pixels) == 16 &&
              offsetof(RawPictureInfo, header) == 40 && offsetof(RawPictureInfo, count) == 160 &&
              offsetof(RawPictureInfo, repeat) == 172);
static_assert(sizeof(AfterDisplayRecord) == 40 && offsetof(AfterDisplayRecord, presentTime) == 16);
