// The real Movarix.so, loaded into the test program, and what its files contain by libavformat.
#pragma once

#include <dlfcn.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "corvane/movarix.h"
#include "support/SoundMaker.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

extern "C" {
#include <libavformat/avformat.h>
}

namespace corvane::test {

// The functions of the contract by their names.
struct Movarix {
    void* library = dlopen(MOVARIX_LIBRARY, RTLD_NOW | RTLD_LOCAL);

    template <typename Function>
    Function* Find(Function*, const char* name) const {
        void* const found = library == nullptr ? nullptr : dlsym(library, name);
        if (found == nullptr)
            throw std::runtime_error(std::string(name) + " is not in " + MOVARIX_LIBRARY);
        return reinterpret_cast<Function*>(found);
    }
};
inline const Movarix kMovarix;
#define MOVARIX(name) kMovarix.Find(decltype (&Movarix_##name)(nullptr), "Movarix_" #name)

// A folder of this test, which is removed at the end.
class Folder {
public:
    explicit Folder(const std::string& base = "/tmp") {
        std::string name = base + "/movarix-XXXXXX";
        if (mkdtemp(name.data()) == nullptr)
            throw std::runtime_error("no folder in " + base);
        m_path = name;
    }
    ~Folder() { std::filesystem::remove_all(m_path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    std::string operator/(const std::string& name) const { return m_path + "/" + name; }
    size_t Files() const { return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(m_path), {})); }

private:
    std::string m_path;
};

// A module and one channel.
class Recorder {
public:
    explicit Recorder(bool live = true, const AviHostCallbacks& host = {}, void* instance = nullptr) {
        EXPECT_EQ(MOVARIX(Initial)(&module, instance, &host), Status_Ok);
        EXPECT_EQ((live ? MOVARIX(CreateLiveChannel) : MOVARIX(CreateChannel))(module, &channel), Status_Ok);
    }
    ~Recorder() {
        EXPECT_EQ(MOVARIX(DeleteChannel)(&channel), Status_Ok);
        EXPECT_EQ(MOVARIX(Release)(&module), Status_Ok);
    }
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    uint32_t Start(const std::string& path, uint64_t maxBytes = 0, uint32_t maxSeconds = 0, uint32_t flags = 0) {
        const MovarixStart start{sizeof start, flags, path.c_str(), maxBytes, maxSeconds, {}};
        return MOVARIX(StartChannel)(channel, reinterpret_cast<uint64_t>(&start));
    }
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
        EXPECT_EQ(MOVARIX(GetCurrentFileSize)(channel, reinterpret_cast<uint64_t>(&size)), Status_Ok);
        return size;
    }

    void* module = nullptr;
    void* channel = nullptr;
};

struct AviPacket {
    Bytes bytes;
    double ms;
    bool key;
};
struct AviStream {
    AVCodecID codec = AV_CODEC_ID_NONE;
    int width = 0, height = 0, rate = 0, channels = 0;
    Bytes configuration;
    std::vector<AviPacket> packets;    // chunks without bytes left out

    Bytes All() const {
        Bytes all;
        for (const AviPacket& packet : packets)
            all.insert(all.end(), packet.bytes.begin(), packet.bytes.end());
        return all;
    }
};
struct Avi {
    AviStream pictures, sound;
    bool opened = false;
};

inline Avi ReadAvi(const std::string& path) {
    Avi avi;
    AVFormatContext* format = nullptr;
    if (avformat_open_input(&format, path.c_str(), av_find_input_format("avi"), nullptr) < 0)
        return avi;
    avi.opened = true;
    format->flags |= AVFMT_FLAG_NOPARSE;    // chunks as they are
    const auto streamOf = [&](int index) -> AviStream& {
        return format->streams[index]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO ? avi.pictures : avi.sound;
    };
    for (unsigned index = 0; index < format->nb_streams; ++index) {
        const AVCodecParameters& parameters = *format->streams[index]->codecpar;
        AviStream& stream = streamOf(static_cast<int>(index));
        stream.codec = parameters.codec_id;
        stream.width = parameters.width;
        stream.height = parameters.height;
        stream.rate = parameters.sample_rate;
        stream.configuration.assign(parameters.extradata, parameters.extradata + parameters.extradata_size);
        stream.channels = parameters.ch_layout.nb_channels;
        format->streams[index]->discard = AVDISCARD_DEFAULT;
    }
    AVPacket* const packet = av_packet_alloc();
    for (; av_read_frame(format, packet) >= 0; av_packet_unref(packet))
        if (packet->size > 0) {
            const AVRational base = format->streams[packet->stream_index]->time_base;
            streamOf(packet->stream_index)
                .packets.push_back({Bytes(packet->data, packet->data + packet->size),
                                    1000 * av_q2d(base) * static_cast<double>(packet->dts),
                                    (packet->flags & AV_PKT_FLAG_KEY) != 0});
        }
    av_packet_free(const_cast<AVPacket**>(&packet));
    avformat_close_input(&format);
    return avi;
}

// The standard output of a command; "failed" where its status is not 0.
inline std::string OutputOf(const std::string& command) {
    std::string text;
    FILE* const pipe = popen(command.c_str(), "r");
    char part[4096];
    for (size_t size; pipe != nullptr && (size = fread(part, 1, sizeof part, pipe)) > 0;)
        text.append(part, size);
    return pipe != nullptr && pclose(pipe) == 0 ? text : "failed: " + command + "\n" + text;
}

}    // namespace corvane::test
