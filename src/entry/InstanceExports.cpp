// Exports of the instance and the version.
#include <memory>

#include "audio/DeviceKeeper.h"
#include "base/Thread.h"
#include "corvane/corvane.h"
#include "entry/Guard.h"

using corvane::CCorvane_Option;
using corvane::DeviceKeeper;
using corvane::Guard;
using corvane::OnInstance;
using corvane::Status;
using corvane::Thread;

namespace {

constexpr int64_t kDevicesLimit = 400'000'000;    // ns that a release waits for sound devices that are being closed

}    // namespace

extern "C" {

uint32_t Corvane_InitialEx(void** instance, CorvaneStreamInfoCallback streamInfo, CorvaneOsdCallback osd,
                           uintptr_t audioWindow, uint32_t audioFocusMode, uint32_t, uint32_t version, uint32_t flags,
                           uint32_t background) {
    return Guard([&] {
        if (instance == nullptr)
            return Status::InvalidArgument;
        if (!CCorvane_Option::VersionFits(version))
            return Status::VersionMismatch;
        if ((flags & CORVANE_FLAG_GDI) != 0 && (flags & CORVANE_FLAG_NO_FALLBACK) != 0)
            return Status::InvalidArgument;
        const CCorvane_Option::Defaults defaults{streamInfo, osd, audioWindow, audioFocusMode, flags, background};
        auto made = std::make_unique<CCorvane_Option>(defaults);
        made->OpenAvi();
        *instance = made.release()->Handle();
        return Status::Ok;
    });
}

uint32_t Corvane_Initial(void** instance, CorvaneStreamInfoCallback streamInfo, CorvaneOsdCallback osd,
                         uintptr_t audioWindow, uint32_t audioFocusMode, uint32_t reserved, uint32_t version,
                         uint32_t flags) {
    return Corvane_InitialEx(instance, streamInfo, osd, audioWindow, audioFocusMode, reserved, version, flags, 0);
}

uint32_t Corvane_Release(void** instance) {
    if (instance == nullptr)
        return Status_InvalidArgument;
    if (*instance == nullptr)
        return Status_Ok;
    return OnInstance(*instance, [&](CCorvane_Option& own) {
        CORVANE_RETURN_IF_FAILED(own.DeleteAll());
        delete &own;
        *instance = nullptr;
        // A host that leaves SDL next would wait for ever for a device that is being closed meanwhile.
        if (Thread::CurrentOwner() == nullptr)
            (void)DeviceKeeper::Process().WaitSettled(kDevicesLimit);
        return Status::Ok;
    });
}

uint32_t Corvane_LoadDecoders(void* instance, const char* directory) {
    if (directory == nullptr)
        return Status_InvalidArgument;
    return OnInstance(instance, [&](CCorvane_Option& own) {
        own.LoadDecoders(directory);
        return Status::Ok;
    });
}

uint32_t Corvane_GetVersionInfo(uint8_t* major, uint8_t* minor, uint8_t* build, uint8_t* revision) {
    *major = 5;
    *minor = 5;
    *build = 0;
    *revision = 20;
    return Status_Ok;
}

uint32_t Corvane_SetFlags(void*, ...) {
    return Status_Ok;
}

uint32_t Corvane_GetFlags(void*, ...) {
    return Status_Ok;
}

uint32_t Corvane_GetCapabilities(void*, ...) {
    return Status_Ok;
}

uint32_t Corvane_SetQueueEmptyNotify(void*, ...) {
    return Status_NotSupported;
}

uint32_t Corvane_RegisterVAStreamInfoCallback(void*, ...) {
    return Status_NotSupported;
}

uint32_t Corvane_SetVAStreamEffectParam(void*, ...) {
    return Status_NotSupported;
}

uint32_t Corvane_GetAvgAudioVolume(void*, ...) {
    return Status_NotSupported;
}

uint32_t Corvane_SetAudioSamplesPerCalc(void*, ...) {
    return Status_NotSupported;
}

}    // extern "C"
