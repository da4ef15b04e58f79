// Exports of decoder channels.
#include "corvane/corvane.h"
#include "entry/Guard.h"

using corvane::CChannelDecoder;
using corvane::CCorvane_Option;
using corvane::OnChannel;
using corvane::OnChannelWith;
using corvane::OnInstance;
using corvane::Status;

namespace {

// For an export that takes a frame and gives out a record and a size.
template <typename Record, Status (CChannelDecoder::*Decode)(const MediaFrameHeader&, Record&, uint32_t&)>
uint32_t DecodeInto(void* channel, const MediaFrameHeader* frame, Record* record, uint32_t* size) noexcept {
    if (frame == nullptr || record == nullptr || size == nullptr)
        return Status_InvalidArgument;
    return OnChannel<CChannelDecoder>(
        channel, [&](CChannelDecoder& decoder) { return (decoder.*Decode)(*frame, *record, *size); });
}

}    // namespace

extern "C" {

uint32_t Corvane_CreateDecoderChannel(void* instance, void** channel, const DecoderChannelSettings* settings) {
    if (channel == nullptr || settings == nullptr)
        return Status_InvalidArgument;
    return OnInstance(instance, [&](CCorvane_Option& own) { return own.CreateDecoderChannel(channel, *settings); });
}

uint32_t Corvane_DeleteDecoderChannel(void* instance, void** channel) {
    return corvane::DeleteFrom(instance, channel);
}

uint32_t Corvane_DecodeVideo(void* channel, const MediaFrameHeader* frame, DecodedVideoInfo* info, uint32_t* size) {
    return DecodeInto<DecodedVideoInfo, &CChannelDecoder::DecodeVideo>(channel, frame, info, size);
}

uint32_t Corvane_DecodeAudio(void* channel, const MediaFrameHeader* frame, DecodedAudioInfo* info, uint32_t* size) {
    return DecodeInto<DecodedAudioInfo, &CChannelDecoder::DecodeAudio>(channel, frame, info, size);
}

uint32_t Corvane_DecodeVideoDecodeOnly(void* channel, const MediaFrameHeader* frame, DecodedPictureSize* picture,
                                       uint32_t* size) {
    return DecodeInto<DecodedPictureSize, &CChannelDecoder::DecodeVideoOnly>(channel, frame, picture, size);
}

uint32_t Corvane_GetDecodedVideoFrame(void* channel, uint32_t, DecodedVideoInfo* info, uint32_t format, uint32_t prefix,
                                      uint32_t* size) {
    if (info == nullptr || size == nullptr)
        return Status_InvalidArgument;
    return OnChannel<CChannelDecoder>(
        channel, [&](CChannelDecoder& decoder) { return decoder.GetDecodedVideoFrame(format, prefix, *info, *size); });
}

uint32_t Corvane_InputToBeDecodedMediaFrame(void* channel, const MediaFrameHeader* frame) {
    return OnChannelWith<CChannelDecoder>(channel, frame,
                                          [&](CChannelDecoder& decoder) { return decoder.Input(*frame); });
}

uint32_t Corvane_SetDecodeSize(void* channel, uint32_t width, uint32_t height) {
    if (width == 0 || height == 0)
        return Status_InvalidArgument;
    return OnChannel<CChannelDecoder>(channel, [&](CChannelDecoder& decoder) {
        decoder.SetDecodeSize({width, height});
    });
}

}    // extern "C"
