// Every export with a channel or an instance as a call of one form. A call ends with the first status that is not Ok.
#pragma once

#include <iterator>

#include "corvane/corvane.h"
#include "corvane/filter.h"

namespace corvane::test {

struct PassFilter final : QMRX::Filter::IFilter {
    int32_t Process(QMRX::Filter::FilterArgs*) override { return 0; }
};
inline PassFilter passFilter;

struct Call {
    const char* name;
    uint32_t (*call)(void* instance, void* channel);
    bool ofChannel = true;         // needs a live channel
    uint32_t onOwn = Status_Ok;    // from a callback of that channel
    uint32_t onOther = onOwn;      // from a callback of another
};

inline uint32_t FirstFailure(std::initializer_list<uint32_t> statuses) {
    for (const uint32_t status : statuses)
        if (status != Status_Ok)
            return status;
    return Status_Ok;
}

inline const Call kCalls[] = {
    {"Initial and Release of another instance",
     [](void*, void*) {
         void *instance = nullptr, *channel = nullptr;
         return FirstFailure({Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0),
                              Corvane_CreateChannel(instance, &channel, nullptr), Corvane_StartChannel(channel, 0),
                              Corvane_Release(&instance)});
     },
     false},
    {"Release", [](void* instance, void*) { return Corvane_Release(&instance); }, false, Status_Failed},
    {"GetVersionInfo",
     [](void*, void*) {
         uint8_t v[4];
         return Corvane_GetVersionInfo(&v[0], &v[1], &v[2], &v[3]);
     },
     false},
    {"SetFlags", [](void* i, void*) { return Corvane_SetFlags(i); }, false},
    {"GetFlags", [](void* i, void*) { return Corvane_GetFlags(i); }, false},
    {"GetCapabilities", [](void* i, void*) { return Corvane_GetCapabilities(i); }, false},
    {"SetQueueEmptyNotify", [](void*, void* c) { return Corvane_SetQueueEmptyNotify(c); }, false, Status_NotSupported},
    {"RegisterVAStreamInfoCallback", [](void*, void* c) { return Corvane_RegisterVAStreamInfoCallback(c); }, false,
     Status_NotSupported},
    {"SetVAStreamEffectParam", [](void*, void* c) { return Corvane_SetVAStreamEffectParam(c); }, false,
     Status_NotSupported},
    {"GetAvgAudioVolume", [](void*, void* c) { return Corvane_GetAvgAudioVolume(c); }, false, Status_NotSupported},
    {"SetAudioSamplesPerCalc", [](void*, void* c) { return Corvane_SetAudioSamplesPerCalc(c); }, false,
     Status_NotSupported},
    {"CreateChannel",
     [](void* instance, void*) {
         void* made = nullptr;
         return Corvane_CreateChannel(instance, &made, nullptr);
     },
     false},
    {"DeleteChannel", [](void* instance, void* c) { return Corvane_DeleteChannel(instance, &c); }, false, Status_Failed,
     Status_Ok},
    {"StartChannel", [](void*, void* c) { return Corvane_StartChannel(c, 1); }},
    {"StopChannel", [](void*, void* c) { return Corvane_StopChannel(c); }, true, Status_Failed, Status_Ok},
    {"InputEncodedMediaFrame",
     [](void*, void* c) {
         MediaFrameHeader frame{};
         frame.recordSize = sizeof frame;
         frame.streamType = CORVANE_STREAM_METADATA_XML;
         Corvane_SetChannelOption(c, 42, 0, 0);    // even where a full queue blocks
         uint32_t status = Status_Ok;
         for (int i = 0; i < 2000 && status == Status_Ok; ++i)
             status = Corvane_InputEncodedMediaFrame(c, &frame);
         Corvane_SetChannelOption(c, 31, 0, 0);
         Corvane_SetChannelOption(c, 42, 1, 0);
         return status == Status_QueueFull ? Status_Ok : status;
     }},
    {"UpdateChannelSettings",
     [](void*, void* c) {
         ChannelUpdate update{};
         update.mask = 0x3FFF & ~0x0041u;
         update.window = 1;
         return Corvane_UpdateChannelSettings(c, &update);
     }},
    {"SetChannelOption",
     [](void*, void* c) {
         DisplayArea area{};
         uint32_t status = Corvane_SetChannelOption(c, 11, reinterpret_cast<uint64_t>(&area), 32);
         for (const int32_t id : {3, 7, 8, 9, 10, 13, 26, 31, 35, 45, 46, 47, 48, 52, 53, 55, 57})
             status = FirstFailure({status, Corvane_SetChannelOption(c, id, id == 13 ? 3 : 0, 0)});
         return status;
     }},
    {"SetBufferTime", [](void*, void* c) { return Corvane_SetBufferTime(c, 1); }},
    {"SetDisplayMode", [](void*, void* c) { return Corvane_SetDisplayMode(c, 0); }},
    {"GetRemainingQueueElementCount",
     [](void*, void* c) {
         QueueState state;
         return Corvane_GetRemainingQueueElementCount(c, &state);
     }},
    {"RegisterRawDataCallback",
     [](void*, void* c) {
         return Corvane_RegisterRawDataCallback(c, [](void*, const PseudoFrame*) {}, nullptr, 4, 0);
     }},
    {"SetRawDataCallbackSize", [](void*, void* c) { return Corvane_SetRawDataCallbackSize(c, 64, 64); }},
    {"RegisterAfterDisplayCallback",
     [](void*, void* c) {
         return Corvane_RegisterAfterDisplayCallback(c, [](void*, const AfterDisplayRecord*) {}, nullptr);
     }},
    {"UnregisterAfterDisplayCallback", [](void*, void* c) { return Corvane_UnregisterAfterDisplayCallback(c); }},
    {"GetCurrentSnapShot",
     [](void*, void* c) {
         PictureBuffer picture{};
         const uint32_t status = Corvane_GetCurrentSnapShot(c, &picture, 0);
         Corvane_FreePicture(&picture);
         return status == Status_Failed ? Status_Ok : status;    // whether there is a window depends on the place
     }},
    {"InsertFilter",
     [](void*, void* c) {
         const uint32_t status = Corvane_InsertFilter(c, &passFilter);
         Corvane_RemoveFilter(c, &passFilter);
         return status;
     }},
    {"RemoveFilter", [](void*, void* c) { return Corvane_RemoveFilter(c, &passFilter); }},
    {"EnableRotateFilter", [](void*, void* c) { return Corvane_EnableRotateFilter(c, 3); }},
    {"SetRotateOption", [](void*, void* c) { return Corvane_SetRotateOption(c, 3); }, true, Status_Failed},
    {"DisableRotateFilter", [](void*, void* c) { return Corvane_DisableRotateFilter(c); }},
};

}    // namespace corvane::test
