// The functions of the library that writes AVI files, Movarix.so.
#pragma once

#include "base/Status.h"
#include "corvane/movarix.h"

namespace corvane {

struct AviFunctionTable {
    decltype(&::Movarix_Initial) Movarix_Initial = nullptr;
    decltype(&::Movarix_Release) Movarix_Release = nullptr;
    decltype(&::Movarix_CreateChannel) Movarix_CreateChannel = nullptr;
    decltype(&::Movarix_CreateLiveChannel) Movarix_CreateLiveChannel = nullptr;
    decltype(&::Movarix_DeleteChannel) Movarix_DeleteChannel = nullptr;
    decltype(&::Movarix_StartChannel) Movarix_StartChannel = nullptr;
    decltype(&::Movarix_StopChannel) Movarix_StopChannel = nullptr;
    decltype(&::Movarix_InputMedia) Movarix_InputMedia = nullptr;
    decltype(&::Movarix_InputDecodedMedia) Movarix_InputDecodedMedia = nullptr;
    decltype(&::Movarix_ChooseVideoCompressor) Movarix_ChooseVideoCompressor = nullptr;
    decltype(&::Movarix_ChooseAudioCompressor) Movarix_ChooseAudioCompressor = nullptr;
    decltype(&::Movarix_SetVideoCompressorParam) Movarix_SetVideoCompressorParam = nullptr;
    decltype(&::Movarix_GetVideoCompressorParam) Movarix_GetVideoCompressorParam = nullptr;
    decltype(&::Movarix_SetAudioCompressorParam) Movarix_SetAudioCompressorParam = nullptr;
    decltype(&::Movarix_GetAudioCompressorParam) Movarix_GetAudioCompressorParam = nullptr;
    decltype(&::Movarix_ChooseChannelVideoCompressor) Movarix_ChooseChannelVideoCompressor = nullptr;
    decltype(&::Movarix_ChooseChannelAudioCompressor) Movarix_ChooseChannelAudioCompressor = nullptr;
    decltype(&::Movarix_SetChannelVideoCompressorParam) Movarix_SetChannelVideoCompressorParam = nullptr;
    decltype(&::Movarix_GetChannelVideoCompressorParam) Movarix_GetChannelVideoCompressorParam = nullptr;
    decltype(&::Movarix_SetChannelAudioCompressorParam) Movarix_SetChannelAudioCompressorParam = nullptr;
    decltype(&::Movarix_GetChannelAudioCompressorParam) Movarix_GetChannelAudioCompressorParam = nullptr;
    decltype(&::Movarix_SetChannelOption) Movarix_SetChannelOption = nullptr;
    decltype(&::Movarix_GetCurrentFileSize) Movarix_GetCurrentFileSize = nullptr;    // null in an older library
};

// No lock may be held. Status::Failed where the library has no such function, and for an exception of it.
template <typename Function, typename... Arguments>
Status CallAvi(Function function, Arguments... arguments) noexcept {
    if (function == nullptr)
        return Status::Failed;
    try {
        return static_cast<Status>(function(arguments...));
    } catch (...) {
        return Status::Failed;
    }
}

}    // namespace corvane
