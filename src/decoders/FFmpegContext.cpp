#include "decoders/FFmpegContext.h"

#include <climits>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/frame.h>
}

#include "base/FailurePoint.h"
#include "base/Mutex.h"
#include "decoders/FFmpegSilence.h"

namespace corvane {

namespace {

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

}    // namespace

FFmpegContext::Frame::Frame() : av(MustFail() ? nullptr : av_frame_alloc()) {
    if (av == nullptr)
        throw std::bad_alloc();
}

FFmpegContext::Frame::~Frame() {
    av_frame_free(&av);
}

void FFmpegContext::FreeContext::operator()(AVCodecContext* context) const {
    MutexLock lock(CodecMutex());
    avcodec_free_context(&context);
}

void FFmpegContext::FreePacket::operator()(AVPacket* packet) const {
    av_packet_free(&packet);
}

FFmpegContext::FFmpegContext(FFmpegCodec codec) noexcept {
    const AVCodec* const found = avcodec_find_decoder(IdOf(codec));
    if (found == nullptr || MustFail())
        return;
    m_packet.reset(MustFail() ? nullptr : av_packet_alloc());
    if (m_packet == nullptr)
        return;
    m_context.reset(avcodec_alloc_context3(found));
    if (m_context != nullptr)
        m_context->log_level_offset = kLogSilence;
}

bool FFmpegContext::Open() noexcept {
    MutexLock lock(CodecMutex());
    return !MustFail() && avcodec_open2(m_context.get(), avcodec_find_decoder(m_context->codec_id), nullptr) >= 0;
}

bool FFmpegContext::CanSend(const EncodedUnit& unit) {
    return unit.data != nullptr && unit.size > 0 && unit.size <= INT_MAX - AV_INPUT_BUFFER_PADDING_SIZE;
}

int FFmpegContext::Send(const EncodedUnit& unit, int64_t time) {
    // The packet has no owner for its bytes, so libavcodec copies them: with frame threads it keeps them longer than
    // this call, and the caller's end with it.
    m_packet->data = const_cast<uint8_t*>(unit.data);
    m_packet->size = static_cast<int>(unit.size);
    m_packet->pts = time;
    const int sent = MustFail() ? AVERROR(EINVAL) : avcodec_send_packet(m_context.get(), m_packet.get());
    m_packet->data = nullptr;
    m_packet->size = 0;
    av_packet_free_side_data(m_packet.get());
    return sent;
}

int FFmpegContext::Receive(AVFrame& frame) {
    return MustFail() ? AVERROR(EINVAL) : avcodec_receive_frame(m_context.get(), &frame);
}

}    // namespace corvane
