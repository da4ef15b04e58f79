#include "decoders/FFmpegDecoder.h"

#include <algorithm>
#include <climits>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
#include <libavutil/pixdesc.h>
#include <libswscale/swscale.h>
}

#include "base/FailurePoint.h"
#include "base/Limits.h"
#include "base/Status.h"

namespace corvane {

namespace {

bool MustFail() {
    return failure::MustFail(failure::Site::PlatformCall);
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

// Needs no conversion: three planes of 4:2:0, top row first.
bool IsPlain(const AVFrame& frame) {
    return (frame.format == AV_PIX_FMT_YUV420P || frame.format == AV_PIX_FMT_YUVJ420P) && frame.linesize[0] > 0 &&
           frame.linesize[1] > 0 && frame.linesize[2] > 0;
}

}    // namespace

DecoderIsolated_FFmpeg::~DecoderIsolated_FFmpeg() {
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
    End(UnitEnd::Nothing, 0);
    if (!FFmpegContext::CanSend(in))
        return 0;
    if (const HeaderVerdict verdict = CheckHeaders(in); verdict != HeaderVerdict::Valid) {
        End(verdict == HeaderVerdict::Size ? UnitEnd::Size : UnitEnd::Refused, 0);
        return 0;
    }
    End(UnitEnd::Taken, std::nullopt);
    for (int attempt = 0; attempt < 2; ++attempt) {
        const int sent = m_context.Send(in, m_sent++);
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
        const int received = m_context.Receive(*frame->av);
        if (received == AVERROR(EAGAIN))
            return Turn::Drained;
        if (received < 0) {
            End(UnitEnd::Refused, ThreadDelay());
            return Turn::Stopped;
        }
        if (frame->av->data[0] == nullptr)
            return Turn::Drained;
        if (IsLastAgain(*frame->av))
            continue;
        m_held -= m_held > 0 ? 1 : 0;
        if (m_output.size() >= FFmpegContext::kMaxOutput) {
            avcodec_flush_buffers(m_context.operator->());
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
    try {
        return NextPicture(out, got, *in);
    } catch (...) {    // no memory; nothing may cross this interface
        return -1;
    }
}

int32_t DecoderIsolated_FFmpeg::ShareFrame(DecodedFrame* out, int32_t version) {
    if (version < 2)
        return static_cast<int32_t>(Status::VersionMismatch);
    if (!m_frontIsCurrent)
        return -1;
    FFmpegContext::Frame* frame = m_output.front().Get();
    frame->AddRef();
    out->owner = frame;
    out->add_ref = &FFmpegContext::Frame::AddRefOwner;
    out->release = &FFmpegContext::Frame::ReleaseOwner;
    return 0;
}

FFmpegDecoderPtr MakeVideoDecoder(FFmpegCodec codec, uint32_t threads) noexcept {
    FFmpegContext context(codec);
    if (!context)
        return nullptr;
    const uint32_t most = codec == FFmpegCodec::Hevc ? 32 : 16;
    context->workaround_bugs = FF_BUG_AUTODETECT;
    context->flags2 = AV_CODEC_FLAG2_FAST | (codec == FFmpegCodec::H264 ? AV_CODEC_FLAG2_SHOW_ALL : 0);
    context->skip_loop_filter = AVDISCARD_NONREF;
    context->thread_count = static_cast<int>(std::clamp<uint32_t>(threads, 1, most));
    context->max_pixels = kMaxCodedPixels;
    if (!context.Open())
        return nullptr;
    try {
        return FFmpegDecoderPtr(new DecoderIsolated_FFmpeg(std::move(context), codec));
    } catch (...) {
        return nullptr;
    }
}

}    // namespace corvane
