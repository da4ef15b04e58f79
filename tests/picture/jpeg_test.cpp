#include "picture/jpeg/JpegEncoder.h"
#include "support/Digest.h"
#include "support/GuardedBytes.h"
#include "support/Plane.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using test::Fill;
using test::GuardedBytes;
using test::SourcePlane;

// Planes that touch memory that cannot be read, with their last pixel or with their first.
struct Source {
    Source(uint32_t width, uint32_t height, uint32_t padding, bool is422, uint32_t seed)
        : columns((width + 1) / 2),
          rows(is422 ? height : (height + 1) / 2),
          gap((width + padding + 1) / 2 - columns),
          fill(kFills[seed % 3]),
          at(seed % 2 == 0 ? GuardedBytes::At::End : GuardedBytes::At::Begin),
          y(width, height, padding, fill, seed, at),
          u(columns, rows, gap, fill, seed + 1, at),
          v(columns, rows, gap, fill, seed + 2, at) {}
    static constexpr Fill kFills[] = {Fill::Random, Fill::Slopes, Fill::Extremes};
    const uint32_t columns, rows, gap;    // of chroma
    const Fill fill;
    const GuardedBytes::At at;
    SourcePlane y, u, v;
};

JPEGEncOptions Options(uint32_t width, uint32_t height, uint32_t padding, const Source& source) {
    return {.Version = JPEGENC_VERSION,
            .EncodingWidth = width,
            .EncodingHeight = height,
            .InputWidth = width + padding,
            .InputHeight = height,
            .Quality = 50,
            .Interleaved = 1,
            .Colour = 1,
            .Subsampling = 1,
            .PackerMode = 1,
            .PlaneY = source.y.Data(),
            .PlaneU = source.u.Data(),
            .PlaneV = source.v.Data()};
}

// `frames` pictures behind each other into a buffer of `room` bytes that ends in front of a guard page; what the buffer
// holds afterwards, and how each picture ended.
struct Encoded {
    std::vector<uint8_t> bytes;
    std::vector<uint32_t> sizes;
    bool operator==(const Encoded&) const = default;
};

Encoded Encode(const JPEGEncOptions& options, uint32_t room, uint32_t frames, uint32_t commentSize,
               const std::vector<JPEGEncRequest>& requests = {}) {
    Encoded run;
    const GuardedBytes out(std::vector<uint8_t>(room, 0xA5));
    auto encoder = JpegEncoder::Create(options);
    if (encoder == nullptr)
        return run;
    const JPEGEncRequest output{JPEGENC_OUTPUT, 0, reinterpret_cast<uint64_t>(out.Data()), room, 0};
    EXPECT_TRUE(Ok(encoder->SetOptions(output)));
    for (const JPEGEncRequest& request : requests)
        EXPECT_EQ(Ok(encoder->SetOptions(request)), request.reserved4 == 0) << request.Code << " " << request.Value0;
    for (uint32_t i = 0; i < frames; ++i) {
        JPEGEncFrame frame{commentSize, 77};
        const bool done = Ok(encoder->OneFrame(frame));
        EXPECT_EQ(done, frame.EncodedBytes != 0);
        run.sizes.push_back(frame.EncodedBytes);
    }
    run.bytes.assign(out.Data(), out.Data() + room);
    return run;
}

