// The JPEG encoder beside libjpeg-turbo: 1920x1080, 4:2:0, one thread, whole streams from planes, over a ring of
// pictures larger than the cache. The same luma and chroma tables on both sides, so that sizes and quality are alike.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "Contest.h"
#include "LibjpegPeer.h"
#include "picture/jpeg/JpegEncoder.h"
#include "picture/jpeg/JpegTables.h"

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

// Smooth noise of one wavelength, -1 to 1.
class Lattice {
public:
    explicit Lattice(uint32_t seed) {
        std::mt19937 random(seed);
        for (float& value : m_values)
            value = static_cast<float>(random() % 20001) / 10000 - 1;
    }
    double At(double x, double y) const {
        const auto left = static_cast<uint32_t>(x), top = static_cast<uint32_t>(y);
        const double across = x - left, down = y - top;
        return (Node(left, top) * (1 - across) + Node(left + 1, top) * across) * (1 - down) +
               (Node(left, top + 1) * (1 - across) + Node(left + 1, top + 1) * across) * down;
    }

private:
    double Node(uint32_t x, uint32_t y) const { return m_values[(x * 73u + y * 179u + x * y % 61u) % kNodes]; }
    static constexpr uint32_t kNodes = 4093;
    float m_values[kNodes];
};

// One colour of a scene: things of all sizes that cover each other (edges, and the 1/f spectrum that photographs have),
// shaded, some of them textured in all wavelengths alike, seen through a lens that blurs a little.
std::vector<float> Scene(uint32_t colour, uint32_t seed) {
    struct Leaf {
        float level, texture, shade;
    };
    std::mt19937 random(seed);
    std::mt19937 levels(seed * 3 + colour);
    std::vector<Leaf> leaves;
    std::vector<uint16_t> owner(size_t{kWidth} * kRows);
    const double spread = colour == 0 ? 75 : 22;
    for (int i = 0; i < 20000; ++i) {
        const double u = random() % 10000 / 10000.0;
        const double radius = 6 / std::sqrt(1 - u * (1 - 1 / 2500.0));    // 6 to 300, as the inverse cube
        const double cx = random() % kWidth, cy = random() % kRows, flat = 0.5 + random() % 100 / 100.0;
        const bool textured = random() % 3 != 0;
        const auto unit = [&] { return static_cast<float>(levels() % 2001) / 1000 - 1; };
        leaves.push_back(
            {static_cast<float>(spread) * unit(), textured && colour == 0 ? 20 + 12 * unit() : 0, unit() / 30});
        for (double y = std::max(0.0, cy - radius); y < std::min<double>(kRows, cy + radius); ++y)
            for (double x = std::max(0.0, cx - radius * flat); x < std::min<double>(kWidth, cx + radius * flat); ++x)
                if (std::pow((x - cx) / flat, 2) + std::pow(y - cy, 2) < radius * radius)
                    owner[size_t{static_cast<uint32_t>(y)} * kWidth + static_cast<uint32_t>(x)] =
                        static_cast<uint16_t>(i);
    }
    const Lattice lattice(seed + 7);
    std::vector<float> sharp(owner.size());
    for (uint32_t y = 0; y < kRows; ++y)
        for (uint32_t x = 0; x < kWidth; ++x) {
            const Leaf& leaf = leaves[owner[size_t{y} * kWidth + x]];
            double level = 128 + leaf.level + leaf.shade * (colour == 0 ? y * 0.5 + x * 0.3 : 0);
            for (double wave = 2; leaf.texture > 0 && wave < 64; wave *= 2)
                level += leaf.texture * lattice.At(x / wave, y / wave);
            sharp[size_t{y} * kWidth + x] = static_cast<float>(level);
        }
    std::vector<float> soft = sharp;
    constexpr float kLens[3] = {1, 4, 1};
    for (uint32_t y = 1; y + 1 < kRows; ++y)
        for (uint32_t x = 1; x + 1 < kWidth; ++x) {
            float sum = 0;
            for (uint32_t i = 0; i < 9; ++i)
                sum += kLens[i / 3] * kLens[i % 3] * sharp[size_t{y + i / 3 - 1} * kWidth + x + i % 3 - 1];
            soft[size_t{y} * kWidth + x] = sum / 36;
        }
    return soft;
}

