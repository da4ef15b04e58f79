// What the decoders of pictures and of sound share of libavcodec: a codec context, opened and fed.
#pragma once

#include <cstdint>
#include <memory>

#include "corvane/decoder.h"
#include "decoders/FrameQueue.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace corvane {

enum class FFmpegCodec { Mjpeg, H263, Mpeg4, H264, Hevc, AmrNb, MuLaw, ALaw, G729, Aac };

// One codec context with its packet. It does not change FFmpeg's process-wide state (log level, callbacks); settings of
// its own objects keep them from printing. One thread at a time.
class FFmpegContext {
public:
    class Frame : public QMRX::SDK::Utility::PooledFrame<Frame> {
    public:
        Frame();    // raises std::bad_alloc
        ~Frame();
        AVFrame* av = nullptr;
    };

    // Most pictures or sound blocks that wait in a decoder. One packet of sound may hold many blocks; those of a
    // hostile packet beyond this bound are dropped.
    static constexpr size_t kMaxOutput = 1024;

    // Not open yet. Without a context where the codec is missing or there is no memory.
    explicit FFmpegContext(FFmpegCodec codec) noexcept;

    explicit operator bool() const { return m_context != nullptr; }
    AVCodecContext* operator->() const { return m_context.get(); }
    AVPacket* Packet() const { return m_packet.get(); }

    bool Open() noexcept;
    // Whether a codec takes it: libavcodec counts in int, and a packet without bytes means the end of the stream.
    static bool CanSend(const EncodedUnit& unit);
    // As avcodec_send_packet and avcodec_receive_frame. The side data of the packet goes with the unit.
    int Send(const EncodedUnit& unit, int64_t time);
    int Receive(AVFrame& frame);

private:
    struct FreeContext {
        void operator()(AVCodecContext* context) const;
    };
    struct FreePacket {
        void operator()(AVPacket* packet) const;
    };

    std::unique_ptr<AVCodecContext, FreeContext> m_context;
    std::unique_ptr<AVPacket, FreePacket> m_packet;
};

}    // namespace corvane