// Three pictures of the same planes, so that sorted codes come to be used, into buffers that hold all of them or are
// full somewhere in one. The digests are of all that is written: segments and their order, tables and limits of
// divisors, scans, codes sorted by count (where the place of equal counts is part of the format), and where a write
// that fails leaves off. They were taken while a plain form of the Recommendation gave the same scans, a bit at a time,
// and another encoder the same streams of six sets of options.
TEST(Jpeg, StreamsKeepTheirBytes) {
    constexpr uint64_t kDigests[] = {// of 50 turns each
                                     0x15FE552B7A0C4B40, 0x367A2E7C5377D06F, 0x3B5C292B2D54D3A6, 0x2E27F01F469B0D78,
                                     0xD2024B9253B8D432, 0x63AE8EA58430545D, 0x50A6C254C99D7A81, 0x32013E39EB19ABC3};
    std::mt19937 random(5);
    const auto upTo = [&](uint32_t most) { return static_cast<uint32_t>(random()) % (most + 1); };
    const auto atTimes = [&](uint32_t most) { return upTo(1) == 0 ? upTo(most) : 0; };
    test::Digest digest;
    for (uint32_t turn = 0; turn < 400; ++turn) {
        const bool longest = turn == 0,
                   large = turn % 20 == 1;    // a row of the most pixels; more than one batch of blocks
        const uint32_t width = longest ? 65535 : upTo(large ? 400 : 70), height = longest ? 3 : upTo(large ? 130 : 50);
        const uint32_t horizontal = atTimes(12), vertical = atTimes(12), padding = atTimes(14);
        const bool is422 = upTo(2) == 0;
        // Rows of odd length are whole ones for chroma only without an offset down.
        const uint32_t row = width + horizontal + padding, odd = vertical / (is422 ? 1 : 2) != 0 ? row % 2 : 0;
        const Source source(horizontal + width, vertical + height, padding + odd, is422, turn);
        JPEGEncOptions options = Options(width, height, padding, source);
        options.InputWidth = row + odd;
        options.InputHeight = vertical + height;
        options.HorzOffset = horizontal;
        options.VertOffset = vertical;
        options.Subsampling = is422 ? 2 : upTo(1);
        options.Colour = upTo(3) == 0 ? 2 * upTo(1) : 1;
        if (options.Colour != 1)
            options.PlaneU = options.PlaneV = nullptr;
        options.Interleaved = upTo(2);
        options.OptimizeHuffman = upTo(2);
        options.JFIFHeader = upTo(1);
        options.QuantTable = upTo(3);
        options.RestartInterval = atTimes(11);
        options.Quality = turn % 4 == 2 ? 0 : upTo(upTo(3) == 0 ? 300 : 60);    // 0: the longest blocks
        options.ModeTag = upTo(4);
        options.PackerMode = turn % 8 == 7 ? 3 : 1;    // whose bytes are not escaped
        options.Comment = "a comment";
        const uint32_t comment = upTo(9), room = 3 * (2000 + width * height * 8);
        SCOPED_TRACE(testing::Message() << turn << ": " << width << "x" << height << " at " << horizontal << ", "
                                        << vertical);
        const Encoded whole = Encode(options, room, 3, comment);
        const uint32_t total = whole.sizes[0] + whole.sizes[1] + whole.sizes[2];
        for (const uint32_t less : {0u, 1u, 2u, 300u, total / 2, total - 1}) {
            const Encoded run = Encode(options, total - std::min(less, total), 3, comment);
            digest.NoteEach(run.bytes);
            digest.NoteEach(run.sizes);
        }
        if (turn % 50 == 49)
            EXPECT_EQ(std::exchange(digest, {}).value, kDigests[turn / 50]);
    }
}