// Areas and a few edges.
std::vector<float> Areas(uint32_t colour, uint32_t seed) {
    std::vector<float> level(size_t{kWidth} * kRows);
    for (uint32_t y = 0; y < kRows; ++y)
        for (uint32_t x = 0; x < kWidth; ++x)
            level[size_t{y} * kWidth + x] = static_cast<float>(
                128 +
                40 * std::sin(x / 600.0 + seed + colour + 2 * std::sin(y / 860.0)) * std::cos(y / 545.0 + colour) +
                ((static_cast<uint32_t>(x + 0.3 * y) / 170 + y / 120) % 3 == 0 ? colour == 0 ? 45 : 12 : 0));
    return level;
}

// With the noise of a sensor: little in the photograph, much in the noisy picture.
Picture Make(Kind kind, uint32_t seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> noise(0, kind == Kind::Noisy ? 6 : kind == Kind::Photograph ? 1 : 0.01f);
    Picture picture;
    for (uint32_t c = 0; c < 3; ++c) {
        const std::vector<float> scene = kind == Kind::Flat ? Areas(c, seed) : Scene(c, seed);
        const uint32_t scale = c == 0 ? 1 : 2;
        for (uint32_t y = 0; y < kRows; y += scale)
            for (uint32_t x = 0; x < kWidth; x += scale)
                picture.planes[c].push_back(static_cast<uint8_t>(std::clamp(
                    scene[size_t{y} * kWidth + x] + noise(random) / static_cast<float>(scale), 0.0f, 255.0f)));
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
    unsigned tables[2][64];
    for (int t = 0; t < 2; ++t) {
        const auto& base = t == 0 ? jpeg::LumaDivisors(1) : jpeg::ChromaDivisors();
        for (size_t i = 0; i < 64; ++i)
            tables[t][i] = std::clamp((base[i] * quality + 25) / 50, 2u, 255u);
    }
    peerBytes = bench::EncodeByLibjpeg(
        {{picture.planes[0].data(), picture.planes[1].data(), picture.planes[2].data()}, kWidth, kHeight}, tables,
        output);
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
    for (const auto& [kind, name] :
         {std::pair{Kind::Photograph, "photograph"}, {Kind::Noisy, "noisy"}, {Kind::Flat, "flat"}}) {
        std::vector<Picture> ring(12, Make(kind, 1));
        for (size_t i = 0; i < ring.size(); ++i)    // each begins at another row
            for (auto& plane : ring[i].planes)
                std::rotate(plane.begin(), plane.begin() + static_cast<ptrdiff_t>(plane.size() / 34 * i), plane.end());
        for (const auto& [quality, label] : {std::pair{25u, "75"}, {10u, "90"}}) {    // 75 and 90 of the peer
            bench::Contest<Picture> contest{name,
                                            "",
                                            [q = quality](const Picture& p) { Ours(p, q); },
                                            {{"libjpeg-turbo", [q = quality](const Picture& p) { Peer(p, q); }}}};
            const auto figures = bench::Measure(contest, ring, rounds);
            Peer(ring[0], quality);
            const double peerPsnr = LumaPsnr(peerBytes, ring[0]);
            Ours(ring[0], quality);
            const double oursPsnr = LumaPsnr(oursBytes, ring[0]);
            const char* goal = kind == Kind::Noisy  ? "0.92"
                               : kind == Kind::Flat ? "0.65"
                               : quality == 25      ? "0.80"
                                                    : "0.88";
            std::printf("%-12s at %s    |  %5.2f  %5.2f    %5.2f | %7zu %7zu |  %6.2f %6.2f | %s\n", name, label,
                        figures.medianRatio, figures.minimumRatio, figures.oursMs, oursBytes / 1024, peerBytes / 1024,
                        oursPsnr, peerPsnr, goal);
            std::fflush(stdout);
        }
    }
    return 0;
}
