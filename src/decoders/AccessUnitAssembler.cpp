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

// Of a sequence: in H.264 the sequence and in H.265 the video parameter set, in MPEG-4 Visual the visual object
// sequence.
bool IsFirstSet(uint32_t streamType, unsigned code) {
    return streamType == CORVANE_STREAM_MPEG4  ? code == 0xB0
           : streamType == CORVANE_STREAM_H264 ? (code & 31) == h264::kSps
                                               : (code >> 1 & 63) == 32;
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
    for (const uint8_t* at = AfterStartCode(frame.Payload(), end); at < end; at = AfterStartCode(at, end)) {
        const UnitKind kind = KindOf(streamType, *at);
        if (kind == UnitKind::Picture) {
            part.noPicture = false;
            if (streamType == CORVANE_STREAM_H264 && m_hasFields && m_lone < kMaxLone)
                ReadField(at, end, part);
            return part;
        }
        part.noPicture |= kind != UnitKind::Unknown;
        part.parameterSets |= kind == UnitKind::ParameterSet;
        part.firstSet |= IsFirstSet(streamType, *at);
        m_hasSets |= kind == UnitKind::ParameterSet;
        if (kind == UnitKind::ParameterSet && streamType == CORVANE_STREAM_H264)
            ReadParameterSet(at, end);
    }
    return part;
}

// Leaves `part` as it is where the picture is not a single field.
void AccessUnitAssembler::ReadField(const uint8_t* at, const uint8_t* end, Part& part) const {
    std::optional<h264::SliceHeader> field;
    bool idr = false, reference = false;
    try {
        for (; at < end; at = AfterStartCode(at, end)) {
            const auto type = static_cast<uint8_t>(*at & 31);
            if (type != h264::kSlice && type != h264::kIdrSlice)
                continue;
            const auto referenceIdc = static_cast<uint8_t>(*at >> 5 & 3);
            RbspReader reader(at + 1, static_cast<size_t>(end - at - 1));
            const h264::SliceHeader slice = m_sets.ParseSlice(reader, type, referenceIdc);
            if (!slice.field_pic_flag || (field && field->bottom_field_flag != slice.bottom_field_flag))
                return;
            field = slice;
            idr = type == h264::kIdrSlice;
            reference = referenceIdc != 0;
        }
    } catch (const std::exception&) {
        return;
    }
    part.field = field;
    part.idr = idr;
    part.reference = reference;
}

// Complementary fields of Recommendation H.264, 3.30: they follow each other, are of opposite parity, share a
// frame_num, and the second is no IDR picture. Each may have a picture parameter set of its own.
bool AccessUnitAssembler::AreOneFrame(const Part& first, const Part& second) {
    return first.field && second.field && !second.idr && second.field->frame_num == first.field->frame_num &&
           second.field->bottom_field_flag != first.field->bottom_field_flag;
}

bool AccessUnitAssembler::CompletesFirst(const Part& part) const {
    return m_first != nullptr && AreOneFrame(m_firstPart, part);
}

bool AccessUnitAssembler::Completes(const MediaFrameImpl& frame) {
    return !m_backward && m_first != nullptr && CompletesFirst(PartOf(frame));
}

// Where the bound is reached, frames other than parameter sets are dropped first, then the sets that wait.
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
    const std::vector<Waiting> waiting = std::exchange(m_waiting, {});
    size_t size = last.PayloadSize();
    for (const Waiting& one : waiting)
        size += one.field ? one.field->PayloadSize() : one.bytes.size();
    if (m_bytes == nullptr || m_bytes.use_count() != 1)    // a unit with them is kept
        m_bytes = std::make_shared<std::vector<uint8_t>>();
    m_bytes->clear();
    m_bytes->reserve(size + limits::kPicturePadding);
    for (const Waiting& one : waiting) {
        if (one.field)
            Append(*m_bytes, *one.field);
        else
            m_bytes->insert(m_bytes->end(), one.bytes.begin(), one.bytes.end());
    }
    Append(*m_bytes, last);
    m_bytes->resize(size + limits::kPicturePadding);
    unit.encoded.data = m_bytes->data();
    unit.encoded.size = static_cast<uint32_t>(size);
    unit.joined = m_bytes;
}

