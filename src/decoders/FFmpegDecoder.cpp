#include "decoders/FFmpegDecoder.h"

#include <algorithm>
#include <climits>
#include <new>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "base/FailurePoint.h"
#include "base/Limits.h"
#include "base/Mutex.h"
#include "base/Status.h"
#include "corvane/corvane.h"
#include "decoders/FFmpegSilence.h"
#include "decoders/SampleConverter.h"

namespace corvane {

namespace {

// Most pictures or sound blocks that wait in a decoder. One packet of sound may hold many blocks; those of a hostile
// packet beyond this bound are dropped.
constexpr size_t kMaxOutput = 1024;

// Codecs are opened and closed one at a time, by a rule of this library: some codecs have process-wide tables.
Mutex& CodecMutex() {
    static Mutex mutex;
    return mutex;
}

bool MustFail() {
    return failure::MustFail(failure::Site::PlatformCall);
}

AVCodecID IdOf(FFmpegCodec codec) {
    switch (codec) {
    case FFmpegCodec::Mjpeg:
        return AV_CODEC_ID_MJPEG;
    case FFmpegCodec::H263:
        return AV_CODEC_ID_H263;
    case FFmpegCodec::Mpeg4:
        return AV_CODEC_ID_MPEG4;
    case FFmpegCodec::H264:
        return AV_CODEC_ID_H264;
    case FFmpegCodec::Hevc:
        return AV_CODEC_ID_HEVC;
    case FFmpegCodec::AmrNb:
        return AV_CODEC_ID_AMR_NB;
    case FFmpegCodec::MuLaw:
        return AV_CODEC_ID_PCM_MULAW;
    case FFmpegCodec::ALaw:
        return AV_CODEC_ID_PCM_ALAW;
    case FFmpegCodec::G729:
        return AV_CODEC_ID_G729;
    case FFmpegCodec::Aac:
        return AV_CODEC_ID_AAC;
    }
    return AV_CODEC_ID_NONE;
}

// CORVANE_STREAM_* of a video codec, else 0.
uint32_t StreamTypeOf(FFmpegCodec codec) {
    switch (codec) {
    case FFmpegCodec::Mjpeg:
        return CORVANE_STREAM_JPEG;
    case FFmpegCodec::H263:
        return CORVANE_STREAM_H263;
    case FFmpegCodec::Mpeg4:
        return CORVANE_STREAM_MPEG4;
    case FFmpegCodec::H264:
        return CORVANE_STREAM_H264;
    case FFmpegCodec::Hevc:
        return CORVANE_STREAM_H265;
    default:
        return 0;
    }
}

void FreeContext(AVCodecContext* context) {
    MutexLock lock(CodecMutex());
    avcodec_free_context(&context);
}

// Opens the context that `setUp` fills, unless that returns false, and wraps it.
template <typename SetUp>
FFmpegDecoderPtr Make(FFmpegCodec codec, SetUp setUp) noexcept {
    const AVCodec* found = avcodec_find_decoder(IdOf(codec));
    if (found == nullptr || MustFail())
        return nullptr;
    AVCodecContext* context = avcodec_alloc_context3(found);
    if (context == nullptr)
        return nullptr;
    context->log_level_offset = kLogSilence;
    bool opened = setUp(*context);
    if (opened) {
        MutexLock lock(CodecMutex());
        opened = !MustFail() && avcodec_open2(context, found, nullptr) >= 0;
    }
    if (opened) {
        try {
            return FFmpegDecoderPtr(new DecoderIsolated_FFmpeg(context, codec));
        } catch (...) {
            // freed below
        }
    }
    FreeContext(context);
    return nullptr;
}

// The same samples without the mark "full range": the scaler would rescale their range, and warn, for the marked ones.
AVPixelFormat WithoutRange(AVPixelFormat format) {
    switch (format) {
    case AV_PIX_FMT_YUVJ420P:
        return AV_PIX_FMT_YUV420P;
    case AV_PIX_FMT_YUVJ422P:
        return AV_PIX_FMT_YUV422P;
    case AV_PIX_FMT_YUVJ444P:
        return AV_PIX_FMT_YUV444P;
    case AV_PIX_FMT_YUVJ440P:
        return AV_PIX_FMT_YUV440P;
    case AV_PIX_FMT_YUVJ411P:
        return AV_PIX_FMT_YUV411P;
    default:
        return format;
    }
}

// The colours of the samples of `frame` after conversion. A matrix that is not one of ours counts as not signalled:
// pictures of 720 lines and more are then BT.709. A range that is not signalled is limited, but for JPEG. The scaler
// converts RGB and grey to BT.601 in limited range.
ColourSignal ColoursOf(const AVFrame& frame, FFmpegCodec codec) {
    constexpr int kLinesOfBt709 = 720;
    const auto format = static_cast<AVPixelFormat>(frame.format);
    const AVPixFmtDescriptor* const samples = av_pix_fmt_desc_get(format);
    if (samples != nullptr && ((samples->flags & AV_PIX_FMT_FLAG_RGB) != 0 || samples->nb_components < 3))
        return {ColourSignal::Matrix::Bt601, false};
    ColourSignal colours;
    switch (frame.colorspace) {
    case AVCOL_SPC_BT709:
        colours.matrix = ColourSignal::Matrix::Bt709;
        break;
    case AVCOL_SPC_BT2020_NCL:
        colours.matrix = ColourSignal::Matrix::Bt2020;
        break;
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M:
        break;
    default:
        colours.matrix = frame.height >= kLinesOfBt709 ? ColourSignal::Matrix::Bt709 : ColourSignal::Matrix::Bt601;
        break;
    }
    if (WithoutRange(format) != format || frame.color_range == AVCOL_RANGE_JPEG)
        colours.fullRange = true;
    else
        colours.fullRange = codec == FFmpegCodec::Mjpeg && frame.color_range == AVCOL_RANGE_UNSPECIFIED;
    return colours;
}

// Bytes of the first AMR block with its header byte, by the table of RFC 4867; libavcodec decodes one block a packet. 0
// for an empty unit and for a header that no block has: the rest of the unit is then lost.
uint32_t AmrBlockBytes(const EncodedUnit& unit) {
    constexpr uint8_t kBytes[16] = {13, 14, 16, 18, 20, 21, 27, 32, 6, 0, 0, 0, 0, 0, 0, 1};
    return unit.size == 0 ? 0 : kBytes[unit.data[0] >> 3 & 15];
}

// Needs no conversion: three planes of 4:2:0, top row first.
bool IsPlain(const AVFrame& frame) {
    return (frame.format == AV_PIX_FMT_YUV420P || frame.format == AV_PIX_FMT_YUVJ420P) && frame.linesize[0] > 0 &&
           frame.linesize[1] > 0 && frame.linesize[2] > 0;
}

}    // namespace

DecoderIsolated_FFmpeg::Frame::Frame() : av(MustFail() ? nullptr : av_frame_alloc()) {
    if (av == nullptr)
        throw std::bad_alloc();
}

DecoderIsolated_FFmpeg::Frame::~Frame() {
    av_frame_free(&av);
}

DecoderIsolated_FFmpeg::DecoderIsolated_FFmpeg(AVCodecContext* context, FFmpegCodec codec)
    : m_codec(codec),
      m_isVideo(StreamTypeOf(codec) != 0),
      m_sampleRate(context->sample_rate),
      m_channels(context->ch_layout.nb_channels) {
    if (!m_isVideo)
        m_samples = std::make_unique<SampleConverter>();
    m_packet = MustFail() ? nullptr : av_packet_alloc();
    if (m_packet == nullptr)
        throw std::bad_alloc();
    m_context = context;
}

DecoderIsolated_FFmpeg::~DecoderIsolated_FFmpeg() {
    FreeContext(m_context);
    av_packet_free(&m_packet);
    sws_freeContext(m_scaler);
}

HeaderVerdict DecoderIsolated_FFmpeg::CheckHeaders(const EncodedUnit& in) const {
    switch (m_codec) {
    case FFmpegCodec::Mjpeg:
        return CheckJpegHeaders(in.data, in.size);
    case FFmpegCodec::H263:
        return CheckH263Picture(in.data, in.size);
    case FFmpegCodec::Mpeg4:
        return m_context->coded_width > 0 ? HeaderVerdict::Valid : CheckMpeg4Layer(in.data, in.size);
    case FFmpegCodec::H264:
        return CheckH264Sequences(in.data, in.size);
    case FFmpegCodec::Hevc:
        return CheckHevcSequences(in.data, in.size);
    default:
        return HeaderVerdict::Valid;
    }
}

uint32_t DecoderIsolated_FFmpeg::Threads() const {
    return static_cast<uint32_t>(std::max(m_context->thread_count, 1));
}

uint32_t DecoderIsolated_FFmpeg::ThreadDelay() const {
    return m_context->active_thread_type == FF_THREAD_FRAME ? Threads() - 1 : 0;
}

uint32_t DecoderIsolated_FFmpeg::CodecDelay() const {
    return ThreadDelay() + static_cast<uint32_t>(std::max(m_context->has_b_frames, 0));
}

uint32_t DecoderIsolated_FFmpeg::Delay() const {
    return CodecDelay() + static_cast<uint32_t>(m_output.size()) - (m_frontIsCurrent ? 1 : 0);
}

uint32_t DecoderIsolated_FFmpeg::DelayGrowth() const {
    return CodecDelay() - std::min(CodecDelay(), m_firstDelay.value_or(CodecDelay()));
}

void DecoderIsolated_FFmpeg::End(UnitEnd end, std::optional<uint32_t> unitsSince) {
    m_end = end;
    m_sinceEnded = unitsSince;
}

// Called after a unit. The codec holds no more units than its delay, so one beyond it had no picture: the unit that
// left the threads last, unless the delay has just grown, which happens when a picture came too late for its place in
// the order; that picture is then lost.
void DecoderIsolated_FFmpeg::CloseAccount() {
    if (m_held <= CodecDelay())
        return;
    m_held = CodecDelay();
    if (m_end != UnitEnd::Taken)
        return;
    End(UnitEnd::Nothing, CodecDelay() == m_pictureDelay ? std::optional(ThreadDelay()) : std::nullopt);
}

int32_t DecoderIsolated_FFmpeg::Feed(const EncodedUnit& in) {
    // For the codec a packet without bytes means the end of the stream.
    End(UnitEnd::Nothing, 0);
    if (in.data == nullptr || in.size == 0 || in.size > INT_MAX - AV_INPUT_BUFFER_PADDING_SIZE)
        return 0;
    if (const HeaderVerdict verdict = CheckHeaders(in); verdict != HeaderVerdict::Valid) {
        End(verdict == HeaderVerdict::Size ? UnitEnd::Size : UnitEnd::Refused, 0);
        return 0;
    }
    if (m_restore && !RestoreConfiguration())
        return -1;
    End(UnitEnd::Taken, std::nullopt);
    for (int attempt = 0; attempt < 2; ++attempt) {
        // The packet has no owner for its bytes, so libavcodec copies them: with frame threads it keeps them longer
        // than this call, and the caller's end with it.
        m_packet->data = const_cast<uint8_t*>(in.data);
        m_packet->size = static_cast<int>(in.size);
        m_packet->pts = m_sent++;
        const int sent = MustFail() ? AVERROR(EINVAL) : avcodec_send_packet(m_context, m_packet);
        m_packet->data = nullptr;
        m_packet->size = 0;
        av_packet_free_side_data(m_packet);
        if (sent < 0 && sent != AVERROR(EAGAIN)) {
            End(UnitEnd::Refused, ThreadDelay());
            return 0;
        }
        m_held += sent >= 0 ? 1 : 0;
        if (sent == AVERROR(EAGAIN) && attempt == 1)
            break;
        if (Receive() == Turn::Stopped || sent >= 0) {
            CloseAccount();
            return 0;
        }
    }
    End(UnitEnd::Refused, std::nullopt);
    return -1;
}

DecoderIsolated_FFmpeg::Turn DecoderIsolated_FFmpeg::Receive() {
    for (;;) {
        FrameRef frame(m_frames.Get());
        const int received = MustFail() ? AVERROR(EINVAL) : avcodec_receive_frame(m_context, frame->av);
        if (received == AVERROR(EAGAIN))
            return Turn::Drained;
        if (received < 0) {
            End(UnitEnd::Refused, ThreadDelay());
            return Turn::Stopped;
        }
        if (frame->av->data[0] == nullptr)
            return Turn::Drained;
        if (m_isVideo && IsLastAgain(*frame->av))
            continue;
        m_held -= m_held > 0 ? 1 : 0;
        if (m_output.size() >= kMaxOutput) {
            avcodec_flush_buffers(m_context);
            m_held = 0;
            return Turn::Stopped;
        }
        if (IsKept(*frame->av))
            m_output.push_back(std::move(frame));
        else
            End(UnitEnd::Size, std::nullopt);
    }
}

// The MPEG-4 decoder gives a picture twice when its delay grows.
bool DecoderIsolated_FFmpeg::IsLastAgain(const AVFrame& frame) {
    const bool again = frame.pts == m_lastTime && frame.data[0] == m_lastPixels;
    m_lastTime = frame.pts;
    m_lastPixels = frame.data[0];
    return again;
}

bool DecoderIsolated_FFmpeg::IsKept(const AVFrame& frame) const {
    if (!m_isVideo)
        return frame.nb_samples > 0;
    return frame.width > 0 && frame.height > 0 && frame.width <= static_cast<int>(limits::kMaxPictureSide) &&
           frame.height <= static_cast<int>(limits::kMaxPictureSide) &&
           uint64_t(frame.width) * uint64_t(frame.height) <= limits::kMaxPicturePixels;
}

bool DecoderIsolated_FFmpeg::ConvertFront() {
    const AVFrame& source = *m_output.front()->av;
    const AVPixelFormat declared = WithoutRange(static_cast<AVPixelFormat>(source.format));
    if (sws_isSupportedInput(declared) == 0)
        return false;
    FrameRef converted(m_converted.Get());
    AVFrame& target = *converted->av;
    if (target.buf[0] == nullptr || target.width != source.width || target.height != source.height) {
        av_frame_unref(&target);
        target.format = AV_PIX_FMT_YUV420P;
        target.width = source.width;
        target.height = source.height;
        if (MustFail() || av_frame_get_buffer(&target, 32) < 0)
            return false;
    }
    if (MustFail())
        return false;
    m_scaler = sws_getCachedContext(m_scaler, source.width, source.height, declared, source.width, source.height,
                                    AV_PIX_FMT_YUV420P, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
    if (m_scaler == nullptr || MustFail() ||
        sws_scale(m_scaler, source.data, source.linesize, 0, source.height, target.data, target.linesize) < 0)
        return false;
    m_output.front() = std::move(converted);
    return true;
}

int32_t DecoderIsolated_FFmpeg::NextPicture(DecodedFrame* out, uint32_t* got, const EncodedUnit& in) {
    *got = 0;
    if (m_frontIsCurrent)
        m_output.erase(m_output.begin());
    m_frontIsCurrent = false;
    while (m_output.size() > limits::kInFlightSlack)
        m_output.erase(m_output.begin());    // a stream that always gives two pictures a packet
    if (Feed(in) < 0)
        return -1;
    const auto consumed = static_cast<int32_t>(std::min<uint32_t>(in.size, INT32_MAX));
    if (m_output.empty())    // a damaged unit is a failure for H.263 alone
        return m_codec == FFmpegCodec::H263 && m_end != UnitEnd::Nothing ? -1 : consumed;
    const ColourSignal colours = ColoursOf(*m_output.front()->av, m_codec);
    if (!IsPlain(*m_output.front()->av) && !ConvertFront()) {
        m_output.erase(m_output.begin());
        return -1;
    }
    const AVFrame& frame = *m_output.front()->av;
    for (int i = 0; i < 3; ++i) {
        out->planes[i] = frame.data[i];
        out->strides[i] = static_cast<uint32_t>(frame.linesize[i]);
    }
    out->width = static_cast<uint32_t>(frame.width);
    out->height = static_cast<uint32_t>(frame.height);
    m_frontIsCurrent = true;
    m_colours = colours;
    m_pictureDelay = CodecDelay();
    if (!m_firstDelay)
        m_firstDelay = m_pictureDelay;
    *got = 2;
    return consumed;
}

int32_t DecoderIsolated_FFmpeg::DecodeVideo(DecodedFrame* out, uint32_t* got, const EncodedUnit* in) {
    if (!m_isVideo)
        return -1;
    try {
        return NextPicture(out, got, *in);
    } catch (...) {    // no memory; nothing may cross this interface
        return -1;
    }
}

bool DecoderIsolated_FFmpeg::RestoreConfiguration() {
    const auto size = static_cast<size_t>(m_context->extradata_size);
    uint8_t* const copy = MustFail() ? nullptr : av_packet_new_side_data(m_packet, AV_PKT_DATA_NEW_EXTRADATA, size);
    if (copy == nullptr)
        return false;
    std::copy_n(m_context->extradata, size, copy);
    return true;
}

bool DecoderIsolated_FFmpeg::WriteSamples(uint8_t* pcm, uint32_t capacity, uint32_t* written) {
    for (const FrameRef& frame : m_output) {
        const int64_t bytes = SampleConverter::OutputBytes(*frame->av);
        const bool fits = frame->av->sample_rate == m_sampleRate && frame->av->ch_layout.nb_channels == m_channels;
        if (!fits || bytes < 0 || bytes > capacity - *written || m_samples->Convert(*frame->av, pcm + *written) < 0)
            return false;
        *written += static_cast<uint32_t>(bytes);
    }
    return true;
}

bool DecoderIsolated_FFmpeg::DecodeBlocks(const EncodedUnit& in, uint8_t* pcm, uint32_t capacity, uint32_t* written) {
    EncodedUnit block = in;
    for (uint32_t at = 0; at < in.size || at == 0; at += block.size) {
        block.data = in.data + at;
        block.size = in.size - at;
        if (m_codec == FFmpegCodec::AmrNb)
            block.size = std::min(block.size, AmrBlockBytes(block));
        const bool good = Feed(block) >= 0 && WriteSamples(pcm, capacity, written);
        m_output.clear();
        if (!good || block.size == 0)
            return good;
    }
    return true;
}

int32_t DecoderIsolated_FFmpeg::DecodeAudio(uint8_t* pcm, uint32_t* size, const EncodedUnit* in) {
    if (m_isVideo)
        return static_cast<int32_t>(Status::NotSupported);
    uint32_t written = 0;
    bool decoded = false;
    try {
        decoded = DecodeBlocks(*in, pcm, *size, &written);
    } catch (...) {
        m_output.clear();
    }
    m_restore = (!decoded || written == 0 || m_end == UnitEnd::Refused) && m_context->extradata_size > 0;
    if (!decoded)
        return -1;
    *size = written;
    return 0;
}

int32_t DecoderIsolated_FFmpeg::ShareFrame(DecodedFrame* out, int32_t version) {
    if (version < 2)
        return static_cast<int32_t>(Status::VersionMismatch);
    if (!m_frontIsCurrent)
        return -1;
    Frame* frame = m_output.front().Get();
    frame->AddRef();
    out->owner = frame;
    out->add_ref = &Frame::AddRefOwner;
    out->release = &Frame::ReleaseOwner;
    return 0;
}

FFmpegDecoderPtr MakeVideoDecoder(FFmpegCodec codec, uint32_t threads) noexcept {
    return Make(codec, [&](AVCodecContext& context) {
        const uint32_t most = codec == FFmpegCodec::Hevc ? 32 : 16;
        context.workaround_bugs = FF_BUG_AUTODETECT;
        context.flags2 = AV_CODEC_FLAG2_FAST | (codec == FFmpegCodec::H264 ? AV_CODEC_FLAG2_SHOW_ALL : 0);
        context.skip_loop_filter = AVDISCARD_NONREF;
        context.thread_count = static_cast<int>(std::clamp<uint32_t>(threads, 1, most));
        context.max_pixels = kMaxCodedPixels;
        return true;
    });
}

FFmpegDecoderPtr MakeAudioDecoder(FFmpegCodec codec, uint32_t sampleRate, uint32_t channels, uint32_t bitsPerSample,
                                  std::span<const uint8_t> configuration) noexcept {
    if (sampleRate > INT_MAX || channels == 0 || channels > INT16_MAX)
        return nullptr;
    return Make(codec, [&](AVCodecContext& context) {
        context.sample_rate = static_cast<int>(sampleRate);
        av_channel_layout_default(&context.ch_layout, static_cast<int>(channels));
        context.bits_per_coded_sample = static_cast<int>(bitsPerSample);
        context.request_sample_fmt = AV_SAMPLE_FMT_S16;
        if (configuration.empty())
            return true;
        context.extradata = static_cast<uint8_t*>(
            MustFail() ? nullptr : av_mallocz(configuration.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        if (context.extradata == nullptr)
            return false;
        std::copy(configuration.begin(), configuration.end(), context.extradata);
        context.extradata_size = static_cast<int>(configuration.size());
        return true;
    });
}

}    // namespace corvane
