// The functions of the contract. Modules are kept here; all of a channel is passed on to the writer, which is loaded
// when it is first needed and stays.
#include <dlfcn.h>

#include <memory>
#include <mutex>
#include <string>

#include "Compressors.h"
#include "Guard.h"
#include "Writer.h"

namespace {

using namespace movarix;

// The writer, from the folder of this library, whatever search path the host has. Null: not there. It is tried again by
// the next channel.
const WriterFunctions* LoadWriter() {
    static std::mutex mutex;
    static const WriterFunctions* writer = nullptr;
    const std::lock_guard lock(mutex);
    if (writer != nullptr)
        return writer;
    Dl_info self{};
    if (dladdr(reinterpret_cast<const void*>(&LoadWriter), &self) == 0 || self.dli_fname == nullptr)
        return nullptr;
    const std::string name = self.dli_fname;
    const std::string path = name.substr(0, name.rfind('/') + 1) + "MovarixWriter.so";
    void* const library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr)
        return nullptr;
    const auto entry = reinterpret_cast<WriterEntry>(dlsym(library, kWriterEntry));
    if (entry == nullptr)
        dlclose(library);
    else
        writer = entry();
    return writer;
}

struct Module {
    Host host;
    std::mutex mutex;           // of what follows
    CompressorChoice choice;    // of channels that are made later
};

Module* ModuleOf(void* module) {
    return static_cast<Module*>(module);
}

uint32_t Create(void* module, void** channel, uint32_t live) {
    return Guard([&]() -> uint32_t {
        if (module == nullptr || channel == nullptr)
            return Status_InvalidArgument;
        const WriterFunctions* const writer = LoadWriter();
        if (writer == nullptr)
            return Status_NotSupported;
        CompressorChoice choice;
        {
            const std::lock_guard lock(ModuleOf(module)->mutex);
            choice = ModuleOf(module)->choice;
        }
        return writer->createChannel(&ModuleOf(module)->host, &choice, live, channel);
    });
}

uint32_t SetPictures(void* module, const MovarixCompressor& compressor) {
    return Guard([&]() -> uint32_t {
        if (module == nullptr)
            return Status_InvalidArgument;
        if (!IsPictureCompressor(compressor.type))
            return Status_UnsupportedMedia;
        const WriterFunctions* const writer = LoadWriter();
        if (writer == nullptr)
            return Status_NotSupported;
        if (const uint32_t status = writer->checkPictureCompressor(compressor.type); Failed(status))
            return status;
        const std::lock_guard lock(ModuleOf(module)->mutex);
        ModuleOf(module)->choice.pictures = compressor;
        return Status_Ok;
    });
}

uint32_t SetSound(void* module, const MovarixCompressor& compressor) {
    return Guard([&]() -> uint32_t {
        if (module == nullptr)
            return Status_InvalidArgument;
        if (!IsSoundCompressor(compressor.type))
            return Status_UnsupportedMedia;
        const std::lock_guard lock(ModuleOf(module)->mutex);
        ModuleOf(module)->choice.sound = {compressor.type, 0, 0};
        ModuleOf(module)->choice.soundChosen = true;
        return Status_Ok;
    });
}

uint32_t Get(void* module, uint64_t value, MovarixCompressor CompressorChoice::*part) {
    return Guard([&]() -> uint32_t {
        if (module == nullptr || value == 0)
            return Status_InvalidArgument;
        const std::lock_guard lock(ModuleOf(module)->mutex);
        *reinterpret_cast<MovarixCompressor*>(value) = ModuleOf(module)->choice.*part;
        return Status_Ok;
    });
}

// A function of the writer on a channel, which only exists where the writer was loaded.
template <typename Function, typename... Arguments>
uint32_t OnChannel(Function WriterFunctions::*function, void* channel, Arguments... arguments) {
    return Guard([&]() -> uint32_t {
        const WriterFunctions* const writer = channel == nullptr ? nullptr : LoadWriter();
        return writer == nullptr ? Status_InvalidArgument : (writer->*function)(channel, arguments...);
    });
}

using Setter = uint32_t (*)(void*, const MovarixCompressor&);

uint32_t Choose(Setter set, void* handle, uint64_t type, uint64_t bitRate, uint64_t keyInterval) {
    MovarixCompressor compressor;
    return MakeCompressor(type, bitRate, keyInterval, compressor) ? set(handle, compressor) : Status_InvalidArgument;
}

uint32_t SetRecord(Setter set, void* handle, uint64_t value) {
    if (handle == nullptr || value == 0)
        return Status_InvalidArgument;
    const auto& record = *reinterpret_cast<const MovarixCompressor*>(value);
    return Choose(set, handle, record.type, record.bitRate, record.keyInterval);
}

