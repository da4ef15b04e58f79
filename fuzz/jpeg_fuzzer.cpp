// Pictures of random options and requests through the JPEG encoder twice, fast and plain: the same bytes, the same
// failures. Each memory of the client (planes, output, comment, the encoder's memory) ends or begins at a page that
// cannot be accessed; without requests the planes have no byte more than may be read.
//
// Input: 24 bytes of options; as many bytes of requests as the 16th of them says, three a request; then samples, over
// and over.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "Fenced.h"
#include "PlainScan.h"
#include "picture/jpeg/JpegEncoder.h"

namespace {

using namespace corvane;

constexpr size_t kOptions = 24;
constexpr uint32_t kMaxPlane = 288 * 48;

uint64_t Address(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

class Client {
public:
    Client(const uint8_t* data, size_t size) : m_data(data), m_requests(data[15] % 16 * 3) {
        m_requests = std::min(m_requests, size - kOptions);
        JPEGEncOptions& o = m_options;
        o.Version = JPEGENC_VERSION;
        o.EncodingWidth = data[0];
        o.EncodingHeight = data[1] % 40;
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
        o.PoolSize = 1u << data[11] % 15;
        o.RetryLimit = data[11] >> 5;
        m_room = data[12] | (data[13] % 64u) << 8;
        m_commentSize = data[14] % 25u;
        m_ends = data[16];
        static const Fenced comment(24), memory(1 << 15);
        o.Comment = comment.At(m_commentSize, End(0));
        std::memset(comment.At(24, true), 'c', 24);
        if ((data[17] & 1) != 0)
            o.Memory = memory.At(JpegEncoder::MemoryBytes(o), End(1));
        PlacePlanes(data + kOptions + m_requests, size - kOptions - m_requests);
    }

    // The output, failures included; nothing where the options are refused.
    std::vector<uint8_t> Run(bool plain) {
        static const Fenced output(1 << 14), taken(1 << 14);
        m_now = m_options;
        std::vector<uint8_t> result;
        const auto encoder = JpegEncoder::Create(m_options);
        if (encoder == nullptr)
            return result;
        if (plain)
            encoder->WriteScansBy(PlainScan);
        uint8_t* const to = output.At(m_room, End(2));
        std::memset(to, 0xA5, m_room);
        (void)encoder->SetOptions({JPEGENC_OUTPUT, 0, Address(to), m_room, 0});
        for (size_t at = 0; at + 2 < m_requests + 3; at += 3) {    // one picture more than requests
            JPEGEncFrame frame{m_commentSize, 0};
            (void)encoder->OneFrame(frame);
            result.insert(result.end(), reinterpret_cast<uint8_t*>(&frame), reinterpret_cast<uint8_t*>(&frame + 1));
            const uint32_t filled = std::min(encoder->FilledBytes(), m_room);
            uint8_t* const from = taken.At(filled, End(3));
            if (Ok(encoder->TakeData(from, filled)))
                result.insert(result.end(), from, from + filled);
            if (at + 2 < m_requests)
                Request(*encoder, m_data + kOptions + at, to);
        }
        result.insert(result.end(), to, to + m_room);
        return result;
    }

private:
    bool End(int which) const { return (m_ends >> which & 1) != 0; }

    void PlacePlanes(const uint8_t* samples, size_t count) {
        static const Fenced planes[3] = {Fenced(kMaxPlane), Fenced(kMaxPlane), Fenced(kMaxPlane)};
        const JPEGEncOptions& o = m_options;
        const bool is422 = o.Subsampling == 2;
        for (uint32_t i = 0; i < 3; ++i) {
            const uint32_t step = i == 0 ? o.InputWidth : (o.InputWidth + 1) / 2;
            uint32_t offset = 0;
            uint32_t bytes = step * o.InputHeight;
            if (m_requests == 0) {
                const uint32_t rows = i == 0 || is422 ? o.EncodingHeight : (o.EncodingHeight + 1) / 2;
                const uint32_t columns = i == 0 ? o.EncodingWidth : (o.EncodingWidth + 1) / 2;
                offset = i == 0 ? o.InputWidth * o.VertOffset + o.HorzOffset
                                : o.InputWidth / 2 * (is422 ? o.VertOffset : o.VertOffset / 2) + o.HorzOffset / 2;
                bytes = rows == 0 || columns == 0 ? 0 : step * (rows - 1) + columns;
            }
            uint8_t* const place = planes[i].At(bytes, End(4 + static_cast<int>(i)));
            std::memset(place, 0, bytes);
            for (size_t at = 0, piece; at < bytes && count != 0; at += piece) {
                piece = std::min<size_t>(count, bytes - at);
                std::memcpy(place + at, samples, piece);
            }
            m_planes[i] = Address(place) - offset;
        }
        m_options.PlaneY = reinterpret_cast<const void*>(m_planes[0]);
        m_options.PlaneU = reinterpret_cast<const void*>(m_planes[1]);
        m_options.PlaneV = reinterpret_cast<const void*>(m_planes[2]);
    }

    // A request that keeps the encoded range inside the planes, or one that is refused.
    void Request(JpegEncoder& encoder, const uint8_t* bytes, uint8_t* output) {
        JPEGEncOptions& o = m_now;
        const uint32_t a = bytes[1], b = bytes[2];
        const auto send = [&](uint32_t code, uint64_t x, uint64_t y, uint64_t z) {
            return Ok(encoder.SetOptions({code, 0, x, y, z}));
        };
        switch (bytes[0] % 16) {
        // clang-format off
        case 0: send(JPEGENC_CONTINUE, a, b, 0); break;
        case 1: send(JPEGENC_PLANES, m_planes[0], m_planes[1], m_planes[2]); break;
        case 2: send(JPEGENC_OUTPUT, Address(output), m_room, 0); break;
        case 3: send(JPEGENC_FLUSH, a, b, 0); break;
        case 4: send(JPEGENC_QUALITY, a << (b % 28), b, 0); break;
        case 5: send(JPEGENC_SUBSAMPLING, a % 4, b, 0); break;
        case 6: send(JPEGENC_COLOUR, a % 2, b, 0); break;
        case 7:
            o.EncodingWidth = a % (o.InputWidth - o.HorzOffset + 1);
            o.EncodingHeight = b % (o.InputHeight - o.VertOffset + 1);
            send(JPEGENC_ENCODING_SIZE, o.EncodingWidth, o.EncodingHeight, 0);
            break;
        case 8:
            o.HorzOffset = a % (o.InputWidth - o.EncodingWidth + 1);
            o.VertOffset = b % (o.InputHeight - o.EncodingHeight + 1);
            send(JPEGENC_OFFSETS, o.HorzOffset, o.VertOffset, 0);
            break;
        case 9: {    // within the planes that there are
            const uint32_t width = o.EncodingWidth + o.HorzOffset + a % 3, height = o.EncodingHeight + o.VertOffset + b % 2;
            if (width > m_options.InputWidth || height > m_options.InputHeight)
                break;
            send(JPEGENC_INPUT_SIZE, width, height, 0);
            send(JPEGENC_PLANES, m_planes[0], m_planes[1], m_planes[2]);
            o.InputWidth = width;
            o.InputHeight = height;
            break;
            // clang-format on
        }
        case 10:
            send(JPEGENC_MODE_TAG, a % 8, b, 0);
            break;
        case 11:
            send(JPEGENC_QUANT_TABLE, a % 4, b, 0);
            break;
        case 12:
            encoder.Quit();
            break;
        case 13:
            send(JPEGENC_ENCODING_SIZE, 65536 + a, b, 0);
            break;
        case 14:
            send(JPEGENC_INPUT_SIZE, a % 2 == 0 ? 0 : UINT32_MAX, UINT32_MAX, 0);
            break;
        default:
            send(b + 40, a, b, 0);
            break;
        }
    }

    const uint8_t* m_data;
    size_t m_requests;    // bytes of them
    JPEGEncOptions m_options{};
    JPEGEncOptions m_now{};    // the options after the requests, as far as they count here
    uint64_t m_planes[3] = {};
    uint32_t m_room = 0;
    uint32_t m_commentSize = 0;
    uint8_t m_ends = 0;
};

}    // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < kOptions)
        return 0;
    Client client(data, size);
    if (client.Run(false) != client.Run(true))
        std::abort();
    return 0;
}
