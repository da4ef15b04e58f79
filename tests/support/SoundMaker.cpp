#include "support/SoundMaker.h"

extern "C" {
#include <bcg729/decoder.h>
#include <bcg729/encoder.h>
}
#include <spandsp.h>
#undef lrint    // functions in the place of the standard's
#undef lrintf

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <numbers>
#include <stdexcept>
#include <string>

#include "support/BareDecoder.h"

namespace corvane::test {

namespace {

void Require(bool good, const char* what) {
    if (!good)
        throw std::runtime_error(std::string("SoundMaker: ") + what);
}

constexpr int kAacRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};

unsigned AacRateIndex(int rate) {
    return static_cast<unsigned>(std::find(std::begin(kAacRates), std::end(kAacRates), rate) - kAacRates);
}

ContextPtr OpenSound(const AVCodec* codec, int rate, int channels, AVSampleFormat format) {
    Require(codec != nullptr, "no codec");
    ContextPtr context(avcodec_alloc_context3(codec));
    context->log_level_offset = 128;
    context->sample_rate = rate;
    av_channel_layout_default(&context->ch_layout, channels);
    context->sample_fmt = format;
    context->bit_rate = int64_t{64000} * channels;
    return context;
}

}    // namespace

Samples Speech(int rate) {
    constexpr int kRateOfVoice = 22050;
    constexpr size_t kHeaderBytes = 44;
    FILE* const voice = popen(
        "espeak-ng --stdout 'The gate opens at half past seven. A red car waits in front of it, "
        "and then it leaves for the north.'",
        "r");
    Require(voice != nullptr, "no espeak-ng");
    Bytes bytes;
    for (int c = std::fgetc(voice); c != EOF; c = std::fgetc(voice))
        bytes.push_back(static_cast<uint8_t>(c));
    Require(pclose(voice) == 0 && bytes.size() > kHeaderBytes + size_t{2} * kRateOfVoice, "no speech");
    Samples out;
    const size_t count = (bytes.size() - kHeaderBytes) / 2;
    for (size_t i = 0;; ++i) {
        const double at = static_cast<double>(i) * kRateOfVoice / rate;
        const auto whole = static_cast<size_t>(at);
        if (whole + 1 >= count)
            return out;
        const auto sample = [&](size_t n) {
            return static_cast<int16_t>(bytes[kHeaderBytes + 2 * n] | bytes[kHeaderBytes + 2 * n + 1] << 8);
        };
        out.push_back(static_cast<int16_t>(std::lerp(sample(whole), sample(whole + 1), at - std::floor(at))));
    }
}

Samples Sweep(int rate, double seconds, double from, double to) {
    Samples out(static_cast<size_t>(rate * seconds));
    double phase = 0;
    for (size_t i = 0; i < out.size(); ++i) {
        out[i] = static_cast<int16_t>(std::lrint(8192 * std::sin(phase)));
        const double share = static_cast<double>(i) / static_cast<double>(out.size());
        phase += 2 * std::numbers::pi * std::lerp(from, to, share) / rate;
    }
    return out;
}

Samples Spread(const Samples& mono, int channels) {
    Samples out;
    for (const int16_t sample : mono)
        for (int channel = 0; channel < channels; ++channel)
            out.push_back(static_cast<int16_t>(sample / (1 << channel)));
    return out;
}

std::vector<Bytes> EncodeAac(const Samples& samples, int rate, int channels) {
    const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_AAC);
    const ContextPtr context = OpenSound(codec, rate, channels, AV_SAMPLE_FMT_FLTP);
    Require(avcodec_open2(context.get(), codec, nullptr) >= 0, "AAC encoder does not open");
    const auto block = static_cast<size_t>(context->frame_size);
    const auto count = static_cast<size_t>(channels);
    const PacketPtr packet(av_packet_alloc());
    std::vector<Bytes> out;
    for (size_t at = 0; at + block <= samples.size() / count; at += block) {
        const BarePicture frame(av_frame_alloc());
        frame->nb_samples = context->frame_size;
        frame->format = AV_SAMPLE_FMT_FLTP;
        av_channel_layout_copy(&frame->ch_layout, &context->ch_layout);
        Require(av_frame_get_buffer(frame.get(), 0) >= 0, "no frame");
        for (size_t i = 0; i < block * count; ++i)
            reinterpret_cast<float*>(frame->data[i % count])[i / count] =
                static_cast<float>(samples[at * count + i]) / 32768;
        frame->pts = static_cast<int64_t>(at);
        Require(avcodec_send_frame(context.get(), frame.get()) >= 0, "AAC encoder failed");
        for (; avcodec_receive_packet(context.get(), packet.get()) >= 0; av_packet_unref(packet.get()))
            out.emplace_back(packet->data, packet->data + packet->size);
    }
    return out;
}

