// The real Movarix.so, loaded into the test program, and what its files contain by libavformat.
#pragma once

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "corvane/movarix.h"
#include "entry/InChild.h"
#include "support/SoundMaker.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace corvane::test {

// A function of the contract by its name.
inline void* FunctionOf(const char* name) {
    static void* const library = dlopen(MOVARIX_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    void* const found = library == nullptr ? nullptr : dlsym(library, name);
    return found != nullptr ? found : throw std::runtime_error(std::string(name) + " is not in " + MOVARIX_LIBRARY);
}
#define MOVARIX(name) reinterpret_cast<decltype(&Movarix_##name)>(FunctionOf("Movarix_" #name))

// A folder of this test, which is removed at the end.
class Folder {
public:
    explicit Folder() {
        if (mkdtemp(m_path.data()) == nullptr)
            throw std::runtime_error("no folder in /tmp");
    }
    ~Folder() { std::filesystem::remove_all(m_path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    size_t Files() const { return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(m_path), {})); }

private:
    std::string m_path = "/tmp/movarix-XXXXXX";
};

struct AviStream {
    AVCodecID codec = AV_CODEC_ID_NONE;
    uint32_t tag = 0;
    int width = 0, height = 0, rate = 0, channels = 0;
    Bytes configuration;
    std::vector<EncodedPicture> packets;    // or blocks of sound; chunks without bytes left out

    Bytes All() const {
        Bytes all;
        for (const EncodedPicture& packet : packets)
            all.insert(all.end(), packet.bytes.begin(), packet.bytes.end());
        return all;
    }
};
struct Avi {
    AviStream pictures, sound;
};

inline Avi ReadAvi(const std::string& path) {
    Avi avi;
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, path.c_str(), av_find_input_format("avi"), nullptr) < 0)
        return avi;
    format->flags |= AVFMT_FLAG_NOPARSE;    // chunks as they are
    const auto streamOf = [&](unsigned index) -> AviStream& {
        return format->streams[index]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO ? avi.pictures : avi.sound;
    };
    for (unsigned index = 0; index < format->nb_streams; ++index) {
        const AVCodecParameters& parameters = *format->streams[index]->codecpar;
        streamOf(index) = {parameters.codec_id,
                           parameters.codec_tag,
                           parameters.width,
                           parameters.height,
                           parameters.sample_rate,
                           parameters.ch_layout.nb_channels,
                           {parameters.extradata, parameters.extradata + parameters.extradata_size},
                           {}};
    }
    AVPacket* packet = av_packet_alloc();
    for (; av_read_frame(format, packet) >= 0; av_packet_unref(packet))
        if (packet->size > 0)
            streamOf(static_cast<unsigned>(packet->stream_index))
                .packets.push_back(
                    {Bytes(packet->data, packet->data + packet->size), (packet->flags & AV_PKT_FLAG_KEY) != 0,
                     av_rescale_q(packet->dts, format->streams[packet->stream_index]->time_base, {1, 1000})});
    av_packet_free(&packet);
    avformat_close_input(&format);
    return avi;
}

inline void Ok(uint32_t status) {
    EXPECT_EQ(status, Status_Ok);
}

// A module and one channel, whose files lie in a folder of its own.
class Recorder {
public:
    explicit Recorder(bool live = true, const AviHostCallbacks& host = {}, void* instance = nullptr) {
        Ok(MOVARIX(Initial)(&module, instance, &host));
        Ok((live ? MOVARIX(CreateLiveChannel) : MOVARIX(CreateChannel))(module, &channel));
    }
    // A channel of another one's module.
    explicit Recorder(void* shared) { Ok(MOVARIX(CreateLiveChannel)(shared, &channel)); }
    ~Recorder() {
        Ok(MOVARIX(DeleteChannel)(&channel));
        Ok(MOVARIX(Release)(&module));
        EXPECT_TRUE(channel == nullptr && module == nullptr);
    }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    uint32_t Start(const std::string& path, uint64_t maxBytes = 0, uint32_t maxSeconds = 0, uint32_t flags = 0) {
        const MovarixStart start{sizeof start, flags, path.c_str(), maxBytes, maxSeconds, {}};
        return MOVARIX(StartChannel)(channel, reinterpret_cast<uint64_t>(&start));
    }
    uint32_t Start() { return Start(PathOf(1)); }
    uint32_t Stop() { return MOVARIX(StopChannel)(channel); }
    uint32_t Input(const MediaFrameHeader& header) {
        return MOVARIX(InputMedia)(channel, reinterpret_cast<uint64_t>(&header));
    }
    uint32_t Picture(uint32_t type, const Bytes& bytes, bool key, int64_t timeMs) {
        return Input(VideoHeader(type, bytes, key, timeMs));
    }
    template <typename Record>
    uint32_t Decoded(uint32_t kind, const Record& record) {
        return MOVARIX(InputDecodedMedia)(channel, kind, reinterpret_cast<uint64_t>(&record));
    }
    uint64_t Size() {
        uint64_t size = 0;
        Ok(MOVARIX(GetCurrentFileSize)(channel, reinterpret_cast<uint64_t>(&size)));
        return size;
    }
    std::string PathOf(size_t number) const {
        return folder / (number == 1 ? "a.b.avi" : "a.b-" + std::to_string(number) + ".avi");
    }
    Avi Read(size_t number = 1) const { return ReadAvi(PathOf(number)); }

    const Folder folder;
    void* module = nullptr;
    void* channel = nullptr;
};

}    // namespace corvane::test
