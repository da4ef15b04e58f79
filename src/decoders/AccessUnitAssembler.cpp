#include "decoders/AccessUnitAssembler.h"

#include <exception>
#include <new>
#include <utility>

#include "base/Limits.h"
#include "decoders/StartCode.h"

namespace corvane {

namespace {

constexpr size_t kMaxWaitingBytes = 1 << 16;    // of frames without a picture
constexpr uint32_t kMaxLone = 2;                // after so many the stream has single fields, each of them a picture

enum class UnitKind { ParameterSet, Aside, Picture, Unknown };    // Aside: supplemental data, delimiters, end of stream

// By the byte after a start code. A layer header of MPEG-4 Visual counts as a parameter set.
UnitKind KindOf(uint32_t streamType, unsigned code) {
    const auto isWithin = [](unsigned value, unsigned first, unsigned last) { return value >= first && value <= last; };
    const auto kindOf = [](bool set, bool aside, bool picture) {
        return set ? UnitKind::ParameterSet : aside ? UnitKind::Aside : picture ? UnitKind::Picture : UnitKind::Unknown;
    };
    switch (streamType) {
    case CORVANE_STREAM_MPEG4:
        return kindOf(isWithin(code, 0x20, 0x2F), isWithin(code, 0xB0, 0xB5), code == 0xB6);
    case CORVANE_STREAM_H264: {
        const unsigned type = code & 31;
        return kindOf(type == h264::kSps || type == h264::kPps || type == 13 || type == 15,
                      type == 6 || isWithin(type, 9, 12) || type == h264::kPrefix,
                      isWithin(type, h264::kSlice, h264::kIdrSlice) || isWithin(type, 19, 21));
    }
    default: {
        const unsigned type = code >> 1 & 63;
        return kindOf(isWithin(type, 32, 34), isWithin(type, 35, 40), type < 32);
    }
    }
}

bool HasStartCodes(uint32_t streamType) {
    return streamType == CORVANE_STREAM_MPEG4 || streamType == CORVANE_STREAM_H264 || streamType == CORVANE_STREAM_H265;
}

void Append(std::vector<uint8_t>& bytes, const MediaFrameImpl& frame) {
    bytes.insert(bytes.end(), frame.Payload(), frame.Payload() + frame.PayloadSize());
}

}    // namespace

// A set that cannot be parsed is left to the decoder, which reports it; its pictures then count as frames.
void AccessUnitAssembler::ReadParameterSet(const uint8_t* at, const uint8_t* end) {
    try {
        RbspReader reader(at + 1, static_cast<size_t>(end - at - 1));
        if ((*at & 31) == h264::kPps)
            m_sets.ParsePps(reader);
        else if ((*at & 31) == h264::kSps)
            m_hasFields |= !m_sets.ParseSps(reader).frame_mbs_only_flag;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
    }
}

// Reads up to the first picture, and further where that is a field, since the second field may follow it.
AccessUnitAssembler::Part AccessUnitAssembler::PartOf(const MediaFrameImpl& frame) {
    const uint32_t streamType = frame.Header().streamType;
    Part part;
    if (!HasStartCodes(streamType))
        return part;
    const uint8_t* const end = frame.Payload() + frame.PayloadSize();
    for (const uint8_t* at = BehindStartCode(frame.Payload(), end); at < end; at = BehindStartCode(at, end)) {
        const UnitKind kind = KindOf(streamType, *at);
        if (kind == UnitKind::Picture)
            return streamType == CORVANE_STREAM_H264 && m_hasFields && m_lone < kMaxLone ? FieldOf(at, end) : Part();
        part.noPicture |= kind != UnitKind::Unknown;
        part.parameterSets |= kind == UnitKind::ParameterSet;
        if (kind == UnitKind::ParameterSet && streamType == CORVANE_STREAM_H264)
            ReadParameterSet(at, end);
    }
    return part;
}

AccessUnitAssembler::Part AccessUnitAssembler::FieldOf(const uint8_t* at, const uint8_t* end) {
    Part part;
    try {
        for (; at < end; at = BehindStartCode(at, end)) {
            const auto type = static_cast<uint8_t>(*at & 31);
            if (type != h264::kSlice && type != h264::kIdrSlice)
                continue;
            RbspReader reader(at + 1, static_cast<size_t>(end - at - 1));
            const h264::SliceHeader slice = m_sets.ParseSlice(reader, type, *at >> 5 & 3);
            if (!slice.field_pic_flag || (part.field && part.field->bottom_field_flag != slice.bottom_field_flag))
                return {};
            part.field = slice;
            part.idr = type == h264::kIdrSlice;
        }
    } catch (const std::exception&) {
        return {};
    }
    return part;
}

// Complementary fields of Recommendation H.264, 3.30: they follow each other, are of opposite parity, share a
// frame_num, and the second is no IDR picture. Each may have a picture parameter set of its own.
bool AccessUnitAssembler::CompletesFirst(const Part& part) const {
    return m_first != nullptr && part.field && !part.idr && part.field->frame_num == m_firstSlice.frame_num &&
           part.field->bottom_field_flag != m_firstSlice.bottom_field_flag;
}

bool AccessUnitAssembler::Completes(const MediaFrameImpl& frame) {
    return m_first != nullptr && CompletesFirst(PartOf(frame));
}

// What does not fit is dropped: first frames other than parameter sets, then the oldest sets.
void AccessUnitAssembler::Keep(const MediaFrameImpl& frame, bool parameterSets) {
    const auto fits = [&] {
        size_t sum = frame.PayloadSize();
        for (const Waiting& waiting : m_waiting)
            sum += waiting.bytes.size();
        return sum <= kMaxWaitingBytes;
    };
    if (frame.PayloadSize() > kMaxWaitingBytes)
        return;
    if (!fits())
        std::erase_if(m_waiting, [](const Waiting& waiting) { return !waiting.parameterSets && !waiting.field; });
    if (!fits() && parameterSets)
        std::erase_if(m_waiting, [](const Waiting& waiting) { return !waiting.field; });
    if (fits())
        Append(m_waiting.emplace_back(Waiting{{}, parameterSets, nullptr}).bytes, frame);
}

// Joins the frames that wait, in their order, and `last`.
void AccessUnitAssembler::Join(const MediaFrameImpl& last, Unit& unit) {
    m_bytes.clear();
    for (const Waiting& waiting : std::exchange(m_waiting, {})) {
        if (waiting.field)
            Append(m_bytes, *waiting.field);
        else
            m_bytes.insert(m_bytes.end(), waiting.bytes.begin(), waiting.bytes.end());
    }
    Append(m_bytes, last);
    unit.encoded.size = static_cast<uint32_t>(m_bytes.size());
    m_bytes.resize(m_bytes.size() + limits::kPicturePadding);
    unit.encoded.data = m_bytes.data();
}

AccessUnitAssembler::Unit AccessUnitAssembler::Add(const FramePtr& frame) {
    const Part part = PartOf(*frame);
    if (part.noPicture) {
        Keep(*frame, part.parameterSets);
        return {};
    }
    const bool completes = CompletesFirst(part);
    const FramePtr first = std::exchange(m_first, nullptr);
    if (completes)
        m_lone = 0;
    else if (first)    // its second field never came
        std::erase_if(m_waiting, [](const Waiting& waiting) { return waiting.field != nullptr; });
    if (part.field && !completes) {
        m_lone += first ? 1 : 0;
        m_waiting.push_back({{}, false, frame});
        m_first = frame;
        m_firstSlice = *part.field;
        return {};
    }
    Unit unit{completes ? first : frame, {}};
    unit.encoded = {frame->Payload(), frame->PayloadSize(), unit.input->Header().frameType};
    if (!m_waiting.empty())
        Join(*frame, unit);
    return unit;
}

}    // namespace corvane
