// Movarix.so as a host uses it: by its functions alone. What its files contain is read by libavformat, and by players.
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cmath>
#include <csignal>
#include <sstream>

#include "base/Sanitized.h"
#include "sidelibs/MovarixCalls.h"
#include "support/BareDecoder.h"
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
    int64_t startMs = 0, gapMs = 0;    // of the first frame, and of those from the tenth on
    size_t lost = 0;                   // frames left out from the tenth on
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

void Ok(uint32_t status) {
    EXPECT_EQ(status, Status_Ok);
}

// Pictures 40 ms apart, after each the sound of its time, and all that is left after the last. The number of sounds.
size_t Feed(Recorder& recorder, uint32_t type, const std::vector<EncodedPicture>& video, const SoundCase& sound = {}) {
    size_t put = 0, next = 0;
    for (size_t at = 0; at < video.size(); ++at) {
        const auto timeMs = static_cast<int64_t>(40 * at);
        Ok(recorder.Picture(type, video[at].bytes, video[at].key, kStart + timeMs));
        for (; next < sound.frames.size(); ++next) {
            const int64_t ms = std::lround(static_cast<double>(next) * sound.frameMs);
            if (ms > timeMs && at + 1 < video.size())
                break;
            if (next >= 10 && next < 10 + sound.lost)
                continue;
            Ok(recorder.Input(HeaderOf(sound, next, kStart + sound.startMs + ms + (next >= 10 ? sound.gapMs : 0))));
            ++put;
        }
    }
    return put;
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
    if (sound.type == CORVANE_STREAM_AAC)    // low complexity, 16,000 Hz, two channels, no spectral band replication
        EXPECT_EQ(stream.configuration, (Bytes{0x14, 0x10, 0x56, 0xE5, 0x00}));
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
        Ok(recorder.Start(path, 0, 0, MOVARIX_START_REPLACE));
        Feed(recorder, row.video.streamType, video, row.sound);
        Ok(recorder.Stop());
        EXPECT_EQ(recorder.Size(), std::filesystem::file_size(path));
        const Avi avi = ReadAvi(path);
        ASSERT_EQ(avi.pictures.packets.size(), video.size());
        EXPECT_EQ(avi.pictures.width, row.video.width);
        EXPECT_EQ(avi.pictures.height, row.video.height);
        Bytes all;
        for (size_t at = 0; at < video.size(); ++at) {
            all = all + video[at].bytes;
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

const Bytes& SmallJpeg() {
    static const Bytes jpeg = MakeVideo({.streamType = kJpeg, .width = 80, .height = 32, .frames = 1})[0].bytes;
    return jpeg;
}

// Key frames, all of them SmallJpeg.
std::vector<EncodedPicture> SmallVideo(size_t count) {
    return std::vector<EncodedPicture>(count, {SmallJpeg(), true});
}

using Times = std::vector<int64_t>;

Times Steps(size_t count, const std::function<double(double)>& timeOf) {
    Times times;
    for (size_t at = 0; at < count; ++at)
        times.push_back(std::llround(timeOf(static_cast<double>(at))));
    return times;
}

// Where each picture lies in its file, by the time of its frame.
TEST(Movarix, FrameTimesDecideTheSpacing) {
    const Times even = Steps(60, [](double at) { return 40 * at; });
    constexpr double presented[] = {-40, 80, -40};    // of P B B: ahead, and behind
    const auto slower = [](double ms) {
        return Steps(60, [=](double at) { return (at < 30 ? 40 * at : 80 * at - 1200) + (at >= 45 ? ms : 0); });
    };
    const auto jump = [](double from, double ms) {
        return Steps(60, [=](double at) { return 40 * at + (at >= from ? ms : 0); });
    };
    const struct {
        const char* name;
        bool live;
        Times times, wanted;    // of the frames, and in the file where they differ
        double tolerance = 0.5;
        bool old = false;    // a record of 176 bytes, without a stream clock
    } kRows[] = {
        {"25 per second", true, even, {}},
        {"29.97 per second in milliseconds", true, Steps(300, [](double at) { return at * 1001 / 30; }), {}, 34},
        {"12.5 per second", true, Steps(60, [](double at) { return 80 * at; }), {}},
        {"one per second", true, Steps(8, [](double at) { return 1000 * at; }), {}},
        {"one per 7 seconds", true, Steps(4, [](double at) { return 7000 * at; }), {}},
        {"times that waver", true, Steps(500, [](double at) { return 40 * at + 9 * std::sin(at * 5); }), {}, 60},
        {"a lost picture in the first second", true, jump(5, 40), {}},
        {"slower later", true, slower(0), {}},
        {"10.9 s, live", true, jump(40, 10'900 - 40), {}, 20},
        {"11 s, live: as the last step", true, jump(40, 11'000 - 40), even},
        {"20 s after slower pictures: as their step", true, slower(20'000), slower(0)},
        {"11 s, not live: a gap", false, jump(40, 11'000 - 40), {}, 20},
        {"almost an hour, not live: a gap", false, jump(40, 3'599'000), {}, 20},
        {"over an hour, not live: as the last step", false, jump(40, 3'600'001), even},
        {"an hour back, live", true, jump(40, -3'600'000), even},
        {"two seconds back, not live", false, jump(40, -2000), even},
        {"half a second back", true, jump(40, -500), even},
        {"0.9 s back: after 16 pictures its times count again", true,
         Steps(60, [](double at) { return 40 * at - (at >= 30 ? 900 : 0) + (at >= 50 ? 200 : 0); }), jump(50, 200)},
        {"times that stand still", true, Steps(60, [](double) { return 5; }), even},
        {"times of presentation", true,
         Steps(60, [&](double at) { return 40 * at + (at > 0 ? presented[static_cast<size_t>(at) % 3] : 0); }), even,
         80},
        {"each second time twice", true,
         Steps(60, [](double at) { return 120 * std::floor(at / 3) + 40 * (std::fmod(at, 3) > 1); }), even, 80},
        {"a record without a stream clock has the wall clock", true, even, even, 0.5, true},
    };
    const Folder folder;
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        Recorder recorder(row.live);
        Ok(recorder.Start(folder / "t.avi", 0, 0, MOVARIX_START_REPLACE));
        for (const int64_t time : row.times) {
            MediaFrameHeader header = VideoHeader(kJpeg, SmallJpeg(), true, kStart + time);
            header.recordSize = row.old ? 0 : header.recordSize;
            header.streamSeconds = row.old ? 77 : header.streamSeconds;
            Ok(recorder.Input(header));
        }
        Ok(recorder.Stop());
        const Avi avi = ReadAvi(folder / "t.avi");
        ASSERT_EQ(avi.pictures.packets.size(), row.times.size());
        for (size_t at = 0; at < row.times.size(); ++at)
            EXPECT_NEAR(avi.pictures.packets[at].ms,
                        static_cast<double>((row.wanted.empty() ? row.times : row.wanted)[at]), row.tolerance)
                << at;
    }
}

// Sound keeps its time beside the pictures: silence before it, and where frames are missing.
TEST(Movarix, SilenceFillsGapsOfSound) {
    const auto with = [](SoundCase sound, int64_t startMs, size_t lost, int64_t gapMs = 0) {
        sound.startMs = startMs;
        sound.lost = lost;
        sound.gapMs = gapMs;
        return sound;
    };
    const SoundCase muLaw = G711(CORVANE_STREAM_MULAW, 1);
    const struct {
        const char* name;
        SoundCase sound;
        double silenceMs;
    } kRows[] = {
        {"from the start", muLaw, 0},
        {"A-law that begins late", with(G711(CORVANE_STREAM_ALAW, 2), 500, 0), 500},
        {"AAC that begins late", with(Aac(1, false), 640, 0), 640},
        {"before the first picture: left out", with(muLaw, -200, 0), -200},
        {"one frame lost: nothing", with(muLaw, 0, 1), 0},
        {"five lost", with(muLaw, 0, 5), 100},
        {"five of G.726 lost", with(G726(4, true, 80), 0, 5), 100},
        {"five of AAC lost", with(Aac(1, false), 0, 5), 320},
        {"a clock of its own", with(muLaw, 5'000'000, 0), 0},
        {"its clock goes back by an hour", with(muLaw, 0, 0, -3'600'000), 0},
    };
    const Folder folder;
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        Recorder recorder;
        Ok(recorder.Start(folder / "s.avi", 0, 0, MOVARIX_START_REPLACE));
        const size_t put = Feed(recorder, kJpeg, SmallVideo(60), row.sound);
        Ok(recorder.Stop());
        const AviStream sound = ReadAvi(folder / "s.avi").sound;
        const bool aac = row.sound.type == CORVANE_STREAM_AAC;
        EXPECT_TRUE(row.sound.type != CORVANE_STREAM_ALAW || sound.All()[0] == 0xD5);
        const size_t frames = aac ? sound.packets.size() : sound.All().size() / row.sound.frames[0].size();
        EXPECT_NEAR((static_cast<double>(frames) - static_cast<double>(put)) * row.sound.frameMs, row.silenceMs,
                    row.sound.frameMs / 2 + 0.01);
        EXPECT_EQ(OutputOf("ffmpeg -v error -i " + (folder / "s.avi") + " -map 0:a -f null - 2>&1"), "");
    }
}

// A recording told in words: a letter for the stream, and which of its pictures. Each moves the clock by 40 ms.
struct Scene {
    std::vector<EncodedPicture> video = MakeVideo({.width = 160, .height = 96, .frames = 75, .gop = 25});
    std::vector<EncodedPicture> other = MakeVideo({.width = 176, .height = 96, .frames = 25, .gop = 25});
    std::vector<EncodedPicture> hevc =
        MakeVideo({.streamType = kH265, .width = 160, .height = 96, .frames = 25, .gop = 25});
    Bytes sound = G711(CORVANE_STREAM_MULAW, 1).frames[0];
    int64_t timeMs = kStart;

    void Pictures(Recorder& recorder, char word, size_t first, size_t end) {
        const std::vector<EncodedPicture>& stream = word == 'o' ? other : word == 'x' ? hevc : video;
        for (size_t at = first; at < end; ++at, timeMs += word == 'd' ? 80 : word == 'f' ? 20 : 40) {
            Bytes bytes = stream[word == 'j' ? 1 : at].bytes;
            const bool key = word != 'j' && stream[at].key;
            if (word == 'n' && key) {    // parameter sets at the start alone, in a frame of their own
                constexpr uint8_t kSlice[] = {0, 0, 1, 0x65};
                const auto slice = std::search(bytes.begin(), bytes.end(), std::begin(kSlice), std::end(kSlice));
                if (at == 0)
                    Ok(recorder.Picture(kH264, {bytes.begin(), slice}, true, timeMs));
                bytes.erase(bytes.begin(), slice);
            }
            Ok(recorder.Picture(word == 'x' ? kH265 : kH264, bytes, key || word == 'k', timeMs));
        }
    }
    void Play(Recorder& recorder, const std::string& words) {
        std::istringstream in(words);
        for (std::string word; in >> word;) {
            size_t first = 0, end = 0;
            std::sscanf(word.c_str() + 1, "%zu-%zu", &first, &end);
            if (word[0] == 'm' || word[0] == 'a') {
                const uint32_t type = word[0] == 'm' ? CORVANE_STREAM_MULAW : CORVANE_STREAM_ALAW;
                Ok(recorder.Input(SoundHeader(type, sound, 8000, 1, 1, timeMs)));
            } else if (word[0] == 'P' || word[0] == 'S') {
                const uint32_t id = word[0] == 'P' ? MOVARIX_OPTION_PICTURES : MOVARIX_OPTION_SOUND;
                Ok(MOVARIX(SetChannelOption)(recorder.channel, id, static_cast<uint32_t>(first), 0));
            } else {
                Pictures(recorder, word[0], first, end);
            }
        }
    }
};

// The pictures of each file in the folder, and + where there is sound. Each file is whole: it can be decoded by itself.
std::string FilesOf(const Folder& folder) {
    std::string all;
    for (size_t number = 1; number <= folder.Files(); ++number) {
        const std::string path = folder / (number == 1 ? "a.b.avi" : "a.b-" + std::to_string(number) + ".avi");
        const Avi avi = ReadAvi(path);
        const std::string count = std::to_string(avi.pictures.packets.size());
        EXPECT_TRUE(avi.pictures.packets.empty() || avi.pictures.packets[0].key);
        EXPECT_EQ(OutputOf("ffmpeg -v error -i " + path + " -f null - 2>&1"), "");
        if (count != "0")
            EXPECT_EQ(OutputOf("ffprobe -v error -count_frames -select_streams v -show_entries stream=nb_read_frames "
                               "-of csv=p=0 " +
                               path),
                      count + "\n");
        all += (all.empty() ? "" : " ") + count + (avi.sound.packets.empty() ? "" : "+");
    }
    return all;
}

// What begins the next file.
TEST(Movarix, TheNextFileBeginsWithAKeyFrame) {
    Scene scene;
    const struct {
        const char* name;
        uint64_t maxBytes;
        uint32_t maxSeconds;
        const char *words, *files;
    } kRows[] = {
        {"seconds", 0, 1, "v0-75", "25 25 25"},
        {"seconds within a group of pictures", 0, 2, "v0-75", "50 25"},
        {"bytes", 1, 0, "v0-75", "25 25 25"},
        {"no limit", 0, 0, "v0-75", "75"},
        {"size", 0, 0, "v0-75 o0-25", "75 25"},
        {"size while held back", 0, 0, "v0-5 o0-25", "5 25"},
        {"type, and no key frame at first", 0, 0, "v0-75 x1-25 x0-25", "75 25"},
        {"before the first key frame", 0, 0, "m v10-75", "50"},
        {"sound that comes late", 0, 0, "v0-40 m v0-75 m", "40 75+"},
        {"another sound", 0, 0, "v0-20 m v0-20 a v0-75 a", "40+ 75+"},
        {"pictures that come faster", 0, 0, "d0-25 f25-75", "50 25"},
        {"pictures off, on, off", 0, 0, "P0 v0-75 m m P1 v10-75 m P0 v0-75", "0+ 50+"},
        {"sound off", 0, 0, "S0 v0-75 m v0-75", "150"},
        {"sound off in mid-stream", 0, 1, "v0-1 m v1-25 S0 v25-75", "25+ 25 25"},
        {"parameter sets at the start alone", 0, 1, "n0-75", "25 25 25"},
        {"all frames called key frames", 1, 0, "k0-75", "25 25 25"},
        {"no key frame for a minute: no file", 0, 0, "j0-1500", ""},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        const Folder folder;
        Recorder recorder;
        Ok(recorder.Start(folder / "a.b.avi", row.maxBytes, row.maxSeconds));
        scene.Play(recorder, row.words);
        Ok(recorder.Stop());
        EXPECT_EQ(FilesOf(folder), row.files);
    }
    const Folder folder;    // a name that is taken is passed over; the first is refused, or replaced
    WriteFile(folder / "n-2.avi", {1});
    WriteFile(folder / "n.avi", Bytes(1 << 20, 1));
    Recorder recorder;
    EXPECT_EQ(recorder.Start(folder / "n.avi"), MOVARIX_SYSTEM_ERROR(EEXIST));
    std::filesystem::rename(folder / "n.avi", folder / "n-3.avi");
    Ok(recorder.Start(folder / "n.avi", 0, 1));
    EXPECT_EQ(recorder.Start(folder / "m.avi"), Status_Failed);
    scene.Play(recorder, "v0-50");
    Ok(recorder.Stop());
    EXPECT_EQ(ReadAvi(folder / "n-4.avi").pictures.packets.size(), 25u);
    EXPECT_EQ(std::filesystem::file_size(folder / "n-2.avi"), 1u);
    Ok(recorder.Start(folder / "n-3.avi", 0, 0, MOVARIX_START_REPLACE));
    EXPECT_EQ(std::filesystem::file_size(folder / "n-3.avi"), 1u << 20);    // as long as nothing takes its place
    scene.Play(recorder, "o0-25");
    Ok(recorder.Stop());
    EXPECT_EQ(ReadAvi(folder / "n-3.avi").pictures.packets.size(), 25u);
}

// Two fields in frames of their own are one chunk; fields without a second one are chunks of their own.
TEST(Movarix, FieldsAreJoined) {
    const FieldStream fields = MakeFields();
    for (const bool lone : {false, true}) {
        SCOPED_TRACE(lone);
        const Folder folder;
        Recorder recorder;
        Ok(recorder.Start(folder / "f.avi"));
        std::vector<Bytes> wanted;
        for (const FieldUnit& field : fields) {
            if (lone && field.bottom)
                continue;
            Ok(recorder.Picture(kH264, field.bytes, field.picture % kFieldGop == 0 && !field.bottom,
                                kStart + 40 * field.picture + (field.bottom ? 20 : 0)));
            if (field.bottom)
                wanted.back() = wanted.back() + field.bytes;
            else
                wanted.push_back(field.bytes);
        }
        Ok(recorder.Stop());
        const Avi avi = ReadAvi(folder / "f.avi");
        ASSERT_EQ(avi.pictures.packets.size(), wanted.size());
        for (size_t at = 0; at < wanted.size(); ++at) {
            EXPECT_EQ(avi.pictures.packets[at].bytes, wanted[at]) << at;
            EXPECT_NEAR(avi.pictures.packets[at].ms, 40.0 * static_cast<double>(at), 1);
        }
        EXPECT_EQ(avi.pictures.width, 32);
    }
}

// What is refused, and with which status; everything goes on.
TEST(Movarix, BadInputGetsAStatus) {
    const Folder folder;
    std::filesystem::create_directory(folder / "dir");
    WriteFile(folder / "old", Bytes(100, 1));
    const struct {
        std::string path;
        uint32_t flags, status;
    } kStarts[] = {
        {folder / "dir", 0, MOVARIX_SYSTEM_ERROR(EEXIST)},
        {folder / "dir", MOVARIX_START_REPLACE, MOVARIX_SYSTEM_ERROR(EISDIR)},
        {folder / "none/a.avi", 0, MOVARIX_SYSTEM_ERROR(ENOENT)},
        {folder / "old", 0, MOVARIX_SYSTEM_ERROR(EEXIST)},
        {(folder / "old") + "/a.avi", 0, MOVARIX_SYSTEM_ERROR(ENOTDIR)},
        {"", 0, MOVARIX_SYSTEM_ERROR(ENOENT)},
        {folder / std::string(5000, 'x'), 0, MOVARIX_SYSTEM_ERROR(ENAMETOOLONG)},
        {"/dev/null", MOVARIX_START_REPLACE, MOVARIX_SYSTEM_ERROR(EINVAL)},
        {"/proc/new.avi", 0, MOVARIX_SYSTEM_ERROR(ENOENT)},
        {folder / "\xff\xfe.avi", 0, Status_Ok},
    };
    Recorder recorder;
    EXPECT_EQ(recorder.Picture(kJpeg, SmallJpeg(), true, kStart), Status_ChannelNotStarted);
    EXPECT_EQ(recorder.Decoded(MOVARIX_DECODED_PICTURE, RawPictureInfo{}), Status_ChannelNotStarted);
    EXPECT_EQ(MOVARIX(StartChannel)(recorder.channel, 0), Status_InvalidArgument);
    for (const auto& row : kStarts)
        EXPECT_EQ(recorder.Start(row.path, 0, 0, row.flags), row.status) << row.path.substr(0, 60);
    MovarixStart start{12, 0, "x", 0, 0, {}};
    EXPECT_EQ(MOVARIX(StartChannel)(recorder.channel, reinterpret_cast<uint64_t>(&start)), Status_InvalidArgument);

    const Bytes avcc = {0, 0, 0, 5, 0x65, 1, 2, 3, 4}, noise = Noise(100),
                noSize = {0, 0, 0, 1, 0x67, 0, 0, 0, 1, 0x65, 0x88};
    MediaFrameHeader noData = VideoHeader(kH264, avcc, true, kStart), large = noData,
                     noChannels = SoundHeader(CORVANE_STREAM_MULAW, noise, 8000, 0),
                     badRate = SoundHeader(CORVANE_STREAM_AAC, noise, 8001),
                     noBlocks = SoundHeader(CORVANE_STREAM_AAC, noise, 8000, 1, 0),
                     badBits = SoundHeader(CORVANE_STREAM_G726, noise, 8000);
    noData.data = nullptr;
    large.payloadSize = UINT32_MAX;
    badBits.detail.audio.audioBitRate = 33'000;
    RawPictureInfo raw{
        .width = 64, .height = 64, .size = 64 * 64 * 3 / 2 - 1, .pixels = noise.data(), .format = CORVANE_PICTURE_I420};
    RawPictureInfo jpeg = raw, huge = raw, odd = raw;
    jpeg.format = CORVANE_PICTURE_JPEG;
    huge.width = huge.height = 1u << 31;
    odd.width = 1;
    const struct {
        const char* name;
        uint32_t wanted, got;
    } kInputs[] = {
        {"null", Status_InvalidArgument, MOVARIX(InputMedia)(recorder.channel, 0)},
        {"no data", Status_InvalidArgument, recorder.Input(noData)},
        {"larger than any frame", Status_InvalidArgument, recorder.Input(large)},
        {"placeholder", Status_UnsupportedMedia, recorder.Picture(CORVANE_STREAM_PLACEHOLDER, noise, true, kStart)},
        {"metadata", Status_UnsupportedMedia, recorder.Picture(CORVANE_STREAM_METADATA_XML, noise, true, kStart)},
        {"sound that files cannot have", Status_UnsupportedMedia,
         recorder.Input(SoundHeader(CORVANE_STREAM_G729A, noise, 8000))},
        {"H.264 with lengths", Status_UnsupportedMedia, recorder.Picture(kH264, avcc, true, kStart)},
        {"no JPEG", Status_UnsupportedMedia, recorder.Picture(kJpeg, noise, true, kStart)},
        {"no size", Status_InvalidArgument, recorder.Picture(kH264, noSize, true, kStart)},
        {"empty", Status_Ok, recorder.Picture(kH264, {}, true, kStart)},
        {"no channels", Status_InvalidArgument, recorder.Input(noChannels)},
        {"a rate that AAC has not", Status_InvalidArgument, recorder.Input(badRate)},
        {"no blocks", Status_InvalidArgument, recorder.Input(noBlocks)},
        {"a bit rate that G.726 has not", Status_InvalidArgument, recorder.Input(badBits)},
        {"null record", Status_InvalidArgument, MOVARIX(InputDecodedMedia)(recorder.channel, 1, 0)},
        {"unknown kind", Status_NotSupported, recorder.Decoded(3, raw)},
        {"one byte short", Status_InvalidArgument, recorder.Decoded(MOVARIX_DECODED_PICTURE, raw)},
        {"no pixels", Status_UnsupportedMedia, recorder.Decoded(MOVARIX_DECODED_PICTURE, jpeg)},
        {"too large", Status_InvalidArgument, recorder.Decoded(MOVARIX_DECODED_PICTURE, huge)},
        {"one column", Status_InvalidArgument, recorder.Decoded(MOVARIX_DECODED_PICTURE, odd)},
        {"option", Status_NotSupported, MOVARIX(SetChannelOption)(recorder.channel, 3, 1, 0)},
        {"picture compressor", Status_UnsupportedMedia,
         MOVARIX(ChooseChannelVideoCompressor)(recorder.channel, CORVANE_STREAM_H265, 0, 0)},
        {"sound compressor", Status_UnsupportedMedia,
         MOVARIX(ChooseAudioCompressor)(recorder.module, CORVANE_STREAM_AAC, 0, 0)},
        {"bit rate", Status_InvalidArgument,
         MOVARIX(ChooseVideoCompressor)(recorder.module, CORVANE_STREAM_H264, 1ull << 32, 0)},
        {"null parameters", Status_InvalidArgument, MOVARIX(GetChannelVideoCompressorParam)(recorder.channel, 0)},
        {"null channel", Status_InvalidArgument, MOVARIX(StopChannel)(nullptr)},
        {"null module", Status_InvalidArgument, MOVARIX(CreateChannel)(nullptr, &recorder.channel)},
        {"null host", Status_InvalidArgument, MOVARIX(Initial)(&recorder.module, nullptr, nullptr)},
    };
    for (const auto& row : kInputs)
        EXPECT_EQ(row.got, row.wanted) << row.name;
    Ok(recorder.Picture(kJpeg, SmallJpeg(), true, kStart));
    Ok(recorder.Stop());
    EXPECT_EQ(ReadAvi(folder / "\xff\xfe.avi").pictures.packets.size(), 1u);
}

// Feeds pictures until one is refused, at most `most`. The status of the last one.
uint32_t FeedUntilRefused(Recorder& recorder, int64_t most) {
    const Bytes large = SmallJpeg() + Bytes(100'000, 0);
    for (int64_t at = 0; at < most; ++at)
        if (const uint32_t status = recorder.Picture(kJpeg, large, true, kStart + 40 * at);
            static_cast<int32_t>(status) < 0)
            return status;
    return Status_Ok;
}

// Runs in a child process, which ends by itself; its exit status, or the signal that ended it, negative.
int InChild(const std::function<int()>& work) {
    const pid_t child = fork();
    if (child == 0)
        _exit(work());
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

// A refused write is one status from then on, until the next start, and no signal.
TEST(Movarix, WhatCannotBeWrittenIsOneStatus) {
    const Folder folder, small;
    const bool mounted = mount("none", (small / "").c_str(), "tmpfs", 0, "size=2m") == 0;
    const auto fails = [&](Recorder& recorder, const std::string& path, int error) {
        const uint32_t wanted = MOVARIX_SYSTEM_ERROR(error);
        return recorder.Start(path) == Status_Ok && FeedUntilRefused(recorder, 200) == wanted &&
               FeedUntilRefused(recorder, 1) == wanted && recorder.Stop() == wanted &&
               recorder.Start(folder / "next.avi") == Status_Ok && FeedUntilRefused(recorder, 2) == Status_Ok &&
               recorder.Stop() == Status_Ok;
    };
    EXPECT_EQ(InChild([&] {
                  const rlimit limit{1 << 20, 1 << 20};
                  setrlimit(RLIMIT_FSIZE, &limit);    // SIGXFSZ has its default action, which ends the process
                  Recorder recorder;
                  sigset_t set;
                  const bool good = fails(recorder, folder / "limit.avi", EFBIG);
                  sigpending(&set);
                  sigset_t mask;
                  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
                  return good && sigismember(&set, SIGXFSZ) == 0 && sigismember(&mask, SIGXFSZ) == 0 ? 0 : 1;
              }),
              0);
    std::filesystem::remove(folder / "next.avi");
    Recorder recorder;
    EXPECT_TRUE(!mounted || fails(recorder, small / "full.avi", ENOSPC));
    if (mounted) {
        EXPECT_GT(ReadAvi(small / "full.avi").pictures.packets.size(), 10u);    // up to where the disk was full
        umount((small / "").c_str());
    }
    Ok(recorder.Start(folder / "gone.avi"));
    EXPECT_EQ(FeedUntilRefused(recorder, 30), Status_Ok);
    std::filesystem::remove(folder / "gone.avi");
    EXPECT_EQ(FeedUntilRefused(recorder, 30), MOVARIX_SYSTEM_ERROR(ENOENT));
    EXPECT_EQ(recorder.Stop(), MOVARIX_SYSTEM_ERROR(ENOENT));
}

// A process that ends in the middle leaves a file that players open, up to the last second.
TEST(Movarix, AKilledProcessLeavesAFile) {
    const Folder folder;
    EXPECT_EQ(InChild([&] {
                  Recorder recorder;
                  recorder.Start(folder / "k.avi");
                  SoundCase sound = G711(CORVANE_STREAM_MULAW, 1);
                  sound.frames = Cut(Noise(250 * 320), 160);
                  Feed(recorder, kJpeg, SmallVideo(250), sound);
                  return raise(SIGKILL);
              }),
              -SIGKILL);
    const Avi avi = ReadAvi(folder / "k.avi");
    EXPECT_GE(avi.pictures.packets.size(), 224u);
    EXPECT_GE(avi.sound.All().size(), 224u * 320);
    EXPECT_EQ(OutputOf("ffmpeg -v error -i " + (folder / "k.avi") + " -c copy " + (folder / "repaired.avi") + " 2>&1"),
              "");
    EXPECT_GE(ReadAvi(folder / "repaired.avi").pictures.packets.size(), 224u);
}

// More than 2 GiB: the index of OpenDML leads to the last picture.
TEST(Movarix, LargeFilesAreOpenDml) {
    if (std::filesystem::space("/tmp").available < (8ull << 30))
        GTEST_SKIP() << "not enough room";
    const Folder folder;
    Recorder recorder;
    Ok(recorder.Start(folder / "large.avi"));
    constexpr int64_t kPictures = 150;
    Bytes large = SmallJpeg() + Bytes(16 << 20, 0);
    for (int64_t at = 0; at < kPictures; ++at) {
        large.back() = static_cast<uint8_t>(at);
        ASSERT_EQ(recorder.Picture(kJpeg, large, true, kStart + 40 * at), Status_Ok);
    }
    Ok(recorder.Stop());
    EXPECT_GT(recorder.Size(), 1ull << 31);
    AVFormatContext* format = nullptr;
    ASSERT_EQ(avformat_open_input(&format, (folder / "large.avi").c_str(), nullptr, nullptr), 0);
    EXPECT_EQ(format->streams[0]->nb_frames, kPictures);
    AVPacket* packet = av_packet_alloc();
    for (const int64_t at : {kPictures - 1, int64_t{100}, int64_t{3}}) {
        EXPECT_GE(av_seek_frame(format, 0, at, 0), 0);
        EXPECT_GE(av_read_frame(format, packet), 0);
        EXPECT_EQ(packet->data[packet->size - 1], at);
        av_packet_unref(packet);
    }
    av_packet_free(&packet);
    avformat_close_input(&format);
}

Bytes RawOf(uint32_t width, uint32_t height, int number) {
    Bytes pixels(width * height * 3 / 2, 128);
    for (uint32_t at = 0; at < width * height; ++at)
        pixels[at] = static_cast<uint8_t>(16 + (at % width + at / width + static_cast<uint32_t>(number) * 8) % 200);
    return pixels;
}

RawPictureInfo RawInfo(uint32_t width, uint32_t height, const Bytes& bytes, int64_t timeMs,
                       uint32_t format = CORVANE_PICTURE_I420) {
    RawPictureInfo info{.width = width,
                        .height = height,
                        .size = static_cast<uint32_t>(bytes.size()),
                        .pixels = bytes.data(),
                        .buffer = bytes.data(),
                        .format = format};
    const MediaFrameHeader header = VideoHeader(kH264, bytes, true, timeMs);
    std::memcpy(info.header, &header, sizeof info.header);
    return info;
}

RawAudioInfo RawSound(const Bytes& samples, int64_t timeMs, int rate = 8000, int channels = 1) {
    const MediaFrameHeader header = SoundHeader(CORVANE_STREAM_MULAW, samples, rate, channels, 1, timeMs);
    RawAudioInfo info{.duration = 20, .size = static_cast<uint32_t>(samples.size()), .samples = samples.data()};
    std::memcpy(info.header, &header, sizeof info.header);
    return info;
}

// The luma of the pictures of a file, by ffmpeg.
Bytes LumaOf(const std::string& path, size_t pictureBytes, size_t lumaBytes) {
    const std::string all =
        OutputOf("ffmpeg -v error -i " + path + " -map 0:v -vsync passthrough -pix_fmt yuv420p -f rawvideo -");
    Bytes luma;
    for (size_t at = 0; at + pictureBytes <= all.size(); at += pictureBytes)
        luma.insert(luma.end(), all.begin() + static_cast<ptrdiff_t>(at),
                    all.begin() + static_cast<ptrdiff_t>(at + lumaBytes));
    return luma;
}

// Decoded input in every compressor: pictures near those put in, samples equal; sizes from the largest to the least.
TEST(Movarix, DecodedInputIsCompressed) {
    const struct {
        uint32_t pictures, sound;
        AVCodecID pictureCodec, soundCodec;
        uint32_t interval;
        size_t keys;
    } kRows[] = {
        {0, 0, AV_CODEC_ID_MPEG4, AV_CODEC_ID_PCM_S16LE, 10, 3},
        {CORVANE_STREAM_MPEG4, 0, AV_CODEC_ID_MPEG4, AV_CODEC_ID_PCM_S16LE, 0, 1},
        {CORVANE_STREAM_H264, CORVANE_STREAM_MULAW, AV_CODEC_ID_H264, AV_CODEC_ID_PCM_MULAW, 15, 2},
        {CORVANE_STREAM_JPEG, CORVANE_STREAM_ALAW, AV_CODEC_ID_MJPEG, AV_CODEC_ID_PCM_ALAW, 0, 30},
    };
    const Folder folder;
    const std::string path = folder / "d.avi";
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.pictures);
        Recorder recorder;
        Ok(MOVARIX(ChooseChannelVideoCompressor)(recorder.channel, row.pictures, 4'000'000, row.interval));
        const MovarixCompressor chosen{row.sound, 0, 0};
        MovarixCompressor read{};
        Ok(MOVARIX(SetChannelAudioCompressorParam)(recorder.channel, reinterpret_cast<uint64_t>(&chosen)));
        Ok(MOVARIX(GetChannelAudioCompressorParam)(recorder.channel, reinterpret_cast<uint64_t>(&read)));
        EXPECT_EQ(read.type, row.sound);
        Ok(recorder.Start(path, 0, 0, MOVARIX_START_REPLACE));
        Bytes luma, samples;
        for (int at = 0; at < 30; ++at) {
            const Bytes pixels = RawOf(162, 97, at), sound = Noise(640);
            Ok(recorder.Decoded(MOVARIX_DECODED_PICTURE, RawInfo(162, 97, pixels, kStart + 40 * at)));
            Ok(recorder.Decoded(MOVARIX_DECODED_SOUND, RawSound(sound, kStart + 40 * at)));
            luma.insert(luma.end(), pixels.begin(), pixels.begin() + 162 * 96);
            samples = samples + sound;
        }
        Ok(recorder.Stop());
        const Avi avi = ReadAvi(path);
        EXPECT_EQ(avi.pictures.codec, row.pictureCodec);
        EXPECT_EQ(avi.sound.codec, row.soundCodec);
        EXPECT_EQ(avi.pictures.packets.size(), 30u);
        EXPECT_EQ(static_cast<size_t>(std::count_if(avi.pictures.packets.begin(), avi.pictures.packets.end(),
                                                    [](const AviPacket& packet) { return packet.key; })),
                  row.keys);
        EXPECT_NEAR(avi.pictures.packets.back().ms, 40 * 29, 1);
        const Bytes got = LumaOf(path, 162 * 96 * 3 / 2, 162 * 96);
        ASSERT_EQ(got.size(), luma.size());
        double error = 0;
        for (size_t at = 0; at < got.size(); ++at)
            error += std::abs(got[at] - luma[at]);
        EXPECT_LT(error / static_cast<double>(got.size()), 3);
        if (row.sound == 0)
            EXPECT_EQ(avi.sound.All(), samples);
        EXPECT_EQ(OutputOf("ffmpeg -v error -i " + path + " -map 0:a -f null - 2>&1"), "");
    }
}

// Pictures of 4096x4096 and then 16x16, every pixel format, and a format that the picture callback hands out in RGB.
TEST(Movarix, DecodedPicturesOfAllFormats) {
    constexpr uint32_t kFormats[] = {CORVANE_PICTURE_YUY2,   CORVANE_PICTURE_RGB565, CORVANE_PICTURE_BGR24,
                                     CORVANE_PICTURE_BGRA32, CORVANE_PICTURE_RGB555, CORVANE_PICTURE_I420,
                                     CORVANE_PICTURE_BGR565, CORVANE_PICTURE_RGB24,  CORVANE_PICTURE_RGBA32,
                                     CORVANE_PICTURE_BGR555, CORVANE_PICTURE_YV12,   CORVANE_PICTURE_UYVY,
                                     CORVANE_PICTURE_NV12};
    const std::vector<EncodedPicture> stream = MakeVideo({.width = 160, .height = 96, .frames = 1});
    const Folder folder;
    void* instance = nullptr;
    ASSERT_EQ(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0), Status_Ok);
    for (const uint32_t format : kFormats) {
        SCOPED_TRACE(format);
        Recorder recorder;
        Ok(recorder.Start(folder / "p.avi", 0, 0, MOVARIX_START_REPLACE));
        const DecoderChannelSettings settings{
            [](void* context, uint32_t code, void* record) {
                EXPECT_EQ(static_cast<Recorder*>(context)->Decoded(code, *static_cast<RawPictureInfo*>(record)),
                          Status_Ok);
            },
            &recorder, format, 0};
        void* decoder = nullptr;
        ASSERT_EQ(Corvane_CreateDecoderChannel(instance, &decoder, &settings), Status_Ok);
        const MediaFrameHeader header = VideoHeader(kH264, stream[0].bytes, true, kStart);
        EXPECT_EQ(Corvane_InputToBeDecodedMediaFrame(decoder, &header), Status_Ok);
        EXPECT_EQ(Corvane_DeleteDecoderChannel(instance, &decoder), Status_Ok);
        Ok(recorder.Stop());
        const Bytes got = LumaOf(folder / "p.avi", 160 * 96 * 3 / 2, 160 * 96 * 3 / 2);
        const std::vector<BarePicture> wanted = BareDecode(kH264, stream);
        ASSERT_EQ(got.size(), 160u * 96 * 3 / 2);
        const uint8_t* at = got.data();
        for (int plane = 0; plane < 3; ++plane) {
            const int width = plane == 0 ? 160 : 80, height = plane == 0 ? 96 : 48;
            double error = 0;
            for (int sample = 0; sample < width * height; ++sample)
                error += std::abs(*at++ -
                                  wanted[0]->data[plane][sample / width * wanted[0]->linesize[plane] + sample % width]);
            EXPECT_LT(error / (width * height), plane == 0 ? 6 : 12) << plane;    // RGB does not hold all of them
        }
        EXPECT_EQ(ReadStamp(got.data(), 160), 0);
    }
    EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
    for (const uint32_t type : {CORVANE_STREAM_JPEG, CORVANE_STREAM_MPEG4, CORVANE_STREAM_H264}) {
        Recorder recorder;
        Ok(MOVARIX(ChooseChannelVideoCompressor)(recorder.channel, type, 0, 0));
        Ok(recorder.Start(folder / "z.avi", 0, 0, MOVARIX_START_REPLACE));
        for (const uint32_t side : {4096u, 16u}) {
            const Bytes pixels = RawOf(side, side, 0);
            for (int64_t at = 0; at < 2; ++at)
                Ok(recorder.Decoded(MOVARIX_DECODED_PICTURE,
                                    RawInfo(side, side, pixels, kStart + (side == 16 ? 80 : 0) + 40 * at)));
        }
        Ok(recorder.Stop());
        const Avi first = ReadAvi(folder / "z.avi"), second = ReadAvi(folder / "z-2.avi");
        EXPECT_EQ(first.pictures.width, 4096);
        EXPECT_EQ(second.pictures.width, 16);
        EXPECT_EQ(first.pictures.packets.size() + second.pictures.packets.size(), 4u);
    }
}

// The host's functions, as libcorvane's own; `made` counts decoder channels that live.
struct TestHost {
    void* instance = nullptr;
    static inline std::atomic<int> made{0};
    static inline std::atomic<uint32_t> refuse{0};    // status of the next frames

    AviHostCallbacks callbacks{[](void* given, void** channel, const DecoderChannelSettings* settings) {
                                   ++made;
                                   return Corvane_CreateDecoderChannel(given, channel, settings);
                               },
                               [](void* given, void** channel) {
                                   --made;
                                   return Corvane_DeleteDecoderChannel(given, channel);
                               },
                               [](void* channel, const MediaFrameHeader* frame) {
                                   return refuse != 0 ? refuse.load()
                                                      : Corvane_InputToBeDecodedMediaFrame(channel, frame);
                               }};

    TestHost() { EXPECT_EQ(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0), Status_Ok); }
    ~TestHost() {
        EXPECT_EQ(Corvane_Release(&instance), Status_Ok);
        EXPECT_EQ(made, 0);
    }
};

// Encoded input of another type than the chosen one goes through decoder channels of the host.
TEST(Movarix, OtherTypesAreTranscoded) {
    const Folder folder;
    const TestHost host;
    const SoundCase aac = Aac(1, false);
    const SoundStream g729 = MakeG729(Sweep(8000, 2, 200, 900));
    const SoundCase other{.type = CORVANE_STREAM_G729A, .frames = g729.blocks, .frameMs = 10};
    const struct {
        const char* name;
        uint32_t pictures;    // that are chosen
        uint64_t sound;
        SoundCase heard;
        AVCodecID pictureCodec, soundCodec;
        uint32_t maxSeconds;
        std::vector<size_t> counts;    // of pictures in each file
    } kRows[] = {
        {"JPEG and PCM", CORVANE_STREAM_JPEG, 0, aac, AV_CODEC_ID_MJPEG, AV_CODEC_ID_PCM_S16LE, 0, {60}},
        {"H.264 as it is, A-law",
         CORVANE_STREAM_H264,
         CORVANE_STREAM_ALAW,
         other,
         AV_CODEC_ID_H264,
         AV_CODEC_ID_PCM_ALAW,
         0,
         {60}},
        {"MPEG-4 in files of a second: a key frame is made for each",
         CORVANE_STREAM_MPEG4,
         CORVANE_STREAM_MULAW,
         other,
         AV_CODEC_ID_MPEG4,
         AV_CODEC_ID_PCM_MULAW,
         1,
         {25, 25, 10}},
    };
    const std::vector<EncodedPicture> video = MakeVideo({.width = 160, .height = 96, .frames = 60, .gop = 60});
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        Recorder recorder(true, host.callbacks, host.instance);
        Ok(MOVARIX(ChooseChannelVideoCompressor)(recorder.channel, row.pictures, 2'000'000, 60));
        Ok(MOVARIX(ChooseChannelAudioCompressor)(recorder.channel, row.sound, 0, 0));
        Ok(recorder.Start(folder / "t.avi", 0, row.maxSeconds, MOVARIX_START_REPLACE));
        Feed(recorder, kH264, video, row.heard);
        TestHost::refuse = Status_OutOfMemory;    // the host's status is the client's; the recording goes on
        if (row.pictures != kH264)
            EXPECT_EQ(recorder.Picture(kH264, video[1].bytes, false, kStart), Status_OutOfMemory);
        TestHost::refuse = 0;
        Ok(recorder.Stop());
        EXPECT_EQ(TestHost::made, 0);
        int stamp = 0;
        for (size_t file = 0; file < row.counts.size(); ++file) {
            const std::string path = folder / (file == 0 ? "t.avi" : "t-" + std::to_string(file + 1) + ".avi");
            const Avi avi = ReadAvi(path);
            EXPECT_EQ(avi.pictures.codec, row.pictureCodec);
            EXPECT_EQ(avi.sound.codec, row.soundCodec);
            const Bytes luma = LumaOf(path, 160 * 96 * 3 / 2, 160 * 96);
            ASSERT_EQ(luma.size() / (160 * 96), row.counts[file]);
            for (size_t at = 0; at < row.counts[file]; ++at)
                EXPECT_EQ(ReadStamp(luma.data() + at * 160 * 96, 160), stamp++);
        }
    }
    Recorder without;    // a host that offers nothing
    Ok(MOVARIX(ChooseChannelVideoCompressor)(without.channel, CORVANE_STREAM_JPEG, 0, 0));
    ASSERT_EQ(without.Start(folder / "w.avi"), Status_Ok);
    EXPECT_EQ(without.Picture(kH264, video[0].bytes, true, kStart), Status_NotSupported);
}

// Channels in threads of their own, each with another thread that asks and sets; the defaults of their module.
TEST(Movarix, ChannelsWorkSideBySide) {
    const Folder folder;
    Recorder shared;
    Ok(MOVARIX(ChooseVideoCompressor)(shared.module, CORVANE_STREAM_JPEG, 1'000'000, 7));
    Ok(MOVARIX(ChooseAudioCompressor)(shared.module, CORVANE_STREAM_ALAW, 0, 0));
    std::vector<std::thread> threads;
    std::atomic<int> working{4};
    std::array<void*, 4> channels{};
    for (size_t at = 0; at < channels.size(); ++at) {
        ASSERT_EQ(MOVARIX(CreateLiveChannel)(shared.module, &channels[at]), Status_Ok);
        threads.emplace_back([&, at] {
            const std::string path = folder / (std::to_string(at) + ".avi");
            const MovarixStart start{sizeof start, 0, path.c_str(), 0, 0, {}};
            Ok(MOVARIX(StartChannel)(channels[at], reinterpret_cast<uint64_t>(&start)));
            for (int picture = 0; picture < 40; ++picture) {
                const Bytes pixels = RawOf(96, 64, picture);
                const RawPictureInfo info = RawInfo(96, 64, pixels, kStart + 40 * picture);
                Ok(MOVARIX(InputDecodedMedia)(channels[at], MOVARIX_DECODED_PICTURE,
                                              reinterpret_cast<uint64_t>(&info)));
            }
            Ok(MOVARIX(StopChannel)(channels[at]));
            --working;
        });
        threads.emplace_back([&, at] {
            while (working > 0) {
                uint64_t size = 0;
                MovarixCompressor compressor{};
                MOVARIX(GetCurrentFileSize)(channels[at], reinterpret_cast<uint64_t>(&size));
                MOVARIX(SetChannelOption)(channels[at], MOVARIX_OPTION_SOUND, size % 2, 0);
                MOVARIX(GetChannelVideoCompressorParam)(channels[at], reinterpret_cast<uint64_t>(&compressor));
                EXPECT_EQ(compressor.keyInterval, 7u);
                MOVARIX(SetVideoCompressorParam)(shared.module, reinterpret_cast<uint64_t>(&compressor));
                std::this_thread::yield();
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    for (size_t at = 0; at < channels.size(); ++at) {
        Ok(MOVARIX(DeleteChannel)(&channels[at]));
        EXPECT_EQ(channels[at], nullptr);
        const Avi avi = ReadAvi(folder / (std::to_string(at) + ".avi"));
        EXPECT_EQ(avi.pictures.codec, AV_CODEC_ID_MJPEG);
        EXPECT_EQ(avi.pictures.packets.size(), 40u);
    }
}

// A thousand lives of a module and a channel leave nothing behind, and Movarix.so alone brings nothing of FFmpeg.
TEST(Movarix, AThousandLivesLeaveNothing) {
    EXPECT_EQ(OutputOf("objdump -p " MOVARIX_LIBRARY " | grep -E 'NEEDED +lib(av|sw)' || true"), "");
    const Folder folder;
    const std::vector<EncodedPicture> video = MakeVideo({.width = 96, .height = 64, .frames = 30});
    const SoundCase sound = G711(CORVANE_STREAM_MULAW, 1);
    size_t descriptors = 0, maps = 0, bytes = 0;
    const int lives = kSanitized ? 200 : 1000;
    const auto live = [&](int life) {
        Recorder recorder;
        Ok(recorder.Start(folder / "l.avi", 0, 1, MOVARIX_START_REPLACE));
        Feed(recorder, kH264, {video.begin(), video.begin() + life % 31}, sound);
        if (life % 3 == 0)
            Ok(recorder.Stop());
    };
    for (int life = 0; life <= lives; ++life) {
        live(life);
        if (life == 62) {
            descriptors = Entries("/proc/self/fd");
            maps = MappedBytes("", false);
            bytes = MappedBytes("[heap]", true);
        }
    }
    EXPECT_EQ(Entries("/proc/self/fd"), descriptors);
    EXPECT_TRUE(kSanitized || MappedBytes("", false) <= maps + (1 << 20));    // sanitizers keep what was freed
    EXPECT_TRUE(kSanitized || MappedBytes("[heap]", true) <= bytes + (1 << 20));
}
}    // namespace
}    // namespace corvane::test
