// The one export of MovarixWriter.so: the functions of Writer.h on AviChannel.
#include <memory>

#include "AviChannel.h"
#include "Guard.h"
#include "Writer.h"

namespace {

using namespace movarix;

AviChannel* ChannelOf(void* channel) {
    return static_cast<AviChannel*>(channel);
}

uint32_t GetCompressor(void* channel, MovarixCompressor* compressor, MovarixCompressor CompressorChoice::*part) {
    return Guard([&]() -> uint32_t {
        if (compressor == nullptr)
            return Status_InvalidArgument;
        *compressor = ChannelOf(channel)->Choice().*part;
        return Status_Ok;
    });
}

constexpr WriterFunctions kFunctions = {
    .createChannel =
        [](const Host* host, const CompressorChoice* choice, uint32_t live, void** channel) {
            return Guard([&]() -> uint32_t {
                *channel = std::make_unique<AviChannel>(*host, *choice, live != 0).release();
                return Status_Ok;
            });
        },
    .deleteChannel =
        [](void** channel) {
            return Guard([&]() -> uint32_t {
                delete ChannelOf(*channel);
                *channel = nullptr;
                return Status_Ok;
            });
        },
    .startChannel =
        [](void* channel, uint64_t value) {
            return Guard([&] { return ChannelOf(channel)->Start(reinterpret_cast<const MovarixStart*>(value)); });
        },
    .stopChannel = [](void* channel) { return Guard([&] { return ChannelOf(channel)->Stop(); }); },
    .inputMedia =
        [](void* channel, uint64_t value) {
            return Guard([&] { return ChannelOf(channel)->Input(reinterpret_cast<const MediaFrameHeader*>(value)); });
        },
    .inputDecodedMedia =
        [](void* channel, uint32_t kind, uint64_t value) {
            return Guard([&] { return ChannelOf(channel)->InputDecoded(kind, reinterpret_cast<const void*>(value)); });
        },
    .setPictureCompressor =
        [](void* channel, const MovarixCompressor* compressor) {
            return Guard([&] { return ChannelOf(channel)->SetPictures(*compressor); });
        },
    .setSoundCompressor =
        [](void* channel, const MovarixCompressor* compressor) {
            return Guard([&] { return ChannelOf(channel)->SetSound(*compressor); });
        },
    .getPictureCompressor =
        [](void* channel, MovarixCompressor* compressor) {
            return GetCompressor(channel, compressor, &CompressorChoice::pictures);
        },
    .getSoundCompressor =
        [](void* channel, MovarixCompressor* compressor) {
            return GetCompressor(channel, compressor, &CompressorChoice::sound);
        },
    .setChannelOption = [](void* channel, uint32_t id, uint32_t value,
                           uint32_t) { return Guard([&] { return ChannelOf(channel)->SetOption(id, value); }); },
    .getCurrentFileSize =
        [](void* channel, uint64_t value) {
            return Guard([&]() -> uint32_t {
                if (value == 0)
                    return Status_InvalidArgument;
                *reinterpret_cast<uint64_t*>(value) = ChannelOf(channel)->FileSize();
                return Status_Ok;
            });
        },
    .checkPictureCompressor = [](uint32_t type) { return Guard([&] { return PictureCompressor::Check(type); }); },
};

}    // namespace

extern "C" CORVANE_API const movarix::WriterFunctions* MovarixWriter_Functions() {
    return &kFunctions;
}
