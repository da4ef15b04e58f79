#include <gtest/gtest.h>
#include <stdio.h>

#include <jpeglib.h>

#include <cmath>
#include <csetjmp>
#include <memory>
#include <random>
#include <vector>

#include "picture/JpegEncoder.h"
#include "picture/JpegTables.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

// Planes that end in front of memory that cannot be read, so that nothing outside the encoded pixels may be touched there.
struct Source {
    Source(uint32_t width, uint32_t height, uint32_t padding, bool is422, uint32_t seed) {
        std::mt19937 random(seed);
        const uint32_t strides[3] = {width + padding, (width + padding + 1) / 2, (width + padding + 1) / 2};
        for (uint32_t i = 0; i < 3; ++i) {
            const uint32_t rows = i == 0 || is422 ? height : (height + 1) / 2;
            const uint32_t columns = i == 0 ? width : (width + 1) / 2;
            std::vector<uint8_t> plane(rows == 0 ? 0 : size_t{strides[i]} * (rows - 1) + columns);
            for (size_t at = 0; at < plane.size(); ++at) {
                const double x = static_cast<double>(at % strides[i]), y = static_cast<double>(at / strides[i]);
                const int level = 128 + static_cast<int>(60 * std::sin(x / 9 + i) + 40 * std::cos(y / 7 + x / 50));
                plane[at] = static_cast<uint8_t>(seed % 3 == 0 ? random() : seed % 3 == 1 ? level : random() % 2 * 255);
            }
            planes.push_back(std::make_unique<test::GuardedBytes>(plane.data(), plane.size()));
        }
    }
    std::vector<std::unique_ptr<test::GuardedBytes>> planes;
};

JPEGEncOptions Options(uint32_t width, uint32_t height, uint32_t padding, const Source& source) {
    JPEGEncOptions o{};
    o.Version = JPEGENC_VERSION;
    o.EncodingWidth = width;
    o.EncodingHeight = height;
    o.InputWidth = width + padding;
    o.InputHeight = height;
    o.Quality = 50;
    o.Interleaved = 1;
    o.Colour = 1;
    o.Subsampling = 1;
    o.PackerMode = 1;
    o.PlaneY = source.planes[0]->Data();
    o.PlaneU = source.planes[1]->Data();
    o.PlaneV = source.planes[2]->Data();
    return o;
}

// `frames` pictures behind each other into a buffer of `room` bytes that ends in front of a guard page; what the buffer
// holds afterwards, and how each picture ended.
struct Encoded {
    std::vector<uint8_t> bytes;
    std::vector<uint32_t> sizes;
    bool operator==(const Encoded&) const = default;
};

Encoded Encode(const JPEGEncOptions& options, uint32_t room, uint32_t frames, uint32_t commentSize, bool plain) {
    Encoded run;
    const test::GuardedBytes out(std::vector<uint8_t>(room, 0xA5).data(), room);
    auto encoder = JpegEncoder::Create(options);
    if (encoder == nullptr)
        return run;
    if (plain)
        encoder->UsePlainForms();
    const JPEGEncRequest output{JPEGENC_OUTPUT, 0, reinterpret_cast<uint64_t>(out.Data()), room, 0};
    EXPECT_TRUE(Ok(encoder->SetOptions(output)));
    for (uint32_t i = 0; i < frames; ++i) {
        JPEGEncFrame frame{commentSize, 77};
        const bool done = Ok(encoder->OneFrame(frame));
        EXPECT_EQ(done, frame.EncodedBytes != 0);
        run.sizes.push_back(frame.EncodedBytes);
    }
    run.bytes.assign(out.Data(), out.Data() + room);
    return run;
}

struct Failure {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
};

