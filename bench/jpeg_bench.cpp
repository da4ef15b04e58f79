// The JPEG encoder beside libjpeg-turbo: 1920x1080, 4:2:0, one thread, whole streams out of planes, over a ring of pictures
// larger than the cache. The same luma and chroma tables on both sides, so that sizes and quality are alike.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include <jpeglib.h>

#include "Contest.h"
#include "picture/JpegEncoder.h"
#include "picture/JpegTables.h"

namespace {

using namespace corvane;
constexpr uint32_t kWidth = 1920, kHeight = 1080, kRows = 1088;    // whole MCUs for the peer's raw rows
constexpr uint32_t kRoom = 16u << 20;
std::vector<uint8_t> output(kRoom);
size_t oursBytes, peerBytes;

struct Picture {
    std::vector<uint8_t> planes[3];
};

enum class Kind { Photograph, Noisy, Flat };

// Photograph: octaves of smooth detail with edges; noisy: the same with sensor noise; flat: areas and a few edges.
Picture Make(Kind kind, uint32_t seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> noise(0, kind == Kind::Noisy ? 6 : 1);
    Picture picture;
    for (uint32_t c = 0; c < 3; ++c) {
        const uint32_t width = c == 0 ? kWidth : kWidth / 2, height = c == 0 ? kRows : kRows / 2, scale = c == 0 ? 1 : 2;
        picture.planes[c].resize(size_t{width} * height);
        double phase[8][3];
        for (auto& p : phase)
            for (double& v : p)
                v = static_cast<double>(random() % 6283) / 1000;
        for (uint32_t y = 0; y < height; ++y)
            for (uint32_t x = 0; x < width; ++x) {
                const double px = x * scale, py = y * scale;
                double level = 0;
                for (int octave = 0; octave < (kind == Kind::Flat ? 2 : 8); ++octave) {
                    const double f = std::pow(2.0, octave) / 600;
                    level += 40 / std::pow(1.55, octave) * std::sin(px * f + phase[octave][0] + 2 * std::sin(py * f * 0.7 + phase[octave][1])) *
                             std::cos(py * f * 1.1 + phase[octave][2]);
                }
                if ((static_cast<uint32_t>(px + 0.3 * py) / 170 + static_cast<uint32_t>(py) / 120) % 3 == 0)
                    level += c == 0 ? 45 : 12;
                if (kind != Kind::Flat)
                    level += noise(random) * (c == 0 ? 1 : 0.5);
                picture.planes[c][size_t{y} * width + x] = static_cast<uint8_t>(std::clamp(128 + level, 0.0, 255.0));
            }
    }
    return picture;
}

void Ours(const Picture& picture, uint32_t quality) {
    JPEGEncOptions o{};
    o.Version = JPEGENC_VERSION;
    o.EncodingWidth = o.InputWidth = kWidth;
    o.EncodingHeight = o.InputHeight = kHeight;
    o.Quality = quality;
    o.Interleaved = o.Colour = o.Subsampling = o.PackerMode = o.QuantTable = 1;
    o.PlaneY = picture.planes[0].data();
    o.PlaneU = picture.planes[1].data();
    o.PlaneV = picture.planes[2].data();
    const auto encoder = JpegEncoder::Create(o);
    const JPEGEncRequest request{JPEGENC_OUTPUT, 0, reinterpret_cast<uint64_t>(output.data()), kRoom, 0};
    JPEGEncFrame frame{0, 0};
    if (!Ok(encoder->SetOptions(request)) || !Ok(encoder->OneFrame(frame)))
        std::abort();
    oursBytes = frame.EncodedBytes;
}

void Peer(const Picture& picture, uint32_t quality) {
    jpeg_compress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_compress(&info);
    unsigned char* to = output.data();
    unsigned long size = kRoom;
    jpeg_mem_dest(&info, &to, &size);
    info.image_width = kWidth;
    info.image_height = kHeight;
    info.input_components = 3;
    info.in_color_space = JCS_YCbCr;
    jpeg_set_defaults(&info);
    info.raw_data_in = TRUE;
    info.dct_method = JDCT_ISLOW;
    unsigned tables[64];
    for (int t = 0; t < 2; ++t) {
        const auto& base = t == 0 ? jpeg::LumaDivisors(1) : jpeg::ChromaDivisors();
        for (size_t i = 0; i < 64; ++i)
            tables[i] = std::clamp((base[i] * quality + 25) / 50, 2u, 255u);
        jpeg_add_quant_table(&info, t, tables, 100, TRUE);
    }
    jpeg_start_compress(&info, TRUE);
    while (info.next_scanline < kHeight) {
        JSAMPROW rows[3][16];
        JSAMPARRAY all[3] = {rows[0], rows[1], rows[2]};
        for (uint32_t c = 0; c < 3; ++c)
            for (uint32_t r = 0; r < (c == 0 ? 16u : 8u); ++r)
                rows[c][r] = const_cast<uint8_t*>(picture.planes[c].data()) +
                             size_t{(c == 0 ? info.next_scanline : info.next_scanline / 2) + r} * (c == 0 ? kWidth : kWidth / 2);
        jpeg_write_raw_data(&info, all, 16);
    }
    jpeg_finish_compress(&info);
    peerBytes = size;
    jpeg_destroy_compress(&info);
}

double LumaPsnr(size_t bytes, const Picture& picture) {
    jpeg_decompress_struct info;
    jpeg_error_mgr errors;
    info.err = jpeg_std_error(&errors);
    jpeg_create_decompress(&info);
    jpeg_mem_src(&info, output.data(), bytes);
    jpeg_read_header(&info, TRUE);
    info.out_color_space = JCS_GRAYSCALE;
    jpeg_start_decompress(&info);
    std::vector<uint8_t> row(kWidth);
    double sum = 0;
    while (info.output_scanline < kHeight) {
        const size_t y = info.output_scanline;
        JSAMPROW to = row.data();
        jpeg_read_scanlines(&info, &to, 1);
        for (size_t x = 0; x < kWidth; ++x) {
            const double d = row[x] - picture.planes[0][y * kWidth + x];
            sum += d * d;
        }
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return 10 * std::log10(255.0 * 255 * kWidth * kHeight / sum);
}

}    // namespace

int main(int argc, char** argv) {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 40;
    if (argc > 2 && !bench::CapTargets(argv[2]))
        return 2;
    std::printf("ours / libjpeg-turbo | median minima  ours ms |  KB ours  peer | PSNR ours  peer | goal\n");
    for (const auto& [kind, name] : {std::pair{Kind::Photograph, "photograph"}, {Kind::Noisy, "noisy"}, {Kind::Flat, "flat"}}) {
        std::vector<Picture> ring(12, Make(kind, 1));
        for (size_t i = 0; i < ring.size(); ++i)    // each begins at another row
            for (auto& plane : ring[i].planes)
                std::rotate(plane.begin(), plane.begin() + static_cast<ptrdiff_t>(plane.size() / 34 * i), plane.end());
        for (const auto& [quality, label] : {std::pair{25u, "75"}, {10u, "90"}}) {    // what the peer calls 75 and 90
            bench::Contest<Picture> contest{name, "", [q = quality](const Picture& p) { Ours(p, q); },
                                            {{"libjpeg-turbo", [q = quality](const Picture& p) { Peer(p, q); }}}};
            const auto figures = bench::Measure(contest, ring, rounds);
            Peer(ring[0], quality);
            const double peerPsnr = LumaPsnr(peerBytes, ring[0]);
            Ours(ring[0], quality);
            const double oursPsnr = LumaPsnr(oursBytes, ring[0]);
            const char* goal = kind == Kind::Noisy ? "0.92" : kind == Kind::Flat ? "0.65" : quality == 25 ? "0.80" : "0.88";
            std::printf("%-12s at %s    |  %5.2f  %5.2f    %5.2f | %7zu %7zu |  %6.2f %6.2f | %s\n", name, label,
                        figures.medianRatio, figures.minimumRatio, figures.oursMs, oursBytes / 1024, peerBytes / 1024, oursPsnr,
                        peerPsnr, goal);
            std::fflush(stdout);
        }
    }
    return 0;
}