AccessUnitAssembler::Unit AccessUnitAssembler::Alone(const FramePtr& frame) {
    return {frame, {frame->Payload(), frame->PayloadSize(), frame->Header().frameType}, nullptr};
}

AccessUnitAssembler::Unit AccessUnitAssembler::Add(const FramePtr& frame) {
    if (!m_backward)
        return AddInOrder(frame);
    AddBackward(frame);
    return Next();
}

AccessUnitAssembler::Unit AccessUnitAssembler::AddInOrder(const FramePtr& frame) {
    Part part = PartOf(*frame);
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
        m_firstPart = part;
        return {};
    }
    Unit unit = Alone(frame);
    if (completes) {
        unit.input = first;
        unit.encoded.type_or_count = first->Header().frameType;
    }
    if (!m_waiting.empty())
        Join(*frame, unit);
    return unit;
}

void AccessUnitAssembler::AddBackward(const FramePtr& frame) {
    const Part part = PartOf(*frame);
    if (EndsGop(*frame, part))
        EndGop();
    Collect(frame, part);
    const bool selfContained = part.firstSet || !HasStartCodes(frame->Header().streamType);
    if (m_gop.begins && !part.noPicture && selfContained && !m_separate)
        EndGop();
}

// Whether `frame` has a picture of the next older GOP. An H.264 stream of which no parameter set was seen does not
// reveal its fields, nor can it be decoded: the frames wait for parameter sets.
bool AccessUnitAssembler::EndsGop(const MediaFrameImpl& frame, const Part& part) {
    return m_gop.begins && !part.noPicture && (m_hasSets || frame.Header().streamType != CORVANE_STREAM_H264) &&
           !PrecedesOldest(part);
}

// Whether the picture of `part` is the first field of the oldest picture that is kept, whose sender marks both fields
// as key frames. A second field of a frame that is no reference may have the same frame_num as the field after it.
bool AccessUnitAssembler::PrecedesOldest(const Part& part) {
    if (!part.field || m_gop.oldestPicture == nullptr)
        return false;
    const Part oldest = PartOf(*m_gop.oldestPicture);
    return AreOneFrame(part, oldest) && (part.reference || !oldest.reference);
}

// Dropped frames are the newest of their GOP: older ones can still be decoded when the key frame arrives.
void AccessUnitAssembler::Collect(const FramePtr& frame, const Part& part) {
    const uint64_t bytes = frame->MemoryBytes();
    if (m_gop.frames.size() >= limits::kMaxGopFrames || m_gop.bytes + bytes > limits::kMaxGopBytes) {
        m_dropped += m_gop.frames.size();
        m_gop = {};
    }
    m_gop.frames.push_back(frame);
    m_gop.bytes += bytes;
    m_gop.begins |= frame->IsKeyFrame() && (!part.noPicture || part.parameterSets);
    m_separate |= part.noPicture;
    if (!part.noPicture)
        m_gop.oldestPicture = frame;
}

void AccessUnitAssembler::EndGop() {
    // Frames that wait since the end of another GOP were followed by no picture of it.
    m_waiting.clear();
    m_lone += m_first != nullptr ? 1 : 0;
    m_first = nullptr;
    const std::vector<FramePtr> frames = std::exchange(m_gop, {}).frames;
    std::vector<Unit> units;
    for (auto frame = frames.rbegin(); frame != frames.rend(); ++frame)
        if (Unit unit = AddInOrder(*frame); unit.input != nullptr)
            units.push_back(std::move(unit));
    m_complete.insert(m_complete.begin(), units.begin(), units.end());
}

AccessUnitAssembler::Unit AccessUnitAssembler::Next() {
    if (m_complete.empty())
        return {};
    Unit unit = std::move(m_complete.back());
    m_complete.pop_back();
    return unit;
}

AccessUnitAssembler::Unit AccessUnitAssembler::Finish() {
    if (m_gop.begins)
        EndGop();
    return Next();
}

}    // namespace corvane