// The planes of a stream as an independent decoder sees them, each in whole blocks; empty when it complains.
std::vector<std::vector<uint8_t>> Decode(const uint8_t* bytes, size_t size, uint32_t& width, uint32_t& height) {
    jpeg_decompress_struct info;
    Failure failure;
    info.err = jpeg_std_error(&failure.manager);
    failure.manager.error_exit = [](j_common_ptr any) {
        std::longjmp(reinterpret_cast<Failure*>(any->err)->jump, 1);
    };
    failure.manager.output_message = [](j_common_ptr) {};
    std::vector<std::vector<uint8_t>> planes;
    jpeg_create_decompress(&info);
    if (setjmp(failure.jump) != 0) {
        jpeg_destroy_decompress(&info);
        return {};
    }
    jpeg_mem_src(&info, bytes, size);
    jpeg_read_header(&info, TRUE);
    info.raw_data_out = TRUE;
    info.dct_method = JDCT_ISLOW;
    jpeg_start_decompress(&info);
    width = info.output_width;
    height = info.output_height;
    const auto rowsAtOnce = static_cast<uint32_t>(info.max_v_samp_factor * 8);
    planes.resize(static_cast<size_t>(info.num_components));
    std::vector<uint32_t> steps;
    for (int c = 0; c < info.num_components; ++c) {
        steps.push_back((info.comp_info[c].width_in_blocks + 4) * 8);
        planes[static_cast<size_t>(c)].resize(size_t{steps.back()} * (height / rowsAtOnce + 2) * rowsAtOnce);
    }
    while (info.output_scanline < info.output_height) {
        JSAMPROW rows[3][32];
        JSAMPARRAY all[3] = {rows[0], rows[1], rows[2]};
        for (int c = 0; c < info.num_components; ++c) {
            const auto v = static_cast<uint32_t>(info.comp_info[c].v_samp_factor);
            const uint32_t first = info.output_scanline / static_cast<uint32_t>(info.max_v_samp_factor) * v;
            for (uint32_t r = 0; r < v * 8; ++r)
                rows[c][r] = planes[static_cast<size_t>(c)].data() + size_t{first + r} * steps[static_cast<size_t>(c)];
        }
        jpeg_read_raw_data(&info, all, rowsAtOnce);
    }
    const long warnings = info.err->num_warnings;
    jpeg_finish_decompress(&info);
    for (size_t c = 0; c < planes.size(); ++c)    // the step goes in front
        for (int byte = 0; byte < 4; ++byte)
            planes[c].push_back(static_cast<uint8_t>(steps[c] >> (8 * byte)));
    jpeg_destroy_decompress(&info);
    return warnings == 0 ? planes : std::vector<std::vector<uint8_t>>{};
}

uint32_t StepOf(const std::vector<uint8_t>& plane) {
    const uint8_t* at = plane.data() + plane.size() - 4;
    return at[0] | uint32_t{at[1]} << 8 | uint32_t{at[2]} << 16 | uint32_t{at[3]} << 24;
}

// No sample is further off than all coefficients together can be, and none in the mean than a coefficient's half.
void ExpectNear(const std::vector<uint8_t>& plane, const uint8_t* source, uint32_t step, uint32_t width, uint32_t height,
                double meanLimit, const std::string& what) {
    const uint32_t decodedStep = StepOf(plane);
    double sum = 0;
    for (uint32_t y = 0; y < height; ++y)
        for (uint32_t x = 0; x < width; ++x) {
            const double d = plane[size_t{y} * decodedStep + x] - source[size_t{y} * step + x];
            sum += d * d;
        }
    EXPECT_LE(std::sqrt(sum / (double{1} * width * height)), meanLimit) << what;
}

