#include "AviFile.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Writer.h"

namespace movarix {

namespace {

constexpr int kBufferBytes = 256 << 10;
constexpr int64_t kMostSkipped = 50'000;    // empty chunks that libavformat writes at once, less than its bound

int WriteBytes(void* file, uint8_t* bytes, int size) {
    const int error = static_cast<OutputFile*>(file)->Write(bytes, static_cast<uint64_t>(size));
    return error == 0 ? size : AVERROR(error);
}

int64_t SeekTo(void* opaque, int64_t offset, int whence) {
    auto* const file = static_cast<OutputFile*>(opaque);
    const auto bytes = static_cast<int64_t>(file->Bytes());
    whence &= ~AVSEEK_FORCE;
    if (whence == AVSEEK_SIZE)
        return bytes;
    const int64_t place = offset + (whence == SEEK_CUR   ? static_cast<int64_t>(file->Place())
                                    : whence == SEEK_END ? bytes
                                                         : 0);
    const int error = place < 0 ? EINVAL : file->Seek(static_cast<uint64_t>(place));
    return error == 0 ? place : AVERROR(error);
}

struct Codec {
    uint32_t type;
    AVCodecID id;
    uint32_t tag;
};

// MPEG-4 has a code of its own, since players treat XVID and DIVX as streams with the faults of those encoders.
constexpr Codec kPictureCodecs[] = {
    {CORVANE_STREAM_JPEG, AV_CODEC_ID_MJPEG, MKTAG('M', 'J', 'P', 'G')},
    {CORVANE_STREAM_H263, AV_CODEC_ID_H263, MKTAG('H', '2', '6', '3')},
    {CORVANE_STREAM_MPEG4, AV_CODEC_ID_MPEG4, MKTAG('F', 'M', 'P', '4')},
    {CORVANE_STREAM_H264, AV_CODEC_ID_H264, MKTAG('H', '2', '6', '4')},
    {CORVANE_STREAM_H265, AV_CODEC_ID_HEVC, MKTAG('H', '2', '6', '5')},
};
constexpr Codec kSoundCodecs[] = {
    {kPcm, AV_CODEC_ID_PCM_S16LE, 1},
    {CORVANE_STREAM_AAC, AV_CODEC_ID_AAC, 0xFF},
    {CORVANE_STREAM_MULAW, AV_CODEC_ID_PCM_MULAW, 7},
    {CORVANE_STREAM_ALAW, AV_CODEC_ID_PCM_ALAW, 6},
    {CORVANE_STREAM_G726, AV_CODEC_ID_ADPCM_G726, 0x45},
};

template <size_t N>
const Codec& CodecOf(const Codec (&codecs)[N], uint32_t type) {
    const auto* const found =
        std::find_if(std::begin(codecs), std::end(codecs), [&](const Codec& codec) { return codec.type == type; });
    return found == std::end(codecs) ? codecs[0] : *found;
}

// An AudioSpecificConfig of low complexity, with the extension that says: no spectral band replication.
void SetAacConfiguration(AVCodecParameters& parameters, const SoundFormat& sound) {
    constexpr uint32_t kRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                   22050, 16000, 12000, 11025, 8000,  7350};
    const auto rate = static_cast<uint64_t>(std::find(std::begin(kRates), std::end(kRates), sound.rate) - kRates);
    const uint64_t layout = sound.channels == 8 ? 7 : sound.channels;
    const uint64_t bits = (((2 << 4 | rate) << 4 | layout) << 3 << 11 | 0x2B7) << 5 << 8 | uint64_t{5} << 8;
    parameters.extradata = static_cast<uint8_t*>(av_mallocz(5 + AV_INPUT_BUFFER_PADDING_SIZE));
    if (parameters.extradata == nullptr)
        throw std::bad_alloc();
    parameters.extradata_size = 5;
    for (int at = 0; at < 5; ++at)
        parameters.extradata[at] = static_cast<uint8_t>(bits >> 8 * (4 - at));
}

AVStream* NewStream(AVFormatContext* format) {
    AVStream* const stream = avformat_new_stream(format, nullptr);
    if (stream == nullptr)
        throw std::bad_alloc();
    return stream;
}

}    // namespace

