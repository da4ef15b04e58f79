// The chain that carries a decoded picture into a lent buffer: weave and de-interlace, dewarp, resize, client filters,
// format change. Its last step always writes straight into the destination.
//
// ChainSettings is what clients set: an immutable value behind a shared pointer, replaced under the owner's lock. A
// FilterChain is one consumer's run with its own scratch buffers; it has no lock and is used by one thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "base/AlignedBuffer.h"
#include "base/ColourSignal.h"
#include "base/PictureView.h"
#include "corvane/corvane.h"
#include "corvane/decoder.h"
#include "corvane/filter.h"
#include "frame/MediaFrameImpl.h"

namespace corvane {

struct ChainSettings {
    std::vector<QMRX::Filter::IFilter*> clientFilters;    // in order of insertion; owned by the client
    bool deinterlaceEnabled = false;
    uint32_t resizeType = 0;    // 0 nearest, 1 linear, 2 cubic, 3 Lanczos
};

// What the smoothing of an interlaced picture came to.
enum class Smoothing : uint8_t {
    None,    // not asked for, or a step before it failed
    Done,
    Refused,    // the picture is too small for it, or there is no memory: the run ended there
};

struct [[nodiscard]] ChainResult {
    int32_t status;    // 0, or negative on failure
    Smoothing smoothing = Smoothing::None;
};

class FilterChain {
public:
    FilterChain();
    ~FilterChain();

    // The format that needs the fewest steps: PF_I420 or PF_NV12.
    uint32_t PreferredFormat(const ChainSettings& settings, const MediaFrameImpl& frame,
                             const DecodedFrame& decoded) const;

    // Makes, updates or drops the dewarp stage. Before Run, for each frame.
    void UpdateDewarp(const MediaFrameImpl& frame);

    // Replaces the size by that of the dewarp stage, where there is one. Negative on failure, the size then unchanged.
    int32_t OutputSize(uint32_t* width, uint32_t* height);

    // Whether Run would only copy: a caller that can take `decoded` as it is then needs no Run. Frees the scratch
    // memory in that case, as such a run does. Motion marks, once there are any, are no copy.
    bool PassesThrough(const ChainSettings& settings, const MediaFrameImpl& frame, const DecodedFrame& decoded,
                       uint32_t width, uint32_t height);

    // Writes `decoded` into `buffer`, laid out as FillPicture says for (stride, height, format). On failure the buffer
    // shows whatever it held, or a picture with its odd last row or column unwritten. `colours`: what the samples mean
    // where the last step makes RGB of them; without a value they are full-range BT.601. No step changes what they
    // mean.
    ChainResult Run(const ChainSettings& settings, const MediaFrameImpl& frame, const DecodedFrame& decoded,
                    uint8_t* buffer, uint32_t stride, uint32_t format, uint32_t width, uint32_t height,
                    const std::optional<ColourSignal>& colours = std::nullopt);

    // Bytes of scratch memory now held.
    size_t ScratchBytes() const;

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

// Lays a picture out over a block of memory. PF_YV12 becomes PF_I420 with exchanged plane pointers.
void FillPicture(QMRX::Filter::Picture& picture, uint8_t* buffer, uint32_t stride, uint32_t height, uint32_t format);

// The same as a view: with the top row first, also where `format` is one of those whose bottom row is first in memory.
PictureView LayOut(uint8_t* buffer, uint32_t stride, PictureSize size, uint32_t format);

// Row bytes and whole size of a picture that this library allocates. 0 for an unknown format or a size beyond the
// limits.
uint32_t RowBytes(uint32_t format, uint32_t width);
uint64_t PictureBytes(uint32_t format, uint32_t width, uint32_t height);

}    // namespace corvane
