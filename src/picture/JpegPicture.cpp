#include "picture/JpegPicture.h"

#include <algorithm>
#include <cstring>

#include "base/AlignedBuffer.h"
#include "picture/JpegEncoder.h"

namespace corvane {

namespace {

constexpr uint64_t kHeaderRoom = 1024;             // more than the headers of a file without a comment
constexpr uint32_t kCoarsestQuality = 1u << 20;    // from far below this on all divisors are at their limit

constexpr uint32_t RoundedUpTo16(uint32_t value) {
    return (value + 15) & ~15u;
}

// Both colour planes of an odd-sized picture, with the column and row that it lacks: the last one again, or no colour
// where there is none.
class CompletedChroma {
public:
    bool Make(const uint8_t* u, const uint8_t* v, uint32_t step, uint32_t width, uint32_t height) {
        m_step = step;
        m_rows = (height + 1) / 2;
        if (!m_memory.Allocate(2 * size_t{step} * m_rows))
            return false;
        Complete(Plane(0), u, width, height);
        Complete(Plane(1), v, width, height);
        return true;
    }
    uint8_t* Plane(uint32_t index) const { return m_memory.Data() + size_t{m_step} * m_rows * index; }

private:
    void Complete(uint8_t* to, const uint8_t* from, uint32_t width, uint32_t height) const {
        const size_t columns = width / 2;
        const size_t rows = height / 2;
        if (columns == 0 || rows == 0) {
            std::memset(to, 128, size_t{m_step} * m_rows);
            return;
        }
        for (size_t row = 0; row < m_rows; ++row) {
            uint8_t* const line = to + m_step * row;
            std::memcpy(line, from + m_step * std::min(row, rows - 1), columns);
            if (columns < m_step)
                line[columns] = line[columns - 1];
        }
    }

    AlignedBuffer m_memory;
    uint32_t m_step = 0;
    uint32_t m_rows = 0;
};

JPEGEncOptions OptionsFor(const JpegPicture& picture, uint32_t quality) {
    JPEGEncOptions options{};
    options.Version = JPEGENC_VERSION;
    options.EncodingWidth = picture.width;
    options.EncodingHeight = options.InputHeight = RoundedUpTo16(picture.height);
    options.InputWidth = picture.stride;
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

uint64_t JpegPictureCapacity(uint32_t width, uint32_t height) {
    return kHeaderRoom + uint64_t{4} * RoundedUpTo16(width) * RoundedUpTo16(height);
}

uint32_t WriteJpegPicture(const JpegPicture& picture, uint32_t quality, uint8_t* out, uint64_t capacity) {
    const size_t luma = size_t{picture.stride} * picture.height;
    const uint8_t* u = picture.data + luma;
    const uint8_t* v = u + luma / 4;
    CompletedChroma completed;
    if (picture.width % 2 != 0 || picture.height % 2 != 0) {
        if (!completed.Make(u, v, picture.stride / 2, picture.width, picture.height))
            return 0;
        u = completed.Plane(0);
        v = completed.Plane(1);
    }
    const auto encoder = JpegEncoder::Create(OptionsFor(picture, quality));
    const JPEGEncRequest requests[] = {{JPEGENC_OUTPUT, 0, Address(out), capacity, 0},
                                       {JPEGENC_PLANES, 0, Address(picture.data), Address(u), Address(v)},
                                       {JPEGENC_ENCODING_SIZE, 0, picture.width, picture.height, 0}};
    if (encoder == nullptr)
        return 0;
    for (const JPEGEncRequest& request : requests)
        if (!Ok(encoder->SetOptions(request)))
            return 0;
    JPEGEncFrame frame{};
    return Ok(encoder->OneFrame(frame)) ? frame.EncodedBytes : 0;
}

}    // namespace corvane
