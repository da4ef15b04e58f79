#include "support/SoundMaker.h"

extern "C" {
#include <bcg729/decoder.h>
#include <bcg729/encoder.h>
}
#include <spandsp.h>
#undef lrint    // a header of spandsp defines macros for functions of the standard
#undef lrintf
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <span>
#include <stdexcept>
#include <string>

namespace corvane::test {

namespace {

constexpr int kAacRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};

// What the shell command writes that reads the input.
template <typename Input>
Bytes Run(const std::string& command, const Input& input) {
    const auto bytes = std::as_bytes(std::span(input));
    const int file = memfd_create("input", 0);
    const bool written = write(file, bytes.data(), bytes.size()) == std::ssize(bytes);
    FILE* const pipe = popen(("cat /dev/fd/" + std::to_string(file) + " | " + command).c_str(), "r");
    Bytes out;
    for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe))
        out.push_back(static_cast<uint8_t>(c));
    close(file);
    if (pclose(pipe) != 0 || !written || out.empty())
        throw std::runtime_error(command);
    return out;
}

Samples ToSamples(const Bytes& bytes) {
    const auto* const samples = reinterpret_cast<const int16_t*>(bytes.data());
    return {samples, samples + bytes.size() / 2};
}

}    // namespace

Samples Speech(int rate) {
    const std::string text = "The gate opens at half past seven. A red car waits in front, and leaves for the north.";
    const std::string voice = "espeak-ng --stdin --stdout | ffmpeg -v error -i - -f s16le -ar ";
    return ToSamples(Run(voice + std::to_string(rate) + " -", text));
}

Samples Sweep(int rate, double seconds, double from, double to) {
    const std::string steps = '(' + std::to_string(from) + "+t*" + std::to_string((to - from) / seconds / 2) + ')';
    const std::string sine = "'aevalsrc=sin(2*PI*t*" + steps + ")/4:s=" + std::to_string(rate);
    return ToSamples(
        Run("ffmpeg -v error -f lavfi -i " + sine + ":d=" + std::to_string(seconds) + "' -f s16le -", steps));
}

SoundStream MakeAac(const Samples& mono, int rate, int channels) {
    const std::string in = "ffmpeg -v error -f s16le -ac 1 -ar " + std::to_string(rate);
    const Bytes all = Run(in + " -i - -f adts -b:a 64k -ac " + std::to_string(channels) + " -", mono);
    SoundStream stream{{}, ToSamples(Run("ffmpeg -v error -f aac -i - -f s16le -", all))};
    for (auto at = all.begin(); at < all.end(); at += (at[3] & 3) << 11 | at[4] << 3 | at[5] >> 5)
        stream.blocks.emplace_back(at + 7, at + ((at[3] & 3) << 11 | at[4] << 3 | at[5] >> 5));
    return stream;
}

Bytes AdtsFrame(const Bytes& raw, int rate, int channels, bool sum) {
    const auto index = static_cast<uint64_t>(std::find(std::begin(kAacRates), std::end(kAacRates), rate) - kAacRates);
    BitWriter w;
    w.U(12, 0xFFF).U(3, 0).U(1, sum ? 0 : 1).U(2, 1).U(4, index).U(1, 0).U(3, static_cast<unsigned>(channels)).U(4, 0);
    return w.U(13, raw.size() + (sum ? 9 : 7)).U(11, 0x7FF).U(2, 0).U(sum ? 16 : 0, 0).Packed() + raw;
}

SoundStream MakeG729(const Samples& samples) {
    auto* const encoder = initBcg729EncoderChannel(0);
    auto* const decoder = initBcg729DecoderChannel();
    SoundStream stream;
    for (size_t at = 0; at + 80 <= samples.size(); at += 80) {
        uint8_t length = 0;
        bcg729Encoder(encoder, &samples[at], stream.blocks.emplace_back(10).data(), &length);
        stream.decoded.resize(at + 80);
        bcg729Decoder(decoder, stream.blocks.back().data(), 10, 0, 0, 0, &stream.decoded[at]);
    }
    closeBcg729EncoderChannel(encoder);
    closeBcg729DecoderChannel(decoder);
    return stream;
}

static g726_state_t* NewG726(int bits, bool mostFirst) {
    return g726_init(nullptr, bits * 8000, G726_ENCODING_LINEAR, mostFirst ? G726_PACKING_LEFT : G726_PACKING_RIGHT);
}

Bytes EncodeG726(const Samples& samples, int bits, bool mostFirst) {
    g726_state_t* const encoder = NewG726(bits, mostFirst);
    Bytes out(samples.size());
    out.resize(static_cast<size_t>(g726_encode(encoder, out.data(), samples.data(), static_cast<int>(samples.size()))));
    g726_free(encoder);
    return out;
}

Samples BareG726(const Bytes& bytes, int bits, bool mostFirst) {
    g726_state_t* const decoder = NewG726(bits, mostFirst);
    Samples out(bytes.size() * 4);
    out.resize(static_cast<size_t>(g726_decode(decoder, out.data(), bytes.data(), static_cast<int>(bytes.size()))));
    g726_free(decoder);
    return out;
}

SoundStream G7221Vectors(const std::string& name) {
    const auto read = [&](const char* end) {
        std::ifstream file(CORVANE_TESTS "/decoders/g7221/" + name + end, std::ios::binary);
        return Bytes(std::istreambuf_iterator<char>(file), {});
    };
    SoundStream stream{{}, ToSamples(read(".samples"))};
    const Bytes all = read(".blocks");
    for (auto at = all.begin(); at < all.end(); at += name.ends_with("60") ? 60 : 80)
        stream.blocks.emplace_back(at, at + (name.ends_with("60") ? 60 : 80));
    return stream;
}

double SignalToNoise(const Samples& wanted, const Samples& got) {
    double signal = 0, noise = 1e-9;
    for (size_t i = 0; i < std::min(wanted.size(), got.size()); ++i) {
        signal += std::pow(wanted[i], 2);
        noise += std::pow(wanted[i] - got[i], 2);
    }
    return 10 * std::log10(signal / noise);
}

MediaFrameHeader SoundHeader(uint32_t streamType, const Bytes& bytes, int rate, int channels, uint32_t blocks,
                             int64_t timeMs) {
    MediaFrameHeader header = VideoHeader(streamType, bytes, true, timeMs);
    header.audioBlockCount = blocks;
    header.audioSampleRate = static_cast<uint32_t>(rate);
    header.audioChannels = static_cast<uint8_t>(channels);
    return header;
}

Bytes Played(AudioDecoderHolder& decoder, const MediaFrameImpl& frame, int mix) {
    Bytes bytes(576'000);
    auto size = static_cast<uint32_t>(bytes.size());
    bytes.resize(decoder.Decode(bytes.data(), &size, frame) == 0 ? size : 0);
    for (int16_t& sample : std::span(reinterpret_cast<int16_t*>(bytes.data()), bytes.size() / 2))
        sample = static_cast<int16_t>(sample * mix / 128);
    return bytes;
}

}    // namespace corvane::test