Bytes AdtsFrame(const Bytes& raw, int rate, int channels, bool sum) {
    const size_t bytes = 7 + (sum ? 2u : 0u) + raw.size();
    BitWriter w;
    w.U(12, 0xFFF).U(3, 0).U(1, sum ? 0 : 1).U(2, 1).U(4, AacRateIndex(rate)).U(1, 0);
    w.U(3, static_cast<unsigned>(channels)).U(4, 0).U(13, bytes).U(11, 0x7FF).U(2, 0).U(sum ? 16 : 0, 0);
    return w.Packed() + raw;
}

Samples BareAac(const std::vector<Bytes>& blocks, int rate, int channels) {
    const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_AAC);
    const ContextPtr context = OpenSound(codec, rate, channels, AV_SAMPLE_FMT_FLTP);
    const Bytes configuration =
        BitWriter().U(5, 2).U(4, AacRateIndex(rate)).U(4, static_cast<unsigned>(channels)).U(3, 0).Packed();
    context->extradata = static_cast<uint8_t*>(av_mallocz(64));
    std::copy(configuration.begin(), configuration.end(), context->extradata);
    context->extradata_size = static_cast<int>(configuration.size());
    Require(avcodec_open2(context.get(), codec, nullptr) >= 0, "AAC decoder does not open");
    Samples out;
    const PacketPtr packet(av_packet_alloc());
    const BarePicture frame(av_frame_alloc());
    for (const Bytes& block : blocks) {
        av_new_packet(packet.get(), static_cast<int>(block.size()));
        std::copy(block.begin(), block.end(), packet->data);
        Require(avcodec_send_packet(context.get(), packet.get()) >= 0, "AAC decoder failed");
        av_packet_unref(packet.get());
        while (avcodec_receive_frame(context.get(), frame.get()) >= 0)
            for (int i = 0; i < frame->nb_samples * channels; ++i) {
                const float value = reinterpret_cast<float*>(frame->data[i % channels])[i / channels];
                out.push_back(static_cast<int16_t>(std::lrint(std::clamp(value * 32768, -32768.f, 32767.f))));
            }
    }
    return out;
}

std::vector<Bytes> EncodeG729(const Samples& samples) {
    auto* const encoder = initBcg729EncoderChannel(0);
    std::vector<Bytes> out;
    for (size_t at = 0; at + 80 <= samples.size(); at += 80) {
        Bytes block(10);
        uint8_t length = 0;
        bcg729Encoder(encoder, samples.data() + at, block.data(), &length);
        out.push_back(block);
    }
    closeBcg729EncoderChannel(encoder);
    return out;
}

Samples BareG729(const std::vector<Bytes>& blocks) {
    auto* const decoder = initBcg729DecoderChannel();
    Samples out(blocks.size() * 80);
    for (size_t i = 0; i < blocks.size(); ++i)
        bcg729Decoder(decoder, blocks[i].data(), 10, 0, 0, 0, out.data() + i * 80);
    closeBcg729DecoderChannel(decoder);
    return out;
}

Bytes EncodeG726(const Samples& samples, int bits) {
    g726_state_t* const encoder = g726_init(nullptr, bits * 8000, G726_ENCODING_LINEAR, G726_PACKING_NONE);
    Bytes out(samples.size());
    g726_encode(encoder, out.data(), samples.data(), static_cast<int>(samples.size()));
    g726_free(encoder);
    return out;
}

Samples BareG726(const Bytes& codes, int bits) {
    g726_state_t* const decoder = g726_init(nullptr, bits * 8000, G726_ENCODING_LINEAR, G726_PACKING_NONE);
    Samples out(codes.size());
    g726_decode(decoder, out.data(), codes.data(), static_cast<int>(codes.size()));
    g726_free(decoder);
    return out;
}

Bytes PackG726(const Bytes& codes, int bits, bool mostFirst) {
    Bytes out((codes.size() * static_cast<size_t>(bits) + 7) / 8);
    size_t place = 0;    // in the order of the packing
    for (const uint8_t code : codes)
        for (int i = 0; i < bits; ++i, ++place)
            if ((code >> (mostFirst ? bits - 1 - i : i) & 1) != 0)
                out[place / 8] |= static_cast<uint8_t>(mostFirst ? 0x80 >> place % 8 : 1 << place % 8);
    return out;
}

double SignalToNoise(const Samples& wanted, const Samples& got) {
    double signal = 0;
    double noise = 1e-9;
    for (size_t i = 0; i < std::min(wanted.size(), got.size()); ++i) {
        signal += std::pow(wanted[i], 2);
        noise += std::pow(wanted[i] - got[i], 2);
    }
    return 10 * std::log10(signal / noise);
}

MediaFrameHeader SoundHeader(uint32_t streamType, const Bytes& bytes, uint32_t rate, uint8_t channels,
                             uint32_t blocks) {
    MediaFrameHeader header{};
    header.recordSize = sizeof header;
    header.data = bytes.data();
    header.payloadSize = static_cast<uint32_t>(bytes.size());
    header.streamType = streamType;
    header.audioBlockCount = blocks;
    header.audioSampleRate = rate;
    header.audioChannels = channels;
    return header;
}

}    // namespace corvane::test
