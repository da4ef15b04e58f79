// Movarix.so as a host uses it: by its functions alone. What its files contain is read by libavformat, and by players.
#include <sys/mount.h>
#include <sys/resource.h>

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
    Bytes wanted = {};       // in the file
    uint32_t bitRate = 0;    // of G.726
    bool mostFirst = false;
    int64_t startMs = 0, gapMs = 0;    // of the first frame, and of those from the tenth on
    size_t lost = 0;                   // frames left out from the tenth on
};

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
            MediaFrameHeader header =
                SoundHeader(sound.type, sound.frames[next], sound.rate, sound.channels, sound.blocks,
                            kStart + sound.startMs + ms + (next >= 10 ? sound.gapMs : 0));
            if (sound.type == CORVANE_STREAM_G726)
                header.detail.audio = {sound.bitRate, sound.mostFirst, {}};
            Ok(recorder.Input(header));
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
    const Bytes noise = Noise(16'000u * static_cast<size_t>(channels));
    return {.type = type,
            .channels = channels,
            .frames = Cut(noise, 160u * static_cast<size_t>(channels)),
            .wanted = noise};
}

SoundCase Aac(uint32_t blocks, bool adts) {
    SoundCase sound{
        .type = CORVANE_STREAM_AAC, .rate = 16000, .channels = 2, .blocks = blocks, .frameMs = 64.0 * blocks};
    const std::vector<Bytes> raw = MakeAac(Sweep(16000, 2, 200, 900), 16000, 2).blocks;
    for (size_t at = 0; at + blocks <= raw.size(); at += blocks) {
        Bytes& frame = sound.frames.emplace_back();
        for (uint32_t block = 0; block < blocks; ++block) {    // of one size
            frame = frame + (adts ? AdtsFrame(raw[at], 16000, 2) : raw[at]);
            sound.wanted = sound.wanted + raw[at];
        }
    }
    return sound;
}

SoundCase G726(int bits, bool mostFirst, size_t frameBytes) {
    const Samples samples = Sweep(8000, 2, 200, 900);
    return {.type = CORVANE_STREAM_G726,
            .frames = Cut(EncodeG726(samples, bits, mostFirst), frameBytes),
            .frameMs = static_cast<double>(frameBytes) * 8 / bits / 8,
            .wanted = EncodeG726(samples, bits, true),
            .bitRate = static_cast<uint32_t>(bits) * 8000,
            .mostFirst = mostFirst};
}

std::vector<EncodedPicture> Video(uint32_t type, int frames, int bFrames = 0, bool interlaced = false,
                                  int width = 160) {
    return MakeVideo({.streamType = type,
                      .width = width,
                      .height = 96,
                      .frames = frames,
                      .gop = 25,
                      .bFrames = bFrames,
                      .interlaced = interlaced});
}

