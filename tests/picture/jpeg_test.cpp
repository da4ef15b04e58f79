#include <gtest/gtest.h>
#include <jpeglib.h>
#include <stdio.h>

#include <algorithm>
#include <cmath>
#include <csetjmp>
#include <memory>
#include <numeric>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "picture/JpegEncoder.h"
#include "picture/JpegTables.h"
#include "support/BareDecoder.h"
#include "support/GuardedBytes.h"

namespace corvane {
namespace {

// Planes that end in front of memory that cannot be read, so that nothing outside the encoded pixels may be touched
// there.
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

Encoded Encode(const JPEGEncOptions& options, uint32_t room, uint32_t frames, uint32_t commentSize, bool plain,
               const std::vector<JPEGEncRequest>& requests = {}) {
    Encoded run;
    const test::GuardedBytes out(std::vector<uint8_t>(room, 0xA5).data(), room);
    auto encoder = JpegEncoder::Create(options);
    if (encoder == nullptr)
        return run;
    if (plain)
        encoder->UsePlainForms();
    const JPEGEncRequest output{JPEGENC_OUTPUT, 0, reinterpret_cast<uint64_t>(out.Data()), room, 0};
    EXPECT_TRUE(Ok(encoder->SetOptions(output)));
    for (const JPEGEncRequest& request : requests)
        EXPECT_EQ(Ok(encoder->SetOptions(request)), request.reserved4 == 0) << request.Code;
    for (uint32_t i = 0; i < frames; ++i) {
        JPEGEncFrame frame{commentSize, 77};
        const bool done = Ok(encoder->OneFrame(frame));
        EXPECT_EQ(done, frame.EncodedBytes != 0);
        run.sizes.push_back(frame.EncodedBytes);
    }
    run.bytes.assign(out.Data(), out.Data() + room);
    return run;
}

struct Plane {
    const uint8_t* samples;
    size_t step;
};

// A stream as a decoder sees it, with planes that live as long as this does. No planes when it complains.
struct Decoded {
    uint32_t width = 0, height = 0;
    std::vector<std::vector<uint8_t>> memory;
    test::BarePicture picture;
    std::vector<Plane> planes;
};

struct Failure {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
};

Decoded ByLibjpeg(const uint8_t* bytes, size_t size) {
    jpeg_decompress_struct info;
    Failure failure;
    info.err = jpeg_std_error(&failure.manager);
    failure.manager.error_exit = [](j_common_ptr any) { std::longjmp(reinterpret_cast<Failure*>(any->err)->jump, 1); };
    failure.manager.output_message = [](j_common_ptr) {};
    Decoded decoded;
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
    decoded.width = info.output_width;
    decoded.height = info.output_height;
    const auto rowsAtOnce = static_cast<uint32_t>(info.max_v_samp_factor * 8);
    const auto components = static_cast<size_t>(info.num_components);
    for (size_t c = 0; c < components; ++c) {
        const size_t step = (info.comp_info[c].width_in_blocks + 4) * 8;
        decoded.memory.emplace_back(step * (decoded.height / rowsAtOnce + 2) * rowsAtOnce);
        decoded.planes.push_back({decoded.memory.back().data(), step});
    }
    while (info.output_scanline < info.output_height) {
        JSAMPROW rows[3][32];
        JSAMPARRAY all[3] = {rows[0], rows[1], rows[2]};
        for (size_t c = 0; c < components; ++c) {
            const auto v = static_cast<uint32_t>(info.comp_info[c].v_samp_factor);
            const uint32_t first = info.output_scanline / static_cast<uint32_t>(info.max_v_samp_factor) * v;
            for (uint32_t r = 0; r < v * 8; ++r)
                rows[c][r] = decoded.memory[c].data() + (first + r) * decoded.planes[c].step;
        }
        jpeg_read_raw_data(&info, all, rowsAtOnce);
    }
    if (info.err->num_warnings != 0)
        decoded.planes.clear();
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return decoded;
}

Decoded ByLibavcodec(const uint8_t* bytes, size_t size) {
    auto pictures = test::BareDecode(CORVANE_STREAM_JPEG, {{{bytes, bytes + size}, true, 0, 0}});
    Decoded decoded;
    if (pictures.size() != 1 || pictures[0]->decode_error_flags != 0)
        return decoded;
    decoded.picture = std::move(pictures[0]);
    decoded.width = static_cast<uint32_t>(decoded.picture->width);
    decoded.height = static_cast<uint32_t>(decoded.picture->height);
    for (size_t c = 0; c < (decoded.picture->format == AV_PIX_FMT_GRAY8 ? 1 : 3); ++c)
        decoded.planes.push_back({decoded.picture->data[c], static_cast<size_t>(decoded.picture->linesize[c])});
    return decoded;
}

// No block is further off than its coefficients are. The transform keeps the sum of squares, so what 64 coefficients
// lose is what their samples lose: half a divisor each, a 64th of one for its reciprocal (off by less than 1 in 65536 /
// divisor, times 1024), 0.77 for the forward transform's roundings and constants; and each sample half a level for
// its own rounding, and half a level for what the decoder's integers lose on the way. Clamping only brings samples
// nearer. `divisors`: as the stream states them, in any order.
void ExpectNear(const Plane& decoded, const Plane& source, uint32_t width, uint32_t height, const uint8_t* divisors,
                const std::string& what) {
    double squares = 0;
    for (int i = 0; i < 64; ++i)
        squares += std::pow(divisors[i] / 2.0 + divisors[i] / 64.0 + 0.77, 2);
    const double limit = std::pow(std::sqrt(squares) + 8, 2);
    double worst = 0;
    for (uint32_t top = 0; top < height; top += 8)
        for (uint32_t left = 0; left < width; left += 8) {
            double sum = 0;
            for (uint32_t y = top; y < std::min(top + 8, height); ++y)
                for (uint32_t x = left; x < std::min(left + 8, width); ++x)
                    sum += std::pow(decoded.samples[y * decoded.step + x] - source.samples[y * source.step + x], 2);
            worst = std::max(worst, sum);
        }
    EXPECT_LE(worst, limit) << what;
}

// Both decoders (libjpeg only up to its widest picture) see the picture that the options point to.
void ExpectDecodes(const Encoded& encoded, const JPEGEncOptions& options, const std::string& what) {
    const uint8_t* bytes = encoded.bytes.data();
    for (const uint32_t size : encoded.sizes) {
        constexpr uint8_t kTables[] = {0xFF, 0xDB};
        const uint8_t* const tables = std::search(bytes, bytes + size, kTables, std::end(kTables)) + 5;
        for (const auto& [decode, name, widest] :
             {std::tuple(&ByLibjpeg, "libjpeg", 65500u), {&ByLibavcodec, "libavcodec", 65535u}}) {
            const std::string by = what + ", " + name;
            const Decoded decoded = decode(bytes, size);
            if (options.EncodingWidth > widest)
                continue;
            ASSERT_EQ(decoded.planes.size(), options.Colour == 1 ? 3u : 1u) << by;
            ASSERT_TRUE(decoded.width == options.EncodingWidth && decoded.height == options.EncodingHeight) << by;
            const void* const from[3] = {options.PlaneY, options.PlaneU, options.PlaneV};
            for (size_t c = 0; c < decoded.planes.size(); ++c) {
                const uint32_t across = c == 0 ? 1 : 2, down = c == 0 || options.Subsampling == 2 ? 1 : 2;
                const Plane source{static_cast<const uint8_t*>(from[c]), (options.InputWidth + across - 1) / across};
                ExpectNear(decoded.planes[c], source, (decoded.width + across - 1) / across,
                           (decoded.height + down - 1) / down, tables + (c == 0 ? 0 : 65), by);
            }
        }
        bytes += size;
    }
}

TEST(Jpeg, FastFormsEqualPlainFormsAndDecode) {
    std::mt19937 random(5);
    constexpr std::pair<uint32_t, uint32_t> kSizes[] = {{1, 1},   {17, 9},   {16, 16}, {33, 47},
                                                        {100, 8}, {129, 65}, {400, 31}};
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
                ASSERT_NO_FATAL_FAILURE(ExpectDecodes(fast, options, what));
            }
    }
}

