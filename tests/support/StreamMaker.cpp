#include "support/StreamMaker.h"

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <string>

#include "decoders/RbspReader.h"
#include "support/BareDecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

// Suppressions that the sanitizers ask the program for.
extern "C" {
// Debian's x265 keeps copies of its parameters for ever.
__attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libx265\n";
}

// FFmpeg is not instrumented: its decoding threads publish their writes by atomics that the sanitizer cannot see.
__attribute__((visibility("default"))) const char* __tsan_default_suppressions() {
    return "called_from_lib:libavcodec.so\ncalled_from_lib:libavutil.so\n";
}
}

namespace corvane::test {

namespace {

void Require(bool good, const char* what) {
    if (!good)
        throw std::runtime_error(std::string("StreamMaker: ") + what);
}

std::string FormatOf(const VideoSpec& spec) {
    constexpr const char* kSamplings[] = {"420p", "422p", "444p"};
    const std::string yuv = spec.streamType == CORVANE_STREAM_JPEG ? "yuvj" : "yuv";
    return (spec.sampling == Sampling::Gray ? "gray" : yuv + kSamplings[static_cast<size_t>(spec.sampling)]) +
           (spec.bitDepth == 10 ? "10le" : "");
}

uint32_t StampBits(int number) {
    const auto value = static_cast<uint32_t>(number) & 0xFFFF;
    const uint32_t check = (value ^ value >> 4 ^ value >> 8 ^ value >> 12 ^ 0xA) & 0xF;
    return value << 4 | check;
}

// A slope that moves with the number, so that every picture differs everywhere, under the stamp.
void Draw(AVFrame& frame, int number, int depth) {
    const AVPixFmtDescriptor& description = *av_pix_fmt_desc_get(static_cast<AVPixelFormat>(frame.format));
    const uint32_t bits = StampBits(number);
    for (int plane = 0; plane < description.nb_components; ++plane) {
        const int width = plane == 0 ? frame.width : -(-frame.width >> description.log2_chroma_w);
        const int height = plane == 0 ? frame.height : -(-frame.height >> description.log2_chroma_h);
        for (int i = 0; i < width * height; ++i) {
            const int x = i % width, y = i / width, bit = y / kStampBlock * 10 + x / kStampBlock;
            const bool stamp = plane == 0 && x < kStampWidth && y < kStampHeight;
            const int value = !stamp                   ? 40 + (x * (plane + 1) + y + number * 5) / 2 % 160
                              : (bits >> bit & 1) != 0 ? 220
                                                       : 30;
            uint8_t* row = frame.data[plane] + ptrdiff_t{y} * frame.linesize[plane];
            if (depth > 8)
                reinterpret_cast<uint16_t*>(row)[x] = static_cast<uint16_t>(value << (depth - 8));
            else
                row[x] = static_cast<uint8_t>(value);
        }
    }
}

// Options by libavcodec's names.
std::string OptionsOf(const VideoSpec& spec) {
    const bool h264 = spec.streamType == CORVANE_STREAM_H264, h265 = spec.streamType == CORVANE_STREAM_H265;
    const auto number = [](int value) { return std::to_string(value); };
    std::string text = "threads=1,time_base=1/25,strict=unofficial,global_quality=236,pixel_format=" + FormatOf(spec) +
                       ",video_size=" + number(spec.width) + 'x' + number(spec.height) + ",g=" + number(spec.gop) +
                       ",keyint_min=" + number(spec.gop) + ",bf=" + number(spec.bFrames);
    text += h264 || h265 ? ",flags=0" : ",flags=qscale+bitexact";
    text += spec.interlaced ? "+ildct+ilme" : "";
    text += spec.signal;
    text += h264 && spec.bFrames == 0 ? ",tune=zerolatency" : "";
    if (!h264 && !h265)
        return text;
    text += ",preset=ultrafast,forced-idr=" + number(spec.openGop ? 0 : 1) + (h264 ? ",x264-params=" : ",x265-params=");
    text += "annexb=1:repeat-headers=1:scenecut=0:b-adapt=0:open-gop=" + number(spec.openGop ? 1 : 0);
    text += h264 ? ":threads=1:lookahead-threads=1:b-pyramid=none"
                 : ":log-level=none:pools=none:frame-threads=1:wpp=0:info=0:rc-lookahead=4";
    return text + (spec.options.empty() ? "" : ":") + spec.options;
}

ContextPtr OpenVideo(const VideoSpec& spec) {
    const bool plain263 = spec.width % 176 == 0 && spec.width / 176 * 144 == spec.height;
    const AVCodec* const codec = avcodec_find_encoder(
        spec.streamType == CORVANE_STREAM_H263 && !plain263 ? AV_CODEC_ID_H263P : CodecId(spec.streamType));
    Require(codec != nullptr, "encoder missing");
    ContextPtr context(avcodec_alloc_context3(codec));
    context->log_level_offset = 128;    // silent
    AVDictionary* options = nullptr;
    av_dict_parse_string(&options, OptionsOf(spec).c_str(), "=", ",", 0);
    const bool opened = avcodec_open2(context.get(), codec, &options) >= 0 && av_dict_count(options) == 0;
    av_dict_free(&options);
    Require(opened, "encoder does not open");
    return context;
}

Bytes::iterator FindCode(Bytes& bytes, const Bytes& code, ptrdiff_t from = 0) {
    return std::search(bytes.begin() + from, bytes.end(), code.begin(), code.end());
}

// As some encoders of MPEG-4 send a B picture: with the picture that it needs, and one that is not coded in its place.
void Pack(std::vector<EncodedPicture>& stream) {
    const Bytes mark = Bytes{0, 0, 1, 0xB2} + Bytes{'D', 'i', 'v', 'X', '5', '0', '3', 'b', '1', '3', '9', '3', 'p'};
    for (size_t i = 0; i + 1 < stream.size(); ++i) {
        Bytes& bytes = stream[i].bytes;
        Bytes& next = stream[i + 1].bytes;
        if (stream[i].key)
            bytes.insert(FindCode(bytes, {0, 0, 1, 0xB6}), mark.begin(), mark.end());
        if (next[3] == 0xB6 && next[4] >> 6 == 2) {
            bytes = bytes + next;
            next = kNotCoded;
        }
    }
}

}    // namespace

void RewriteVui(Bytes& unit, std::optional<uint32_t> reordered) {
    const auto begin = FindCode(unit, {0, 0, 1, 0x67});
    if (begin == unit.end())
        return;
    const auto end = FindCode(unit, {0, 0, 1}, begin - unit.begin() + 4);
    RbspReader reader(&begin[4], static_cast<size_t>(end - begin - 4));
    BitWriter writer;
    // Copies, and returns the last: a number of bits, or one or more Exp-Golomb codes.
    const auto u = [&](unsigned count) {
        const uint32_t value = reader.Bits(count);
        writer.U(count, value);
        return value;
    };
    const auto ue = [&](int codes) {
        uint32_t value = 0;
        for (; codes > 0; --codes)
            writer.Ue(value = reader.Ue());
        return value;
    };
    const bool high = u(8) >= 100;
    u(16);
    ue(high ? 4 : 1);
    u(high ? 2 : 0);
    ue(ue(2) == 0 ? 2 : 1);    // one more for an order count of type 0
    u(1);
    ue(2);
    u(u(1) == 0 ? 2 : 1);
    ue(u(1) != 0 ? 4 : 0);
    writer.U(1, reordered ? 1 : 0);
    if (reordered)
        writer.U(8, 0).U(2, 3).Ue(0).Ue(0).Ue(10).Ue(10).Ue(*reordered).Ue(*reordered);
    const Bytes rest(end, unit.end());
    unit.erase(begin - 1, unit.end());
    unit = unit + writer.Unit({0x67}) + rest;
}

std::vector<EncodedPicture> MakeVideo(const VideoSpec& spec) {
    Require(spec.width >= kStampWidth && spec.height >= kStampHeight, "picture too small for its stamp");
    ContextPtr context = OpenVideo(spec);
    BarePicture frame(av_frame_alloc());
    frame->format = context->pix_fmt;
    frame->width = spec.width;
    frame->height = spec.height;
    Require(av_frame_get_buffer(frame.get(), 0) >= 0, "no picture");
    PacketPtr packet(av_packet_alloc());
    std::vector<EncodedPicture> out;
    for (int i = 0; i <= spec.frames; ++i) {    // the last brings out what is left
        Require(av_frame_make_writable(frame.get()) >= 0, "no picture");
        Draw(*frame, spec.firstNumber + i, spec.bitDepth);
        frame->pts = i;
        frame->quality = context->global_quality;
        frame->pict_type = i % spec.gop == 0 && !spec.openGop ? AV_PICTURE_TYPE_I : AV_PICTURE_TYPE_NONE;
        frame->interlaced_frame = frame->top_field_first = spec.interlaced ? 1 : 0;
        Require(avcodec_send_frame(context.get(), i < spec.frames ? frame.get() : nullptr) >= 0, "encoder failed");
        for (; avcodec_receive_packet(context.get(), packet.get()) >= 0; av_packet_unref(packet.get()))
            out.push_back({{packet->data, packet->data + packet->size},
                           (packet->flags & AV_PKT_FLAG_KEY) != 0,
                           packet->pts * 40,
                           spec.firstNumber + static_cast<int>(packet->pts)});
    }
    Require(out.size() == static_cast<size_t>(spec.frames), "pictures lost in the encoder");
    for (size_t i = 0; spec.noVui && i < out.size(); ++i)
        RewriteVui(out[i].bytes, std::nullopt);
    if (spec.packed)
        Pack(out);
    return out;
}

int ReadStamp(const uint8_t* luma, uint32_t stride) {
    uint32_t bits = 0;
    for (uint32_t bit = 0; bit < 20; ++bit) {
        int sum = 0;
        for (uint32_t i = 0; i < 16; ++i)    // the middle of the block
            sum += luma[(bit / 10 * kStampBlock + 2 + i / 4) * stride + bit % 10 * kStampBlock + 2 + i % 4];
        if (sum / 16 >= 125)
            bits |= 1u << bit;
    }
    const int number = static_cast<int>(bits >> 4);
    return StampBits(number) == bits ? number : -1;
}

MediaFrameHeader VideoHeader(uint32_t streamType, const std::vector<uint8_t>& bytes, bool key, int64_t timeMs,
                             uint32_t width, uint32_t height) {
    MediaFrameHeader header{};
    header.recordSize = sizeof header;
    header.data = bytes.data();
    header.payloadSize = static_cast<uint32_t>(bytes.size());
    header.streamType = streamType;
    header.frameType = key ? 0 : 1;
    header.timeSeconds = header.streamSeconds = static_cast<uint32_t>(timeMs / 1000);
    header.timeMilliseconds = static_cast<uint32_t>(timeMs % 1000);
    header.pictureWidth = width;
    header.pictureHeight = height;
    return header;
}

FramePtr MakeFrame(uint32_t streamType, const std::vector<uint8_t>& bytes, bool key, int64_t timeMs, uint32_t width,
                   uint32_t height) {
    return std::make_shared<MediaFrameImpl>(VideoHeader(streamType, bytes, key, timeMs, width, height));
}

}    // namespace corvane::test
