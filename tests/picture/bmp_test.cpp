#include "picture/BmpFile.h"
#include "support/Digest.h"
#include "support/GuardedBytes.h"
#include "support/Testing.h"

namespace corvane {
namespace {

using Bytes = std::vector<uint8_t>;

// A file of a few pixels, which may end anywhere; one in five has a field that is wrong.
Bytes RandomFile(std::mt19937& random, uint32_t bits, uint32_t compression) {
    const auto upTo = [&](size_t most) { return static_cast<uint32_t>(random() % (most + 1)); };
    const auto oneOf = [&](const std::vector<uint32_t>& values) { return values[upTo(values.size() - 1)]; };
    const uint32_t headerBytes = oneOf({12, 40, 40, 52, 56, 64, 108, 124}), colors = upTo(1) == 0 ? 0 : upTo(300);
    const bool old = headerBytes == 12, runs = compression == 1 || compression == 2;
    const auto width = static_cast<int32_t>(1 + upTo(19)), height = static_cast<int32_t>(1 + upTo(4));
    Bytes out(14 + headerBytes);
    const auto put = [&](size_t at, auto value, size_t count) { std::memcpy(out.data() + at, &value, count); };
    put(0, 0x4D42, 2);
    put(14, headerBytes, 4);
    put(18, width, old ? 2 : 4);
    put(old ? 20 : 22, upTo(2) == 0 && !old ? -height : height, old ? 2 : 4);
    put(old ? 24 : 28, bits, 2);
    if (!old) {
        put(30, compression, 4);
        put(46, colors, 4);
    }
    if (compression == 3 || compression == 6) {
        const std::vector<std::vector<uint32_t>> masks = {
            {0xF800, 0x7E0, 0x1F}, {0x8000, 0, 0x7FF}, {0x3FF00000, 0xFFC00, 0x3FF}, {0xFF, 0xFF00, 0xFF0000}};
        const std::vector<uint32_t>& mask = masks[upTo(3)];
        out.resize(std::max<size_t>(out.size(), compression == 3 ? 66 : 70));
        for (size_t i = 0; i < 3; ++i)
            put(54 + 4 * i, mask[i], 4);
    }
    for (uint32_t left = bits > 8 ? upTo(2) : colors != 0 && !old ? colors : 1u << bits; left > 0; --left) {
        out.resize(out.size() + (old ? 3 : 4), 99);
        put(out.size() - (old ? 3 : 4), static_cast<uint32_t>(random()), 3);
    }
    put(10, upTo(1) == 0 ? 0 : out.size(), 4);
    for (uint32_t left = upTo(4) == 0 ? upTo(40) : (static_cast<uint32_t>(width) * bits + 31) / 32 * 4 * 5; left > 0;
         --left)
        out.push_back(
            static_cast<uint8_t>(runs && upTo(2) > 0 ? oneOf({0, 0, 1, 2, 2, 3, 4, 7, 0x12, 99, 200}) : random()));
    const uint32_t wrong = oneOf({0, 1, 2, 3, 4, 16, 39, 0x4142, 16385, 0x7FFFFFFF, 0x80000000, ~0u});
    if (upTo(4) == 0 && out.size() > 34)
        put(oneOf({0, 10, 14, 18, 22, 28, 30}), wrong, 4);
    if (upTo(9) == 0)
        out.resize(upTo(out.size()));
    return out;
}

// What comes of files of each kind: the status and all pixels, 0 where the file has none. The digests were taken while
// files that were put together by hand, whole and cut everywhere, showed what they had to.
TEST(Bmp, AnswersStayTheSame) {
    const struct {
        uint32_t bits, compression;
        uint64_t digest;
    } kinds[] = {{1, 0, 0xB43AAB15BFCAF82B},  {4, 0, 0x0BD05A795E217A3F},  {8, 0, 0x42BDC86F782D3FE7},
                 {16, 0, 0xC1E88734724B585E}, {24, 0, 0x2CC006EFB153D10B}, {32, 0, 0xB8FF62AF1785A397},
                 {8, 1, 0x725AB8D6763DBABD},  {4, 2, 0xFAF76953304318D0},  {16, 3, 0x3FFE61EC6FB9731D},
                 {32, 3, 0x53672BDEFCB02F07}, {32, 6, 0x210D19429C6DC8BE}, {24, 1, 0xADE5D5C04A7EEFB9}};
    for (const auto& kind : kinds) {
        std::mt19937 random(kind.bits + kind.compression);
        test::Digest digest;
        for (uint32_t turn = 0; turn < 3000; ++turn) {
            const Bytes bytes = RandomFile(random, kind.bits, kind.compression);
            const test::GuardedBytes file(bytes);
            Raster out;
            digest.Note(static_cast<uint32_t>(ReadBmp({file.Data(), bytes.size()}, out)));
            const PictureView& view = out.View();
            digest.Note(uint64_t{view.size.width} << 32 | view.size.height);
            for (uint32_t y = 0; y < view.size.height; ++y)
                digest.NoteEach(std::span(reinterpret_cast<const uint32_t*>(view.Row(y)), view.size.width));
        }
        EXPECT_EQ(digest.value, kind.digest) << kind.bits << " bits, compression " << kind.compression;
    }
}

}    // namespace
}    // namespace corvane
