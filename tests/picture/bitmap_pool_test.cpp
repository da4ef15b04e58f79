#include <cairo.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "base/FailurePoint.h"
#include "picture/BitmapPool.h"
#include "picture/BmpFile.h"
#include "platform/raster/DrawContext.h"
#include "support/Testing.h"

namespace corvane {
namespace {

Raster Picture(uint32_t width, uint32_t height, uint32_t color) {
    Raster raster;
    EXPECT_TRUE(raster.Resize(width, height));
    Fill(raster.View(), raster.View().Bounds(), color);
    return raster;
}

TEST(BitmapPool, SharesEqualPictures) {
    ASSERT_EQ(BitmapPool::Count(), 0u);
    BitmapPtr first = BitmapPool::Add(Picture(4, 3, 0x112233));
    Raster otherX = Picture(4, 3, 0x112233);
    otherX.View().plane[0][3] = 0;
    EXPECT_EQ(BitmapPool::Add(std::move(otherX)), first);
    Raster lastPixel = Picture(4, 3, 0x112233);
    lastPixel.View().plane[0][2 * lastPixel.View().stride[0] + 13] ^= 1;
    const BitmapPtr second = BitmapPool::Add(std::move(lastPixel));
    const BitmapPtr turned = BitmapPool::Add(Picture(3, 4, 0x112233));
    EXPECT_EQ(BitmapPool::Count(), 3u);
    first.reset();
    EXPECT_EQ(BitmapPool::Count(), 2u);
    const BitmapPtr again = BitmapPool::Add(Picture(4, 3, 0x112233));
    EXPECT_EQ(BitmapPool::Count(), 3u);
    EXPECT_EQ(again->View().plane[0][0], 0x11);
}

TEST(BitmapPool, TwoThreadsAddAndRelease) {
    const auto work = [] {
        for (uint32_t i = 0; i < 2000; ++i) {
            const BitmapPtr one = BitmapPool::Add(Picture(2, 2, i % 3));
            const BitmapPtr other = BitmapPool::Add(Picture(2, 2, i % 3));
            if (one != other || one->View().plane[0][2] != i % 3)
                ADD_FAILURE() << i;
        }
    };
    std::thread second(work);
    work();
    second.join();
    EXPECT_EQ(BitmapPool::Count(), 0u);
}

TEST(BitmapPool, FilesAndSurfacesOfEqualPixelsAreOne) {
    const std::filesystem::path folder = testing::TempDir() + "corvane_pool_" + std::to_string(getpid());
    std::filesystem::create_directories(folder);
    const std::string bmp = folder / "a.picture", png = folder / "b.picture", pipe = folder / "pipe";
    Raster picture = Picture(6, 5, 0x405060);    // 0x00BBGGRR
    Fill(picture.View(), {0, 0, 6, 1}, 0x0000FF);
    picture.View().plane[0][3] = 0xFF;
    std::string bytes(BmpBytes(6, 5), 0);
    WriteBmp(picture.View(), reinterpret_cast<uint8_t*>(bytes.data()));
    EXPECT_EQ(bytes[54 + 4 * 6 * 4 + 3], 0) << "the byte that is not used";
    std::ofstream(bmp, std::ios::binary) << bytes;
    cairo_surface_t* const surface = cairo_image_surface_create_for_data(picture.View().Memory(), CAIRO_FORMAT_RGB24, 6,
                                                                         5, static_cast<int>(picture.View().stride[0]));
    ASSERT_EQ(cairo_surface_write_to_png(surface, png.c_str()), CAIRO_STATUS_SUCCESS);

    BitmapPtr loaded, copied, none;
    EXPECT_EQ(BitmapPool::Copy(surface, copied), Status::Ok);
    cairo_surface_destroy(surface);
    const BitmapPtr wanted = BitmapPool::Add(std::move(picture));
    EXPECT_EQ(copied, wanted);
    for (const std::string& path : {bmp, png}) {
        EXPECT_EQ(BitmapPool::Load(path.c_str(), loaded), Status::Ok);
        EXPECT_EQ(loaded, wanted) << path;
    }
    for (uint64_t n = 1;; ++n) {    // each fallible call in turn
        ASSERT_LT(n, 50u);
        failure::Arm(static_cast<uint32_t>(failure::Site::PlatformCall), n, false);
        const Status status = BitmapPool::Load(png.c_str(), loaded);
        const bool drawn = DrawContext(wanted->View(), 2, 2).Get() != nullptr;
        const uint64_t hits = failure::Hits();
        failure::Disarm();
        EXPECT_EQ(Ok(status) && drawn, hits < n) << n;
        if (hits < n)
            break;
    }

    std::ifstream stream(png, std::ios::binary);
    const std::string good{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    for (const auto& [name, content] : {std::pair{"text", std::string("BM, but no picture")},
                                        {"cut", good.substr(0, good.size() / 2)},
                                        {"2 thousand million columns", std::string(good).replace(16, 1, "\x7F")}}) {
        std::ofstream(folder / name, std::ios::binary) << content;
        EXPECT_EQ(BitmapPool::Load((folder / name).c_str(), none), Status::Failed) << name;
    }
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    for (const std::string& path : {pipe, folder.string(), bmp + "x", std::string("/dev/zero"), std::string()})
        EXPECT_EQ(BitmapPool::Load(path.c_str(), none), Status::Failed) << path;
    EXPECT_EQ(BitmapPool::Load(nullptr, none), Status::Failed);
    EXPECT_EQ(BitmapPool::Copy(nullptr, none), Status::Failed);
    EXPECT_EQ(none, nullptr);
    std::filesystem::remove_all(folder);
}

}    // namespace
}    // namespace corvane