// What a request changes is what an encoder made that way has; what is refused (1 in the reserved word) changes
// nothing.
TEST(Jpeg, Requests) {
    const Source source(60, 40, 4, true, 1);
    const auto address = [](const void* plane, size_t further = 0) {
        return reinterpret_cast<uint64_t>(static_cast<const uint8_t*>(plane) + further);
    };
    JPEGEncOptions small = Options(60, 40, 4, source);    // within rows of 64 bytes
    small.EncodingWidth = 40, small.EncodingHeight = 24, small.HorzOffset = 6, small.VertOffset = 10;
    small.Comment = "abc";
    // Offsets by hand.
    static constexpr auto begin = [](JPEGEncOptions& o, size_t luma, size_t chroma, size_t second) {
        o.HorzOffset = o.VertOffset = 0;
        o.PlaneY = static_cast<const uint8_t*>(o.PlaneY) + luma;
        o.PlaneU = static_cast<const uint8_t*>(o.PlaneU) + chroma;
        o.PlaneV = static_cast<const uint8_t*>(o.PlaneV) + second;
    };
    const JPEGEncRequest sizeAgain{14, 0, 40, 24, 0};
    const struct {
        const char* what;
        std::vector<JPEGEncRequest> requests;
        void (*change)(JPEGEncOptions&) = [](JPEGEncOptions&) {};
    } cases[] = {
        {"size", {{14, 0, 33, 21, 0}}, [](JPEGEncOptions& o) { o.EncodingWidth = 33, o.EncodingHeight = 21; }},
        {"quality alone", {{7, 0, 20, 0, 0}}, [](JPEGEncOptions& o) { o.Quality = 20; }},
        {"table alone", {{39, 0, 1, 0, 0}}, [](JPEGEncOptions& o) { o.QuantTable = 1; }},
        {"quality, table, grey, tag, comment",
         {{7, 0, 20, 0, 0}, {39, 0, 2, 0, 0}, {10, 0, 0, 0, 0}, {36, 0, 4, 0, 0}, {5, 0, address("XYZ"), 0, 0}},
         [](JPEGEncOptions& o) { o.Quality = 20, o.QuantTable = 2, o.Colour = 0, o.ModeTag = 4, o.Comment = "XYZ"; }},
        {"odd offsets", {{30, 0, 13, 7, 0}}, [](JPEGEncOptions& o) { begin(o, 7 * 64 + 13, 3 * 32 + 6, 3 * 32 + 6); }},
        {"odd offsets in 4:2:2, planes as they were",
         {{8, 0, 2, 0, 0}, {30, 0, 13, 7, 0}, sizeAgain},
         [](JPEGEncOptions& o) { begin(o, 7 * 64 + 13, 7 * 32 + 6, 7 * 32 + 6), o.Subsampling = 2; }},
        {"input, odd rows, and planes",
         {{21, 0, 51, 36, 0}, {2, 0, address(small.PlaneY, 3), address(small.PlaneU), address(small.PlaneV, 1)}},
         [](JPEGEncOptions& o) { begin(o, 10 * 51 + 6 + 3, 5 * 25 + 3, 5 * 25 + 3 + 1), o.InputWidth = 51; }},
        {"input within the picture", {{21, 0, 40, 24, 0}, {21, 0, 64, 40, 0}, {21, 1, 39, 40, 0}, {21, 1, 64, 23, 0}}},
        {"input within the offset across",
         {{14, 0, 1, 1, 0}, {21, 0, 6, 40, 0}, {21, 1, 5, 40, 0}, {21, 0, 64, 40, 0}, sizeAgain}},
        {"and down", {{14, 0, 1, 1, 0}, {21, 0, 64, 10, 0}, {21, 1, 64, 9, 0}, {21, 0, 64, 40, 0}, sizeAgain}},
        {"2^32 bytes", {{21, 1, 65536, 65536, 0}, {30, 1, 0, 1 << 26, 0}}},
        {"other limits", {{36, 1, 5, 0, 0}, {7, 1, 35495598, 0, 0}, {14, 1, 40, 65536, 0}, {14, 1, 65536, 24, 0}}},
        {"unknown codes", {{0, 1, 1, 1, 1}, {6, 1, 1, 1, 1}, {40, 1, 1, 1, 1}}},
    };
    for (const auto& c : cases) {
        JPEGEncOptions wanted = small;
        c.change(wanted);
        EXPECT_TRUE(Encode(small, 1 << 14, 1, 3, c.requests) == Encode(wanted, 1 << 14, 1, 3)) << c.what;
    }
}

