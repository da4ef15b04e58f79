// Every export of corvane.h as a call of one form, with the kind of handle that it accepts. A call ends with the first
// status that is not Ok.
#pragma once

#include <cairo.h>

#include "corvane/corvane.h"
#include "corvane/filter.h"
#include "support/Client.h"
#include "support/Testing.h"

namespace corvane::test {

// Kinds of handles that an export accepts, as bits; kAnything looks at none.
enum Accepts : uint32_t {
    kAnything = 0,
    kInstance = 1,
    kStream = 2,
    kDecoder = 4,
    kAvi = 8,
    kChannels = kStream | kDecoder | kAvi
};

struct Call {
    const char* name;    // of the export, without its prefix
    uint32_t accepts;
    std::function<uint32_t(void* instance, void* channel)> call;
    uint32_t onOwn = Status_Ok;    // from a callback of that channel
    uint32_t onOther = onOwn;      // from a callback of another
    uint32_t onDecoder = onOwn;    // from a callback of that channel, of decoded data
};

// An export with a handle and more arguments.
template <typename Export, typename... Arguments>
Call OnChannel(const char* name, Export function, Arguments... arguments) {
    return {name, kStream, [=](void*, void* channel) { return function(channel, arguments...); }};
}
// One that takes decoder channels too.
template <typename... Arguments>
Call OnEither(Arguments... arguments) {
    Call call = OnChannel(arguments...);
    call.accepts = kStream | kDecoder;
    return call;
}
// One that takes decoder channels alone.
template <typename... Arguments>
Call OnDecoder(uint32_t inside, Arguments... arguments) {
    Call call = OnChannel(arguments...);
    call.accepts = kDecoder;
    call.onOwn = call.onOther = Status_WrongChannelType;
    call.onDecoder = inside;
    return call;
}
// An export that looks at nothing that it is given.
inline Call Fixed(const char* name, uint32_t (*function)(void*, ...), uint32_t status) {
    return {name, kAnything, [=](void* instance, void*) { return function(instance); }, status};
}
inline uint32_t FirstFailure(std::initializer_list<uint32_t> statuses) {
    for (const uint32_t status : statuses)
        if (status != Status_Ok)
            return status;
    return Status_Ok;
}

// One that takes every channel.
template <typename... Arguments>
Call OnAny(Arguments... arguments) {
    Call call = OnChannel(arguments...);
    call.accepts = kChannels;
    return call;
}
// One that takes AVI channels alone.
template <typename... Arguments>
Call OnAvi(Arguments... arguments) {
    Call call = OnChannel(arguments...);
    call.accepts = kAvi;
    call.onOwn = call.onOther = call.onDecoder = Status_WrongChannelType;
    return call;
}
// One that needs a side library, which the tests of all calls do not have.
template <typename Export, typename... Arguments>
Call OnModule(const char* name, Export function, Arguments... arguments) {
    return {name, kInstance, [=](void* instance, void*) { return function(instance, arguments...); },
            Status_WrongChannelType};
}

template <typename Initial, typename... Background>
uint32_t AnotherInstance(Initial initial, Background... background) {
    void *instance = nullptr, *channel = nullptr;
    return FirstFailure({initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0, background...),
                         Corvane_CreateChannel(instance, &channel, nullptr), Corvane_StartChannel(channel, 0),
                         Corvane_Release(&instance)});
}

inline uint32_t AnotherChannel(void* instance, void*) {
    void* made = nullptr;
    return Corvane_CreateChannel(instance, &made, nullptr);
}

inline uint32_t AnotherDecoder(void* instance, void*) {
    void* made = nullptr;
    const DecoderChannelSettings settings{.format = CORVANE_PICTURE_I420};
    return Corvane_CreateDecoderChannel(instance, &made, &settings);
}

// Feeds more than a queue takes, also where a full queue blocks.
inline uint32_t Flood(void* channel) {
    const MediaFrameHeader frame{.streamType = CORVANE_STREAM_METADATA_XML, .recordSize = sizeof frame};
    Corvane_SetChannelOption(channel, 42, 0, 0);
    uint32_t status = Status_Ok;
    for (int i = 0; i < 2000 && status == Status_Ok; ++i)
        status = Corvane_InputEncodedMediaFrame(channel, &frame);
    Corvane_SetChannelOption(channel, 31, 0, 0);
    Corvane_SetChannelOption(channel, 42, 1, 0);
    return status == Status_QueueFull ? Status_Ok : status;
}

inline uint32_t EveryOption(void* channel) {
    DisplayArea area{};
    uint32_t status = Corvane_SetChannelOption(channel, 11, reinterpret_cast<uint64_t>(&area), 32);
    if (status == Status_NotSupported)    // a decoder channel
        return Corvane_SetChannelOption(channel, 16, CORVANE_PICTURE_I420, 0);
    for (const int32_t id : {3, 6, 7, 8, 9, 10, 13, 14, 15, 16, 17, 18, 22, 26, 31, 35, 45, 46, 47, 48, 52, 53, 55, 57})
        status = FirstFailure({status, Corvane_SetChannelOption(channel, id, id == 13 ? 3 : 0, 0)});
    return status;
}

