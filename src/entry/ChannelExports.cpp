// Exports of channels that carry a stream.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "corvane/corvane.h"
#include "entry/Guard.h"

using corvane::CAVIChannel;
using corvane::CChannelDecoder;
using corvane::CCorvane_Option;
using corvane::CRenderMgr;
using corvane::OnChannel;
using corvane::OnChannelWith;
using corvane::OnInstance;
using corvane::OnStream;
using corvane::PlainObjectOf;
using corvane::PresentSettings;
using corvane::Status;
using corvane::StreamChannel;
using QMRX::Filter::IFilter;

namespace {

template <typename Body>
uint32_t OnStreamWith(void* channel, const void* required, Body&& body) noexcept {
    return OnChannelWith<StreamChannel>(channel, required, std::forward<Body>(body));
}

// What makes the pictures of a channel.
CRenderMgr& PicturesOf(StreamChannel& channel) {
    return channel.Render();
}
CChannelDecoder& PicturesOf(CChannelDecoder& channel) {
    return channel;
}

uint32_t TakeSnapshot(void* channel, PictureBuffer* picture, uint32_t flags, bool zoomed) noexcept {
    return OnStreamWith(channel, picture, [&](StreamChannel& stream) {
        if ((flags & CORVANE_STILL_CALLERS_BUFFER) == 0)
            picture->data = nullptr;
        else if (picture->data == nullptr)
            return Status::InvalidArgument;
        if ((flags & CORVANE_STILL_ENCODED) != 0)
            return stream.Stills().CopyEncodedFrame(*picture);
        if ((flags & CORVANE_STILL_FORMAT) != 0)
            return stream.Stills().Snapshot(flags >> 16, zoomed, *picture);
        if ((flags & CORVANE_STILL_BMP24) != 0)
            return stream.Stills().Snapshot(CORVANE_PICTURE_BMP_BGR24, zoomed, *picture);
        return stream.Stills().GrabWindow(*picture);
    });
}

uint32_t DrawDisplay(void* channel, struct _cairo* deviceContext, DisplayFrameInfo* info, bool zoomed) noexcept {
    if (info == nullptr)
        return Status_InvalidArgument;
    return OnStreamWith(channel, deviceContext,
                        [&](StreamChannel& stream) { return stream.Stills().Display(deviceContext, zoomed, *info); });
}

// The pixel format for `kind` of Corvane_RegisterRawDataCallback; 0 for an unknown kind.
uint32_t FormatOfKind(uint32_t kind, bool bottomUp) {
    switch (kind) {
    case CORVANE_PICTURE_BGR24:
        return bottomUp ? PF_BGR24_FLIP : PF_BGR24;
    case CORVANE_PICTURE_BGRA32:
        return bottomUp ? PF_BGRA32_FLIP : PF_BGRA32;
    case CORVANE_PICTURE_I420:
        return PF_I420;
    default:
        return 0;
    }
}

}    // namespace

