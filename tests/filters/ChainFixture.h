// Pictures, frames and filters for the tests of the chain.
#pragma once

#include <dlfcn.h>

#include <cstdint>
#include <random>
#include <stdexcept>
#include <vector>

#include "filters/FakeTessaro.h"
#include "filters/FilterChain.h"

namespace corvane::test {

using QMRX::Filter::FilterArgs;
using QMRX::Filter::IFilter;
using QMRX::Filter::Picture;

// A picture with memory of its own, laid out as the library lays out what it allocates.
struct Image {
    Image(uint32_t image_width, uint32_t image_height, uint32_t image_format)
        : width(image_width), height(image_height), format(image_format), stride(RowBytes(format, width)) {
        if (!memory.Allocate(PictureBytes(format, width, height)))
            throw std::bad_alloc();
        FillPicture(picture, memory.Data(), stride, height, format);
    }

    // The samples that show, plane by plane in the order of `picture`, without the ends of rows. Planes at half size
    // have height / 2 rows and width / 2 samples.
    std::vector<uint8_t> Visible() const {
        std::vector<uint8_t> bytes;
        for (int i = 0; i < 3 && picture.plane[i] != nullptr; ++i) {
            const bool packed = picture.plane[1] == nullptr;
            const uint32_t bits = format == PF_BGRA32 ? 32 : format == PF_BGR24 || format == PF_BGR24_FLIP ? 24 : 16;
            const uint32_t row_bytes = packed                        ? width * bits / 8
                                       : i == 0                      ? width
                                       : format == uint32_t{PF_NV12} ? width / 2 * 2
                                                                     : width / 2;
            for (uint32_t y = 0; y < (i == 0 ? height : height / 2); ++y) {
                const uint8_t* row = picture.plane[i] + size_t{y} * static_cast<size_t>(picture.stride[i]);
                bytes.insert(bytes.end(), row, row + row_bytes);
            }
        }
        return bytes;
    }

    uint32_t width;
    uint32_t height;
    uint32_t format;
    uint32_t stride;
    AlignedBuffer memory;
    Picture picture{};
};

// A decoder's picture of random samples: planes of its own, with (size + 1) / 2 chroma rows and columns.
struct Decoded {
    Decoded(uint32_t width, uint32_t height, bool nv12, uint32_t seed = 1, uint32_t stride_gap = 32) {
        std::mt19937 random(seed);
        frame.width = width;
        frame.height = height;
        const uint32_t chroma_width = (width + 1) / 2 * (nv12 ? 2 : 1);
        for (int i = 0; i < (nv12 ? 2 : 3); ++i) {
            const uint32_t row = i == 0 ? width : chroma_width;
            frame.strides[i] = stride_gap == 0 ? row : (row + 63) / 64 * 64 + stride_gap;
            if (!memory[i].Allocate(size_t{frame.strides[i]} * (i == 0 ? height : (height + 1) / 2)))
                throw std::bad_alloc();
            frame.planes[i] = memory[i].Data();
            for (size_t at = 0; at < memory[i].Size(); ++at)
                memory[i].Data()[at] = static_cast<uint8_t>(random());
        }
        picture = {{frame.planes[0], frame.planes[1], frame.planes[2]},
                   {static_cast<int32_t>(frame.strides[0]), static_cast<int32_t>(frame.strides[1]),
                    static_cast<int32_t>(frame.strides[2])},
                   height,
                   nv12 ? uint32_t{PF_NV12} : uint32_t{PF_I420}};
    }

    AlignedBuffer memory[3];
    DecodedFrame frame{};
    Picture picture{};
};

inline FramePtr VideoFrame() {
    MediaFrameHeader record{};
    record.recordSize = 264;
    record.streamType = CORVANE_STREAM_H264;
    return std::make_shared<MediaFrameImpl>(record);
}

inline FramePtr LensFrame(uint64_t first_value = 1) {
    FramePtr frame = VideoFrame();
    LensRecord lens;
    lens.values[0] = first_value;
    frame->SetLensRecord(lens);
    return frame;
}

// Adds a number to each sample of an I420 picture, and notes what it was given.
class AddFilter final : public IFilter {
public:
    explicit AddFilter(uint8_t addend) : m_addend(addend) {}

    int32_t Process(FilterArgs* args) override {
        ++calls;
        last_output = args->destination->plane[0];
        if (throws)
            throw std::runtime_error("client");
        if (args->source->format != PF_I420 || args->destination->format != PF_I420)
            return -3;
        for (int i = 0; i < 3; ++i) {
            for (uint32_t y = 0; y < (i == 0 ? args->height : args->height / 2); ++y) {
                const uint8_t* from = args->source->plane[i] + ptrdiff_t{args->source->stride[i]} * y;
                uint8_t* to = args->destination->plane[i] + ptrdiff_t{args->destination->stride[i]} * y;
                for (uint32_t x = 0; x < (i == 0 ? args->width : args->width / 2); ++x)
                    to[x] = static_cast<uint8_t>(from[x] + m_addend);
            }
        }
        return result;
    }

    int calls = 0;
    uint8_t* last_output = nullptr;
    int32_t result = 0;
    bool throws = false;

private:
    uint8_t m_addend;
};

// The switches of the Tessaro.so beside this program; null when there is none.
inline TessaroControl* Tessaro() {
    void* library = dlopen("Tessaro.so", RTLD_NOW | RTLD_LOCAL);
    return library == nullptr ? nullptr : static_cast<TessaroControl*>(dlsym(library, "tessaro_control"));
}

}    // namespace corvane::test
