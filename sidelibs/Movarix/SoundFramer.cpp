#include "SoundFramer.h"

#include <algorithm>
#include <utility>

namespace movarix {

namespace {

constexpr uint32_t kAacRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                  22050, 16000, 12000, 11025, 8000,  7350};

bool FitsSound(const SoundFormat& format) {
    const bool fits = format.rate >= 1000 && format.rate <= 192'000 && format.channels >= 1 && format.channels <= 8;
    if (format.type != CORVANE_STREAM_AAC)
        return fits;
    return format.channels != 7 && fits &&
           std::find(std::begin(kAacRates), std::end(kAacRates), format.rate) != std::end(kAacRates);
}

// The raw block of an ADTS frame at the start of `bytes`, whose length goes to `frame`. Empty: it is none of one block.
View RawBlock(const View& bytes, size_t* frame) {
    if (bytes.size < 7)
        return {};
    const uint8_t* const data = bytes.data;
    const size_t header = (data[1] & 1) != 0 ? 7 : 9;
    *frame = (data[3] & 3u) << 11 | data[4] << 3 | data[5] >> 5;
    if (*frame <= header || *frame > bytes.size || (data[6] & 3) != 0)
        return {};
    return {data + header, *frame - header};
}

bool HasAdtsSync(const View& bytes) {
    return bytes.size >= 2 && bytes.data[0] == 0xFF && (bytes.data[1] & 0xF6) == 0xF0;
}

}    // namespace

uint32_t SoundFramer::SplitAac(const View& payload, uint32_t blocks, Sound sound, std::vector<Sound>* sounds) const {
    const int64_t start = sound.timeMs;
    sound.samples = sound.format.BlockSamples();
    const auto add = [&](const View& bytes) {
        sound.bytes = bytes;
        sound.timeMs = start + static_cast<int64_t>(sounds->size() * sound.samples * 1000 / sound.format.rate);
        sounds->push_back(sound);
    };
    if (HasAdtsSync(payload)) {
        for (size_t at = 0, frame = 0; at < payload.size; at += frame) {
            const View rest{payload.data + at, payload.size - at};
            const View raw = HasAdtsSync(rest) ? RawBlock(rest, &frame) : View{};
            if (raw.size == 0)
                return at == 0 ? Status_Failed : Status_Ok;
            add(raw);
        }
        return Status_Ok;
    }
    if (blocks == 0 || payload.size / blocks == 0)
        return Status_InvalidArgument;
    const size_t size = payload.size / blocks;
    for (uint32_t block = 0; block < blocks; ++block)
        add({payload.data + block * size, size});
    return Status_Ok;
}

// Codes go on across frames, also within a byte; files have them with the most significant bits first, in whole blocks.
uint32_t SoundFramer::SplitG726(const View& payload, bool mostFirst, Sound sound, std::vector<Sound>* sounds) {
    const uint32_t bits = sound.format.bits;
    if (!(m_last == sound.format)) {
        m_heldCount = 0;
        m_heldBits = 0;
        m_open.clear();
        m_last = sound.format;
    }
    for (size_t at = 0; at < payload.size; ++at) {
        m_heldBits =
            mostFirst ? m_heldBits << 8 | payload.data[at] : m_heldBits | uint64_t{payload.data[at]} << m_heldCount;
        m_heldCount += 8;
        for (; m_heldCount >= bits; m_heldCount -= bits) {
            const uint64_t code = mostFirst ? m_heldBits >> (m_heldCount - bits) : m_heldBits;
            m_open.push_back(static_cast<uint8_t>(code & ((1u << bits) - 1)));
            m_heldBits = mostFirst ? m_heldBits & ((uint64_t{1} << (m_heldCount - bits)) - 1) : m_heldBits >> bits;
        }
    }
    const size_t whole = m_open.size() / sound.format.BlockSamples() * sound.format.BlockSamples();
    m_codes.clear();
    uint32_t held = 0, count = 0;
    for (size_t at = 0; at < whole; ++at) {
        held = held << bits | m_open[at];
        for (count += bits; count >= 8; count -= 8)
            m_codes.push_back(static_cast<uint8_t>(held >> (count - 8)));
    }
    m_open.erase(m_open.begin(), m_open.begin() + static_cast<ptrdiff_t>(whole));
    sound.bytes = {m_codes.data(), m_codes.size()};
    sound.samples = whole;
    if (whole > 0)
        sounds->push_back(sound);
    return Status_Ok;
}

uint32_t SoundFramer::Split(const MediaFrameHeader& header, const View& payload, int64_t timeMs,
                            std::vector<Sound>* sounds) {
    sounds->clear();
    Sound sound;
    sound.timeMs = timeMs;
    sound.format = {header.streamType, header.audioSampleRate, header.audioChannels, 0};
    const bool isG726 = header.streamType == CORVANE_STREAM_G726;
    if (isG726) {
        const uint32_t bitRate = header.detail.audio.audioBitRate;
        if (bitRate % 8000 != 0 || bitRate < 16000 || bitRate > 40000)
            return Status_InvalidArgument;
        sound.format = {header.streamType, 8000, 1, bitRate / 8000};
    }
    if (!FitsSound(sound.format))
        return Status_InvalidArgument;
    if (payload.size == 0)
        return Status_Ok;
    if (isG726)
        return SplitG726(payload, header.detail.audio.audioPacking != 0, sound, sounds);
    if (header.streamType == CORVANE_STREAM_AAC)
        return SplitAac(payload, header.audioBlockCount, sound, sounds);
    sound.samples = payload.size / sound.format.BlockBytes();
    sound.bytes = {payload.data, sound.samples * sound.format.BlockBytes()};
    if (sound.samples > 0)
        sounds->push_back(sound);
    return Status_Ok;
}

uint32_t SoundFramer::SplitSamples(uint32_t rate, uint32_t channels, const View& samples, int64_t timeMs,
                                   std::vector<Sound>* sounds) {
    sounds->clear();
    Sound sound;
    sound.timeMs = timeMs;
    sound.format = {kPcm, rate, channels, 0};
    if (!FitsSound(sound.format))
        return Status_InvalidArgument;
    sound.samples = samples.size / sound.format.BlockBytes();
    sound.bytes = {samples.data, sound.samples * sound.format.BlockBytes()};
    if (sound.samples > 0)
        sounds->push_back(sound);
    return Status_Ok;
}

}    // namespace movarix