uint32_t SetChannelPictures(void* channel, const MovarixCompressor& compressor) {
    return OnChannel(&WriterFunctions::setPictureCompressor, channel, &compressor);
}

uint32_t SetChannelSound(void* channel, const MovarixCompressor& compressor) {
    return OnChannel(&WriterFunctions::setSoundCompressor, channel, &compressor);
}

}    // namespace

extern "C" {

uint32_t Movarix_Initial(void** module, void* instance, const AviHostCallbacks* host) {
    return Guard([&]() -> uint32_t {
        if (module == nullptr || host == nullptr)
            return Status_InvalidArgument;
        auto made = std::make_unique<Module>();
        made->host = {instance, *host};
        *module = made.release();
        return Status_Ok;
    });
}

uint32_t Movarix_Release(void** module) {
    if (module == nullptr)
        return Status_InvalidArgument;
    delete ModuleOf(*module);
    *module = nullptr;
    return Status_Ok;
}

uint32_t Movarix_CreateChannel(void* module, void** channel) {
    return Create(module, channel, 0);
}

uint32_t Movarix_CreateLiveChannel(void* module, void** channel) {
    return Create(module, channel, 1);
}

uint32_t Movarix_DeleteChannel(void** channel) {
    return Guard([&]() -> uint32_t {
        if (channel == nullptr)
            return Status_InvalidArgument;
        const WriterFunctions* const writer = *channel == nullptr ? nullptr : LoadWriter();
        return writer == nullptr ? Status_Ok : writer->deleteChannel(channel);
    });
}

uint32_t Movarix_StartChannel(void* channel, uint64_t value) {
    return OnChannel(&WriterFunctions::startChannel, channel, value);
}

uint32_t Movarix_StopChannel(void* channel) {
    return OnChannel(&WriterFunctions::stopChannel, channel);
}

uint32_t Movarix_InputMedia(void* channel, uint64_t value) {
    return OnChannel(&WriterFunctions::inputMedia, channel, value);
}

uint32_t Movarix_InputDecodedMedia(void* channel, uint32_t kind, uint64_t value) {
    return OnChannel(&WriterFunctions::inputDecodedMedia, channel, kind, value);
}

uint32_t Movarix_ChooseVideoCompressor(void* module, uint64_t a, uint64_t b, uint64_t c) {
    return Choose(&SetPictures, module, a, b, c);
}

uint32_t Movarix_ChooseAudioCompressor(void* module, uint64_t a, uint64_t b, uint64_t c) {
    return Choose(&SetSound, module, a, b, c);
}

uint32_t Movarix_SetVideoCompressorParam(void* module, uint64_t value) {
    return SetRecord(&SetPictures, module, value);
}

uint32_t Movarix_GetVideoCompressorParam(void* module, uint64_t value) {
    return Get(module, value, &CompressorChoice::pictures);
}

uint32_t Movarix_SetAudioCompressorParam(void* module, uint64_t value) {
    return SetRecord(&SetSound, module, value);
}

uint32_t Movarix_GetAudioCompressorParam(void* module, uint64_t value) {
    return Get(module, value, &CompressorChoice::sound);
}

uint32_t Movarix_ChooseChannelVideoCompressor(void* channel, uint64_t a, uint64_t b, uint64_t c) {
    return Choose(&SetChannelPictures, channel, a, b, c);
}

uint32_t Movarix_ChooseChannelAudioCompressor(void* channel, uint64_t a, uint64_t b, uint64_t c) {
    return Choose(&SetChannelSound, channel, a, b, c);
}

uint32_t Movarix_SetChannelVideoCompressorParam(void* channel, uint64_t value) {
    return SetRecord(&SetChannelPictures, channel, value);
}

uint32_t Movarix_GetChannelVideoCompressorParam(void* channel, uint64_t value) {
    return OnChannel(&WriterFunctions::getPictureCompressor, channel, reinterpret_cast<MovarixCompressor*>(value));
}

uint32_t Movarix_SetChannelAudioCompressorParam(void* channel, uint64_t value) {
    return SetRecord(&SetChannelSound, channel, value);
}

uint32_t Movarix_GetChannelAudioCompressorParam(void* channel, uint64_t value) {
    return OnChannel(&WriterFunctions::getSoundCompressor, channel, reinterpret_cast<MovarixCompressor*>(value));
}

uint32_t Movarix_SetChannelOption(void* channel, uint32_t id, uint32_t value, uint32_t extra) {
    return OnChannel(&WriterFunctions::setChannelOption, channel, id, value, extra);
}

uint32_t Movarix_GetCurrentFileSize(void* channel, uint64_t value) {
    return OnChannel(&WriterFunctions::getCurrentFileSize, channel, value);
}

}    // extern "C"
