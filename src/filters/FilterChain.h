// The chain that carries a decoded picture into a lent buffer: weave and de-interlace, dewarp, resize, client filters,
// format change. Its last step always writes straight into the destination.
//
// ChainSettings is what clients set: an immutable value behind a shared pointer, replaced under the owner's lock. A
// FilterChain is one consumer's run with its own scratch buffers; it has no lock and is used by one thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/AlignedBuffer.h"
#include "base/PictureView.h"
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
                             const ConstPictureView& picture) const;

    // Makes, updates or drops the dewarp stage. Before Run, for each frame.
    void UpdateDewarp(const MediaFrameImpl& frame);

    // Replaces the size by that of the dewarp stage, where there is one. Negative on failure, the size then unchanged.
    int32_t OutputSize(PictureSize& size);

    // Whether Run would only copy: a caller that can take `picture` as it is then needs no Run. Frees the scratch
    // memory in that case, as such a run does. Motion marks, once there are any, are no copy.
    bool PassesThrough(const ChainSettings& settings, const MediaFrameImpl& frame, const ConstPictureView& picture,
                       PictureSize size);

    // Writes `source`, which is PF_I420 or PF_NV12, into `destination`. On failure the destination shows whatever it
    // held, or a picture with its odd last row or column unwritten. The colours of the source count where the last step
    // makes RGB; no step changes what its samples mean.
    ChainResult Run(const ChainSettings& settings, const MediaFrameImpl& frame, const ConstPictureView& source,
                    const PictureView& destination);

    // Bytes of scratch memory now held.
    size_t ScratchBytes() const;

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

}    // namespace corvane
