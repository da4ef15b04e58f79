#include "MediaSource.h"

extern "C" {
#include <libavcodec/bsf.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/opt.h>
}

#include <algorithm>

#include "corvane/corvane.h"

namespace {

struct FormatClose {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
};
struct FilterFree {
    void operator()(AVBSFContext* context) const { av_bsf_free(&context); }
};
struct PacketFree {
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};

// A frame header with one item of four bytes: the bit that says there are items, their number, then tag 229,
// interlaced, between fillers.
constexpr uint8_t kInterlacedHeader[24] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x08, 0, 0, 0, 0, 0, 0, 1, 0, 229, 0, 0};

uint32_t TypeOf(AVCodecID codec) {
    switch (codec) {
    case AV_CODEC_ID_MJPEG:
        return CORVANE_STREAM_JPEG;
    case AV_CODEC_ID_H263:
    case AV_CODEC_ID_H263P:
        return CORVANE_STREAM_H263;
    case AV_CODEC_ID_MPEG4:
        return CORVANE_STREAM_MPEG4;
    case AV_CODEC_ID_H264:
        return CORVANE_STREAM_H264;
    case AV_CODEC_ID_HEVC:
        return CORVANE_STREAM_H265;
    default:
        return 0;
    }
}

// 0: sound that the library does not decode.
uint32_t SoundTypeOf(const AVCodecParameters& codec) {
    switch (codec.codec_id) {
    case AV_CODEC_ID_PCM_MULAW:
        return CORVANE_STREAM_MULAW;
    case AV_CODEC_ID_PCM_ALAW:
        return CORVANE_STREAM_ALAW;
    case AV_CODEC_ID_AMR_NB:
        return CORVANE_STREAM_AMR;
    case AV_CODEC_ID_AAC:
        return CORVANE_STREAM_AAC;
    case AV_CODEC_ID_ADPCM_G726:
    case AV_CODEC_ID_ADPCM_G726LE:
        return codec.sample_rate == 8000 && codec.ch_layout.nb_channels == 1 ? CORVANE_STREAM_G726 : 0;
    default:
        return 0;
    }
}

// The bitstream filter that converts a container's form of the codec into the plain stream form.
const char* FilterFor(AVCodecID codec) {
    switch (codec) {
    case AV_CODEC_ID_H264:
        return "h264_mp4toannexb";
    case AV_CODEC_ID_HEVC:
        return "hevc_mp4toannexb";
    case AV_CODEC_ID_MPEG4:
        return "dump_extra";    // the visual object headers stand in the container only
    default:
        return nullptr;
    }
}

