#include "decoders/FrameThinner.h"

#include <algorithm>
#include <cstring>
#include <exception>

namespace corvane {

using h264::SequenceParameterSet;
using h264::SliceHeader;

namespace {

// The level from which a picture goes is 8 minus the entry. Rows by max_num_ref_frames, columns by the low three bits
// of the order count: in a stream of n layers each layer has its own columns.
constexpr uint8_t kThinning[4][8] = {
    {0, 0, 0, 0, 0, 0, 0, 0},
    {0, 4, 0, 6, 0, 5, 0, 7},
    {0, 4, 2, 6, 0, 5, 3, 7},
    {0, 4, 2, 6, 1, 5, 3, 7},
};

// Units after start codes of three bytes are not looked for, so a frame whose slices have only those is kept.
constexpr uint8_t kStartCode[4] = {0, 0, 0, 1};

const uint8_t* FindStartCode(const uint8_t* from, const uint8_t* end) {
    return std::search(from, end, std::begin(kStartCode), std::end(kStartCode));
}

}    // namespace

// False for a unit that is no slice.
bool FrameThinner::ParseUnit(const uint8_t* unit, size_t size, SliceHeader& slice) {
    if (size == 0)
        return false;
    m_nalRefIdc = unit[0] >> 5 & 3;
    m_nalUnitType = unit[0] & 31;
    RbspReader reader(unit + 1, size - 1);
    switch (m_nalUnitType) {
    case h264::kPrefix:
    case h264::kSliceExtension:
        reader.Bits(24);
        return false;
    case h264::kSps:
        m_sets.ParseSps(reader);
        return false;
    case h264::kPps:
        m_sets.ParsePps(reader);
        return false;
    case h264::kSlice:
    case h264::kIdrSlice:
        slice = m_sets.ParseSlice(reader, m_nalUnitType, m_nalRefIdc);
        return true;
    default:
        return false;
    }
}

bool FrameThinner::FindSlice(const uint8_t* payload, size_t size, SliceHeader& slice) {
    const uint8_t* const end = payload + size;
    const uint8_t* at = FindStartCode(payload, end);
    while (at != end) {
        const uint8_t* unit = at + sizeof kStartCode;
        // Only headers are read: a slice needs no search for its end.
        const bool isSlice = unit != end && ((*unit & 31) == h264::kSlice || (*unit & 31) == h264::kIdrSlice);
        at = isSlice ? end : FindStartCode(unit, end);
        if (ParseUnit(unit, static_cast<size_t>(at - unit), slice))
            return true;
    }
    return false;
}

// expectedPicOrderCnt for pic_order_cnt_type 1.
uint64_t FrameThinner::ExpectedOrder(const SequenceParameterSet& sps, uint32_t frame_num, bool reference) const {
    const uint64_t cycle = sps.offsetSums.size();
    uint64_t absFrameNum = cycle != 0 ? m_order.frameNumOffset + frame_num : 0;
    if (!reference && absFrameNum > 0)
        --absFrameNum;
    uint64_t expected = reference ? 0 : static_cast<uint64_t>(int64_t{sps.offset_for_non_ref_pic});
    if (absFrameNum > 0) {
        expected += (absFrameNum - 1) / cycle * static_cast<uint64_t>(sps.offsetSums.back());
        expected += static_cast<uint64_t>(sps.offsetSums[(absFrameNum - 1) % cycle]);
    }
    return expected;
}

// Only the low bits of an order count are used, so it may wrap. The bottom field is kept by its distance from the top
// field.
void FrameThinner::CountOrder(const SequenceParameterSet& sps, const SliceHeader& slice, bool reference) {
    uint64_t top = 0;
    int64_t bottomDistance = 0;
    if (sps.pic_order_cnt_type == 0) {
        // The upper part of the count is a multiple of 16 and cannot change the low three bits.
        top = slice.pic_order_cnt_lsb;
        bottomDistance = slice.delta_pic_order_cnt_bottom;    // 0 for a field
    } else {
        if (m_order.prevFrameNum > slice.frame_num)
            m_order.frameNumOffset += sps.MaxFrameNum();
        if (sps.pic_order_cnt_type == 1) {
            top = ExpectedOrder(sps, slice.frame_num, reference);
            top += static_cast<uint64_t>(int64_t{slice.delta_pic_order_cnt[0]});
            bottomDistance = int64_t{sps.offset_for_top_to_bottom_field} + slice.delta_pic_order_cnt[1];
        } else {
            top = 2 * (m_order.frameNumOffset + slice.frame_num) - (reference ? 0 : 1);
        }
    }
    const bool bottom = slice.field_pic_flag ? slice.bottom_field_flag : bottomDistance < 0;
    m_order.order = top + (bottom ? static_cast<uint64_t>(bottomDistance) : 0);
    m_order.prevFrameNum = slice.frame_num;
    if (reference)
        m_order.prevRefFrameNum = slice.frame_num;
}

// Numbers that the encoder left out count as pictures that were there.
void FrameThinner::FillGaps(const SequenceParameterSet& sps, const SliceHeader& slice) {
    const uint32_t mask = sps.MaxFrameNum() - 1;
    const auto next = [&](uint32_t number) { return (number + 1) & mask; };
    if (slice.frame_num == m_order.prevRefFrameNum)
        return;
    SliceHeader skipped;
    for (uint32_t number = next(m_order.prevRefFrameNum); number != slice.frame_num; number = next(number)) {
        skipped.frame_num = number;
        if (sps.pic_order_cnt_type != 0)
            CountOrder(sps, skipped, true);
        m_order.prevRefFrameNum = number;
        m_order.prevFrameNum = number;
    }
}

bool FrameThinner::ShouldThin(const MediaFrameHeader& frame, uint32_t level) noexcept {
    if (frame.streamType != CORVANE_STREAM_H264)
        return false;
    if (frame.frameType == 0)
        m_level = level & 7;
    if (m_level == 0)
        return false;
    try {
        SliceHeader slice;
        if (!FindSlice(frame.data + frame.headerSize, frame.payloadSize, slice))
            return false;
        const SequenceParameterSet& sps = m_sets.SpsOf(slice);
        if (m_nalUnitType == h264::kIdrSlice) {
            m_order = OrderState();
            m_order.prevRefFrameNum = m_order.prevFrameNum = slice.frame_num;
        } else if (sps.gaps_in_frame_num_value_allowed_flag) {
            FillGaps(sps, slice);
        }
        CountOrder(sps, slice, m_nalRefIdc != 0);
        if (sps.max_num_ref_frames > 3 || !sps.gaps_in_frame_num_value_allowed_flag)
            return false;
        return kThinning[sps.max_num_ref_frames][m_order.order & 7] > 7 - m_level;
    } catch (const std::exception&) {
        m_level = 0;
        return false;
    }
}

}    // namespace corvane
