// Pictures of random options through the JPEG encoder twice, fast and plain: the same bytes and the same failures. Planes
// and output end where memory ends.
//
// Input: 24 bytes of options, then samples, over and over.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "picture/JpegEncoder.h"

namespace {

using namespace corvane;

// An exact allocation, whose ends a sanitizer watches.
std::unique_ptr<uint8_t[]> Samples(size_t count, const uint8_t* data, size_t size, size_t at) {
    auto samples = std::make_unique<uint8_t[]>(count);
    for (size_t i = 0; i < count && size > 24; ++i)
        samples[i] = data[24 + (at + i) % (size - 24)];
    return samples;
}

}    // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 24)
        return 0;
    JPEGEncOptions o{};
    o.Version = JPEGENC_VERSION;
    o.EncodingWidth = data[0];
    o.EncodingHeight = data[1];
    o.HorzOffset = data[2] % 8;
    o.VertOffset = data[3] % 8;
    o.InputWidth = o.EncodingWidth + o.HorzOffset + data[4] % 8;
    o.InputHeight = o.EncodingHeight + o.VertOffset + data[5] % 2;
    o.Quality = data[6];
    o.RestartInterval = data[7] % 20;
    o.Interleaved = data[8] & 1;
    o.OptimizeHuffman = data[8] >> 1 & 1;
    o.JFIFHeader = data[8] >> 2 & 1;
    o.QuantTable = data[8] >> 3 & 3;
    o.Colour = data[8] >> 5 & 1;
    o.Subsampling = data[8] >> 6;
    o.ModeTag = data[9] % 6;
    o.PackerMode = data[10] % 8;
    o.PoolSize = 1u << data[11] % 17;
    o.RetryLimit = data[11] >> 5;
    o.Comment = data;
    const uint32_t room = data[12] | uint32_t{data[13]} << 8;
    const size_t half = (size_t{o.InputWidth} + 1) / 2;
    const auto y = Samples(size_t{o.InputWidth} * (o.InputHeight + 1), data, size, 0);
    // Rows of chroma begin up to a column further to the left than their planes' rows when the width is odd.
    const auto u = Samples(half * (o.InputHeight + 1), data, size, 7);
    const auto v = Samples(half * (o.InputHeight + 1), data, size, 13);
    o.PlaneY = y.get();
    o.PlaneU = u.get();
    o.PlaneV = v.get();
    std::unique_ptr<uint8_t[]> outputs[2];
    uint32_t sizes[2][2] = {};
    for (int plain = 0; plain < 2; ++plain) {
        const auto encoder = JpegEncoder::Create(o);
        if (encoder == nullptr)
            return 0;
        if (plain != 0)
            encoder->UsePlainForms();
        outputs[plain] = std::make_unique<uint8_t[]>(room);
        const JPEGEncRequest output{JPEGENC_OUTPUT, 0, reinterpret_cast<uint64_t>(outputs[plain].get()), room, 0};
        if (!Ok(encoder->SetOptions(output)))
            std::abort();
        for (uint32_t& bytes : sizes[plain]) {
            JPEGEncFrame frame{data[14] % 25u, 0};
            static_cast<void>(encoder->OneFrame(frame));
            bytes = frame.EncodedBytes;
        }
    }
    if (std::memcmp(sizes[0], sizes[1], sizeof sizes[0]) != 0 || std::memcmp(outputs[0].get(), outputs[1].get(), room) != 0)
        std::abort();
    return 0;
}
