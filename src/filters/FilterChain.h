// The chain of steps from a decoded picture to a lent buffer: weave and de-interlace, dewarp, resize, client filters,
// format change. The last step always writes straight into the destination.
//
// ChainSettings is a value that clients set. A FilterChain belongs to one consumer and has scratch pictures of its own.
// It has no lock: one thread at a time.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "base/AlignedBuffer.h"
#include "base/CallGate.h"
#include "base/Mutex.h"
#include "base/PictureView.h"
#include "corvane/filter.h"
#include "frame/MediaFrameImpl.h"

namespace corvane {

// The calls of the client filters of one channel, which more than one run makes.
struct ClientFilterCalls {
    CallGate gate;    // entered before a run reads the filters; who removes one waits on it
    Mutex lock;       // held around each call and nothing else, so that a filter is not called twice at once
};

struct ChainSettings {
    std::vector<QMRX::Filter::IFilter*> clientFilters;    // in order of insertion; owned by the client
    bool deinterlaceEnabled = false;
    uint32_t resizeType = 0;        // 0 nearest, 1 linear, 2 cubic, 3 Lanczos
    Mutex* filterLock = nullptr;    // of ClientFilterCalls; null where only one run calls the filters
};

// The outcome of the smoothing of an interlaced picture.
enum class Smoothing : uint8_t {
    None,    // not asked for, or an earlier step failed
    Done,
    Refused,    // the picture is too small, or there is no memory; the run ended there
};

struct [[nodiscard]] ChainResult {
    int32_t status;    // 0, or negative on failure
    Smoothing smoothing = Smoothing::None;
};

class FilterChain {
public:
    FilterChain();
    ~FilterChain();

    // The format of a destination that needs the fewest steps: PF_I420 or PF_NV12.
    uint32_t PreferredFormat(const ChainSettings& settings, const MediaFrameImpl& frame,
                             const ConstPictureView& picture) const;

    // Makes, updates or drops the dewarp stage. Called before Run, for each frame.
    void UpdateDewarp(const MediaFrameImpl& frame);

    // Replaces the size by the output size of the dewarp stage, where there is one. Negative on failure; the size is
    // then unchanged.
    int32_t OutputSize(PictureSize& size);

    // Whether Run would only copy, so that a caller may take a reference on the picture instead. Frees the scratch
    // memory in that case, as Run does. Motion marks, once there are any, change a picture.
    bool PassesThrough(const ChainSettings& settings, const MediaFrameImpl& frame, const ConstPictureView& picture,
                       PictureSize size);

    // Writes `source`, which is PF_I420 or PF_NV12, into `destination`. On failure the destination keeps its contents,
    // or has a picture whose odd last row or column is not written. The colours of the source count where the last step
    // makes RGB; no step before it changes the meaning of samples.
    ChainResult Run(const ChainSettings& settings, const MediaFrameImpl& frame, const ConstPictureView& source,
                    const PictureView& destination);

    // Bytes of scratch memory now held.
    size_t ScratchBytes() const;

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};

}    // namespace corvane
