// The headers of ITU-T H.264, clause 7.3, that state the place of a picture in its stream. Names are the standard's.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "decoders/RbspReader.h"

namespace corvane::h264 {

enum NalUnitType : uint8_t { kSlice = 1, kIdrSlice = 5, kSps = 7, kPps = 8, kPrefix = 14, kSliceExtension = 20 };

struct SequenceParameterSet {
    uint32_t chromaArrayType = 1;    // 0 with separate planes
    bool separate_colour_plane_flag = false;
    uint32_t log2MaxFrameNum = 4;       // 4 to 16
    uint32_t pic_order_cnt_type = 0;    // 0 to 2
    uint32_t log2MaxPicOrderCntLsb = 4;
    bool delta_pic_order_always_zero_flag = false;
    int32_t offset_for_non_ref_pic = 0;
    int32_t offset_for_top_to_bottom_field = 0;
    std::vector<int64_t> offsetSums;    // of offset_for_ref_frame, from the first up to each
    uint32_t max_num_ref_frames = 0;
    bool gaps_in_frame_num_value_allowed_flag = false;
    uint32_t pic_width_in_mbs_minus1 = 0;
    uint32_t pic_height_in_map_units_minus1 = 0;
    bool frame_mbs_only_flag = true;

    uint32_t MaxFrameNum() const { return 1u << log2MaxFrameNum; }
};

struct PictureParameterSet {
    uint32_t seq_parameter_set_id = 0;
    bool bottom_field_pic_order_in_frame_present_flag = false;
    uint32_t num_ref_idx_default_active_minus1[2] = {};
    bool weighted_pred_flag = false;
    uint32_t weighted_bipred_idc = 0;
    bool redundant_pic_cnt_present_flag = false;
};

struct SliceHeader {
    uint32_t pic_parameter_set_id = 0;
    uint32_t frame_num = 0;
    bool field_pic_flag = false;
    bool bottom_field_flag = false;
    uint32_t pic_order_cnt_lsb = 0;
    int32_t delta_pic_order_cnt_bottom = 0;
    int32_t delta_pic_order_cnt[2] = {};
};

// The functions of this file take a reader whose header bytes of the NAL unit have been read. They raise
// QMRX::SDK::Utility::NALUParserException where the unit ends early, and another std::exception for values out of
// range.
SequenceParameterSet ReadSps(RbspReader& reader, uint32_t& seq_parameter_set_id);

// The parameter sets of a stream, and the parsers that need them. A set whose parsing raises replaces none.
class ParameterSets {
public:
    // The set that was read, which stays until another takes its place.
    const SequenceParameterSet& ParseSps(RbspReader& reader);
    void ParsePps(RbspReader& reader);
    // Up to and with dec_ref_pic_marking.
    SliceHeader ParseSlice(RbspReader& reader, uint8_t nal_unit_type, uint8_t nal_ref_idc) const;

    // Of a slice that was parsed.
    const SequenceParameterSet& SpsOf(const SliceHeader& slice) const {
        return *m_sps[m_pps[slice.pic_parameter_set_id]->seq_parameter_set_id];
    }

private:
    std::array<std::unique_ptr<SequenceParameterSet>, 32> m_sps;
    std::array<std::unique_ptr<PictureParameterSet>, 256> m_pps;
};

}    // namespace corvane::h264
