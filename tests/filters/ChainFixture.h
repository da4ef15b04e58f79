// Pictures and frames for the tests of the chain and its steps.
#pragma once

#include "base/PictureLayout.h"
#include "filters/FakeTessaro.h"
#include "filters/FilterChain.h"
#include "filters/FilterPicture.h"
#include "platform/Library.h"
#include "support/GuardedBytes.h"
#include "support/StreamMaker.h"
#include "support/Testing.h"

namespace corvane::test {

using QMRX::Filter::FilterArgs;
using QMRX::Filter::IFilter;
using QMRX::Filter::Picture;

// A picture with memory of its own, zeros at first, laid out as the library lays out what it allocates.
struct Image {
    Image(uint32_t width, uint32_t height, uint32_t format) {
        if (!memory.Allocate(PictureBytes(format, width, height)))
            throw std::bad_alloc();
        view = LayOut(memory.Data(), RowBytes(format, width), {width, height}, format);
        picture = RecordOf(view);
    }

    // The samples that show, plane by plane in the order of `picture`, without the ends of rows. Planes at half size
    // have height / 2 rows and width / 2 samples.
    std::vector<uint8_t> Visible() const {
        std::vector<uint8_t> bytes;
        const auto [width, height] = view.size;
        for (int i = 0; i < 3 && picture.plane[i] != nullptr; ++i) {
            const uint32_t half = width / 2 * (picture.format == PF_NV12 ? 2 : 1);
            for (uint32_t y = 0; y < (i == 0 ? height : height / 2); ++y) {
                const uint8_t* row = picture.plane[i] + ptrdiff_t{picture.stride[i]} * y;
                bytes.insert(bytes.end(), row, row + (i == 0 ? width * RowBytes(picture.format, 64) / 64 : half));
            }
        }
        return bytes;
    }

    AlignedBuffer memory;
    PictureView view;
    Picture picture{};
};

inline TessaroImage ImageOf(const Picture& picture, uint32_t width, uint32_t height) {
    TessaroImage image{width, height, {}, 0, {}, 1};
    for (int i = 0; i < 3; ++i) {
        image.plane[i] = picture.plane[i];
        image.stride[i] = static_cast<uint32_t>(picture.stride[i]);
    }
    return image;
}

// A decoder's picture of random samples: planes of its own, with (size + 1) / 2 chroma rows and columns. A page that
// cannot be read follows their last samples (`aligned`: within 63 bytes), or with an odd seed lies in front of the
// first.
struct Decoded {
    Decoded(uint32_t width, uint32_t height, bool nv12, uint32_t seed = 2, bool aligned = true)
        : view{.size = {width, height}, .format = nv12 ? uint32_t{PF_NV12} : uint32_t{PF_I420}} {
        std::mt19937 random(seed);
        for (int i = 0; i < view.PlaneCount(); ++i) {
            const uint32_t row = i == 0 ? width : (width + 1) / 2 * (nv12 ? 2 : 1);
            const uint32_t rows = i == 0 ? height : (height + 1) / 2;
            const uint32_t stride = aligned ? (row + 63) / 64 * 64 + 32 : row;
            std::vector<uint8_t> bytes(size_t{stride} * (rows - 1) + row);
            for (uint32_t at = 0; at < row * rows; ++at)
                bytes[at / row * stride + at % row] = static_cast<uint8_t>(random());
            memory.push_back(std::make_unique<GuardedBytes>(
                bytes, seed % 2 == 0 ? GuardedBytes::At::End : GuardedBytes::At::Begin, aligned ? 64 : 1));
            view.plane[i] = memory.back()->Data();
            view.stride[i] = stride;
        }
        picture = RecordOf(view);
    }

    std::vector<std::unique_ptr<GuardedBytes>> memory;
    PictureView view;
    Picture picture{};
};

inline FramePtr VideoFrame(bool lens = false, uint64_t firstLensValue = 1) {
    const FramePtr frame = MakeFrame(CORVANE_STREAM_H264, {}, true, 0);
    LensRecord lensRecord;
    lensRecord.values[0] = firstLensValue;
    if (lens)
        frame->SetLensRecord(lensRecord);
    return frame;
}

// The switches of the Tessaro.so beside this program; null when there is none.
inline TessaroControl* Tessaro() {
    static Library library;
    [[maybe_unused]] static const bool open = library.Open("Tessaro.so");
    return library.Find<TessaroControl>("tessaroControl");
}

}    // namespace corvane::test
