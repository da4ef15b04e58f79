// A side library that writes no file: it notes each call and what it was given in the file named by MOVARIX_LOG, and
// returns the number of the function, or what MOVARIX_FAIL ("NAME status", "NAME throw") says.
#include <corvane/movarix.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <thread>

namespace {

const AviHostCallbacks* host;
void* hostInstance;
void* kept;    // a decoder channel that Movarix_Release deletes
std::atomic<uint64_t> handles{0x2000};

struct Argument {
    Argument(uint64_t number) : value(number) {}
    Argument(const void* pointer) : value(reinterpret_cast<uintptr_t>(pointer)) {}
    unsigned long long value;
};

uint32_t Note(uint32_t number, const char* name, std::initializer_list<Argument> arguments) {
    char line[200];
    int at = std::snprintf(line, sizeof line, "%s", name);
    for (const Argument& argument : arguments)
        at += std::snprintf(line + at, sizeof line - static_cast<size_t>(at), " %llx", argument.value);
    line[at++] = '\n';
    if (FILE* file = std::fopen(std::getenv("MOVARIX_LOG"), "a")) {
        std::fwrite(line, 1, static_cast<size_t>(at), file);
        std::fclose(file);
    }
    const char* fail = std::getenv("MOVARIX_FAIL");
    const size_t length = std::strlen(name);
    if (fail == nullptr || std::strncmp(fail, name, length) != 0 || fail[length] != ' ')
        return number;
    if (std::strcmp(fail + length + 1, "throw") == 0)
        throw 7;
    return static_cast<uint32_t>(std::strtoul(fail + length + 1, nullptr, 16));
}

uint32_t Make(uint32_t number, const char* name, void* module, void** channel) {
    const void* const before = *channel;
    *channel = std::getenv("MOVARIX_NULL") != nullptr ? nullptr : reinterpret_cast<void*>(++handles);
    return Note(number, name, {module, before});
}

// A frame of sound that the host decodes.
uint32_t Decode(void* decoder) {
    uint8_t bytes[160] = {};
    MediaFrameHeader frame{};
    frame.data = bytes;
    frame.payloadSize = sizeof bytes;
    frame.streamType = CORVANE_STREAM_MULAW;
    frame.audioSampleRate = 8000;
    frame.audioChannels = 1;
    frame.recordSize = sizeof frame;
    return host->inputToBeDecodedMediaFrame(decoder, &frame);
}

// Decodes with the host's functions, and calls `inside` from the callback.
uint32_t DecodeOnHost(const std::function<void()>& inside, void** keep = nullptr) {
    void* decoder = nullptr;
    const DecoderChannelSettings settings = {[](void* context, uint32_t code, void*) {
                                                 Note(0, "callback", {code});
                                                 (*static_cast<const std::function<void()>*>(context))();
                                             },
                                             const_cast<std::function<void()>*>(&inside), CORVANE_PICTURE_I420, 0};
    if (host->createDecoderChannel(hostInstance, &decoder, &settings) != Status_Ok)
        return 1;
    const uint32_t status = Decode(decoder);
    if (keep != nullptr)
        *keep = decoder;
    else if (host->deleteDecoderChannel(hostInstance, &decoder) != Status_Ok)
        return 2;
    return status;
}

const std::function<void()> kNothing = [] {};

}    // namespace

uint32_t Movarix_Initial(void** module, void* instance, const AviHostCallbacks* callbacks) {
    const uint32_t status = Note(1, "Initial", {*module});
    host = callbacks;
    hostInstance = instance;
    *module = reinterpret_cast<void*>(0x1000);
    if (std::getenv("MOVARIX_HOST") != nullptr) {
        Note(0, "host", {DecodeOnHost(kNothing, &kept)});
        std::thread([] { Note(0, "host", {DecodeOnHost(kNothing)}); }).join();
    }
    return status;
}
uint32_t Movarix_Release(void** module) {
    if (kept != nullptr && Decode(kept) == Status_Ok)    // it is still there
        Note(0, "deleted", {host->deleteDecoderChannel(hostInstance, &kept)});
    return Note(2, "Release", {*module});
}
uint32_t Movarix_CreateChannel(void* module, void** channel) {
    return Make(3, "CreateChannel", module, channel);
}
uint32_t Movarix_CreateLiveChannel(void* module, void** channel) {
    return Make(4, "CreateLiveChannel", module, channel);
}
// `value` may be what the test wants to be done inside: here, in the callback of a decoder channel, or in that of one
// on a thread of its own.
uint32_t Movarix_InputMedia(void* channel, uint64_t value) {
    const char* where = std::getenv("MOVARIX_RUN");
    if (where == nullptr)
        return Note(8, "InputMedia", {channel, value});
    const auto& inside = *reinterpret_cast<const std::function<void()>*>(value);
    if (std::strcmp(where, "callback") == 0)
        return DecodeOnHost(inside);
    if (std::strcmp(where, "thread") != 0)
        return inside(), 0;
    uint32_t status = 0;
    std::thread([&] { status = DecodeOnHost(inside); }).join();
    return status;
}
#define FUNCTION(number, name, parameters, ...)    \
    uint32_t Movarix_##name parameters {           \
        return Note(number, #name, {__VA_ARGS__}); \
    }
#define CHOOSE(number, name) \
    FUNCTION(number, Choose##name##Compressor, (void* of, uint64_t a, uint64_t b, uint64_t c), of, a, b, c)
#define PARAM(number, name) FUNCTION(number, name##CompressorParam, (void* of, uint64_t value), of, value)
FUNCTION(5, DeleteChannel, (void** channel), *channel)
FUNCTION(6, StartChannel, (void* channel, uint64_t value), channel, value)
FUNCTION(7, StopChannel, (void* channel), channel)
FUNCTION(9, InputDecodedMedia, (void* channel, uint32_t kind, uint64_t value), channel, kind, value)
CHOOSE(10, Video)
CHOOSE(11, Audio)
PARAM(12, SetVideo)
PARAM(13, GetVideo)
PARAM(14, SetAudio)
PARAM(15, GetAudio)
CHOOSE(16, ChannelVideo)
CHOOSE(17, ChannelAudio)
PARAM(18, SetChannelVideo)
PARAM(19, GetChannelVideo)
PARAM(20, SetChannelAudio)
PARAM(21, GetChannelAudio)
FUNCTION(22, SetChannelOption, (void* channel, uint32_t id, uint32_t value, uint32_t extra), channel, id, value, extra)
FUNCTION(23, GetCurrentFileSize, (void* channel, uint64_t value), channel, value)
