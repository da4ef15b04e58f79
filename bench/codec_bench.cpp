// The sound codecs that are ours: G.726 beside libspandsp, on the same codes; G.722.1 in microseconds a block, and as a
// share of a block of AAC.
#include <spandsp.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Contest.h"
#include "decoders/AacDecoder.h"
#include "decoders/G7221Decoder.h"
#include "decoders/G726Decoder.h"
#include "support/SoundMaker.h"

namespace {

using namespace corvane;
std::vector<uint8_t> pcm(1 << 20);

void Decode(DecoderContext& decoder, const test::Bytes& bytes, uint32_t blocks) {
    auto size = static_cast<uint32_t>(pcm.size());
    const EncodedUnit unit{bytes.data(), static_cast<uint32_t>(bytes.size()), blocks};
    if (decoder.DecodeAudio(pcm.data(), &size, &unit) < 0 || size == 0)
        std::abort();
}

// A second of speech in each of the ring.
std::vector<test::Bytes> Seconds(const test::Bytes& all, size_t bytes) {
    std::vector<test::Bytes> ring;
    for (size_t at = 0; at + bytes <= all.size(); at += bytes)
        ring.emplace_back(all.begin() + static_cast<ptrdiff_t>(at), all.begin() + static_cast<ptrdiff_t>(at + bytes));
    return ring;
}

test::Bytes Join(const std::vector<test::Bytes>& blocks) {
    test::Bytes all;
    for (const test::Bytes& block : blocks)
        all.insert(all.end(), block.begin(), block.end());
    return all;
}

}    // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 60;
    const test::Samples speech = test::Speech(8000);
    std::printf("a second of G.726 / libspandsp | median minima  ours us | goal\n");
    for (int bits = 2; bits <= 5; ++bits) {
        const auto rate = static_cast<uint32_t>(bits) * 8000;
        const DecoderPtr ours = MakeG726Decoder(rate, G726Packing::MostSignificantFirst);
        g726_state_t* const peer = g726_init(nullptr, static_cast<int>(rate), G726_ENCODING_LINEAR, G726_PACKING_LEFT);
        const bench::Contest<test::Bytes> contest{"",
                                                  "",
                                                  [&](const test::Bytes& bytes) { Decode(*ours, bytes, 1); },
                                                  {{"libspandsp", [&](const test::Bytes& bytes) {
                                                        g726_decode(peer, reinterpret_cast<int16_t*>(pcm.data()),
                                                                    bytes.data(), static_cast<int>(bytes.size()));
                                                    }}}};
        const auto ring = Seconds(test::EncodeG726(speech, bits, true), rate / 8);
        const auto figures = bench::Measure(contest, ring, rounds);
        std::printf("%2u kbit/s                      |  %5.2f  %5.2f   %6.0f | 1.00\n", rate / 1000,
                    figures.medianRatio, figures.minimumRatio, figures.oursMs * 1e3);
        g726_free(peer);
    }

    // 16 blocks of 20 ms and 5 of 64 ms are the same time.
    const test::Samples wide = test::Speech(16000);
    const std::vector<test::Bytes> raw = test::MakeAac(wide, 16000).blocks;
    std::printf("a block of G.722.1 / of AAC    | median minima  ours us\n");
    for (const size_t bytes : {60, 80}) {
        const DecoderPtr ours = MakeG7221Decoder();
        const DecoderPtr peer = MakeAacDecoder(16000, 1);
        size_t next = 0;
        const bench::Contest<test::Bytes> contest{"",
                                                  "",
                                                  [&](const test::Bytes& blocks) { Decode(*ours, blocks, 16); },
                                                  {{"AAC", [&](const test::Bytes&) {
                                                        for (int i = 0; i < 16; ++i)
                                                            Decode(*peer, raw[next++ % raw.size()], 1);
                                                    }}}};
        const auto figures = bench::Measure(
            contest, Seconds(Join(test::G7221Vectors("speech" + std::to_string(bytes)).blocks), bytes * 16), rounds);
        std::printf("%2zu bytes                       |  %5.2f  %5.2f   %6.1f\n", bytes, figures.medianRatio,
                    figures.minimumRatio, figures.oursMs * 1e3 / 16);
    }
    return 0;
}
