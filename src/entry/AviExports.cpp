// Exports of AVI channels.
#include "corvane/corvane.h"
#include "entry/AviModule.h"
#include "entry/Guard.h"

using corvane::AviFunctionTable;
using corvane::AviModule;
using corvane::CAVIChannel;
using corvane::CCorvane_Option;
using corvane::OnChannel;
using corvane::OnInstance;
using corvane::Status;

namespace {

// Status::WrongChannelType where the instance has no library to record with.
template <typename Body>
uint32_t OnModule(void* instance, Body&& body) noexcept {
    return OnInstance(instance, [&](CCorvane_Option& own) {
        const std::shared_ptr<AviModule> module = own.Avi();
        return module == nullptr ? Status::WrongChannelType : body(*module);
    });
}

template <auto kFunction, typename... Arguments>
uint32_t CallModule(void* instance, Arguments... arguments) noexcept {
    return OnModule(instance, [&](AviModule& module) { return module.Call<kFunction>(arguments...); });
}

template <auto kFunction, typename... Arguments>
uint32_t CallChannel(void* channel, Arguments... arguments) noexcept {
    return OnChannel<CAVIChannel>(channel, [&](CAVIChannel& avi) { return avi.Call<kFunction>(arguments...); });
}

uint32_t Create(void* instance, void** channel, bool live) noexcept {
    if (channel == nullptr)
        return Status_InvalidArgument;
    return OnModule(instance, [&](AviModule& module) { return module.Create(live, channel); });
}

}    // namespace

extern "C" {

uint32_t Corvane_CreateAVIChannel(void* instance, void** channel) {
    return Create(instance, channel, false);
}

uint32_t Corvane_CreateLiveAVIChannel(void* instance, void** channel) {
    return Create(instance, channel, true);
}

uint32_t Corvane_DeleteAVIChannel(void* instance, void** channel) {
    if (channel == nullptr)
        return Status_InvalidArgument;
    return OnInstance(instance, [&](CCorvane_Option& own) {
        CORVANE_RETURN_IF_FAILED(own.DeleteAvi(*channel));
        *channel = nullptr;
        return Status::Ok;
    });
}

uint32_t Corvane_StartAVIChannel(void* channel, uint64_t value) {
    return CallChannel<&AviFunctionTable::Movarix_StartChannel>(channel, value);
}

uint32_t Corvane_StopAVIChannel(void* channel) {
    return CallChannel<&AviFunctionTable::Movarix_StopChannel>(channel);
}

uint32_t Corvane_InputAVIMedia(void* channel, uint64_t value) {
    return CallChannel<&AviFunctionTable::Movarix_InputMedia>(channel, value);
}

uint32_t Corvane_InputDecodedAVIMedia(void* channel, uint32_t kind, uint64_t value) {
    return CallChannel<&AviFunctionTable::Movarix_InputDecodedMedia>(channel, kind, value);
}

uint32_t Corvane_GetCurrentAVIFileSize(void* channel, uint64_t value) {
    return CallChannel<&AviFunctionTable::Movarix_GetCurrentFileSize>(channel, value);
}

uint32_t Corvane_ChooseVideoCompressor(void* instance, uint64_t a, uint64_t b, uint64_t c) {
    return CallModule<&AviFunctionTable::Movarix_ChooseVideoCompressor>(instance, a, b, c);
}

uint32_t Corvane_ChooseAudioCompressor(void* instance, uint64_t a, uint64_t b, uint64_t c) {
    return CallModule<&AviFunctionTable::Movarix_ChooseAudioCompressor>(instance, a, b, c);
}

uint32_t Corvane_SetVideoCompressorParam(void* instance, uint64_t value) {
    return CallModule<&AviFunctionTable::Movarix_SetVideoCompressorParam>(instance, value);
}

uint32_t Corvane_GetVideoCompressorParam(void* instance, uint64_t value) {
    return CallModule<&AviFunctionTable::Movarix_GetVideoCompressorParam>(instance, value);
}

uint32_t Corvane_SetAudioCompressorParam(void* instance, uint64_t value) {
    return CallModule<&AviFunctionTable::Movarix_SetAudioCompressorParam>(instance, value);
}

uint32_t Corvane_GetAudioCompressorParam(void* instance, uint64_t value) {
    return CallModule<&AviFunctionTable::Movarix_GetAudioCompressorParam>(instance, value);
}

uint32_t Corvane_ChooseChannelVideoCompressor(void* channel, uint64_t a, uint64_t b, uint64_t c) {
    return CallChannel<&AviFunctionTable::Movarix_ChooseChannelVideoCompressor>(channel, a, b, c);
}

uint32_t Corvane_ChooseChannelAudioCompressor(void* channel, uint64_t a, uint64_t b, uint64_t c) {
    return CallChannel<&AviFunctionTable::Movarix_ChooseChannelAudioCompressor>(channel, a, b, c);
}

uint32_t Corvane_SetChannelVideoCompressorParam(void* channel, uint64_t value) {
    return CallChannel<&AviFunctionTable::Movarix_SetChannelVideoCompressorParam>(channel, value);
}

uint32_t Corvane_GetChannelVideoCompressorParam(void* channel, uint64_t value) {
    return CallChannel<&AviFunctionTable::Movarix_GetChannelVideoCompressorParam>(channel, value);
}

uint32_t Corvane_SetChannelAudioCompressorParam(void* channel, uint64_t value) {
    return CallChannel<&AviFunctionTable::Movarix_SetChannelAudioCompressorParam>(channel, value);
}

uint32_t Corvane_GetChannelAudioCompressorParam(void* channel, uint64_t value) {
    return CallChannel<&AviFunctionTable::Movarix_GetChannelAudioCompressorParam>(channel, value);
}

}    // extern "C"