TEST(Jpeg, LongestRowAndEmptyPicture) {
    const Source source(65535, 3, 0, false, 1);
    for (const auto& [width, height] : {std::pair(65535u, 3u), {65500u, 3u}, {65535u, 0u}}) {
        JPEGEncOptions options = Options(65535, height, 0, source);
        options.EncodingWidth = width;
        options.Interleaved = height != 0;
        const Encoded encoded = Encode(options, 1 << 20, 1, 0, false);
        ASSERT_NE(encoded.sizes[0], 0u);
        EXPECT_TRUE(encoded == Encode(options, 1 << 20, 1, 0, true));
        if (height != 0)
            ExpectDecodes(encoded, options, std::to_string(width) + " wide");
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
    const std::vector<uint8_t> start = {0xFF, 0xD8, 0xFF, 0xE2, 0,    15,   'F', 'L', '_', 'P', 'G', ' ', 'M', 'o', 'd',
                                        'e',  'a',  'b',  'c',  0xFF, 0xDB, 0,   132, 0,   16,  11,  12,  14,  12,  10};
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

// The tables of the standard are those that libjpeg begins with, whose quality 50 takes them as they are.
TEST(Jpeg, TablesAndSampling) {
    jpeg_compress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    info.in_color_space = JCS_YCbCr;
    info.input_components = 3;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, 50, TRUE);
    const Source source(16, 16, 0, true, 1);
    for (const uint32_t quality : {1u, 50u, 255u})
        for (const auto& [colour, subsampling, frame] : {std::tuple(1u, 1u, "\3\1\x22\0\2\x11\1\3\x11\1"),
                                                         {1u, 2u, "\3\1\x21\0\2\x11\1\3\x11\1"},
                                                         {0u, 1u, "\1\1\x22\0"},
                                                         {0u, 2u, "\1\1\x21\0"}}) {
            std::string wanted("\xFF\xDB\0", 3);
            const size_t sets = colour == 1 ? 2 : 1;
            wanted += static_cast<char>(sets * 65 + 2);
            for (size_t set = 0; set < sets; ++set) {
                wanted += static_cast<char>(set);
                for (const uint8_t at : kernels::kZigzag)
                    wanted += static_cast<char>(
                        std::clamp((info.quant_tbl_ptrs[set]->quantval[at] * quality + 25) / 50, 2u, 255u));
            }
            wanted += std::string("\xFF\xC4", 2) + static_cast<char>(sets - 1) + static_cast<char>(sets * 208 + 2);
            for (const auto& [tables, symbols, kind] :
                 {std::tuple(info.dc_huff_tbl_ptrs, 12, 0), {info.ac_huff_tbl_ptrs, 162, 16}})
                for (size_t set = 0; set < sets; ++set) {
                    wanted += static_cast<char>(kind + static_cast<int>(set));
                    wanted.append(tables[set]->bits + 1, tables[set]->bits + 17);
                    wanted.append(tables[set]->huffval, tables[set]->huffval + symbols);
                }
            wanted += std::string("\xFF\xC0\0", 3) + static_cast<char>(5 + 6 * sets) +
                      std::string("\x08\0\x10\0\x10", 5) + std::string(frame, colour == 1 ? 10 : 4);
            JPEGEncOptions options = Options(16, 16, 0, source);
            options.QuantTable = 1;
            options.Quality = quality;
            options.Colour = colour;
            options.Subsampling = subsampling;
            const Encoded e = Encode(options, 1 << 16, 1, 0, false);
            EXPECT_EQ(std::string(e.bytes.begin() + 2, e.bytes.begin() + 2 + static_cast<ptrdiff_t>(wanted.size())),
                      wanted)
                << quality << " " << colour << " " << subsampling;
        }
    jpeg_destroy_compress(&info);
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
    const JPEGEncRequest to422{8, 0, 2, 0, 0}, sizeAgain{14, 0, 40, 24, 0}, tiny{14, 0, 1, 1, 0};
    const JPEGEncRequest planesAgain{2, 0, address(small.PlaneY), address(small.PlaneU), address(small.PlaneV)};
    const struct {
        const char* what;
        std::vector<JPEGEncRequest> requests;
        void (*change)(JPEGEncOptions&) = [](JPEGEncOptions&) {};
    } cases[] = {
        {"size", {{14, 0, 33, 21, 0}}, [](JPEGEncOptions& o) { o.EncodingWidth = 33, o.EncodingHeight = 21; }},
        {"quality", {{7, 0, 20, 0, 0}}, [](JPEGEncOptions& o) { o.Quality = 20; }},
        {"table", {{39, 0, 2, 0, 0}}, [](JPEGEncOptions& o) { o.QuantTable = 2; }},
        {"grey", {{10, 0, 0, 0, 0}}, [](JPEGEncOptions& o) { o.Colour = 0; }},
        {"tag", {{36, 0, 4, 0, 0}}, [](JPEGEncOptions& o) { o.ModeTag = 4; }},
        {"comment", {{5, 0, address("XYZ"), 0, 0}}, [](JPEGEncOptions& o) { o.Comment = "XYZ"; }},
        {"no offsets", {{30, 0, 0, 0, 0}}, [](JPEGEncOptions& o) { o.HorzOffset = o.VertOffset = 0; }},
        {"odd offsets", {{30, 0, 13, 7, 0}}, [](JPEGEncOptions& o) { begin(o, 7 * 64 + 13, 3 * 32 + 6, 3 * 32 + 6); }},
        {"4:2:2",
         {to422, planesAgain, sizeAgain},
         [](JPEGEncOptions& o) { begin(o, 10 * 64 + 6, 10 * 32 + 3, 10 * 32 + 3), o.Subsampling = 2; }},
        {"odd offsets in 4:2:2",
         {to422, planesAgain, {30, 0, 3, 15, 0}, sizeAgain},
         [](JPEGEncOptions& o) { begin(o, 15 * 64 + 3, 15 * 32 + 1, 15 * 32 + 1), o.Subsampling = 2; }},
        {"odd offsets in 4:2:2, planes as they were",
         {to422, {30, 0, 13, 7, 0}, sizeAgain},
         [](JPEGEncOptions& o) { begin(o, 7 * 64 + 13, 7 * 32 + 6, 7 * 32 + 6), o.Subsampling = 2; }},
        {"input, odd rows, and planes",
         {{21, 0, 51, 36, 0}, {2, 0, address(small.PlaneY, 3), address(small.PlaneU), address(small.PlaneV, 1)}},
         [](JPEGEncOptions& o) { begin(o, 10 * 51 + 6 + 3, 5 * 25 + 3, 5 * 25 + 3 + 1), o.InputWidth = 51; }},
        {"input just large enough", {{21, 0, 40, 24, 0}, {21, 0, 64, 40, 0}}},
        {"input narrower than the picture", {{21, 1, 39, 40, 0}}},
        {"input lower than the picture", {{21, 1, 64, 23, 0}}},
        {"input narrower than its offset", {tiny, {21, 0, 6, 40, 0}, {21, 1, 5, 40, 0}, {21, 0, 64, 40, 0}, sizeAgain}},
        {"input lower than its offset", {tiny, {21, 0, 64, 10, 0}, {21, 1, 64, 9, 0}, sizeAgain}},
        {"input of 2^32 bytes", {{21, 1, 65536, 65536, 0}}},
        {"offset of 2^32 bytes", {{30, 1, 0, 1 << 26, 0}}},
        {"other limits", {{36, 1, 5, 0, 0}, {7, 1, 35495598, 0, 0}, {14, 1, 40, 65536, 0}, {14, 1, 65536, 24, 0}}},
        {"unknown codes", {{0, 1, 1, 1, 1}, {6, 1, 1, 1, 1}, {40, 1, 1, 1, 1}}},
    };
    for (const auto& c : cases) {
        JPEGEncOptions wanted = small;
        c.change(wanted);
        EXPECT_TRUE(Encode(small, 1 << 14, 1, 3, false, c.requests) == Encode(wanted, 1 << 14, 1, 3, false)) << c.what;
    }
}

// The place of equal counts is part of the stream's format: each of these orders is what that one way of sorting gives.
TEST(Jpeg, SymbolsAreSortedByCount) {
    const struct {
        uint8_t counts[jpeg::kDcSymbols];
        std::array<uint8_t, jpeg::kDcSymbols> list;
    } cases[] = {{{}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0}},
                 {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, {11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0}},
                 {{3, 9, 9, 1, 0, 0, 5, 9, 3, 0, 1, 7}, {1, 2, 7, 11, 6, 8, 0, 10, 3, 4, 9, 5}}};
    jpeg::HuffmanSet set;
    for (const auto& c : cases) {
        set.ClearCounts();
        for (uint8_t symbol = 0; symbol < jpeg::kDcSymbols; ++symbol)
            for (uint8_t i = 0; i < c.counts[symbol]; ++i)
                set.CountDc(symbol);
        set.CountAc(15, 10);
        set.CountEndOfBlock();
        set.CountEndOfBlock();
        for (int i = 0; i < 3; ++i)
            set.CountSixteenZeros();
        set.SortByCounts();
        EXPECT_EQ(set.DcList(), c.list);
        EXPECT_EQ(set.DcCode(c.list[0]), 2u) << "two bits, 00";
        EXPECT_EQ(set.AcList()[0], 0xF0);
        EXPECT_EQ(set.AcList()[1], 0x00);
        EXPECT_EQ(set.AcList()[2], 0xFA);
        EXPECT_EQ(set.AcCode(0xFA), 0x0403u) << "three bits, 100";
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
    };
    std::string told;
    for (const auto& [what, change] : cases) {
        JPEGEncOptions options = Options(16, 16, 0, source);
        change(options);
        testing::internal::CaptureStderr();
        EXPECT_EQ(JpegEncoder::Create(options), nullptr) << what;
        told += testing::internal::GetCapturedStderr();
    }
    EXPECT_EQ(told,
              "Error: Encoding range (EncodingWidth+HorzOffset) exceeds the input width !!\n"
              "Error: Encoding range (EncodingHeight+VertOffset) exceeds the input height !!\n");
    JPEGEncOptions options = Options(16, 16, 0, source);
    EXPECT_EQ(JPEGEnc_QueryMemSize(&options), 3498u + 195);
    EXPECT_EQ(Encode(options, 4096, 1, 1, false).sizes[0], 0u) << "no comment bytes";
    const std::string comment(65524, 'c');
    options.Comment = comment.data();
    options.ModeTag = 1;    // with which the segment is full
    EXPECT_NE(Encode(options, 1 << 17, 1, 65523, false).sizes[0], 0u);
    EXPECT_EQ(Encode(options, 1 << 17, 1, 65524, false).sizes[0], 0u);
    options.PlaneV = nullptr;
    EXPECT_EQ(Encode(options, 4096, 1, 0, false).sizes[0], 0u) << "no plane";
}

// In the client's memory at an odd address: a writer that waits in its callback for a reader that takes what comes, is
// told to quit while nobody reads, and goes on after a flush.
TEST(Jpeg, PoolWithAReader) {
    const Source source(64, 48, 0, false, 1);
    JPEGEncOptions options = Options(64, 48, 0, source);
    const Encoded wanted = Encode(options, 1 << 20, 100, 0, false);
    const uint32_t total = std::accumulate(wanted.sizes.begin(), wanted.sizes.end(), 0u);
    options.PackerMode = 2;
    options.PoolSize = 4096;
    options.RetryLimit = UINT32_MAX;
    options.FullCallback = [](uint32_t) {
        std::this_thread::yield();
        return 0u;
    };
    const uint32_t size = JPEGEnc_QueryMemSize(&options);
    const test::GuardedBytes memory(std::vector<uint8_t>(size, 0xEE).data(), size);
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