// Whether there is a window or a picture depends on the place.
template <uint32_t (*kSnap)(void*, PictureBuffer*, uint32_t)>
uint32_t Snapshot(void* channel) {
    for (const uint32_t flags : {0u, 1u, 2u, 0x80004u}) {
        PictureBuffer picture{};
        const uint32_t status = kSnap(channel, &picture, flags);
        Corvane_FreePicture(&picture);
        if (status != Status_Ok && status != Status_Failed)
            return status;
    }
    return Status_Ok;
}
template <uint32_t (*kDraw)(void*, struct _cairo*, DisplayFrameInfo*)>
uint32_t Display(void* channel) {
    cairo_surface_t* const surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 32, 16);
    cairo_t* const context = cairo_create(surface);
    DisplayFrameInfo info{};
    const uint32_t status = kDraw(channel, context, &info);
    cairo_destroy(context);
    cairo_surface_destroy(surface);
    return status == Status_Failed ? Status_Ok : status;
}

inline std::vector<Call> Calls() {
    struct PassFilter final : QMRX::Filter::IFilter {
        int32_t Process(QMRX::Filter::FilterArgs*) override { return 0; }
    };
    static PassFilter pass, other;
    static QueueState state;
    static ChannelStatistics statistics{.recordSize = sizeof statistics};
    static ChannelUpdate update{.mask = 0x3FFF & ~0x0041u, .window = 1};
    static uint8_t version[4], bytes[24'576];
    static const Bytes jpeg = OneJpeg();
    static const MediaFrameHeader video = VideoHeader(kJpeg, jpeg, true, 0);
    static const MediaFrameHeader sound{.data = bytes,
                                        .payloadSize = 160,
                                        .streamType = CORVANE_STREAM_MULAW,
                                        .audioSampleRate = 8000,
                                        .audioChannels = 1,
                                        .recordSize = sizeof sound};
    static DecodedVideoInfo picture{.capacity = sizeof bytes, .buffer = bytes};
    static DecodedAudioInfo samples{.capacity = sizeof bytes, .pcm = bytes};
    static DecodedPictureSize pictureSize;
    static uint32_t size;
    static void* made;
    const CorvanePictureCallback onPicture = [](void*, const PseudoFrame*) {};
    const CorvaneAfterDisplayCallback onDisplay = [](void*, const AfterDisplayRecord*) {};
    const auto deleted = [](void* instance, void* channel) { return Corvane_DeleteChannel(instance, &channel); };
    const auto decoderDeleted = [](void* instance, void* channel) {
        return Corvane_DeleteDecoderChannel(instance, &channel);
    };
    const auto released = [](void* instance, void*) { return Corvane_Release(&instance); };
    const auto freed = [](void*, void*) {
        PictureBuffer none{};
        return Corvane_FreePicture(&none);
    };
    const auto filtered = [](void* channel) {
        const uint32_t status = Corvane_InsertFilter(channel, &pass);
        Corvane_RemoveFilter(channel, &pass);
        return status;
    };
    return {
        {"Initial", kAnything, [](void*, void*) { return AnotherInstance(&Corvane_Initial); }},
        {"InitialEx", kAnything, [](void*, void*) { return AnotherInstance(&Corvane_InitialEx, 0); }},
        {"Release", kInstance, released, Status_Failed},
        {"LoadDecoders", kInstance, [](void* instance, void*) { return Corvane_LoadDecoders(instance, "/no/folder"); }},
        {"GetVersionInfo", kAnything,
         [](auto...) { return Corvane_GetVersionInfo(version, version, version, version); }},
        Fixed("SetFlags", &Corvane_SetFlags, Status_Ok),
        Fixed("GetFlags", &Corvane_GetFlags, Status_Ok),
        Fixed("GetCapabilities", &Corvane_GetCapabilities, Status_Ok),
        Fixed("SetQueueEmptyNotify", &Corvane_SetQueueEmptyNotify, Status_NotSupported),
        Fixed("RegisterVAStreamInfoCallback", &Corvane_RegisterVAStreamInfoCallback, Status_NotSupported),
        Fixed("SetVAStreamEffectParam", &Corvane_SetVAStreamEffectParam, Status_NotSupported),
        Fixed("GetAvgAudioVolume", &Corvane_GetAvgAudioVolume, Status_NotSupported),
        Fixed("SetAudioSamplesPerCalc", &Corvane_SetAudioSamplesPerCalc, Status_NotSupported),
        {"CreateChannel", kInstance, &AnotherChannel},
        {"DeleteChannel", kInstance, deleted, Status_Failed, Status_Ok},
        OnChannel("StartChannel", &Corvane_StartChannel, 1),
        {"StopChannel", kStream, [](void*, void* c) { return Corvane_StopChannel(c); }, Status_Failed, Status_Ok},
        OnChannel("InputEncodedMediaFrame", &Flood),
        OnChannel("UpdateChannelSettings", &Corvane_UpdateChannelSettings, &update),
        OnAny("SetChannelOption", &EveryOption),
        OnChannel("SetBufferTime", &Corvane_SetBufferTime, 1),
        OnChannel("SetDisplayMode", &Corvane_SetDisplayMode, 0),
        OnChannel("GetRemainingQueueElementCount", &Corvane_GetRemainingQueueElementCount, &state),
        OnEither("GetChannelStatistics", &Corvane_GetChannelStatistics, &statistics),
        OnChannel("RegisterRawDataCallback", &Corvane_RegisterRawDataCallback, onPicture, nullptr, 4, 0),
        OnChannel("SetRawDataCallbackSize", &Corvane_SetRawDataCallbackSize, 64, 64),
        OnChannel("RegisterAfterDisplayCallback", &Corvane_RegisterAfterDisplayCallback, onDisplay, nullptr),
        OnChannel("UnregisterAfterDisplayCallback", &Corvane_UnregisterAfterDisplayCallback),
        OnChannel("GetCurrentSnapShot", &Snapshot<&Corvane_GetCurrentSnapShot>),
        OnChannel("GetZoomedSnapShot", &Snapshot<&Corvane_GetZoomedSnapShot>),
        OnChannel("GetCurrentDisplay", &Display<&Corvane_GetCurrentDisplay>),
        OnChannel("GetZoomedDisplay", &Display<&Corvane_GetZoomedDisplay>),
        {"FreePicture", kAnything, freed},
        OnEither("InsertFilter", filtered),
        OnEither("RemoveFilter", &Corvane_RemoveFilter, &other),
        OnChannel("EnableRotateFilter", &Corvane_EnableRotateFilter, 3.0),
        {"SetRotateOption", kStream, [](void*, void* c) { return Corvane_SetRotateOption(c, 3); }, Status_Failed},
        OnChannel("DisableRotateFilter", &Corvane_DisableRotateFilter),
        {"CreateDecoderChannel", kInstance, &AnotherDecoder},
        {"DeleteDecoderChannel", kInstance, decoderDeleted, Status_Failed, Status_Ok},
        OnDecoder(Status_Failed, "DecodeVideo", &Corvane_DecodeVideo, &video, &picture, &size),
        OnDecoder(Status_Failed, "DecodeAudio", &Corvane_DecodeAudio, &sound, &samples, &size),
        OnDecoder(Status_Failed, "DecodeVideoDecodeOnly", &Corvane_DecodeVideoDecodeOnly, &video, &pictureSize, &size),
        OnDecoder(Status_Failed, "GetDecodedVideoFrame", &Corvane_GetDecodedVideoFrame, 0, &picture, 11, 0, &size),
        OnDecoder(Status_Failed, "InputToBeDecodedMediaFrame", &Corvane_InputToBeDecodedMediaFrame, &video),
        OnDecoder(Status_Ok, "SetDecodeSize", &Corvane_SetDecodeSize, 32, 32),
        OnModule("CreateAVIChannel", &Corvane_CreateAVIChannel, &made),
        OnModule("CreateLiveAVIChannel", &Corvane_CreateLiveAVIChannel, &made),
        OnModule("DeleteAVIChannel", &Corvane_DeleteAVIChannel, &made),
        OnAvi("StartAVIChannel", &Corvane_StartAVIChannel, 0),
        OnAvi("StopAVIChannel", &Corvane_StopAVIChannel),
        OnAvi("InputAVIMedia", &Corvane_InputAVIMedia, 0),
        OnAvi("InputDecodedAVIMedia", &Corvane_InputDecodedAVIMedia, 1, 0),
        OnAvi("GetCurrentAVIFileSize", &Corvane_GetCurrentAVIFileSize, 0),
        OnModule("ChooseVideoCompressor", &Corvane_ChooseVideoCompressor, 0, 0, 0),
        OnModule("ChooseAudioCompressor", &Corvane_ChooseAudioCompressor, 0, 0, 0),
        OnModule("SetVideoCompressorParam", &Corvane_SetVideoCompressorParam, 0),
        OnModule("GetVideoCompressorParam", &Corvane_GetVideoCompressorParam, 0),
        OnModule("SetAudioCompressorParam", &Corvane_SetAudioCompressorParam, 0),
        OnModule("GetAudioCompressorParam", &Corvane_GetAudioCompressorParam, 0),
        OnAvi("ChooseChannelVideoCompressor", &Corvane_ChooseChannelVideoCompressor, 0, 0, 0),
        OnAvi("ChooseChannelAudioCompressor", &Corvane_ChooseChannelAudioCompressor, 0, 0, 0),
        OnAvi("SetChannelVideoCompressorParam", &Corvane_SetChannelVideoCompressorParam, 0),
        OnAvi("GetChannelVideoCompressorParam", &Corvane_GetChannelVideoCompressorParam, 0),
        OnAvi("SetChannelAudioCompressorParam", &Corvane_SetChannelAudioCompressorParam, 0),
        OnAvi("GetChannelAudioCompressorParam", &Corvane_GetChannelAudioCompressorParam, 0),
    };
}

}    // namespace corvane::test
