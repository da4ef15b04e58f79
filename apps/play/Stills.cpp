#include "Stills.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <optional>

#include "PngFile.h"
#include "Wall.h"
#include "corvane/corvane.h"

namespace {

constexpr size_t kBmpHeader = 54;    // bytes before the rows; the bottom row comes first

constexpr std::chrono::milliseconds kPatience(500);

constexpr struct {
    StillFormat format;
    const char* extension;
    uint32_t picture;    // of CORVANE_PICTURE_*
} kStills[] = {
    {StillFormat::Png, "png", CORVANE_PICTURE_BMP_BGRA32},    // which becomes a PNG file here
    {StillFormat::Jpeg, "jpg", CORVANE_PICTURE_JPEG},
    {StillFormat::Bmp, "bmp", CORVANE_PICTURE_BMP_BGR24},
    {StillFormat::Raw, "yuv", CORVANE_PICTURE_I420},
};

const auto& EntryOf(StillFormat format) {
    return *std::ranges::find(kStills, format, [](const auto& entry) { return entry.format; });
}

// Owns a picture that the library allocated.
class Snapshot {
public:
    // With CORVANE_STILL_AS: the part of the decoded picture that is zoomed into.
    Snapshot(void* channel, uint32_t flags) : m_status(Corvane_GetZoomedSnapShot(channel, &m_picture, flags)) {}
    ~Snapshot() {
        if (m_status == Status_Ok)
            Corvane_FreePicture(&m_picture);
    }
    Snapshot(const Snapshot&) = delete;
    Snapshot& operator=(const Snapshot&) = delete;

    uint32_t Status() const { return m_status; }
    const PictureBuffer& Picture() const { return m_picture; }
    // Whether it is a BMP file of 32 bits a pixel with all its rows.
    bool Whole() const {
        return m_status == Status_Ok && m_picture.width != 0 && m_picture.height != 0 &&
               m_picture.size >= kBmpHeader + size_t{4} * m_picture.width * m_picture.height;
    }
    bool HasSizeOf(const Box& box) const { return m_picture.width == box.width && m_picture.height == box.height; }

private:
    PictureBuffer m_picture{};
    uint32_t m_status;
};

// Copies the picture of a BMP file, top row first, to (left, top) of the canvas, clipped to the canvas.
void Paste(const PictureBuffer& bmp, Canvas& canvas, uint32_t left, uint32_t top) {
    if (left >= canvas.width || top >= canvas.height)
        return;
    const uint32_t columns = std::min(bmp.width, canvas.width - left);
    const uint32_t rows = std::min(bmp.height, canvas.height - top);
    for (uint32_t row = 0; row < rows; ++row)
        std::memcpy(&canvas.pixels[size_t{top + row} * canvas.width + left],
                    bmp.data + kBmpHeader + size_t{4} * bmp.width * (bmp.height - 1 - row), size_t{4} * columns);
}

bool WriteBytes(const std::string& path, const PictureBuffer& picture) {
    FILE* const file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        return false;
    const bool written = std::fwrite(picture.data, 1, picture.size, file) == picture.size;
    return std::fclose(file) == 0 && written;
}

}    // namespace

const char* ExtensionOf(StillFormat format) {
    return EntryOf(format).extension;
}

bool WriteStill(void* channel, StillFormat format, const std::string& path, std::string& error) {
    const Snapshot still(channel, CORVANE_STILL_AS(EntryOf(format).picture));
    if (still.Status() != Status_Ok) {
        error = path + ": there is no picture";
        return false;
    }
    bool written = false;
    if (format != StillFormat::Png) {
        written = WriteBytes(path, still.Picture());
    } else if (still.Whole()) {
        Canvas canvas(still.Picture().width, still.Picture().height);
        Paste(still.Picture(), canvas, 0, 0);
        written = WritePng(path, canvas);
    }
    if (!written)
        error = path + ": cannot be written";
    return written;
}

bool WriteScreenshot(Wall& wall, const std::string& path, std::string& error) {
    Canvas canvas(wall.TheWindow().Width(), wall.TheWindow().Height());
    const auto patience = std::chrono::steady_clock::now() + kPatience;
    bool read = false;
    for (size_t i = 0; i < wall.Count(); ++i) {
        const ChannelView& view = wall.View(i);
        std::optional<Snapshot> taken;
        do    // the library learns of a new size a little later than the player
            taken.emplace(view.Channel(), CORVANE_STILL_WINDOW);
        while (taken->Whole() && !taken->HasSizeOf(view.Place()) && std::chrono::steady_clock::now() < patience);
        const Snapshot& grab = *taken;
        if (!grab.Whole())
            continue;    // this channel is not shown now
        Paste(grab.Picture(), canvas, static_cast<uint32_t>(view.Place().x), static_cast<uint32_t>(view.Place().y));
        read = true;
    }
    if (!read)
        error = path + ": the window cannot be read";
    else if (!WritePng(path, canvas))
        error = path + ": cannot be written";
    return error.empty();
}

std::string FreeName(const char* extension) {
    char name[48];
    for (unsigned number = 1;; ++number) {
        std::snprintf(name, sizeof(name), "corvane-%03u.%s", number, extension);
        std::error_code failed;    // a directory that cannot be read: the write will report it
        if (!std::filesystem::exists(name, failed))
            return name;
    }
}
