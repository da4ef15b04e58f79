// The dewarp stage of the chain: an object of the optional library Tessaro.so, which is loaded at most once a process.
// Its absence is no error. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "corvane/filter.h"
#include "frame/FrameExtension.h"

namespace corvane {

// One image, in the library's own layout.
struct TessaroImage {
    uint32_t width;    // pixels
    uint32_t height;
    uint32_t stride[3];    // bytes
    uint32_t spare;
    uint8_t* plane[3];
    uint32_t layout;    // 1 three planes, 2 two
};

static_assert(sizeof(TessaroImage) == 56 && offsetof(TessaroImage, plane) == 24 &&
              offsetof(TessaroImage, layout) == 48);
static_assert(sizeof(LensRecord) == 464 && offsetof(LensRecord, words) == 432);

class TessaroStage {
public:
    // Null when there is no library, no memory, or the library makes no object.
    static std::unique_ptr<TessaroStage> Make() noexcept;
    ~TessaroStage();
    TessaroStage(const TessaroStage&) = delete;
    TessaroStage& operator=(const TessaroStage&) = delete;

    void Update(const LensRecord& record) noexcept;

    // The output size in pixels for a picture of (width, height). Negative on failure, also for an exception and a size
    // beyond the limits; the results are then unchanged.
    int32_t Query(uint32_t width, uint32_t height, uint32_t* outWidth, uint32_t* outHeight) noexcept;

    // Dewarps one picture of (width, height) into one of (outWidth, outHeight) of the same format, and ends the frame.
    // Negative on failure, also for an exception.
    int32_t Process(const QMRX::Filter::FilterArgs& args, uint32_t outWidth, uint32_t outHeight) noexcept;

private:
    struct Object;

    explicit TessaroStage(Object* object) : m_object(object) {}

    Object* m_object;    // freed by its own release
};

}    // namespace corvane
