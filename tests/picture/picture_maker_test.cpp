#include "base/PictureLayout.h"
#include "picture/OverlayBlend.h"
#include "picture/PictureMaker.h"
#include "platform/raster/Raster.h"
#include "support/Digest.h"
#include "support/GuardedBytes.h"
#include "support/Testing.h"

namespace corvane {
namespace {

// The format of the memory that a view lies in.
uint32_t InMemory(const PictureView& view) {
    if (view.ThreePlanes())
        return view.plane[1] < view.plane[2] ? PF_I420 : PF_YV12;
    if (view.stride[0] < 0)
        return view.format == PF_BGR24 ? PF_BGR24_FLIP : PF_BGRA32_FLIP;
    return view.format;
}

// What each public format lends, and what it gives out of it behind a prefix: raw pixels without the padding, files of
// bitmaps, a JPEG picture; of odd sizes too. The digests were taken while each raw format equalled a plain form, the
// files read back and the JPEG pictures kept their colours.
TEST(PictureMaker, OutputsStayTheSame) {
    constexpr uint64_t kDigests[] = {// of formats 1 to 18
                                     0x96AC99ED808B8A2F, 0xC4F0A53B13734753, 0x3CF46D6D0ED7734E, 0x3B5B45E9447463B6,
                                     0x04AE369D50326520, 0x9D160397F0E43B1B, 0xD49DF4824DD46C5D, 0xF18D214AE40EB27E,
                                     0xADE686462204A4E9, 0x1417EC2275394E06, 0x9922C2E26E186D82, 0x053C9EDDA74FFD49,
                                     0x8B51D61913B3A5CE, 0xCDF4AA155699C896, 0x7D4FCC9CA2428887, 0x7562FFFDA7F0B6B2,
                                     0xFD16BE56A179E635, 0xE98FD3158ABD2E34};
    EXPECT_EQ(MakePicture(0, AlignedBuffer::Use::Brief), nullptr);
    EXPECT_EQ(MakePicture(19, AlignedBuffer::Use::Brief), nullptr);
    for (uint32_t number = 1; number <= 18; ++number) {
        test::Digest digest;
        for (const auto& [width, height] : {std::pair(1u, 1u), {2u, 1u}, {5u, 7u}, {66u, 16u}, {33u, 3u}, {65u, 31u}}) {
            SCOPED_TRACE(testing::Message() << number << " " << width << "x" << height);
            const PictureMakerPtr maker = MakePicture(number, AlignedBuffer::Use::Brief);
            ASSERT_NE(maker, nullptr);
            EXPECT_EQ(maker->GetData(), nullptr);
            maker->SetQuality(60);
            maker->SetPrefix(3);
            PictureView lent, again;
            ASSERT_EQ(maker->GetBuffer({width, height}, lent), Status::Ok);
            const uint32_t format = InMemory(lent);
            digest.Note(format, static_cast<uint32_t>(std::abs(lent.stride[0])));
            EXPECT_EQ(maker->TakesOverlay(), format == PF_I420 || format == PF_BGR24_FLIP);
            for (size_t i = 0; i < PictureBytes(format, width, height); ++i)
                lent.Memory()[i] = static_cast<uint8_t>(i * 7 + i / 251 + 1);    // padding included
            EXPECT_EQ(maker->Make(), Status::Ok);
            digest.NoteEach(std::span(maker->GetData(), maker->GetSize()));
            // Asked again it lends the same memory and gives the same out, and a size that is refused changes nothing.
            const uint8_t* const output = maker->GetData();
            EXPECT_EQ(maker->GetBuffer({width, height}, again), Status::Ok);
            EXPECT_EQ(again.plane[0], lent.plane[0]);
            EXPECT_EQ(maker->Make(), Status::Ok);
            EXPECT_EQ(maker->GetData(), output);
            for (const auto& [badWidth, badHeight] : {std::pair{16385u, 1u}, {0u, 16u}})
                EXPECT_EQ(maker->GetBuffer({badWidth, badHeight}, again), Status::Failed);
            EXPECT_TRUE(maker->GetWidth() == width && maker->GetHeight() == height);
        }
        // Both ways to make an output give the same, also where the buffer is a part of it.
        const PictureMakerPtr maker = MakePicture(number, AlignedBuffer::Use::Kept);
        for (const auto& [width, height] : {std::pair(128u, 6u), {64u, 31u}}) {
            PictureView lent;
            maker->SetPrefix(0);
            ASSERT_EQ(maker->GetBuffer({width, height}, lent), Status::Ok);
            EXPECT_EQ(maker->GetData(), nullptr) << "not made yet";
            for (size_t i = 0; i < PictureBytes(InMemory(lent), width, height); ++i)
                lent.Memory()[i] = static_cast<uint8_t>(i * 11 + i / 253);
            EXPECT_EQ(maker->Make(), Status::Ok);
            std::vector<uint8_t> made(maker->GetData(), maker->GetData() + maker->GetSize()), written(made);
            const PictureSize size{width, height};
            EXPECT_EQ(maker->FixedSize(size), number == CORVANE_PICTURE_JPEG ? 0 : made.size());
            EXPECT_LE(made.size(), maker->MostBytes(size));
            if (maker->FixedSize(size) != 0)
                maker->MakeInto(written.data());
            EXPECT_TRUE(made == written) << number << " " << height;
            // The third way: the picture is written where the output is.
            std::vector<uint8_t> over(3 + made.size(), 0xEE);
            maker->SetPrefix(3);
            const PictureView view = maker->Over(size, over.data());
            EXPECT_TRUE(view || number == CORVANE_PICTURE_JPEG || height % 2 != 0) << number;
            if (!view)
                continue;
            std::memcpy(view.Memory(), lent.Memory(), PictureBytes(InMemory(lent), width, height));
            made.insert(made.begin(), 3, 0);
            EXPECT_TRUE(made == over) << number << " " << height;
        }
        EXPECT_EQ(digest.value, kDigests[number - 1]) << number;
    }
}

TEST(OverlayBlend, DrawnPixelsReplace) {
    Raster drawing;
    ASSERT_TRUE(drawing.Resize(5, 3));    // odd: the last row and column of PF_I420 are not touched
    std::vector<uint8_t> bgr(16 * 3, 9), wanted = bgr;
    const struct {
        uint32_t x, y, pixel;
        bool drawn = true;
    } dots[] = {{0, 0, 0xFFFF0000},           // red
                {1, 0, 0xFF000000, false},    // black with cairo's alpha
                {3, 1, 0xFF00FF00},           // green
                {2, 1, 0xFF000001},           // too dark for the luma
                {4, 1, 0xFFFFFFFF},           // in the column and the row that odd sizes lose
                {3, 2, 0xFFFFFFFF}};
    for (const auto& dot : dots) {
        std::memcpy(drawing.View().At(dot.x, dot.y), &dot.pixel, 4);
        if (dot.drawn)
            std::memcpy(&wanted[(2 - dot.y) * 16 + 3 * dot.x], &dot.pixel, 3);
    }
    const auto blended = [&](const std::vector<uint8_t>& picture, uint32_t stride, uint32_t format) {
        const test::GuardedBytes memory(picture);
        BlendOverlay(drawing.View(), LayOut(memory.Data(), stride, {5, 3}, format));
        return std::vector<uint8_t>(memory.Data(), memory.Data() + picture.size());
    };
    EXPECT_EQ(blended(bgr, 16, PF_BGR24_FLIP), wanted);

    const size_t u = 64 * 3, v = u + 48;
    std::vector<uint8_t> planes(v + 48, 103);
    std::fill(planes.begin() + v, planes.end(), uint8_t{60});
    wanted = planes;
    wanted[0] = 76;
    wanted[64 + 3] = 150;
    wanted[u] = (85 + 3 * 103) / 4;    // the means leave remainders of 2 and 3
    wanted[v] = (255 + 3 * 60) / 4;
    wanted[u + 1] = (44 + 3 * 103) / 4;
    wanted[v + 1] = (21 + 3 * 60) / 4;
    EXPECT_EQ(blended(planes, 64, PF_I420), wanted);
}

}    // namespace
}    // namespace corvane
