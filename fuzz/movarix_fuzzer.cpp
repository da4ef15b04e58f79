// Frames and raw records at one AVI channel, and the files that it leaves: each is read chunk by chunk, and its lengths
// and its index must agree.
//
// Calls, each after eight bytes: 0 what is called, 1 bits (1 a key frame, 2 a payload of SmallStreams.h, which is
// chosen by 4 and 8, 16 time goes back), 2 and 3 milliseconds since the last call, 4 and 5 rate, channels, blocks,
// codec and size, 6 and 7 the length of the payload. The first byte of the input: 1 a live channel, 2 small files.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "AviChannel.h"
#include "Fenced.h"
#include "SmallStreams.h"

namespace {

using namespace movarix;

constexpr size_t kMaxInput = 64 * 1024;
constexpr int kMaxCalls = 96;

void Require(bool holds) {
    if (!holds)
        std::abort();
}

uint32_t Word(const Bytes& file, size_t at) {
    Require(at + 4 <= file.size());
    return file[at] | file[at + 1] << 8 | file[at + 2] << 16 | static_cast<uint32_t>(file[at + 3]) << 24;
}

bool Is(const Bytes& file, size_t at, const char* name) {
    Require(at + 4 <= file.size());
    return std::memcmp(file.data() + at, name, 4) == 0;
}

// RIFF('AVI ' LIST('hdrl') ... LIST('movi' chunks) idx1), as files of less than 1 GiB are.
void CheckFile(const Bytes& file) {
    Require(Is(file, 0, "RIFF") && Is(file, 8, "AVI ") && Word(file, 4) == file.size() - 8);
    size_t movi = 0, moviEnd = 0, index = 0;
    for (size_t at = 12; at < file.size(); at += 8 + (Word(file, at + 4) + 1) / 2 * 2) {
        if (Is(file, at, "LIST") && Is(file, at + 8, "movi")) {
            movi = at + 8;
            moviEnd = at + 8 + Word(file, at + 4);
        } else if (Is(file, at, "idx1")) {
            index = at;
        }
    }
    Require(movi != 0 && index != 0 && moviEnd <= index);
    size_t entry = index + 8;
    for (size_t at = movi + 4; at < moviEnd; at += 8 + (Word(file, at + 4) + 1) / 2 * 2, entry += 16) {
        Require(at + 8 + Word(file, at + 4) <= moviEnd);
        Require(Word(file, entry) == Word(file, at) && movi + Word(file, entry + 8) == at &&
                Word(file, entry + 12) == Word(file, at + 4));
    }
    Require(entry == index + 8 + Word(file, index + 4));
}

Bytes ReadFile(const std::string& path) {
    Bytes bytes;
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    struct stat state {};
    if (descriptor >= 0 && fstat(descriptor, &state) == 0) {
        bytes.resize(static_cast<size_t>(state.st_size));
        Require(read(descriptor, bytes.data(), bytes.size()) == state.st_size);
    }
    close(descriptor);
    return bytes;
}

class World {
public:
    World(bool live, bool small) : m_live(live), m_small(small), m_channel({}, {}, live) { Start(); }
    ~World() {
        Require(!Failed(m_channel.Stop()));
        Check();
    }