class FileSource final : public MediaSource {
public:
    bool Init(const std::string& url, std::string& error) {
        av_log_set_level(AV_LOG_ERROR);
        AVFormatContext* opened = nullptr;
        if (const int code = avformat_open_input(&opened, url.c_str(), nullptr, nullptr); code < 0) {
            char text[AV_ERROR_MAX_STRING_SIZE] = {};
            av_strerror(code, text, sizeof(text));
            error = url + ": " + text;
            return false;
        }
        m_format.reset(opened);
        if (avformat_find_stream_info(opened, nullptr) < 0) {
            error = url + ": not a media stream";
            return false;
        }
        m_index = av_find_best_stream(opened, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
        if (m_index < 0 || StreamType() == 0) {
            error = url + ": no H.264, H.265, MPEG-4, H.263 or JPEG video in it";
            if (m_index >= 0)
                error += std::string(" but ") + CodecName();
            return false;
        }
        ChooseSound();
        m_packet.reset(av_packet_alloc());
        if (!m_packet || !MakeFilter()) {
            error = url + ": its stream cannot be brought into plain form";
            return false;
        }
        const AVRational rate = av_guess_frame_rate(opened, Stream(), nullptr);
        m_stepMs = rate.num > 0 ? std::max<int64_t>(1, 1000ll * rate.den / rate.num) : 40;
        return true;
    }

    uint32_t StreamType() const override { return TypeOf(Stream()->codecpar->codec_id); }
    uint32_t Width() const override { return static_cast<uint32_t>(Stream()->codecpar->width); }
    uint32_t Height() const override { return static_cast<uint32_t>(Stream()->codecpar->height); }
    double PixelAspect() const override {
        const AVRational aspect = av_guess_sample_aspect_ratio(m_format.get(), Stream(), nullptr);
        return aspect.num > 0 && aspect.den > 0 ? av_q2d(aspect) : 1;
    }
    std::span<const uint8_t> FrameHeader() const override {
        const AVFieldOrder order = Stream()->codecpar->field_order;
        const bool fields =
            order == AV_FIELD_TT || order == AV_FIELD_BB || order == AV_FIELD_TB || order == AV_FIELD_BT;
        const bool unmarked = StreamType() == CORVANE_STREAM_H264 || StreamType() == CORVANE_STREAM_H265;
        return fields && unmarked ? std::span<const uint8_t>(kInterlacedHeader) : std::span<const uint8_t>();
    }
    const char* CodecName() const override { return avcodec_get_name(Stream()->codecpar->codec_id); }

    std::string SilentCodecName() const override { return m_silentCodec; }

    double DurationSeconds() const override {
        return m_format->duration > 0 ? static_cast<double>(m_format->duration) / AV_TIME_BASE : 0;
    }

    int64_t WallStartSeconds() const override {
        return m_format->start_time_realtime > 0 ? m_format->start_time_realtime / 1'000'000 : 0;
    }

    bool Next(EncodedPicture& picture) override {
        for (;;) {
            av_packet_unref(m_packet.get());
            const int received = m_filter ? av_bsf_receive_packet(m_filter.get(), m_packet.get()) : AVERROR(EAGAIN);
            if (received == 0)
                break;
            if (received != AVERROR(EAGAIN) || m_ended)
                return false;
            if (ReadPacket() < 0) {
                m_ended = true;
                if (m_filter)
                    av_bsf_send_packet(m_filter.get(), nullptr);
            } else if (m_packet->stream_index == m_sound) {
                if (Sound(picture))
                    return true;
            } else if (!m_filter) {
                break;
            } else {
                av_bsf_send_packet(m_filter.get(), m_packet.get());    // one that is damaged is left out
            }
        }
        picture = {m_packet->data,
                   static_cast<uint32_t>(m_packet->size),
                   (m_packet->flags & AV_PKT_FLAG_KEY) != 0,
                   Time(),
                   {}};
        return true;
    }

    bool Rewind() override {
        if (av_seek_frame(m_format.get(), m_index, 0, AVSEEK_FLAG_BYTE) < 0 &&
            av_seek_frame(m_format.get(), m_index, 0, AVSEEK_FLAG_BACKWARD) < 0)
            return false;
        if (m_filter)
            av_bsf_flush(m_filter.get());
        m_offset = m_last + m_stepMs;
        m_first = AV_NOPTS_VALUE;
        m_ended = false;
        return true;
    }

private:
    AVStream* Stream() const { return m_format->streams[m_index]; }

    // The sound that goes with the pictures, else any other that is decoded.
    void ChooseSound() {
        m_sound = av_find_best_stream(m_format.get(), AVMEDIA_TYPE_AUDIO, -1, m_index, nullptr, 0);
        if (m_sound < 0 || SoundTypeOf(*m_format->streams[m_sound]->codecpar) != 0)
            return;
        m_silentCodec = avcodec_get_name(m_format->streams[m_sound]->codecpar->codec_id);
        m_sound = -1;
        for (unsigned i = 0; i < m_format->nb_streams && m_sound < 0; ++i) {
            if (SoundTypeOf(*m_format->streams[i]->codecpar) != 0) {
                m_sound = static_cast<int>(i);
                m_silentCodec.clear();
            }
        }
    }

    bool MakeFilter() {
        const char* name = FilterFor(Stream()->codecpar->codec_id);
        if (name == nullptr)
            return true;
        AVBSFContext* filter = nullptr;
        const AVBitStreamFilter* kind = av_bsf_get_by_name(name);
        if (kind == nullptr || av_bsf_alloc(kind, &filter) < 0)
            return false;
        m_filter.reset(filter);
        filter->time_base_in = Stream()->time_base;
        return avcodec_parameters_copy(filter->par_in, Stream()->codecpar) >= 0 && av_bsf_init(filter) >= 0;
    }

    int ReadPacket() {
        for (;;) {
            const int code = av_read_frame(m_format.get(), m_packet.get());
            if (code < 0 || m_packet->stream_index == m_index || m_packet->stream_index == m_sound)
                return code;
            av_packet_unref(m_packet.get());
        }
    }

    // False for sound before the first picture, which gives the time that all begins at.
    bool Sound(EncodedPicture& frame) {
        if (m_first == AV_NOPTS_VALUE || m_packet->pts == AV_NOPTS_VALUE)
            return false;
        const AVStream& stream = *m_format->streams[m_sound];
        const AVCodecParameters& codec = *stream.codecpar;
        constexpr int64_t kMostApart = 10'000;    // ms
        int64_t ms = m_offset + av_rescale_q(m_packet->pts, stream.time_base, AVRational{1, 1000}) - m_first;
        if (ms > m_last + kMostApart)    // some AVI files count G.726 in wrong units
            ms = m_soundEnd;
        m_lastSound = std::max(ms, m_lastSound + 1);
        const int samples = av_get_audio_frame_duration2(stream.codecpar, m_packet->size);
        m_soundEnd = m_lastSound + int64_t{1000} * samples / std::max(codec.sample_rate, 1);
        frame = {m_packet->data,
                 static_cast<uint32_t>(m_packet->size),
                 true,
                 m_lastSound,
                 {SoundTypeOf(codec), static_cast<uint32_t>(codec.sample_rate),
                  static_cast<uint8_t>(codec.ch_layout.nb_channels), static_cast<uint32_t>(codec.bit_rate),
                  codec.codec_id == AV_CODEC_ID_ADPCM_G726}};
        return true;
    }

    // Decoding time where there is one, else one step after the picture before; never falling.
    int64_t Time() {
        const int64_t dts = m_packet->dts != AV_NOPTS_VALUE ? m_packet->dts : m_packet->pts;
        int64_t time = m_last + m_stepMs;
        if (dts != AV_NOPTS_VALUE) {
            const int64_t ms = av_rescale_q(dts, Stream()->time_base, AVRational{1, 1000});
            if (m_first == AV_NOPTS_VALUE)
                m_first = ms;
            time = m_offset + ms - m_first;
        } else if (m_last < 0) {
            time = 0;
        }
        m_last = std::max(time, m_last + 1);
        return m_last;
    }

    std::unique_ptr<AVFormatContext, FormatClose> m_format;
    std::unique_ptr<AVBSFContext, FilterFree> m_filter;
    std::unique_ptr<AVPacket, PacketFree> m_packet;
    int m_index = -1;
    int m_sound = -1;    // of the sound that goes with it; -1: none
    std::string m_silentCodec;
    int64_t m_stepMs = 40;
    int64_t m_first = AV_NOPTS_VALUE;    // ms of the first picture of this turn
    int64_t m_offset = 0;                // ms that this turn begins at
    int64_t m_last = -1;
    int64_t m_lastSound = -1;
    int64_t m_soundEnd = 0;    // of the last frame of sound
    bool m_ended = false;
};

}    // namespace

std::unique_ptr<MediaSource> MediaSource::Open(const std::string& url, std::string& error) {
    auto source = std::make_unique<FileSource>();
    if (!source->Init(url, error))
        return nullptr;
    return source;
}