extern "C" {

uint32_t Corvane_CreateChannel(void* instance, void** channel, const ChannelSettings* settings) {
    if (channel == nullptr)
        return Status_InvalidArgument;
    return OnInstance(instance, [&](CCorvane_Option& own) { return own.CreateChannel(channel, settings); });
}

uint32_t Corvane_DeleteChannel(void* instance, void** channel) {
    return corvane::DeleteFrom(instance, channel);
}

uint32_t Corvane_StartChannel(void* channel, uint32_t options) {
    return OnStream(channel,
                    [&](StreamChannel& stream) { return stream.Start((options & CORVANE_START_WAITING) != 0); });
}

uint32_t Corvane_StopChannel(void* channel) {
    return OnStream(channel, [](StreamChannel& stream) { return stream.Stop(); });
}

uint32_t Corvane_InputEncodedMediaFrame(void* channel, const MediaFrameHeader* frame) {
    return OnStreamWith(channel, frame, [&](StreamChannel& stream) { return stream.Input(*frame); });
}

uint32_t Corvane_UpdateChannelSettings(void* channel, const ChannelUpdate* update) {
    return OnStreamWith(channel, update, [&](StreamChannel& stream) { return stream.Update(*update); });
}

uint32_t Corvane_SetChannelOption(void* channel, int32_t id, uint64_t value, uint64_t extra) {
    return OnChannel<StreamChannel, CChannelDecoder, CAVIChannel>(
        channel, [&](auto& target) { return target.SetOption(id, value, extra); });
}

uint32_t Corvane_SetBufferTime(void* channel, uint32_t milliseconds) {
    return OnStream(channel, [&](StreamChannel& stream) { stream.SetBufferTime(milliseconds); });
}

uint32_t Corvane_SetDisplayMode(void* channel, uint32_t mode) {
    return OnStream(channel, [&](StreamChannel& stream) { stream.SetDisplayMode(mode); });
}

uint32_t Corvane_GetRemainingQueueElementCount(void* channel, QueueState* state) {
    return OnStreamWith(channel, state, [&](StreamChannel& stream) {
        *state = QueueState{};
        state->state = stream.IsBuffering() ? CORVANE_QUEUE_BUFFERING : CORVANE_QUEUE_PLAYING;
    });
}

uint32_t Corvane_GetChannelStatistics(void* channel, ChannelStatistics* statistics) {
    return OnChannelWith<StreamChannel, CChannelDecoder>(channel, statistics, [&](auto& target) {
        const uint32_t room = statistics->recordSize;
        if (room < sizeof room)
            return Status::InvalidArgument;
        ChannelStatistics whole{};
        whole.recordSize = std::min<uint32_t>(room, sizeof whole);
        target.GetStatistics(whole);
        std::memcpy(statistics, &whole, whole.recordSize);
        return Status::Ok;
    });
}

uint32_t Corvane_RegisterRawDataCallback(void* channel, CorvanePictureCallback callback, void* context, uint32_t kind,
                                         uint32_t bottomUp) {
    if (channel == nullptr)
        return Status_InvalidArgument;
    const uint32_t format = FormatOfKind(kind, bottomUp != 0);
    if (format == 0)
        return Status_NotSupported;
    return OnStream(channel, [&](StreamChannel& stream) {
        stream.Render().SetPictureCallback({callback, context}, format);
    });
}

uint32_t Corvane_SetRawDataCallbackSize(void* channel, uint32_t width, uint32_t height) {
    return OnStream(channel, [&](StreamChannel& stream) { stream.Render().SetRawDataCallbackSize(width, height); });
}

uint32_t Corvane_RegisterAfterDisplayCallback(void* channel, CorvaneAfterDisplayCallback callback, void* context) {
    if (callback == nullptr)
        return Status_InvalidArgument;
    return OnStream(channel, [&](StreamChannel& stream) {
        stream.Render().SetCallback(&PresentSettings::afterDisplay, {callback, context});
    });
}

uint32_t Corvane_UnregisterAfterDisplayCallback(void* channel) {
    return OnStream(channel,
                    [](StreamChannel& stream) { stream.Render().SetCallback(&PresentSettings::afterDisplay, {}); });
}

uint32_t Corvane_GetCurrentSnapShot(void* channel, PictureBuffer* picture, uint32_t flags) {
    return TakeSnapshot(channel, picture, flags, false);
}

uint32_t Corvane_GetZoomedSnapShot(void* channel, PictureBuffer* picture, uint32_t flags) {
    return TakeSnapshot(channel, picture, flags, true);
}

uint32_t Corvane_GetCurrentDisplay(void* channel, struct _cairo* deviceContext, DisplayFrameInfo* info) {
    return DrawDisplay(channel, deviceContext, info, false);
}

uint32_t Corvane_GetZoomedDisplay(void* channel, struct _cairo* deviceContext, DisplayFrameInfo* info) {
    return DrawDisplay(channel, deviceContext, info, true);
}

uint32_t Corvane_FreePicture(PictureBuffer* picture) {
    if (picture == nullptr)
        return Status_InvalidArgument;
    std::free(std::exchange(picture->data, nullptr));
    return Status_Ok;
}

uint32_t Corvane_InsertFilter(void* channel, void* filter) {
    return OnChannelWith<StreamChannel, CChannelDecoder>(
        channel, filter, [&](auto& target) { return PicturesOf(target).InsertFilter(PlainObjectOf<IFilter>(filter)); });
}

uint32_t Corvane_RemoveFilter(void* channel, void* filter) {
    return OnChannelWith<StreamChannel, CChannelDecoder>(
        channel, filter, [&](auto& target) { PicturesOf(target).RemoveFilter(PlainObjectOf<IFilter>(filter)); });
}

uint32_t Corvane_EnableRotateFilter(void* channel, double angle) {
    if (!std::isfinite(angle))
        return Status_InvalidArgument;
    return OnStream(channel, [&](StreamChannel& stream) { return stream.Render().EnableRotateFilter(angle); });
}

uint32_t Corvane_SetRotateOption(void* channel, double angle) {
    if (!std::isfinite(angle))
        return Status_InvalidArgument;
    return OnStream(channel, [&](StreamChannel& stream) { return stream.Render().SetRotateOption(angle); });
}

uint32_t Corvane_DisableRotateFilter(void* channel) {
    return OnStream(channel, [](StreamChannel& stream) { stream.Render().DisableRotateFilter(); });
}

}    // extern "C"
