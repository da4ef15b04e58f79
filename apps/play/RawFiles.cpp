#include "RawFiles.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

constexpr size_t kWavHeader = 44;

}    // namespace

bool RawFiles::File::Create(std::string& error) {
    if (name.empty())
        return true;
    file.reset(std::fopen(name.c_str(), "wb"));
    if (file == nullptr)
        error = name + ": cannot be written";
    return file != nullptr;
}

void RawFiles::File::Write(const void* bytes, size_t size) {
    failed = failed || std::fwrite(bytes, 1, size, file.get()) != size;
}

bool RawFiles::File::Finish(std::string& error) {
    if (file == nullptr)
        return true;
    if (std::fclose(file.release()) != 0 || failed)
        error = name + ": cannot be written";
    return error.empty();
}

std::unique_ptr<RawFiles> RawFiles::Open(const Options& options, std::string& error) {
    std::unique_ptr<RawFiles> files(new RawFiles(options));
    if (!files->m_pictures.Create(error) || !files->m_sound.Create(error) ||
        (files->m_pictures.file == nullptr && files->m_sound.file == nullptr))
        return nullptr;
    if (files->m_sound.file != nullptr)
        files->WriteWavHeader();    // its room; Close writes it once more
    return files;
}

void RawFiles::Attach(void* channel) {
    Corvane_SetChannelOption(channel, CORVANE_OPTION_RAW_PICTURES, m_pictures.file != nullptr, 0);
    Corvane_SetChannelOption(channel, CORVANE_OPTION_RAW_SOUND, m_sound.file != nullptr, 0);
    Corvane_SetChannelOption(channel, CORVANE_OPTION_RAW_FORMAT, m_format, 0);
    const CorvaneRawCallback callback = [](void* context, uint32_t code, void* record) {
        static_cast<RawFiles*>(context)->Take(code, record);
    };
    Corvane_SetChannelOption(channel, CORVANE_OPTION_RAW_CALLBACK, reinterpret_cast<uint64_t>(this),
                             reinterpret_cast<uint64_t>(callback));
}

bool RawFiles::Close(std::string& error) {
    if (m_sound.file != nullptr) {
        std::rewind(m_sound.file.get());
        WriteWavHeader();
    }
    const bool pictures = m_pictures.Finish(error);
    if (!m_sound.Finish(error) || !pictures)
        return false;
    if (m_formatChanged)
        error = m_sound.name + ": ends where the stream changes its sound format";
    return error.empty();
}

void RawFiles::Take(uint32_t code, void* record) {
    if (code == CORVANE_RAW_SOUND && m_sound.file != nullptr) {
        OnSound(*static_cast<const RawAudioInfo*>(record));
    } else if (code == CORVANE_RAW_PICTURE) {
        const auto& picture = *static_cast<const RawPictureInfo*>(record);
        m_pictures.Write(picture.pixels, picture.size - picture.prefix);
    }
}

void RawFiles::OnSound(const RawAudioInfo& sound) {
    MediaFrameHeader header{};
    std::memcpy(&header, sound.header, sizeof sound.header);
    if (m_rate == 0) {
        m_rate = header.audioSampleRate;
        m_channels = header.audioChannels;
    }
    m_formatChanged = m_formatChanged || m_rate != header.audioSampleRate || m_channels != header.audioChannels;
    if (m_formatChanged)
        return;
    m_sound.Write(sound.samples, sound.size);
    m_soundBytes += sound.size;
}

void RawFiles::WriteWavHeader() {
    uint8_t header[kWavHeader] = {};
    const auto put = [&](size_t at, uint64_t value, size_t bytes) {
        for (size_t i = 0; i < bytes; ++i)
            header[at + i] = static_cast<uint8_t>(value >> (8 * i));
    };
    const uint64_t bytes = std::min<uint64_t>(m_soundBytes, UINT32_MAX - kWavHeader);    // the format's bound
    const uint32_t block = 2u * m_channels;
    std::memcpy(header, "RIFF", 4);
    put(4, bytes + kWavHeader - 8, 4);
    std::memcpy(header + 8, "WAVEfmt ", 8);
    put(16, 16, 4);
    put(20, 1, 2);    // linear samples
    put(22, m_channels, 2);
    put(24, m_rate, 4);
    put(28, uint64_t{m_rate} * block, 4);
    put(32, block, 2);
    put(34, 16, 2);
    std::memcpy(header + 36, "data", 4);
    put(40, bytes, 4);
    m_sound.Write(header, sizeof header);
}
