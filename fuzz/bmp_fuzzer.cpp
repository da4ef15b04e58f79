// Decodes the input as a BMP file, writes the picture as another one, and compares the picture read from that.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "picture/BmpFile.h"

namespace {

using namespace corvane;

// Headers may ask for a quarter of a gigabyte of black; such inputs take longer and find nothing more.
bool Small(const uint8_t* data, size_t size) {
    if (size < 26)
        return true;
    uint32_t width;
    uint32_t height;
    std::memcpy(&width, data + 18, 4);
    std::memcpy(&height, data + 22, 4);
    if (data[14] == 12) {
        height = width >> 16;
        width &= 0xFFFF;
    }
    return uint64_t{width} * static_cast<uint64_t>(std::llabs(static_cast<int32_t>(height))) <= 1u << 18;
}

}    // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Raster picture;
    if (!Small(data, size) || ReadBmp({data, size}, picture) != Status::Ok)
        return 0;
    const PictureView& view = picture.View();
    std::vector<uint8_t> file(BmpBytes(view.size.width, view.size.height));
    WriteBmp(view, file.data());
    Raster again;
    if (ReadBmp(file, again) != Status::Ok || again.View().Bounds() != view.Bounds())
        std::abort();
    for (uint32_t y = 0; y < view.size.height; ++y)
        if (std::memcmp(view.Row(y), again.View().Row(y), view.size.width * 4) != 0)
            std::abort();
    return 0;
}