// Each picture and each sound of a stream is in the file, at its time, and players find no fault in it.
TEST(Movarix, FilesHaveWhatWasPutIn) {
    const struct {
        const char* name;
        uint32_t type;
        SoundCase sound;
        int bFrames = 0;
        bool interlaced = false;
    } kRows[] = {
        {"H.264, mu-law", kH264, G711(CORVANE_STREAM_MULAW, 1)},
        {"H.264 with B pictures, A-law in two channels", kH264, G711(CORVANE_STREAM_ALAW, 2), 2},
        {"H.264 interlaced, AAC", kH264, Aac(1, false), 0, true},
        {"H.265, AAC of three blocks", kH265, Aac(3, false)},
        {"MPEG-4, AAC with headers", kMpeg4, Aac(1, true)},
        {"JPEG, G.726 of 4 bits, least first", kJpeg, G726(4, false, 80)},
        {"H.263, G.726 of 3 bits, most first, in odd frames", kH263, G726(3, true, 41)},
        {"JPEG, G.726 of 5 bits, least first, in odd frames", kJpeg, G726(5, false, 83)},
        {"H.264 alone", kH264, {}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        const std::vector<EncodedPicture> video = Video(row.type, 50, row.bFrames, row.interlaced);
        Recorder recorder;
        Ok(recorder.Start());
        Feed(recorder, row.type, video, row.sound);
        Ok(recorder.Stop());
        const std::string path = recorder.PathOf(1);
        EXPECT_EQ(recorder.Size(), std::filesystem::file_size(path));
        const auto& [pictures, sound] = recorder.Read();
        EXPECT_EQ(pictures.codec, CodecId(row.type));
        if (row.type == kMpeg4)    // players decode another way where the code is that of an encoder
            EXPECT_EQ(pictures.tag, MKTAG('F', 'M', 'P', '4'));
        EXPECT_TRUE(pictures.width == 160 && pictures.height == 96);
        ASSERT_EQ(pictures.packets.size(), video.size());
        for (size_t at = 0; at < video.size(); ++at) {
            EXPECT_EQ(pictures.packets[at].bytes, video[at].bytes) << at;
            EXPECT_EQ(pictures.packets[at].key, video[at].key) << at;
            EXPECT_NEAR(static_cast<double>(pictures.packets[at].ptsMs), static_cast<double>(40 * at), 1) << at;
        }
        EXPECT_EQ(sound.codec == AV_CODEC_ID_NONE, row.sound.type == 0);
        const bool isG726 = row.sound.type == CORVANE_STREAM_G726;    // ends with whole frames and blocks
        const Bytes all = sound.All(), &wanted = row.sound.wanted;
        EXPECT_LE(wanted.size() - all.size(), isG726 ? 90u : 0u);
        EXPECT_TRUE(all.size() <= wanted.size() && std::equal(all.begin(), all.end(), wanted.begin()));
        EXPECT_EQ(sound.packets.empty() ? 8000 : sound.rate, row.sound.rate);
        EXPECT_EQ(sound.packets.empty() ? 1 : sound.channels, row.sound.channels);
        if (row.sound.type == CORVANE_STREAM_AAC)    // low complexity, 16,000 Hz, 2 channels, no band replication
            EXPECT_EQ(sound.configuration, (Bytes{0x14, 0x10, 0x56, 0xE5, 0x00}));
        const std::string sink = " ! queue ! decodebin ! fakesink ";
        EXPECT_EQ(OutputOf("mpv --no-config --vo=null --ao=null --untimed --msg-level=all=error " + path), "");
        EXPECT_EQ(OutputOf("gst-launch-1.0 -q filesrc location=" + path + " ! avidemux name=d d.video_0" + sink +
                           (sound.packets.empty() || isG726 ? "" : "d.audio_0" + sink)),
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
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        Recorder recorder(row.live);
        Ok(recorder.Start());
        for (const int64_t time : row.times) {
            MediaFrameHeader header = VideoHeader(kJpeg, SmallJpeg(), true, kStart + time);
            header.recordSize = row.old ? 0 : header.recordSize;
            header.streamSeconds = row.old ? 77 : header.streamSeconds;
            Ok(recorder.Input(header));
        }
        Ok(recorder.Stop());
        const AviStream pictures = recorder.Read().pictures;
        ASSERT_EQ(pictures.packets.size(), row.times.size());
        for (size_t at = 0; at < row.times.size(); ++at)
            EXPECT_NEAR(static_cast<double>(pictures.packets[at].ptsMs),
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
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        Recorder recorder;
        Ok(recorder.Start());
        const size_t put = Feed(recorder, kJpeg, SmallVideo(60), row.sound);
        Ok(recorder.Stop());
        const AviStream sound = recorder.Read().sound;
        const bool aac = row.sound.type == CORVANE_STREAM_AAC;
        EXPECT_TRUE(row.sound.type != CORVANE_STREAM_ALAW || sound.All()[0] == 0xD5);
        const size_t frames = aac ? sound.packets.size() : sound.All().size() / row.sound.frames[0].size();
        EXPECT_NEAR((static_cast<double>(frames) - static_cast<double>(put)) * row.sound.frameMs, row.silenceMs,
                    row.sound.frameMs / 2 + 0.01);
        EXPECT_EQ(OutputOf("ffmpeg -v error -i " + recorder.PathOf(1) + " -map 0:a -f null -"), "");
    }
}

// A recording told in words: a letter for the stream, and which of its pictures. Each moves the clock by 40 ms.
struct Scene {
    const std::vector<EncodedPicture> video = Video(kH264, 75), hevc = Video(kH265, 25),
                                      other = Video(kH264, 25, 0, false, 176);
    const Bytes sound = Noise(160);
    int64_t timeMs = kStart;

    void Picture(Recorder& recorder, char word, size_t at) {
        const std::vector<EncodedPicture>& stream = word == 'o' ? other : word == 'x' ? hevc : video;
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
        timeMs += word == 'd' ? 80 : word == 'f' ? 20 : 40;
    }
    void Play(Recorder& recorder, const std::string& words) {
        std::istringstream in(words);
        char word = 0, dash = 0;
        for (size_t first = 0, end = 0; in >> word;) {
            if (word == 'm' || word == 'a') {
                const uint32_t type = word == 'm' ? CORVANE_STREAM_MULAW : CORVANE_STREAM_ALAW;
                Ok(recorder.Input(SoundHeader(type, sound, 8000, 1, 1, timeMs)));
            } else if (in >> first; word == 'P' || word == 'S') {
                const uint32_t id = word == 'P' ? MOVARIX_OPTION_PICTURES : MOVARIX_OPTION_SOUND;
                Ok(MOVARIX(SetChannelOption)(recorder.channel, id, static_cast<uint32_t>(first), 0));
            } else {
                for (in >> dash >> end; first < end; ++first)
                    Picture(recorder, word, first);
            }
        }
    }
};

// The pictures of each file, and + where there is sound. Each file is whole: its pictures can be decoded by themselves.
std::string FilesOf(const Recorder& recorder) {
    std::string all;
    for (size_t number = 1; number <= recorder.folder.Files(); ++number) {
        const Avi avi = recorder.Read(number);
        const std::vector<EncodedPicture>& pictures = avi.pictures.packets;
        EXPECT_TRUE(pictures.empty() || pictures[0].key);
        EXPECT_EQ(BareDecode(avi.pictures.codec == AV_CODEC_ID_HEVC ? kH265 : kH264, pictures).size(), pictures.size());
        all += (all.empty() ? "" : " ") + std::to_string(pictures.size()) + (avi.sound.packets.empty() ? "" : "+");
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
        Recorder recorder;
        Ok(recorder.Start(recorder.PathOf(1), row.maxBytes, row.maxSeconds));
        scene.Play(recorder, row.words);
        Ok(recorder.Stop());
        EXPECT_EQ(FilesOf(recorder), row.files);
    }
    Recorder recorder;    // a name that is taken is passed over; the first is refused, or replaced
    const auto sizeOf = [&](size_t number) { return std::filesystem::file_size(recorder.PathOf(number)); };
    std::ofstream(recorder.PathOf(2)) << '1';
    std::ofstream(recorder.PathOf(3)) << std::string(1 << 20, '1');
    EXPECT_EQ(recorder.Start(recorder.PathOf(3)), MOVARIX_SYSTEM_ERROR(EEXIST));
    Ok(recorder.Start(recorder.PathOf(1), 0, 1));
    EXPECT_EQ(recorder.Start(recorder.PathOf(9)), Status_Failed);
    scene.Play(recorder, "v0-50");
    Ok(recorder.Stop());
    EXPECT_EQ(recorder.Read(4).pictures.packets.size(), 25u);
    EXPECT_EQ(sizeOf(2), 1u);
    Ok(recorder.Start(recorder.PathOf(3), 0, 0, MOVARIX_START_REPLACE));
    EXPECT_EQ(sizeOf(3), 1u << 20);    // as long as nothing takes its place
    scene.Play(recorder, "o0-25");
    Ok(recorder.Stop());
    EXPECT_EQ(recorder.Read(3).pictures.packets.size(), 25u);
    EXPECT_LT(sizeOf(3), 1u << 20);
}

// Two fields in frames of their own are one chunk; fields without a second one are chunks of their own.
TEST(Movarix, FieldsAreJoined) {
    const FieldStream fields = MakeFields();
    for (const bool lone : {false, true}) {
        SCOPED_TRACE(lone);
        Recorder recorder;
        Ok(recorder.Start());
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
        const AviStream pictures = recorder.Read().pictures;
        ASSERT_EQ(pictures.packets.size(), wanted.size());
        for (size_t at = 0; at < wanted.size(); ++at) {
            EXPECT_EQ(pictures.packets[at].bytes, wanted[at]) << at;
            EXPECT_EQ(pictures.packets[at].ptsMs, static_cast<int64_t>(40 * at));
        }
        EXPECT_EQ(pictures.width, 32);
    }
}

// What is refused, and with which status; everything goes on.
TEST(Movarix, BadInputGetsAStatus) {
    Recorder to;
    const Folder& folder = to.folder;
    std::filesystem::create_directory(folder / "dir");
    std::ofstream(folder / "old") << '1';
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
    EXPECT_EQ(to.Picture(kJpeg, SmallJpeg(), true, kStart), Status_ChannelNotStarted);
    EXPECT_EQ(to.Decoded(MOVARIX_DECODED_PICTURE, RawPictureInfo{}), Status_ChannelNotStarted);
    EXPECT_EQ(MOVARIX(StartChannel)(to.channel, 0), Status_InvalidArgument);
    for (const auto& row : kStarts)
        EXPECT_EQ(to.Start(row.path, 0, 0, row.flags), row.status) << row.path.substr(0, 60);
    MovarixStart start{12, 0, "x", 0, 0, {}};
    EXPECT_EQ(MOVARIX(StartChannel)(to.channel, reinterpret_cast<uint64_t>(&start)), Status_InvalidArgument);

    const Bytes avcc = {0, 0, 0, 5, 0x65, 1, 2, 3, 4}, noise = Noise(100),
                noSize = {0, 0, 0, 1, 0x67, 0, 0, 0, 1, 0x65, 0x88};
    MediaFrameHeader noData = VideoHeader(kH264, avcc, true, kStart), large = VideoHeader(kJpeg, avcc, true, kStart),
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
    constexpr uint32_t kInvalid = Status_InvalidArgument, kUnsupported = Status_UnsupportedMedia;
    const struct {
        const char* name;
        uint32_t wanted, got;
    } kInputs[] = {
        {"null", kInvalid, MOVARIX(InputMedia)(to.channel, 0)},
        {"no data", kInvalid, to.Input(noData)},
        {"larger than any frame", kInvalid, to.Input(large)},
        {"placeholder", kUnsupported, to.Picture(CORVANE_STREAM_PLACEHOLDER, noise, true, kStart)},
        {"metadata", kUnsupported, to.Picture(CORVANE_STREAM_METADATA_XML, noise, true, kStart)},
        {"sound that files cannot have", kUnsupported, to.Input(SoundHeader(CORVANE_STREAM_G729A, noise, 8000))},
        {"H.264 with lengths", kUnsupported, to.Picture(kH264, avcc, true, kStart)},
        {"no JPEG", kUnsupported, to.Picture(kJpeg, noise, true, kStart)},
        {"no size", kInvalid, to.Picture(kH264, noSize, true, kStart)},
        {"empty", Status_Ok, to.Picture(kH264, {}, true, kStart)},
        {"no channels", kInvalid, to.Input(noChannels)},
        {"a rate that AAC has not", kInvalid, to.Input(badRate)},
        {"no blocks", kInvalid, to.Input(noBlocks)},
        {"a bit rate that G.726 has not", kInvalid, to.Input(badBits)},
        {"null record", kInvalid, MOVARIX(InputDecodedMedia)(to.channel, 1, 0)},
        {"unknown kind", Status_NotSupported, to.Decoded(3, raw)},
        {"one byte short", kInvalid, to.Decoded(MOVARIX_DECODED_PICTURE, raw)},
        {"no pixels", kUnsupported, to.Decoded(MOVARIX_DECODED_PICTURE, jpeg)},
        {"too large", kInvalid, to.Decoded(MOVARIX_DECODED_PICTURE, huge)},
        {"one column", kInvalid, to.Decoded(MOVARIX_DECODED_PICTURE, odd)},
        {"option", Status_NotSupported, MOVARIX(SetChannelOption)(to.channel, 3, 1, 0)},
        {"picture compressor", kUnsupported, MOVARIX(ChooseChannelVideoCompressor)(to.channel, kH265, 0, 0)},
        {"sound compressor", kUnsupported, MOVARIX(ChooseAudioCompressor)(to.module, CORVANE_STREAM_AAC, 0, 0)},
        {"bit rate", kInvalid, MOVARIX(ChooseVideoCompressor)(to.module, kH264, 1ull << 32, 0)},
        {"null parameters", kInvalid, MOVARIX(GetChannelVideoCompressorParam)(to.channel, 0)},
        {"null channel", kInvalid, MOVARIX(StopChannel)(nullptr)},
        {"null module", kInvalid, MOVARIX(CreateChannel)(nullptr, &to.channel)},
        {"null host", kInvalid, MOVARIX(Initial)(&to.module, nullptr, nullptr)},
    };
    for (const auto& row : kInputs)
        EXPECT_EQ(row.got, row.wanted) << row.name;
    Ok(to.Picture(kJpeg, SmallJpeg(), true, kStart));
    Ok(to.Stop());
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

// A refused write is one status from then on, until the next start, and no signal.
TEST(Movarix, WhatCannotBeWrittenIsOneStatus) {
    Recorder recorder;
    const Folder &folder = recorder.folder, small;
    const bool mounted = mount("none", (small / "").c_str(), "tmpfs", 0, "size=2m") == 0;
    const auto fails = [&](const std::string& path, int error) {
        const uint32_t wanted = MOVARIX_SYSTEM_ERROR(error);
        return recorder.Start(path) == Status_Ok && FeedUntilRefused(recorder, 200) == wanted &&
               FeedUntilRefused(recorder, 1) == wanted && recorder.Stop() == wanted &&
               recorder.Start(folder / "next.avi") == Status_Ok && FeedUntilRefused(recorder, 2) == Status_Ok &&
               recorder.Stop() == Status_Ok;
    };
    EXPECT_EQ(InChild([&] {
                  const rlimit limit{1 << 20, 1 << 20};
                  setrlimit(RLIMIT_FSIZE, &limit);    // SIGXFSZ has its default action, which ends the process
                  EXPECT_TRUE(fails(folder / "limit.avi", EFBIG));
                  sigset_t pending, mask;
                  sigpending(&pending);
                  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
                  EXPECT_TRUE(sigismember(&pending, SIGXFSZ) == 0 && sigismember(&mask, SIGXFSZ) == 0);
                  return std::string("goes on");
              }),
              "goes on");
    std::filesystem::remove(folder / "next.avi");
    EXPECT_TRUE(!mounted || fails(small / "full.avi", ENOSPC));
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
    Recorder recorder;
    EXPECT_EQ(InChild([&] {
                  Ok(recorder.Start());
                  SoundCase sound = G711(CORVANE_STREAM_MULAW, 1);
                  sound.frames = Cut(Noise(250 * 320), 160);
                  Feed(recorder, kJpeg, SmallVideo(250), sound);
                  raise(SIGKILL);
                  return std::string("lives on");
              }),
              " crashed");
    const Avi avi = recorder.Read();
    EXPECT_GE(avi.pictures.packets.size(), 224u);
    EXPECT_GE(avi.sound.All().size(), 224u * 320);
    EXPECT_EQ(OutputOf("ffmpeg -v error -i " + recorder.PathOf(1) + " -c copy " + recorder.PathOf(2)), "");
    EXPECT_GE(recorder.Read(2).pictures.packets.size(), 224u);
}

// More than 2 GiB: the index of OpenDML leads to the last picture.
TEST(Movarix, LargeFilesAreOpenDml) {
    if (std::filesystem::space("/tmp").available < (8ull << 30))
        GTEST_SKIP() << "not enough room";
    Recorder recorder;
    Ok(recorder.Start());
    constexpr int64_t kPictures = 150;
    Bytes large = SmallJpeg() + Bytes(16 << 20, 0);
    for (int64_t at = 0; at < kPictures; ++at) {
        large.back() = static_cast<uint8_t>(at);
        ASSERT_EQ(recorder.Picture(kJpeg, large, true, kStart + 40 * at), Status_Ok);
    }
    Ok(recorder.Stop());
    EXPECT_GT(recorder.Size(), 1ull << 31);
    AVFormatContext* format = nullptr;
    ASSERT_EQ(avformat_open_input(&format, recorder.PathOf(1).c_str(), nullptr, nullptr), 0);
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

RawPictureInfo RawInfo(uint32_t width, uint32_t height, const Bytes& bytes, int64_t timeMs) {
    const MediaFrameHeader header = VideoHeader(kH264, bytes, true, timeMs);
    RawPictureInfo info{.width = width,
                        .height = height,
                        .size = static_cast<uint32_t>(bytes.size()),
                        .pixels = bytes.data(),
                        .format = CORVANE_PICTURE_I420};
    std::memcpy(info.header, &header, sizeof info.header);
    return info;
}

// The pictures of a stream in I420, by libavcodec alone.
std::vector<Bytes> Pixels(uint32_t type, const std::vector<EncodedPicture>& stream) {
    std::vector<Bytes> all;
    for (const BarePicture& picture : BareDecode(type, stream)) {
        EXPECT_EQ(picture->format, AV_PIX_FMT_YUV420P);    // of limited range
        Bytes& pixels = all.emplace_back();
        for (int plane = 0, half = 0; plane < 3; half = 1, ++plane)
            for (int y = 0; y < picture->height >> half; ++y) {
                const uint8_t* const line = picture->data[plane] + y * picture->linesize[plane];
                pixels.insert(pixels.end(), line, line + (picture->width >> half));
            }
    }
    return all;
}

// The mean difference of a plane's samples.
double Difference(const Bytes& got, const Bytes& wanted, size_t from, size_t size) {
    double sum = 0;
    for (size_t at = from; at < from + size; ++at)
        sum += std::abs(got.at(at) - wanted.at(at));
    return sum / static_cast<double>(size);
}

AVCodecID SoundCodec(uint32_t compressor) {
    return compressor == 0                      ? AV_CODEC_ID_PCM_S16LE
           : compressor == CORVANE_STREAM_MULAW ? AV_CODEC_ID_PCM_MULAW
                                                : AV_CODEC_ID_PCM_ALAW;
}

// Decoded input in every compressor: pictures near those put in, samples equal; sizes from the largest to the least.
TEST(Movarix, DecodedInputIsCompressed) {
    const struct {
        uint32_t pictures, sound;
        uint32_t interval;
        int64_t keys;
    } kRows[] = {
        {0, 0, 10, 3},
        {kMpeg4, 0, 0, 1},
        {kH264, CORVANE_STREAM_MULAW, 15, 2},
        {kJpeg, CORVANE_STREAM_ALAW, 0, 30},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.pictures);
        Recorder recorder;
        Ok(MOVARIX(ChooseChannelVideoCompressor)(recorder.channel, row.pictures, 4'000'000, row.interval));
        const MovarixCompressor chosen{row.sound, 0, 0};
        MovarixCompressor read{};
        Ok(MOVARIX(SetChannelAudioCompressorParam)(recorder.channel, reinterpret_cast<uint64_t>(&chosen)));
        Ok(MOVARIX(GetChannelAudioCompressorParam)(recorder.channel, reinterpret_cast<uint64_t>(&read)));
        EXPECT_EQ(read.type, row.sound);
        Ok(recorder.Start());
        const Bytes sound = Noise(640);
        for (int at = 0; at < 30; ++at) {
            const Bytes pixels = RawOf(162, 97, at);
            Ok(recorder.Decoded(MOVARIX_DECODED_PICTURE, RawInfo(162, 97, pixels, kStart + 40 * at)));
            const MediaFrameHeader header = SoundHeader(CORVANE_STREAM_MULAW, sound, 8000, 1, 1, kStart + 40 * at);
            RawAudioInfo heard{.size = 640, .samples = sound.data()};
            std::memcpy(heard.header, &header, sizeof heard.header);
            Ok(recorder.Decoded(MOVARIX_DECODED_SOUND, heard));
        }
        for (const uint32_t side : {4096u, 16u}) {
            const Bytes pixels = RawOf(side, side, 0);
            for (int at = 0; at < 2; ++at)
                Ok(recorder.Decoded(MOVARIX_DECODED_PICTURE, RawInfo(side, side, pixels, kStart + 1200 + 40 * at)));
        }
        Ok(recorder.Stop());
        for (const size_t number : {2, 3}) {
            const AviStream pictures = recorder.Read(number).pictures;
            EXPECT_EQ(pictures.width, number == 2 ? 4096 : 16);
            EXPECT_EQ(pictures.packets.size(), 2u);
        }
        const Avi avi = recorder.Read();
        const uint32_t type = row.pictures == 0 ? kMpeg4 : row.pictures;
        EXPECT_EQ(avi.pictures.codec, CodecId(type));
        EXPECT_EQ(avi.sound.codec, SoundCodec(row.sound));
        EXPECT_EQ(std::ranges::count(avi.pictures.packets, true, &EncodedPicture::key), row.keys);
        EXPECT_EQ(avi.pictures.packets.back().ptsMs, 40 * 29);
        const std::vector<Bytes> got = Pixels(type, avi.pictures.packets);
        ASSERT_EQ(got.size(), 30u);
        double error = 0;
        for (int at = 0; at < 30; ++at)
            error += Difference(got[static_cast<size_t>(at)], RawOf(162, 97, at), 0, 162 * 96) / 30;
        EXPECT_LT(error, 3);
        EXPECT_EQ(avi.sound.packets.size(), 30u);
        for (const EncodedPicture& block : avi.sound.packets)
            EXPECT_TRUE(row.sound == 0 ? block.bytes == sound : block.bytes.size() == 320);
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

    TestHost() { Ok(Corvane_Initial(&instance, nullptr, nullptr, 0, 0, 0, CORVANE_VERSION, 0)); }
    ~TestHost() {
        Ok(Corvane_Release(&instance));
        EXPECT_EQ(made, 0);
    }
};

// Every pixel format that the picture callback hands out.
TEST(Movarix, DecodedPicturesOfAllFormats) {
    constexpr uint32_t kFormats[] = {CORVANE_PICTURE_YUY2,   CORVANE_PICTURE_RGB565, CORVANE_PICTURE_BGR24,
                                     CORVANE_PICTURE_BGRA32, CORVANE_PICTURE_RGB555, CORVANE_PICTURE_I420,
                                     CORVANE_PICTURE_BGR565, CORVANE_PICTURE_RGB24,  CORVANE_PICTURE_RGBA32,
                                     CORVANE_PICTURE_BGR555, CORVANE_PICTURE_YV12,   CORVANE_PICTURE_UYVY,
                                     CORVANE_PICTURE_NV12};
    const std::vector<EncodedPicture> stream = Video(kH264, 1);
    const Bytes wanted = Pixels(kH264, stream)[0];
    const TestHost host;
    for (const uint32_t format : kFormats) {
        SCOPED_TRACE(format);
        Recorder recorder;
        Ok(recorder.Start());
        const CorvaneRawCallback record = [](void* context, uint32_t code, void* picture) {
            Ok(static_cast<Recorder*>(context)->Decoded(code, *static_cast<RawPictureInfo*>(picture)));
        };
        const DecoderChannelSettings settings{record, &recorder, format, 0};
        void* decoder = nullptr;
        ASSERT_EQ(Corvane_CreateDecoderChannel(host.instance, &decoder, &settings), Status_Ok);
        const MediaFrameHeader header = VideoHeader(kH264, stream[0].bytes, true, kStart);
        Ok(Corvane_InputToBeDecodedMediaFrame(decoder, &header));
        Ok(Corvane_DeleteDecoderChannel(host.instance, &decoder));
        Ok(recorder.Stop());
        const std::vector<Bytes> got = Pixels(kMpeg4, recorder.Read().pictures.packets);
        ASSERT_EQ(got.size(), 1u);
        EXPECT_EQ(ReadStamp(got[0].data(), 160), 0);
        constexpr size_t kLuma = 160 * 96, kChroma = kLuma / 4;
        EXPECT_LT(Difference(got[0], wanted, 0, kLuma), 6);
        for (const size_t from : {kLuma, kLuma + kChroma})
            EXPECT_LT(Difference(got[0], wanted, from, kChroma), 12);    // RGB does not hold all of them
    }
}

// Encoded input of another type than the chosen one goes through decoder channels of the host.
TEST(Movarix, OtherTypesAreTranscoded) {
    const TestHost host;
    const SoundStream g729 = MakeG729(Sweep(8000, 2, 200, 900));
    const SoundCase other{.type = CORVANE_STREAM_G729A, .frames = g729.blocks, .frameMs = 10};
    const struct {
        const char* name;
        uint32_t pictures, sound;    // that are chosen
        SoundCase heard;
        uint32_t maxSeconds;
        std::vector<size_t> counts;    // of pictures in each file
        uint32_t fed = kH264;
    } kRows[] = {
        {"JPEG and PCM", kJpeg, 0, Aac(1, false), 0, {60}},
        {"H.264 as it is, A-law", kH264, CORVANE_STREAM_ALAW, other, 0, {60}},
        {"MPEG-4, a key frame for each file", kMpeg4, CORVANE_STREAM_MULAW, other, 1, {25, 25, 10}},
        {"H.264, a key frame for a file that begins later", kH264, CORVANE_STREAM_MULAW, other, 2, {50, 10}, kMpeg4},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        const auto video = MakeVideo({.streamType = row.fed, .width = 160, .height = 96, .frames = 60, .gop = 60});
        Recorder recorder(true, host.callbacks, host.instance);
        Ok(MOVARIX(ChooseChannelVideoCompressor)(recorder.channel, row.pictures, 2'000'000, 60));
        Ok(MOVARIX(ChooseChannelAudioCompressor)(recorder.channel, row.sound, 0, 0));
        Ok(recorder.Start(recorder.PathOf(1), 0, row.maxSeconds));
        Feed(recorder, row.fed, video, row.heard);
        TestHost::refuse = Status_OutOfMemory;    // the host's status is the client's; the recording goes on
        if (row.pictures != row.fed)
            EXPECT_EQ(recorder.Picture(row.fed, video[1].bytes, false, kStart), Status_OutOfMemory);
        TestHost::refuse = 0;
        Ok(recorder.Stop());
        EXPECT_EQ(TestHost::made, 0);
        int stamp = 0;
        for (size_t file = 0; file < row.counts.size(); ++file) {
            const Avi avi = recorder.Read(file + 1);
            EXPECT_EQ(avi.pictures.codec, CodecId(row.pictures));
            EXPECT_EQ(avi.sound.codec, SoundCodec(row.sound));
            const std::vector<Bytes> pictures = Pixels(row.pictures, avi.pictures.packets);
            EXPECT_EQ(pictures.size(), row.counts[file]);
            for (const Bytes& picture : pictures)
                EXPECT_EQ(ReadStamp(picture.data(), 160), stamp++);
        }
    }
    Recorder without;    // a host that offers nothing
    Ok(MOVARIX(ChooseChannelVideoCompressor)(without.channel, kJpeg, 0, 0));
    Ok(without.Start());
    EXPECT_EQ(without.Picture(kH264, Noise(9), true, kStart), Status_NotSupported);
}

// Channels in threads of their own, each with another thread that asks and sets; the defaults of their module.
TEST(Movarix, ChannelsWorkSideBySide) {
    Recorder shared;
    Ok(MOVARIX(ChooseVideoCompressor)(shared.module, kJpeg, 1'000'000, 7));
    Ok(MOVARIX(ChooseAudioCompressor)(shared.module, CORVANE_STREAM_ALAW, 0, 0));
    std::vector<std::thread> threads;
    for (int channel = 0; channel < 4; ++channel)
        threads.emplace_back([&] {
            Recorder recorder(shared.module);
            std::atomic<bool> working{true};
            std::thread asking([&] {
                while (working) {
                    MovarixCompressor compressor{};
                    MOVARIX(SetChannelOption)(recorder.channel, MOVARIX_OPTION_SOUND, recorder.Size() % 2, 0);
                    MOVARIX(GetChannelVideoCompressorParam)(recorder.channel, reinterpret_cast<uint64_t>(&compressor));
                    EXPECT_EQ(compressor.keyInterval, 7u);
                    MOVARIX(SetVideoCompressorParam)(shared.module, reinterpret_cast<uint64_t>(&compressor));
                    std::this_thread::yield();
                }
            });
            Ok(recorder.Start());
            for (int picture = 0; picture < 40; ++picture) {
                const Bytes pixels = RawOf(96, 64, picture);
                Ok(recorder.Decoded(MOVARIX_DECODED_PICTURE, RawInfo(96, 64, pixels, kStart + 40 * picture)));
            }
            Ok(recorder.Stop());
            working = false;
            asking.join();
            const AviStream pictures = recorder.Read().pictures;
            EXPECT_EQ(pictures.codec, AV_CODEC_ID_MJPEG);
            EXPECT_EQ(pictures.packets.size(), 40u);
        });
    for (std::thread& thread : threads)
        thread.join();
}

// A thousand lives of a module and a channel leave nothing behind, and Movarix.so alone brings nothing of FFmpeg.
TEST(Movarix, AThousandLivesLeaveNothing) {
    EXPECT_EQ(OutputOf("objdump -p " MOVARIX_LIBRARY " | grep -E 'NEEDED +lib(av|sw)' || true"), "");
    const std::vector<EncodedPicture> video = MakeVideo({.width = 96, .height = 64, .frames = 30});
    const SoundCase sound = G711(CORVANE_STREAM_MULAW, 1);
    size_t descriptors = 0, maps = 0, bytes = 0;
    const int lives = kSanitized ? 200 : 1000;
    const auto live = [&](int life) {
        Recorder recorder;
        Ok(recorder.Start(recorder.PathOf(1), 0, 1));
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