TEST(Jpeg, FastFormsEqualPlainFormsAndDecode) {
    std::mt19937 random(5);
    constexpr std::pair<uint32_t, uint32_t> kSizes[] = {{1, 1}, {17, 9}, {16, 16}, {33, 47}, {100, 8}, {129, 65}, {400, 31}};
    for (uint32_t set = 0; set < 20; ++set) {
        const uint32_t words[8] = {static_cast<uint32_t>(random()), static_cast<uint32_t>(random()),
                                   static_cast<uint32_t>(random()), static_cast<uint32_t>(random())};
        for (const auto& [width, height] : kSizes)
            for (const uint32_t padding : {0u, 1u, 13u}) {
                const bool is422 = (words[0] & 1) != 0;
                const Source source(width, height, padding, is422, set);
                JPEGEncOptions options = Options(width, height, padding, source);
                options.Subsampling = is422 ? 2 : 1;
                options.Colour = (words[0] >> 1 & 3) != 0;
                options.Interleaved = (words[0] >> 3 & 3) != 0;
                options.OptimizeHuffman = words[0] >> 5 & 1;
                options.JFIFHeader = words[0] >> 6 & 1;
                options.QuantTable = words[0] >> 7 & 3;
                options.RestartInterval = words[1] % 3 == 0 ? 1 + words[1] % 11 : 0;
                options.Quality = words[2] % 4 == 0 ? words[2] % 256 : words[2] % 60;
                options.ModeTag = words[3] % 5;
                options.Comment = "a comment";
                const std::string what = "set " + std::to_string(set) + ", " + std::to_string(width) + " x " +
                                         std::to_string(height) + " padded " + std::to_string(padding);
                const uint32_t room = 3 * (2000 + width * height * 8);
                const Encoded fast = Encode(options, room, 3, words[3] % 10, false);
                ASSERT_TRUE(fast == Encode(options, room, 3, words[3] % 10, true)) << what;
                // Full somewhere in a picture: the same bytes, the same failure.
                const uint32_t total = fast.sizes[0] + fast.sizes[1] + fast.sizes[2];
                for (const uint32_t less : {1u, 2u, 300u, total / 2, total - 1}) {
                    const uint32_t small = total - std::min(less, total);
                    ASSERT_TRUE(Encode(options, small, 3, words[3] % 10, false) ==
                                Encode(options, small, 3, words[3] % 10, true))
                        << what << ", " << small << " bytes";
                }
                size_t at = 0;
                for (const uint32_t size : fast.sizes) {
                    uint32_t decodedWidth = 0, decodedHeight = 0;
                    const auto planes = Decode(fast.bytes.data() + at, size, decodedWidth, decodedHeight);
                    at += size;
                    ASSERT_EQ(planes.size(), options.Colour == 1 ? 3u : 1u) << what;
                    ASSERT_TRUE(decodedWidth == width && decodedHeight == height) << what;
                    // Half of the largest divisor in every coefficient, and a level for arithmetic.
                    const double limit = std::min(127.0, 121.0 * options.Quality / 100 + 1) + 1.5;
                    for (size_t c = 0; c < planes.size(); ++c)
                        ExpectNear(planes[c], source.planes[c]->Data(),
                                   c == 0 ? width + padding : (width + padding + 1) / 2, c == 0 ? width : (width + 1) / 2,
                                   c == 0 || is422 ? height : (height + 1) / 2, limit, what);
                }
            }
    }
}

TEST(Jpeg, LongestRowAndEmptyPicture) {
    const Source source(65535, 3, 0, false, 1);
    for (const uint32_t height : {3u, 0u}) {
        JPEGEncOptions options = Options(65535, height, 0, source);
        options.Interleaved = height != 0;
        const Encoded wide = Encode(options, 1 << 20, 1, 0, false);
        ASSERT_EQ(wide.sizes[0] != 0, true);
        EXPECT_TRUE(wide == Encode(options, 1 << 20, 1, 0, true));
        uint32_t width = 0, rows = 0;
        options.EncodingWidth = 65500;    // as far as this decoder goes
        const Encoded decoded = Encode(options, 1 << 20, 1, 0, false);
        if (height != 0)
            EXPECT_TRUE(Decode(decoded.bytes.data(), decoded.sizes[0], width, rows).size() == 3 && width == 65500);
    }
}

