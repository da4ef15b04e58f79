// Decides which frames of a stream with temporal layers may be dropped before decoding. Used by one worker thread for
// one run of its channel.
#pragma once

#include <cstddef>
#include <cstdint>

#include "corvane/corvane.h"
#include "decoders/H264Syntax.h"

namespace corvane {

class FrameThinner {
public:
    // True: the frame may be dropped. `level` 0 drops nothing, 7 the most; a new level takes effect with a key frame.
    // Only H.264 is thinned, and a frame that cannot be parsed is kept and ends thinning until the next key frame.
    bool ShouldThin(const MediaFrameHeader& frame, uint32_t level) noexcept;

private:
    bool FindSlice(const uint8_t* payload, size_t size, h264::SliceHeader& slice);
    bool ParseUnit(const uint8_t* unit, size_t size, h264::SliceHeader& slice);
    void FillGaps(const h264::SequenceParameterSet& sps, const h264::SliceHeader& slice);
    void CountOrder(const h264::SequenceParameterSet& sps, const h264::SliceHeader& slice, bool reference);
    uint64_t ExpectedOrder(const h264::SequenceParameterSet& sps, uint32_t frame_num, bool reference) const;

    h264::ParameterSets m_sets;
    uint32_t m_level = 0;
    uint8_t m_nalRefIdc = 0;    // of the last NAL unit
    uint8_t m_nalUnitType = 0;

    // Order count state of ITU-T H.264, 8.2.1.
    struct OrderState {
        uint32_t prevRefFrameNum = 0;
        uint32_t prevFrameNum = 0;
        uint64_t frameNumOffset = 0;
        uint64_t order = 0;
    };
    OrderState m_order;
};

}    // namespace corvane
