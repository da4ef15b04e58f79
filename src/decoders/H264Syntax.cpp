#include "decoders/H264Syntax.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <stdexcept>

namespace corvane::h264 {

namespace {

enum SliceType : uint32_t { kP = 0, kB = 1, kI = 2, kSp = 3, kSi = 4 };

uint32_t Bounded(uint32_t value, uint32_t most, const char* name) {
    if (value > most)
        throw std::runtime_error(name);
    return value;
}

bool HasChromaFormat(uint32_t profile_idc) {
    constexpr uint32_t kProfiles[] = {44, 83, 86, 100, 110, 118, 122, 128, 134, 135, 138, 139, 244};
    return std::find(std::begin(kProfiles), std::end(kProfiles), profile_idc) != std::end(kProfiles);
}

void SkipScalingList(RbspReader& reader, unsigned size) {
    int32_t last = 8;
    int32_t next = 8;
    for (unsigned i = 0; i < size; ++i) {
        if (next != 0)
            next = static_cast<int32_t>((static_cast<uint32_t>(last) + static_cast<uint32_t>(reader.Se())) & 0xFF);
        last = next == 0 ? last : next;
    }
}

void ReadChromaFormat(RbspReader& reader, SequenceParameterSet& sps) {
    const uint32_t chroma_format_idc = Bounded(reader.Ue(), 3, "chroma_format_idc");
    if (chroma_format_idc == 3)
        sps.separate_colour_plane_flag = reader.Flag();
    sps.chromaArrayType = sps.separate_colour_plane_flag ? 0 : chroma_format_idc;
    reader.Ue();    // bit depths
    reader.Ue();
    reader.Flag();          // qpprime_y_zero_transform_bypass_flag
    if (reader.Flag()) {    // seq_scaling_matrix_present_flag
        for (unsigned i = 0; i < (chroma_format_idc != 3 ? 8u : 12u); ++i) {
            if (reader.Flag())
                SkipScalingList(reader, i < 6 ? 16 : 64);
        }
    }
}

void ReadOrderCount(RbspReader& reader, SequenceParameterSet& sps) {
    sps.pic_order_cnt_type = Bounded(reader.Ue(), 2, "pic_order_cnt_type");
    if (sps.pic_order_cnt_type == 0) {
        sps.log2MaxPicOrderCntLsb = 4 + Bounded(reader.Ue(), 12, "log2_max_pic_order_cnt_lsb_minus4");
    } else if (sps.pic_order_cnt_type == 1) {
        sps.delta_pic_order_always_zero_flag = reader.Flag();
        sps.offset_for_non_ref_pic = reader.Se();
        sps.offset_for_top_to_bottom_field = reader.Se();
        const uint32_t count = Bounded(reader.Ue(), 255, "num_ref_frames_in_pic_order_cnt_cycle");
        int64_t sum = 0;
        for (uint32_t i = 0; i < count; ++i)
            sps.offsetSums.push_back(sum += reader.Se());
    }
}

void SkipSliceGroups(RbspReader& reader) {
    const uint32_t groupsMinus1 = Bounded(reader.Ue(), 7, "num_slice_groups_minus1");
    if (groupsMinus1 == 0)
        return;
    const uint32_t type = Bounded(reader.Ue(), 6, "slice_group_map_type");
    if (type == 0) {
        for (uint32_t i = 0; i <= groupsMinus1; ++i)
            reader.Ue();
    } else if (type == 2) {
        for (uint32_t i = 0; i < groupsMinus1; ++i) {
            reader.Ue();
            reader.Ue();
        }
    } else if (type >= 3 && type <= 5) {
        reader.Flag();
        reader.Ue();
    } else if (type == 6) {
        const auto width = static_cast<unsigned>(std::bit_width(groupsMinus1));
        for (uint64_t left = uint64_t{reader.Ue()} + 1; left > 0; --left)
            reader.Bits(width);
    }
}

void SkipListModification(RbspReader& reader) {
    if (!reader.Flag())
        return;
    while (Bounded(reader.Ue(), 3, "modification_of_pic_nums_idc") != 3)
        reader.Ue();
}

void SkipWeights(RbspReader& reader, bool withChroma, uint32_t entries) {
    for (uint32_t i = 0; i < entries; ++i) {
        if (reader.Flag()) {
            reader.Se();
            reader.Se();
        }
        if (withChroma && reader.Flag()) {
            for (int value = 0; value < 4; ++value)
                reader.Se();
        }
    }
}

void SkipRefPicMarking(RbspReader& reader, bool idr) {
    if (idr) {
        reader.Bits(2);
        return;
    }
    if (!reader.Flag())    // adaptive_ref_pic_marking_mode_flag
        return;
    while (const uint32_t operation = Bounded(reader.Ue(), 6, "memory_management_control_operation")) {
        if (operation != 5)
            reader.Ue();
        if (operation == 3)
            reader.Ue();
    }
}

void ReadSliceOrderCount(RbspReader& reader, const SequenceParameterSet& sps, const PictureParameterSet& pps,
                         SliceHeader& slice) {
    const bool bothFields = pps.bottom_field_pic_order_in_frame_present_flag && !slice.field_pic_flag;
    if (sps.pic_order_cnt_type == 0) {
        slice.pic_order_cnt_lsb = reader.Bits(sps.log2MaxPicOrderCntLsb);
        if (bothFields)
            slice.delta_pic_order_cnt_bottom = reader.Se();
    } else if (sps.pic_order_cnt_type == 1 && !sps.delta_pic_order_always_zero_flag) {
        slice.delta_pic_order_cnt[0] = reader.Se();
        if (bothFields)
            slice.delta_pic_order_cnt[1] = reader.Se();
    }
}

// Reference counts, list modifications and prediction weights.
void SkipReferences(RbspReader& reader, const SequenceParameterSet& sps, const PictureParameterSet& pps,
                    uint32_t slice_type) {
    const bool isB = slice_type == kB;
    const bool isP = slice_type == kP || slice_type == kSp;
    if (!isB && !isP)
        return;
    uint32_t activeMinus1[2] = {pps.num_ref_idx_default_active_minus1[0], pps.num_ref_idx_default_active_minus1[1]};
    if (isB)
        reader.Flag();      // direct_spatial_mv_pred_flag
    if (reader.Flag()) {    // num_ref_idx_active_override_flag
        activeMinus1[0] = Bounded(reader.Ue(), 31, "num_ref_idx_l0_active_minus1");
        if (isB)
            activeMinus1[1] = Bounded(reader.Ue(), 31, "num_ref_idx_l1_active_minus1");
    }
    SkipListModification(reader);
    if (isB)
        SkipListModification(reader);
    if (isP ? !pps.weighted_pred_flag : pps.weighted_bipred_idc != 1)
        return;
    const bool withChroma = sps.chromaArrayType != 0;
    reader.Ue();    // luma_log2_weight_denom
    if (withChroma)
        reader.Ue();
    SkipWeights(reader, withChroma, activeMinus1[0] + 1);
    if (isB)
        SkipWeights(reader, withChroma, activeMinus1[1] + 1);
}

}    // namespace

SequenceParameterSet ReadSps(RbspReader& reader, uint32_t& seq_parameter_set_id) {
    SequenceParameterSet sps;
    const uint32_t profile_idc = reader.Bits(8);
    reader.Bits(16);    // constraint flags, level_idc
    seq_parameter_set_id = Bounded(reader.Ue(), 31, "seq_parameter_set_id");
    if (HasChromaFormat(profile_idc))
        ReadChromaFormat(reader, sps);
    sps.log2MaxFrameNum = 4 + Bounded(reader.Ue(), 12, "log2_max_frame_num_minus4");
    ReadOrderCount(reader, sps);
    sps.max_num_ref_frames = reader.Ue();
    sps.gaps_in_frame_num_value_allowed_flag = reader.Flag();
    sps.pic_width_in_mbs_minus1 = reader.Ue();
    sps.pic_height_in_map_units_minus1 = reader.Ue();
    sps.frame_mbs_only_flag = reader.Flag();
    if (!sps.frame_mbs_only_flag)
        reader.Flag();      // mb_adaptive_frame_field_flag
    reader.Flag();          // direct_8x8_inference_flag
    if (reader.Flag()) {    // frame_cropping_flag
        for (int side = 0; side < 4; ++side)
            reader.Ue();
    }
    return sps;
}

const SequenceParameterSet& ParameterSets::ParseSps(RbspReader& reader) {
    uint32_t id = 0;
    auto sps = std::make_unique<SequenceParameterSet>(ReadSps(reader, id));
    m_sps[id] = std::move(sps);
    return *m_sps[id];
}

void ParameterSets::ParsePps(RbspReader& reader) {
    auto pps = std::make_unique<PictureParameterSet>();
    const uint32_t id = Bounded(reader.Ue(), 255, "pic_parameter_set_id");
    pps->seq_parameter_set_id = Bounded(reader.Ue(), 31, "seq_parameter_set_id");
    if (m_sps[pps->seq_parameter_set_id] == nullptr)
        throw std::runtime_error("seq_parameter_set_id");
    reader.Flag();    // entropy_coding_mode_flag
    pps->bottom_field_pic_order_in_frame_present_flag = reader.Flag();
    SkipSliceGroups(reader);
    for (uint32_t& count : pps->num_ref_idx_default_active_minus1)
        count = Bounded(reader.Ue(), 31, "num_ref_idx_default_active_minus1");
    pps->weighted_pred_flag = reader.Flag();
    pps->weighted_bipred_idc = reader.Bits(2);
    for (int value = 0; value < 3; ++value)    // quantiser offsets
        reader.Se();
    reader.Bits(2);    // deblocking_filter_control_present_flag, constrained_intra_pred_flag
    pps->redundant_pic_cnt_present_flag = reader.Flag();
    m_pps[id] = std::move(pps);
}

SliceHeader ParameterSets::ParseSlice(RbspReader& reader, uint8_t nal_unit_type, uint8_t nal_ref_idc) const {
    SliceHeader slice;
    reader.Ue();    // first_mb_in_slice
    const uint32_t slice_type = reader.Ue() % 5;
    slice.pic_parameter_set_id = Bounded(reader.Ue(), 255, "pic_parameter_set_id");
    const PictureParameterSet* pps = m_pps[slice.pic_parameter_set_id].get();
    if (pps == nullptr || m_sps[pps->seq_parameter_set_id] == nullptr)
        throw std::runtime_error("pic_parameter_set_id");
    const SequenceParameterSet& sps = *m_sps[pps->seq_parameter_set_id];
    if (sps.separate_colour_plane_flag)
        reader.Bits(2);
    slice.frame_num = reader.Bits(sps.log2MaxFrameNum);
    if (!sps.frame_mbs_only_flag) {
        slice.field_pic_flag = reader.Flag();
        slice.bottom_field_flag = slice.field_pic_flag && reader.Flag();
    }
    const bool idr = nal_unit_type == kIdrSlice;
    if (idr)
        reader.Ue();    // idr_pic_id
    ReadSliceOrderCount(reader, sps, *pps, slice);
    if (pps->redundant_pic_cnt_present_flag)
        reader.Ue();
    SkipReferences(reader, sps, *pps, slice_type);
    if (nal_ref_idc != 0)
        SkipRefPicMarking(reader, idr);
    return slice;
}

}    // namespace corvane::h264