TEST(Jpeg, Refusals) {
    const Source source(16, 16, 0, false, 1);
    const std::pair<const char*, void (*)(JPEGEncOptions&)> cases[] = {
        {"version", [](JPEGEncOptions& o) { o.Version = 0x010B; }},
        {"restart interval", [](JPEGEncOptions& o) { o.RestartInterval = 65536; }},
        {"mode tag", [](JPEGEncOptions& o) { o.ModeTag = 5; }},
        {"size", [](JPEGEncOptions& o) { o.EncodingWidth = o.InputWidth = 65536; }},
        {"product", [](JPEGEncOptions& o) { o.InputWidth = o.InputHeight = 65536; }},
        {"range across", [](JPEGEncOptions& o) { o.HorzOffset = 1; }},
        {"range down, beyond 32 bits", [](JPEGEncOptions& o) { o.VertOffset = UINT32_MAX; }},
        {"packer", [](JPEGEncOptions& o) { o.PackerMode = 7; }},
        {"pool", [](JPEGEncOptions& o) { o.PackerMode = 2, o.PoolSize = UINT32_MAX; }},
    };
    const std::vector<uint8_t> untouched(3498 + 195, 0xEE);
    std::string told;
    for (const auto& [what, change] : cases) {
        JPEGEncOptions options = Options(16, 16, 0, source);
        change(options);
        const GuardedBytes memory(untouched);
        options.Memory = memory.Data();
        testing::internal::CaptureStderr();
        EXPECT_EQ(JpegEncoder::Create(options), nullptr) << what;
        EXPECT_TRUE(std::equal(untouched.begin(), untouched.end(), memory.Data())) << what;
        told += testing::internal::GetCapturedStderr();
    }
    EXPECT_EQ(told,
              "Error: Encoding range (EncodingWidth+HorzOffset) exceeds the input width !!\n"
              "Error: Encoding range (EncodingHeight+VertOffset) exceeds the input height !!\n");
    JPEGEncOptions options = Options(16, 16, 0, source);
    EXPECT_EQ(JPEGEnc_QueryMemSize(&options), 3498u + 195);
    EXPECT_EQ(Encode(options, 4096, 1, 1).sizes[0], 0u) << "no comment bytes";
    const std::string comment(65524, 'c');
    options.Comment = comment.data();
    options.ModeTag = 1;    // with which the segment is full
    EXPECT_NE(Encode(options, 1 << 17, 1, 65523).sizes[0], 0u);
    EXPECT_EQ(Encode(options, 1 << 17, 1, 65524).sizes[0], 0u);
    options.PlaneV = nullptr;
    EXPECT_EQ(Encode(options, 4096, 1, 0).sizes[0], 0u) << "no plane";
}

// In the client's memory at an odd address: a writer that waits in its callback for a reader that takes what comes, is
// told to quit while nobody reads, and goes on after a flush.
TEST(Jpeg, PoolWithAReader) {
    const Source source(64, 48, 0, false, 1);
    JPEGEncOptions options = Options(64, 48, 0, source);
    const Encoded wanted = Encode(options, 1 << 20, 100, 0);
    const uint32_t total = std::accumulate(wanted.sizes.begin(), wanted.sizes.end(), 0u);
    options.PackerMode = 2;
    options.PoolSize = 4096;
    options.RetryLimit = UINT32_MAX;
    options.FullCallback = [](uint32_t) {
        std::this_thread::yield();
        return 0u;
    };
    const uint32_t size = JPEGEnc_QueryMemSize(&options);
    const GuardedBytes memory(std::vector<uint8_t>(size, 0xEE));
    options.Memory = memory.Data();
    void* encoder = nullptr;
    ASSERT_EQ(JPEGEnc_Initial(&encoder, &options), 0u);
    std::thread writer([&] {
        for (JPEGEncFrame frame{0, 0}; JPEGEnc_OneFrame(encoder, &frame) == 0;)
            EXPECT_EQ(frame.EncodedBytes, wanted.sizes[0]);
    });
    std::vector<uint8_t> taken;
    const auto take = [&](size_t most) {
        uint8_t bytes[512];
        const auto count = static_cast<uint32_t>(
            std::min<size_t>({JPEGEnc_QueryFilledBufferSpace(encoder), 1 + taken.size() % 512, most - taken.size()}));
        EXPECT_EQ(JPEGEnc_TakeData(encoder, bytes, count), 0u);
        taken.insert(taken.end(), bytes, bytes + count);
        if (count == 0)
            std::this_thread::yield();
    };
    while (taken.size() < total)
        take(total);
    EXPECT_TRUE(std::equal(taken.begin(), taken.end(), wanted.bytes.begin()));
    JPEGEnc_Quit(encoder);
    writer.join();
    const JPEGEncRequest flush{JPEGENC_FLUSH, 0, 0, 0, 0};
    EXPECT_EQ(JPEGEnc_SetOptions(encoder, &flush), 0u);
    JPEGEncFrame frame{0, 0};
    ASSERT_EQ(JPEGEnc_OneFrame(encoder, &frame), 0u);
    for (taken.clear(); taken.size() < wanted.sizes[0];)
        take(wanted.sizes[0]);
    EXPECT_TRUE(std::equal(taken.begin(), taken.end(), wanted.bytes.begin()));
    EXPECT_EQ(JPEGEnc_Release(&encoder), 0u);
}

}    // namespace
}    // namespace corvane