    void Call(const uint8_t* head, const uint8_t* payload, size_t size) {
        constexpr uint32_t kTypes[] = {CORVANE_STREAM_JPEG,  CORVANE_STREAM_H263, CORVANE_STREAM_MPEG4,
                                       CORVANE_STREAM_H264,  CORVANE_STREAM_H265, CORVANE_STREAM_AAC,
                                       CORVANE_STREAM_MULAW, CORVANE_STREAM_ALAW, CORVANE_STREAM_G726};
        const int64_t step = (head[2] << 8 | head[3]) & (m_live ? 0xFFFF : 0x7FF);
        m_timeMs += (head[1] & 16) != 0 ? -step : step;
        const uint32_t what = head[0] % 16;
        if (what < std::size(kTypes))
            Input(kTypes[what], head, payload, size);
        else if (what < 12)
            Decoded(head, payload, size);
        else if (what == 12)
            m_channel.SetOption(head[4] % 4, head[5] % 2);
        else if (what == 13)
            m_channel.SetPictures({head[4] % 10u, 0, head[5]});
        else if (what == 14)
            Require(!Failed(m_channel.Stop()));
        else
            Start();
    }

private:
    static std::string Path(int number) {
        static const std::string base = std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") +
                                        "/movarix-fuzz-" + std::to_string(getpid());
        return base + (number == 1 ? "" : "-" + std::to_string(number)) + ".avi";
    }
    void Start() {
        if (!Failed(m_channel.Stop()))
            Check();
        const std::string path = Path(1);
        const MovarixStart start{sizeof start, 0, path.c_str(), m_small ? 20'000u : 0u, m_small ? 2u : 0u, {}};
        Require(m_channel.Start(&start) == Status_Ok);
    }
    void Check() {
        for (int number = 1;; ++number) {
            const Bytes file = ReadFile(Path(number));
            if (file.empty())
                break;
            CheckFile(file);
            unlink(Path(number).c_str());
        }
    }

    void Input(uint32_t type, const uint8_t* head, const uint8_t* payload, size_t size) {
        constexpr uint32_t kRates[] = {8000, 16000, 44100, 48000, 1000, 999, 0, 7350};
        MediaFrameHeader header{};
        header.recordSize = sizeof header;
        header.data = payload;
        header.payloadSize = static_cast<uint32_t>(size);
        if ((head[1] & 2) != 0) {
            const View streams[] = {
                {kJpeg, sizeof kJpeg}, {kH264Key, sizeof kH264Key}, {kH264Next, sizeof kH264Next}, {kH264Key, 44}};
            header.data = streams[head[1] >> 2 & 3].data;
            header.payloadSize = static_cast<uint32_t>(streams[head[1] >> 2 & 3].size);
        }
        header.streamType = type;
        header.frameType = (head[1] & 1) != 0 ? 0 : 1;
        header.streamSeconds = static_cast<uint32_t>(m_timeMs / 1000);
        header.timeMilliseconds = static_cast<uint32_t>(m_timeMs % 1000);
        header.pictureWidth = (head[4] & 7u) * 16;
        header.pictureHeight = (head[5] & 7u) * 16;
        if (type > CORVANE_STREAM_H265) {
            header.audioSampleRate = kRates[head[4] & 7];
            header.audioChannels = head[4] >> 3 & 3;
            header.audioBlockCount = head[4] >> 5;
            header.detail.audio.audioBitRate = (head[5] & 7u) * 8000;
            header.detail.audio.audioPacking = head[5] >> 7;
        }
        m_channel.Input(&header);
    }

    void Decoded(const uint8_t* head, const uint8_t* payload, size_t size) {
        MediaFrameHeader header{};
        header.timeSeconds = static_cast<uint32_t>(m_timeMs / 1000);
        header.timeMilliseconds = static_cast<uint32_t>(m_timeMs % 1000);
        header.audioSampleRate = 8000;
        header.audioChannels = head[4] & 3;
        RawPictureInfo picture{};
        picture.width = head[4] % 80u;
        picture.height = head[5] % 80u;
        picture.format = head[0] >> 4 | (head[1] >> 5) << 4;
        picture.pixels = picture.buffer = payload;
        picture.size = static_cast<uint32_t>(size);
        std::memcpy(picture.header, &header, sizeof picture.header);
        RawAudioInfo sound{};
        sound.samples = payload;
        sound.size = static_cast<uint32_t>(size);
        std::memcpy(sound.header, &header, sizeof sound.header);
        if (head[0] % 16 == 11)
            m_channel.InputDecoded(MOVARIX_DECODED_SOUND, &sound);
        else
            m_channel.InputDecoded(MOVARIX_DECODED_PICTURE, &picture);
    }

    const bool m_live, m_small;
    AviChannel m_channel;
    int64_t m_timeMs = 1'700'000'000'000;
};

}    // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Fenced memory(kMaxInput);
    if (size < 1 || size > kMaxInput)
        return 0;
    World world((data[0] & 1) != 0, (data[0] & 2) != 0);
    int calls = 0;
    for (size_t at = 1; size - at >= 8 && calls < kMaxCalls; ++calls) {
        const uint8_t* const head = data + at;
        at += 8;
        const size_t length = std::min<size_t>(size_t{head[6]} << 8 | head[7], size - at);
        uint8_t* const payload = memory.At(length, true);    // what is read beyond it ends the process
        std::copy_n(data + at, length, payload);
        world.Call(head, payload, length);
        at += length;
    }
    return 0;
}