AviFile::AviFile(OutputFile&& file, const std::optional<PictureFormat>& picture, Period period,
                 const std::optional<SoundFormat>& sound)
    : m_file(std::move(file)), m_status(Status_Ok) {
    auto* const buffer = static_cast<uint8_t*>(av_malloc(kBufferBytes));
    AVIOContext* const io = buffer == nullptr
                                ? nullptr
                                : avio_alloc_context(buffer, kBufferBytes, 1, &m_file, nullptr, &WriteBytes, &SeekTo);
    if (io == nullptr) {
        av_free(buffer);
        throw std::bad_alloc();
    }
    m_io.reset(io);
    io->min_packet_size = kBufferBytes;    // Flush decides when less is written
    AVFormatContext* format = nullptr;
    avformat_alloc_output_context2(&format, nullptr, "avi", nullptr);
    m_format = Made<FormatPtr>(format);
    m_packet = Made<PacketPtr>(av_packet_alloc());
    format->pb = io;
    format->flags |= AVFMT_FLAG_CUSTOM_IO;
    if (picture)
        AddPictures(*picture, period);
    if (sound)
        AddSound(*sound);
    Keep(avformat_write_header(format, nullptr));
}

void AviFile::AddPictures(const PictureFormat& picture, Period period) {
    AVStream* const stream = NewStream(m_format.get());
    const Codec& codec = CodecOf(kPictureCodecs, picture.type);
    m_pictures = stream->index;
    stream->codecpar->codec_type = AVMEDIA_TYPE_VIDEO;
    stream->codecpar->codec_id = codec.id;
    stream->codecpar->codec_tag = codec.tag;
    stream->codecpar->width = static_cast<int>(picture.width);
    stream->codecpar->height = static_cast<int>(picture.height);
    stream->time_base = {static_cast<int>(period.number), static_cast<int>(period.unit)};
    stream->avg_frame_rate = {stream->time_base.den, stream->time_base.num};
}

void AviFile::AddSound(const SoundFormat& sound) {
    AVStream* const stream = NewStream(m_format.get());
    const Codec& codec = CodecOf(kSoundCodecs, sound.type);
    AVCodecParameters& parameters = *stream->codecpar;
    m_sound = stream->index;
    m_blockSamples = sound.BlockSamples();
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = codec.id;
    parameters.codec_tag = codec.tag;
    parameters.sample_rate = static_cast<int>(sound.rate);
    av_channel_layout_default(&parameters.ch_layout, static_cast<int>(sound.channels));
    parameters.block_align = static_cast<int>(sound.BlockBytes());
    parameters.bits_per_coded_sample = sound.type == kPcm ? 16 : static_cast<int>(sound.bits);
    if (sound.type == CORVANE_STREAM_AAC) {
        parameters.frame_size = static_cast<int>(m_blockSamples);
        SetAacConfiguration(parameters, sound);
    } else {
        parameters.bit_rate = int64_t{8} * sound.BlockBytes() * sound.rate / m_blockSamples;
    }
    stream->time_base = {static_cast<int>(m_blockSamples), static_cast<int>(sound.rate)};
}

// The errno of the file says more than what libavformat makes of it.
void AviFile::Keep(int result) {
    if (Failed(m_status))
        return;
    if (m_file.Error() != 0)
        m_status = MOVARIX_SYSTEM_ERROR(m_file.Error());
    else if (result < 0)
        m_status = result == AVERROR(ENOMEM) ? Status_OutOfMemory : Status_Failed;
    m_end = std::max({m_end, avio_tell(m_io.get()), static_cast<int64_t>(m_file.Bytes())});
}

void AviFile::Write(int stream, const View& bytes, bool key, int64_t place) {
    m_packet->data = const_cast<uint8_t*>(bytes.data);    // av_write_frame only reads
    m_packet->size = static_cast<int>(bytes.size);
    m_packet->stream_index = stream;
    m_packet->pts = m_packet->dts = place;
    m_packet->duration = 1;
    m_packet->flags = key ? AV_PKT_FLAG_KEY : 0;
    Keep(av_write_frame(m_format.get(), m_packet.get()));
}

void AviFile::WritePicture(const View& bytes, bool key, int64_t place) {
    constexpr uint8_t kNone[1] = {};
    while (place - m_lastPlace > kMostSkipped && !Failed(m_status)) {
        m_lastPlace += kMostSkipped;
        Write(m_pictures, {kNone, 0}, false, m_lastPlace);
    }
    m_lastPlace = place;
    if (!Failed(m_status))
        Write(m_pictures, bytes, key, place);
}

void AviFile::WriteSound(const View& bytes, uint64_t samples) {
    if (!Failed(m_status))
        Write(m_sound, bytes, true, m_blocks);
    m_blocks += static_cast<int64_t>(samples / m_blockSamples);
}

void AviFile::Finish() {
    if (Failed(m_status))
        return;
    const int result = av_write_trailer(m_format.get());
    avio_flush(m_io.get());
    Keep(result);
    m_file.Close();
    Keep(result);
}

}    // namespace movarix
