#include "Screenshot.h"

#include <png.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <vector>

#include "corvane/corvane.h"

namespace {

constexpr size_t kBmpHeader = 54;    // bytes in front of the rows, which go from the bottom up

// The library's picture until the end of the scope.
class Snapshot {
public:
    explicit Snapshot(void* channel) : m_status(Corvane_GetCurrentSnapShot(channel, &m_picture, 0)) {}
    ~Snapshot() {
        if (m_status == Status_Ok)
            Corvane_FreePicture(&m_picture);
    }
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;

    bool Whole() const {
        return m_status == Status_Ok && m_picture.width != 0 && m_picture.height != 0 &&
               m_picture.size >= kBmpHeader + size_t{4} * m_picture.width * m_picture.height;
    }
    const PictureBuffer& Picture() const { return m_picture; }

private:
    PictureBuffer m_picture{};
    uint32_t m_status;
};

}    // namespace

bool WriteScreenshot(void* channel, const std::string& path, std::string& error) {
    const Snapshot snapshot(channel);
    if (!snapshot.Whole()) {
        error = path + ": the window cannot be read";
        return false;
    }
    const PictureBuffer& picture = snapshot.Picture();
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = picture.width;
    image.height = picture.height;
    image.format = PNG_FORMAT_BGR;
    const size_t stride = size_t{3} * picture.width;
    std::vector<uint8_t> rows(stride * picture.height);    // without the fourth bytes, which are no alpha
    for (size_t i = 0, pixels = size_t{picture.width} * picture.height; i < pixels; ++i)
        std::memcpy(&rows[3 * i], picture.data + kBmpHeader + 4 * i, 3);
    const uint8_t* const bottomUp = rows.data();
    if (png_image_write_to_file(&image, path.c_str(), 0, bottomUp, -static_cast<png_int_32>(stride), nullptr) == 0) {
        error = path + ": cannot be written";
        return false;
    }
    return true;
}

std::string FreeScreenshotName() {
    char name[32];
    for (int number = 1; number < 1000; ++number) {
        std::snprintf(name, sizeof(name), "corvane-%03d.png", number);
        if (!std::filesystem::exists(name))
            break;
    }
    return name;
}
