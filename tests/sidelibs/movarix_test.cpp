// Movarix.so as a host uses it: by its functions alone. What its files contain is read by libavformat, and by players.
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cmath>
#include <csignal>

#include "sidelibs/MovarixCalls.h"
#include "support/FieldStream.h"
#include "support/Mappings.h"

namespace corvane::test {
namespace {

constexpr int64_t kStart = 1'700'000'000'000;    // milliseconds, of the first frames

struct SoundCase {
    uint32_t type = 0;    // 0: none
    int rate = 8000, channels = 1;
    uint32_t blocks = 1;
    std::vector<Bytes> frames = {};
    double frameMs = 20;
    int g726Bits = 0;
    bool mostFirst = false;
    bool adts = false;
};

MediaFrameHeader HeaderOf(const SoundCase& sound, size_t at, int64_t timeMs) {
    MediaFrameHeader header =
        SoundHeader(sound.type, sound.frames[at], sound.rate, sound.channels, sound.blocks, timeMs);
    if (sound.g726Bits != 0) {
        header.detail.audio.audioBitRate = static_cast<uint32_t>(sound.g726Bits) * 8000;
        header.detail.audio.audioPacking = sound.mostFirst ? 1 : 0;
    }
    return header;
}

std::vector<Bytes> Cut(const Bytes& bytes, size_t size) {
    std::vector<Bytes> parts;
    for (size_t at = 0; at + size <= bytes.size(); at += size)
        parts.emplace_back(bytes.begin() + static_cast<ptrdiff_t>(at),
                           bytes.begin() + static_cast<ptrdiff_t>(at + size));
    return parts;
}

Bytes Noise(size_t size) {
    std::mt19937 random(7);
    Bytes bytes(size);
    for (uint8_t& byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

SoundCase G711(uint32_t type, int channels) {
    return {.type = type,
            .channels = channels,
            .frames = Cut(Noise(16'000u * static_cast<size_t>(channels)), 160u * static_cast<size_t>(channels))};
}

SoundCase Aac(uint32_t blocks, bool adts) {
    const std::vector<Bytes> raw = MakeAac(Sweep(16000, 2, 200, 900), 16000, 2).blocks;
    SoundCase sound{.type = CORVANE_STREAM_AAC,
                    .rate = 16000,
                    .channels = 2,
                    .blocks = blocks,
                    .frameMs = 64.0 * blocks,
                    .adts = adts};
    for (size_t at = 0; at + blocks <= raw.size(); at += blocks) {
        Bytes& frame = sound.frames.emplace_back();
        for (uint32_t block = 0; block < blocks; ++block)    // of one size
            frame = frame + (adts ? AdtsFrame(raw[at], 16000, 2) : raw[at]);
    }
    return sound;
}

SoundCase G726(int bits, bool mostFirst, size_t frameBytes) {
    return {.type = CORVANE_STREAM_G726,
            .frames = Cut(EncodeG726(Sweep(8000, 2, 200, 900), bits, mostFirst), frameBytes),
            .frameMs = static_cast<double>(frameBytes) * 8 / bits / 8,
            .g726Bits = bits,
            .mostFirst = mostFirst};
}

const char* RawName(uint32_t type) {
    return type == kJpeg ? "mjpeg" : type == kH263 ? "h263" : type == kMpeg4 ? "m4v" : type == kH264 ? "h264" : "hevc";
}

void WriteFile(const std::string& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

// The check sum of all decoded pictures.
std::string Decoded(const std::string& input) {
    return OutputOf("ffmpeg -v error " + input + " -map 0:v -vsync passthrough -pix_fmt yuv420p -f md5 - 2>&1");
}

void ExpectSound(const SoundCase& sound, const AviStream& stream) {
    Bytes all;
    for (const Bytes& frame : sound.frames)
        all = all + frame;
    if (sound.g726Bits != 0) {
        const Samples wanted = BareG726(all, sound.g726Bits, sound.mostFirst);
        const Samples got = BareG726(stream.All(), sound.g726Bits, true);
        EXPECT_GE(got.size() + 8, wanted.size());
        EXPECT_TRUE(std::equal(got.begin(), got.end(), wanted.begin()));
    } else if (sound.adts) {
        EXPECT_EQ(stream.All().size() + 7 * stream.packets.size(), all.size());
        EXPECT_EQ(AdtsFrame(stream.packets.at(3).bytes, sound.rate, sound.channels), sound.frames[3]);
    } else {
        EXPECT_EQ(stream.All(), all);
    }
    EXPECT_EQ(stream.rate, sound.rate);
    EXPECT_EQ(stream.channels, sound.channels);
}

// Each picture and each sound of a stream is in the file, at its time, and players decode it to what bare streams give.
TEST(Movarix, FilesHaveWhatWasPutIn) {
    const VideoSpec small{.width = 160, .height = 96, .frames = 50, .gop = 25};
    const auto with = [&](uint32_t type, int bFrames = 0, bool interlaced = false) {
        VideoSpec spec = small;
        spec.streamType = type;
        spec.bFrames = bFrames;
        spec.interlaced = interlaced;
        return spec;
    };
    const struct {
        const char* name;
        VideoSpec video;
        SoundCase sound;
        bool gstreamerHearsIt = true;
    } kRows[] = {
        {"H.264, mu-law", with(kH264), G711(CORVANE_STREAM_MULAW, 1)},
        {"H.264 with B pictures, A-law in two channels", with(kH264, 2), G711(CORVANE_STREAM_ALAW, 2)},
        {"H.264 interlaced, AAC", with(kH264, 0, true), Aac(1, false)},
        {"H.265, AAC of three blocks", with(kH265), Aac(3, false)},
        {"MPEG-4, AAC with headers", with(kMpeg4), Aac(1, true)},
        {"JPEG, G.726 of 4 bits, least first", with(kJpeg), G726(4, false, 80), false},
        {"H.263, G.726 of 3 bits, most first, in odd frames", with(kH263), G726(3, true, 41), false},
        {"JPEG, G.726 of 5 bits, least first, in odd frames", with(kJpeg), G726(5, false, 83), false},
        {"H.264 alone", with(kH264), {}},
    };
    const Folder folder;
    const std::string path = folder / "a.avi", raw = folder / "raw";
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        const std::vector<EncodedPicture> video = MakeVideo(row.video);
        Recorder recorder;
        ASSERT_EQ(recorder.Start(path, 0, 0, MOVARIX_START_REPLACE), Status_Ok);
        Bytes all;
        for (size_t at = 0, sounds = 0; at < video.size(); ++at) {
            const auto timeMs = static_cast<int64_t>(40 * at);
            all = all + video[at].bytes;
            EXPECT_EQ(recorder.Picture(row.video.streamType, video[at].bytes, video[at].key, kStart + timeMs),
                      Status_Ok);
            for (; sounds < row.sound.frames.size() &&
                   (static_cast<double>(sounds) * row.sound.frameMs <= static_cast<double>(timeMs) ||
                    at + 1 == video.size());
                 ++sounds)
                EXPECT_EQ(
                    recorder.Input(HeaderOf(row.sound, sounds,
                                            kStart + std::lround(static_cast<double>(sounds) * row.sound.frameMs))),
                    Status_Ok);
        }
        EXPECT_EQ(recorder.Stop(), Status_Ok);
        EXPECT_EQ(recorder.Size(), std::filesystem::file_size(path));
        const Avi avi = ReadAvi(path);
        ASSERT_EQ(avi.pictures.packets.size(), video.size());
        EXPECT_EQ(avi.pictures.width, row.video.width);
        EXPECT_EQ(avi.pictures.height, row.video.height);
        for (size_t at = 0; at < video.size(); ++at) {
            EXPECT_EQ(avi.pictures.packets[at].bytes, video[at].bytes) << at;
            EXPECT_EQ(avi.pictures.packets[at].key, video[at].key) << at;
            EXPECT_NEAR(avi.pictures.packets[at].ms, static_cast<double>(40 * at), 1) << at;
        }
        if (row.sound.type != 0)
            ExpectSound(row.sound, avi.sound);
        EXPECT_EQ(avi.sound.codec == AV_CODEC_ID_NONE, row.sound.type == 0);
        WriteFile(raw, all);
        EXPECT_EQ(Decoded("-i " + path), Decoded(std::string("-f ") + RawName(row.video.streamType) + " -i " + raw));
        EXPECT_EQ(
            OutputOf(
                "ffprobe -v error -count_packets -select_streams v -show_entries stream=nb_read_packets -of csv=p=0 " +
                path),
            std::to_string(video.size()) + "\n");
        const std::string mpv =
            OutputOf("mpv --no-config --vo=null --ao=null --untimed --msg-level=all=error " + path + " 2>&1");
        EXPECT_EQ(mpv, "");
        const std::string sink = " ! queue ! decodebin ! fakesink ";
        EXPECT_EQ(OutputOf("gst-launch-1.0 -q filesrc location=" + path + " ! avidemux name=d d.video_0" + sink +
                           (row.sound.type != 0 && row.gstreamerHearsIt ? "d.audio_0" + sink : "") + " 2>&1"),
                  "");
    }
}

}    // namespace
}    // namespace corvane::test