TEST(Jpeg, SegmentsAndRestarts) {
    const Source source(100, 24, 0, false, 1);
    JPEGEncOptions options = Options(100, 24, 0, source);
    options.QuantTable = 1;
    options.Interleaved = 0;
    options.RestartInterval = 3;
    options.ModeTag = 2;
    options.Comment = "abc";
    const Encoded e = Encode(options, 1 << 16, 1, 3, false);
    const std::vector<uint8_t> start = {0xFF, 0xD8, 0xFF, 0xE2, 0,  15, 'F', 'L', '_', 'P', 'G', ' ', 'M', 'o', 'd', 'e',
                                        'a',  'b',  'c',  0xFF, 0xDB, 0, 132, 0,   16,  11,  12,  14,  12,  10};
    EXPECT_TRUE(std::equal(start.begin(), start.end(), e.bytes.begin()));
    uint32_t markers = 0;    // 39 blocks of Y make 12, of each chroma plane 14 make 4
    uint8_t expected = 0xD0;
    for (size_t i = 0; i + 1 < e.sizes[0]; ++i) {
        if (e.bytes[i] == 0xFF && e.bytes[i + 1] == 0xDA)
            expected = 0xD0;
        if (e.bytes[i] == 0xFF && (e.bytes[i + 1] & 0xF8) == 0xD0) {
            EXPECT_EQ(e.bytes[i + 1], expected);
            expected = static_cast<uint8_t>(0xD0 + (expected + 1) % 8);
            ++markers;
        }
    }
    EXPECT_EQ(markers, 12u + 4 + 4);
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
    };
    for (const auto& [what, change] : cases) {
        JPEGEncOptions options = Options(16, 16, 0, source);
        change(options);
        EXPECT_EQ(JpegEncoder::Create(options), nullptr) << what;
    }
    JPEGEncOptions options = Options(16, 16, 0, source);
    EXPECT_EQ(JPEGEnc_QueryMemSize(&options), 3498u + 195);
    EXPECT_EQ(Encode(options, 4096, 1, 1, false).sizes[0], 0u) << "no comment bytes";
    options.PlaneV = nullptr;
    EXPECT_EQ(Encode(options, 4096, 1, 0, false).sizes[0], 0u) << "no plane";
}

// In the client's memory at an odd address; pictures go through a pool, whole ones only, and come back after a failure.
TEST(Jpeg, PoolInForeignMemory) {
    const Source source(64, 48, 0, false, 1);
    JPEGEncOptions options = Options(64, 48, 0, source);
    const Encoded wanted = Encode(options, 1 << 15, 1, 0, false);
    options.PackerMode = 2;
    options.PoolSize = 8192;
    options.RetryLimit = 1;
    const uint32_t bytes = JPEGEnc_QueryMemSize(&options);
    const test::GuardedBytes memory(std::vector<uint8_t>(bytes + 1, 0xEE).data(), bytes);
    options.Memory = memory.Data();
    void* encoder = nullptr;
    ASSERT_EQ(JPEGEnc_Initial(&encoder, &options), 0u);
    std::vector<uint8_t> taken(wanted.sizes[0]);
    for (int picture = 0; picture < 20; ++picture) {
        JPEGEncFrame frame{0, 0};
        if (picture == 10) {
            JPEGEnc_Quit(encoder);
            ASSERT_EQ(JPEGEnc_OneFrame(encoder, &frame), JPEGENC_FAILED);
            const JPEGEncRequest flush{JPEGENC_FLUSH, 0, 0, 0, 0};
            ASSERT_EQ(JPEGEnc_SetOptions(encoder, &flush), 0u);
        }
        ASSERT_EQ(JPEGEnc_OneFrame(encoder, &frame), 0u) << picture;
        ASSERT_EQ(JPEGEnc_QueryFilledBufferSpace(encoder), wanted.sizes[0]);
        ASSERT_EQ(JPEGEnc_TakeData(encoder, taken.data(), frame.EncodedBytes), 0u);
        ASSERT_TRUE(std::equal(taken.begin(), taken.end(), wanted.bytes.begin())) << picture;
    }
    EXPECT_EQ(JPEGEnc_Release(&encoder), 0u);
}

}    // namespace
}    // namespace corvane
