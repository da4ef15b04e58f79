#include "picture/jpeg/JpegPicture.h"

#include <algorithm>
#include <cstring>

namespace corvane {

namespace {

constexpr uint64_t kHeaderRoom = 1024;             // more than the headers of a file without a comment
constexpr uint32_t kCoarsestQuality = 1u << 20;    // from far below this on all divisors are at their limit

constexpr uint32_t RoundedUpTo16(uint32_t value) {
    return (value + 15) & ~15u;
}

JPEGEncOptions OptionsFor(const ConstPictureView& picture, uint32_t quality) {
    JPEGEncOptions options{};
    options.Version = JPEGENC_VERSION;
    options.EncodingWidth = picture.size.width;
    options.EncodingHeight = options.InputHeight = RoundedUpTo16(picture.size.height);
    options.InputWidth = static_cast<uint32_t>(picture.stride[0]);
    options.Quality = std::min(quality, kCoarsestQuality);
    options.Interleaved = 1;
    options.Colour = 1;
    options.Subsampling = 1;
    options.PackerMode = 1;
    return options;
}

uint64_t Address(const void* pointer) {
    return reinterpret_cast<uintptr_t>(pointer);
}

}    // namespace

uint64_t JpegPictureCapacity(PictureSize size) {
    return kHeaderRoom + uint64_t{4} * RoundedUpTo16(size.width) * RoundedUpTo16(size.height);
}

// Samples of noise at the extremes take 3.4 bytes a pixel, with the divisors all 1. Blocks that repeat the last column
// or row take less than the rounding up to 8 allows for.
uint64_t JpegPictureMost(PictureSize size) {
    const auto whole = [](uint32_t side) { return uint64_t{side + 7} & ~uint64_t{7}; };
    return kHeaderRoom + whole(size.width) * whole(size.height) * 15 / 4;
}

bool JpegWriter::Prepare(const ConstPictureView& picture, uint32_t quality) {
    m_picture = picture;
    const auto [width, height] = picture.size;
    if ((width % 2 != 0 || height % 2 != 0) &&
        !m_completed.Allocate(static_cast<size_t>(picture.stride[0]) * ((height + 1) / 2)))
        return false;
    m_encoder = JpegEncoder::Create(OptionsFor(picture, quality));
    return m_encoder != nullptr;
}

// A chroma plane with the column and row that an odd size lacks: copies of the last ones, or no colour where there are
// none.
const uint8_t* JpegWriter::CompletedPlane(int index) {
    const uint8_t* const from = m_picture.plane[index];
    const auto step = static_cast<size_t>(m_picture.stride[index]);
    const size_t lines = (m_picture.size.height + 1) / 2;
    const size_t columns = m_picture.size.width / 2;
    const size_t rows = m_picture.size.height / 2;
    uint8_t* const plane = m_completed.Data() + (index == 1 ? 0 : step * lines);
    if (columns == 0 || rows == 0) {
        std::memset(plane, 128, step * lines);
        return plane;
    }
    for (size_t line = 0; line < lines; ++line) {
        uint8_t* const to = plane + step * line;
        std::memcpy(to, from + step * std::min(line, rows - 1), columns);
        if (columns < step)
            to[columns] = to[columns - 1];
    }
    return plane;
}

uint32_t JpegWriter::Write(uint8_t* out, uint64_t capacity) {
    const uint8_t* const u = m_completed ? CompletedPlane(1) : m_picture.plane[1];
    const uint8_t* const v = m_completed ? CompletedPlane(2) : m_picture.plane[2];
    const JPEGEncRequest requests[] = {{JPEGENC_OUTPUT, 0, Address(out), capacity, 0},
                                       {JPEGENC_PLANES, 0, Address(m_picture.plane[0]), Address(u), Address(v)},
                                       {JPEGENC_ENCODING_SIZE, 0, m_picture.size.width, m_picture.size.height, 0}};
    for (const JPEGEncRequest& request : requests)
        if (!Ok(m_encoder->SetOptions(request)))
            return 0;
    JPEGEncFrame frame{};
    return Ok(m_encoder->OneFrame(frame)) ? frame.EncodedBytes : 0;
}

}    // namespace corvane
