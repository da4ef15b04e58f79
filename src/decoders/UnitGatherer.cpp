#include "decoders/UnitGatherer.h"

#include <exception>
#include <new>
#include <utility>

#include "base/Limits.h"
#include "decoders/StartCode.h"

namespace corvane {

namespace {

constexpr size_t kMaxHeaderBytes = 1 << 16;    // of parameter sets that wait for their picture
constexpr uint32_t kMaxLone = 2;               // then this stream has single fields, which are pictures

enum class UnitKind { Header, Picture, Other };

// By the byte behind a start code. A layer header of MPEG-4 Visual counts as a parameter set.
UnitKind KindOf(uint32_t streamType, unsigned code) {
    const auto isWithin = [](unsigned value, unsigned first, unsigned last) { return value >= first && value <= last; };
    const auto kindOf = [](bool header, bool picture) {
        return header ? UnitKind::Header : picture ? UnitKind::Picture : UnitKind::Other;
    };
    switch (streamType) {
    case CORVANE_STREAM_MPEG4:
        return kindOf(isWithin(code, 0x20, 0x2F), code == 0xB6);
    case CORVANE_STREAM_H264:
        return kindOf(isWithin(code & 31, h264::kSps, h264::kPps), isWithin(code & 31, h264::kSlice, h264::kIdrSlice));
    default:
        return kindOf(isWithin(code >> 1 & 63, 32, 34), (code >> 1 & 63) < 32);
    }
}

bool HasStartCodes(uint32_t streamType) {
    return streamType == CORVANE_STREAM_MPEG4 || streamType == CORVANE_STREAM_H264 || streamType == CORVANE_STREAM_H265;
}

void Append(std::vector<uint8_t>& bytes, const MediaFrameImpl& frame) {
    bytes.insert(bytes.end(), frame.Payload(), frame.Payload() + frame.PayloadSize());
}

}    // namespace

// Sets that cannot be read are for the decoder to complain of: their pictures count as whole.
void UnitGatherer::ReadParameterSet(const uint8_t* at, const uint8_t* end) {
    try {
        RbspReader reader(at + 1, static_cast<size_t>(end - at - 1));
        if ((*at & 31) == h264::kPps)
            m_sets.ParsePps(reader);
        else
            m_hasFields |= !m_sets.ParseSps(reader).frame_mbs_only_flag;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
    }
}

// Looks no further than the first picture, unless that is a field: the other one may stand behind it.
UnitGatherer::Part UnitGatherer::PartOf(const MediaFrameImpl& frame) {
    const uint32_t streamType = frame.Header().streamType;
    Part part;
    if (!HasStartCodes(streamType))
        return part;
    const uint8_t* const end = frame.Payload() + frame.PayloadSize();
    for (const uint8_t* at = BehindStartCode(frame.Payload(), end); at < end; at = BehindStartCode(at, end)) {
        const UnitKind kind = KindOf(streamType, *at);
        if (kind == UnitKind::Picture)
            return streamType == CORVANE_STREAM_H264 && m_hasFields && m_lone < kMaxLone ? FieldOf(at, end) : Part();
        part.headersOnly |= kind == UnitKind::Header;
        if (kind == UnitKind::Header && streamType == CORVANE_STREAM_H264)
            ReadParameterSet(at, end);
    }
    return part;
}

UnitGatherer::Part UnitGatherer::FieldOf(const uint8_t* at, const uint8_t* end) {
    Part part;
    try {
        for (; at < end; at = BehindStartCode(at, end)) {
            const auto type = static_cast<uint8_t>(*at & 31);
            if (KindOf(CORVANE_STREAM_H264, type) != UnitKind::Picture)
                continue;
            RbspReader reader(at + 1, static_cast<size_t>(end - at - 1));
            const h264::SliceHeader slice = m_sets.ParseSlice(reader, type, *at >> 5 & 3);
            if (!slice.field_pic_flag || (part.field && part.field->bottom_field_flag != slice.bottom_field_flag))
                return {};
            part.field = slice;
        }
    } catch (const std::exception&) {
        return {};
    }
    return part;
}

bool UnitGatherer::CompletesFirst(const Part& part) const {
    return m_first != nullptr && part.field && part.field->frame_num == m_firstSlice.frame_num &&
           part.field->bottom_field_flag != m_firstSlice.bottom_field_flag &&
           part.field->pic_parameter_set_id == m_firstSlice.pic_parameter_set_id;
}

bool UnitGatherer::Completes(const MediaFrameImpl& frame) {
    return m_first != nullptr && CompletesFirst(PartOf(frame));
}

void UnitGatherer::KeepHeaders(const MediaFrameImpl& frame) {
    if (m_headers.size() + frame.PayloadSize() > kMaxHeaderBytes)
        m_headers.clear();
    if (frame.PayloadSize() <= kMaxHeaderBytes)
        Append(m_headers, frame);
}

UnitGatherer::Unit UnitGatherer::Add(const FramePtr& frame) {
    const Part part = PartOf(*frame);
    if (part.headersOnly) {
        KeepHeaders(*frame);
        return {};
    }
    const bool completes = CompletesFirst(part);
    FramePtr first = std::exchange(m_first, nullptr);
    if (part.field && !completes) {
        m_lone += first ? 1 : 0;
        m_first = frame;
        m_firstSlice = *part.field;
        return {};
    }
    if (completes)
        m_lone = 0;
    else
        first = nullptr;    // its other never came
    Unit unit{first ? std::move(first) : frame, {}};
    unit.encoded = {frame->Payload(), frame->PayloadSize(), unit.input->Header().frameType};
    if (m_headers.empty() && unit.input == frame)
        return unit;
    m_bytes = std::exchange(m_headers, {});
    if (unit.input != frame)
        Append(m_bytes, *unit.input);
    Append(m_bytes, *frame);
    unit.encoded.size = static_cast<uint32_t>(m_bytes.size());
    m_bytes.resize(m_bytes.size() + limits::kPicturePadding);
    unit.encoded.data = m_bytes.data();
    return unit;
}

}    // namespace corvane
