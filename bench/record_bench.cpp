// Recording 60 s of 1920x1080 H.264 with sound, flat out, by Movarix.so beside a loop over libavformat written by hand,
// and both with reading and starting beside `ffmpeg -c copy`. In memory-backed files, so that no disk counts.
//
// record_bench [rounds]. record_bench copy IN OUT is one run of ours, as a process.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "corvane/movarix.h"

namespace {

struct Packet {
    std::vector<uint8_t> bytes;
    bool picture, key;
    int64_t place;    // in the stream's time base
    int64_t ms;
};

struct Input {
    AVFormatContext* format = nullptr;
    std::vector<Packet> packets;
};

void Require(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "record_bench: %s\n", what);
        std::exit(1);
    }
}

Input Read(const std::string& path) {
    Input input;
    Require(avformat_open_input(&input.format, path.c_str(), nullptr, nullptr) >= 0, "cannot open the stream");
    input.format->flags |= AVFMT_FLAG_NOPARSE;
    AVPacket* packet = av_packet_alloc();
    for (; av_read_frame(input.format, packet) >= 0; av_packet_unref(packet)) {
        const AVStream& stream = *input.format->streams[packet->stream_index];
        input.packets.push_back({{packet->data, packet->data + packet->size},
                                 stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO,
                                 (packet->flags & AV_PKT_FLAG_KEY) != 0,
                                 packet->dts,
                                 av_rescale_q(packet->dts, stream.time_base, {1, 1000})});
    }
    av_packet_free(&packet);
    return input;
}

// What a user would write: the streams' parameters, and each packet as it comes.
void Bare(const Input& input, const std::string& path) {
    AVFormatContext* out = nullptr;
    Require(avformat_alloc_output_context2(&out, nullptr, "avi", path.c_str()) >= 0, "no muxer");
    for (unsigned at = 0; at < input.format->nb_streams; ++at) {
        AVStream* const stream = avformat_new_stream(out, nullptr);
        avcodec_parameters_copy(stream->codecpar, input.format->streams[at]->codecpar);
        stream->codecpar->codec_tag = input.format->streams[at]->codecpar->codec_tag;
        stream->time_base = input.format->streams[at]->time_base;
    }
    Require(avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE) >= 0 && avformat_write_header(out, nullptr) >= 0,
            "no file");
    AVPacket* packet = av_packet_alloc();
    for (const Packet& from : input.packets) {
        packet->data = const_cast<uint8_t*>(from.bytes.data());
        packet->size = static_cast<int>(from.bytes.size());
        packet->stream_index = from.picture ? 0 : 1;
        packet->pts = packet->dts = from.place;
        packet->flags = from.key ? AV_PKT_FLAG_KEY : 0;
        Require(av_write_frame(out, packet) >= 0, "cannot write");
    }
    av_write_trailer(out);
    av_packet_free(&packet);
    avio_closep(&out->pb);
    avformat_free_context(out);
}

class Ours {
public:
    Ours() : m_library(dlopen(MOVARIX_LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
        Require(m_library != nullptr, "no Movarix.so");
        const AviHostCallbacks none{};
        Require(Find(&Movarix_Initial, "Movarix_Initial")(&m_module, nullptr, &none) == Status_Ok, "no module");
        m_input = Find(&Movarix_InputMedia, "Movarix_InputMedia");
    }
    void Record(const Input& input, const std::string& path) {
        void* channel = nullptr;
        Require(Find(&Movarix_CreateChannel, "Movarix_CreateChannel")(m_module, &channel) == Status_Ok, "no channel");
        const MovarixStart start{sizeof start, MOVARIX_START_REPLACE, path.c_str(), 0, 0, {}};
        Find(&Movarix_StartChannel, "Movarix_StartChannel")(channel, reinterpret_cast<uint64_t>(&start));
        for (const Packet& packet : input.packets) {
            MediaFrameHeader header{};
            header.recordSize = sizeof header;
            header.data = packet.bytes.data();
            header.payloadSize = static_cast<uint32_t>(packet.bytes.size());
            header.streamType = packet.picture ? CORVANE_STREAM_H264 : CORVANE_STREAM_ALAW;
            header.frameType = packet.key ? 0 : 1;
            header.audioSampleRate = 8000;
            header.audioChannels = 1;
            header.streamSeconds = static_cast<uint32_t>(packet.ms / 1000);
            header.timeMilliseconds = static_cast<uint32_t>(packet.ms % 1000);
            Require(m_input(channel, reinterpret_cast<uint64_t>(&header)) == Status_Ok, "refused");
        }
        Require(Find(&Movarix_StopChannel, "Movarix_StopChannel")(channel) == Status_Ok, "not written");
        Find(&Movarix_DeleteChannel, "Movarix_DeleteChannel")(&channel);
    }

private:
    template <typename Function>
    Function* Find(Function*, const char* name) const {
        return reinterpret_cast<Function*>(dlsym(m_library, name));
    }

    void* m_library;
    void* m_module = nullptr;
    decltype(&Movarix_InputMedia) m_input;
};

double Seconds(const auto& run) {
    const auto start = std::chrono::steady_clock::now();
    run();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double Median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

void Shell(const std::string& command) {
    Require(std::system(command.c_str()) == 0, command.c_str());
}

}    // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], "copy") == 0) {
        Ours().Record(Read(argv[2]), argv[3]);
        return 0;
    }
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 15;
    const std::string folder = "/dev/shm/record-bench-" + std::to_string(getpid());
    std::filesystem::create_directory(folder);
    const std::string in = folder + "/in.avi", out = folder + "/out.avi";
    Shell(
        "ffmpeg -v error -f lavfi -i testsrc2=s=1920x1080:r=25 -f lavfi -i sine=r=8000 -t 60 -c:v libx264 -preset "
        "ultrafast -g 50 -bf 0 "
        "-b:v 4M -c:a pcm_alaw " +
        in);
    const Input input = Read(in);
    Ours ours;
    std::vector<double> toBare, toCopy, oursMs, bareMs;
    for (int round = -2; round < rounds; ++round) {
        const double mine = Seconds([&] { ours.Record(input, out); });
        std::filesystem::remove(out);
        const double bare = Seconds([&] { Bare(input, out); });
        std::filesystem::remove(out);
        const double process = Seconds([&] { Shell(std::string(argv[0]) + " copy " + in + " " + out); });
        std::filesystem::remove(out);
        const double copy = Seconds([&] { Shell("ffmpeg -v error -i " + in + " -c copy " + out); });
        std::filesystem::remove(out);
        if (round < 0)
            continue;
        toBare.push_back(mine / bare);
        toCopy.push_back(process / copy);
        oursMs.push_back(mine * 1000);
        bareMs.push_back(bare * 1000);
    }
    std::printf("60 s of 1920x1080, %zu packets, %.1f MB\n", input.packets.size(),
                static_cast<double>(std::filesystem::file_size(in)) / 1e6);
    std::printf("  Movarix.so beside a bare libavformat loop   %.2f (%.1f and %.1f ms; goal 1.10)\n", Median(toBare),
                Median(oursMs), Median(bareMs));
    std::printf("  with reading and starting, beside ffmpeg -c copy   %.2f (goal 1.0)\n", Median(toCopy));
    std::filesystem::remove_all(folder);
    return 0;
}
