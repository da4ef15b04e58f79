#include "UnitAssembler.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "FieldCheck.h"
#include "PictureSize.h"

namespace movarix {

namespace {

constexpr size_t kMaxAhead = 1 << 16;     // bytes that wait for a picture, and of parameter sets
constexpr size_t kSliceHead = 1024;       // bytes of a slice that the parser may read
constexpr uint32_t kMaxLoneFields = 2;    // after so many the stream has single fields

// After the next start code, or `end`.
const uint8_t* AfterStartCode(const uint8_t* at, const uint8_t* end) {
    for (const uint8_t* from = at; end - from >= 3;) {
        const auto* const one =
            static_cast<const uint8_t*>(std::memchr(from + 2, 1, static_cast<size_t>(end - from - 2)));
        if (one == nullptr)
            break;
        if (one[-1] == 0 && one[-2] == 0)
            return one + 1;
        from = one - 1;
    }
    return end;
}

struct Kind {
    bool picture = false;
    bool set = false;
    bool firstSet = false;    // the one that stands in front of all others
    bool random = false;      // decoding can begin with this picture, or with the one after this message
};

// Of the unit at `code`, the byte after its start code.
Kind KindOf(uint32_t type, const uint8_t* code, const uint8_t* end) {
    const auto next = static_cast<unsigned>(end - code > 1 ? code[1] : 0xFF);
    Kind kind;
    if (type == CORVANE_STREAM_MPEG4) {
        kind.picture = *code == 0xB6;
        kind.set = *code <= 0x2F || *code == 0xB0 || *code == 0xB5;
        kind.firstSet = *code == 0xB0;
        kind.random = kind.picture && next >> 6 == 0;    // an I-VOP
    } else if (type == CORVANE_STREAM_H264) {
        const unsigned unit = *code & 31;
        kind.picture = (unit >= 1 && unit <= 5) || (unit >= 19 && unit <= 21);
        kind.set = unit == 7 || unit == 8 || unit == 13 || unit == 15;
        kind.firstSet = unit == 7;
        kind.random = unit == 5 || (unit == 6 && next == 6);    // a recovery point
    } else {
        const unsigned unit = *code >> 1 & 63;
        kind.picture = unit < 32;
        kind.set = unit >= 32 && unit <= 34;
        kind.firstSet = unit == 32;
        kind.random = unit >= 16 && unit <= 23;
    }
    return kind;
}

bool HasStartCodes(uint32_t type) {
    return type == CORVANE_STREAM_MPEG4 || type == CORVANE_STREAM_H264 || type == CORVANE_STREAM_H265;
}

void Append(Bytes& bytes, const View& more) {
    bytes.insert(bytes.end(), more.data, more.data + more.size);
}

}    // namespace

void UnitAssembler::Reset(uint32_t type) {
    m_type = type;
    m_parser.reset();
    m_codec.reset();
    m_known = {};
    m_mayHaveFields = false;
    m_sets.clear();
    DropAhead();
    m_loneFields = 0;
    if (!HasStartCodes(type))
        return;
    const AVCodecID id = type == CORVANE_STREAM_MPEG4  ? AV_CODEC_ID_MPEG4
                         : type == CORVANE_STREAM_H264 ? AV_CODEC_ID_H264
                                                       : AV_CODEC_ID_HEVC;
    m_codec = Made<CodecPtr>(avcodec_alloc_context3(nullptr));
    m_codec->codec_id = id;
    m_codec->codec_type = AVMEDIA_TYPE_VIDEO;
    m_codec->log_level_offset = kSilent;
    m_parser = Made<ParserPtr>(av_parser_init(id));
    m_parser->flags |= PARSER_FLAG_COMPLETE_FRAMES;
}

void UnitAssembler::DropAhead() {
    m_ahead.clear();
    m_aheadSets = m_aheadRandom = false;
}

void UnitAssembler::KeepSet(const View& set, bool first) {
    if (first || m_sets.size() + set.size > kMaxAhead)
        m_sets.clear();
    if (set.size <= kMaxAhead)
        Append(m_sets, set);
}

UnitAssembler::Content UnitAssembler::ContentOf(const Frame& frame) {
    Content content;
    const uint8_t* const begin = frame.payload.data;
    const uint8_t* const end = begin + frame.payload.size;
    if (!HasStartCodes(frame.type)) {
        PictureFormat unused{frame.type, 0, 0};
        if (frame.type != CORVANE_STREAM_JPEG ||
            ReadPictureSize(frame.payload, unused))    // H.263 may be a vendor's own
            content.bytes = frame.payload;
        content.hasPicture = true;
        content.isRandom = frame.type == CORVANE_STREAM_JPEG || frame.key;
        return content;
    }
    const uint8_t* first = nullptr;
    bool begun = false;    // the first of all sets was seen: those of frames before count no more
    for (const uint8_t* code = AfterStartCode(begin, end); code < end;) {
        const uint8_t* const start = code - begin >= 4 && code[-4] == 0 ? code - 4 : code - 3;
        first = first == nullptr ? start : first;
        const Kind kind = KindOf(frame.type, code, end);
        content.isRandom |= kind.random;
        if (kind.picture) {
            content.hasPicture = true;
            content.picture = static_cast<size_t>(start - first);
            break;
        }
        const uint8_t* const next = AfterStartCode(code, end);
        const uint8_t* const stop = next == end ? end : next[-4] == 0 ? next - 4 : next - 3;
        if (kind.set) {
            const bool isFirst = kind.firstSet && !std::exchange(begun, true);
            KeepSet({start, static_cast<size_t>(stop - start)}, isFirst);
            content.hasSets = true;
            if (frame.type == CORVANE_STREAM_H264 && kind.firstSet)
                m_mayHaveFields =
                    (m_mayHaveFields && !isFirst) || MayHaveFields({code, static_cast<size_t>(stop - code)});
        }
        code = next;
    }
    if (first != nullptr)
        content.bytes = {first, static_cast<size_t>(end - first)};
    return content;
}

// Of key frames, and of all where there may be fields, since it takes as long as writing the frame: what the parser of
// libavcodec finds in the parameter sets and the head of the first slice, which it gets in a copy, since it reads
// beyond its input.
UnitAssembler::Structure UnitAssembler::Parse(const Content& content, PictureFormat& format, bool key) {
    if (!key && !m_mayHaveFields)
        return Structure::Frame;
    const size_t ahead = std::min(content.picture, kMaxAhead);
    const size_t size = std::min(content.bytes.size - (content.picture - ahead), ahead + kSliceHead);
    m_scratch.assign(content.bytes.data + content.picture - ahead, content.bytes.data + content.picture - ahead + size);
    m_scratch.insert(m_scratch.begin(), m_ahead.begin(), m_ahead.end());
    const auto whole = static_cast<int>(m_scratch.size());
    m_scratch.resize(m_scratch.size() + AV_INPUT_BUFFER_PADDING_SIZE);
    m_parser->picture_structure = AV_PICTURE_STRUCTURE_UNKNOWN;    // it keeps them where it finds no slice
    m_parser->field_order = AV_FIELD_UNKNOWN;
    uint8_t* out = nullptr;
    int outSize = 0;
    av_parser_parse2(m_parser.get(), m_codec.get(), &out, &outSize, m_scratch.data(), whole, AV_NOPTS_VALUE,
                     AV_NOPTS_VALUE, 0);
    const int width = m_parser->width > 0 ? m_parser->width : m_codec->width;
    const int height = m_parser->width > 0 ? m_parser->height : m_codec->height;
    if (width > 0 && height > 0) {
        format.width = static_cast<uint32_t>(width);
        format.height = static_cast<uint32_t>(height);
    }
    if (m_type != CORVANE_STREAM_H264 || (m_parser->picture_structure != AV_PICTURE_STRUCTURE_TOP_FIELD &&
                                          m_parser->picture_structure != AV_PICTURE_STRUCTURE_BOTTOM_FIELD))
        return Structure::Frame;
    return m_parser->field_order == AV_FIELD_TT || m_parser->field_order == AV_FIELD_BB ? Structure::SecondField
                                                                                        : Structure::FirstField;
}

Picture UnitAssembler::PictureOf(const Frame& frame, const Content& content, Structure& structure) {
    Picture picture;
    picture.bytes = content.bytes;
    picture.key = frame.type == CORVANE_STREAM_JPEG ||
                  (frame.key && (content.isRandom || content.hasSets || m_aheadSets || m_aheadRandom));
    picture.timeMs = frame.timeMs;
    picture.format = m_known;
    picture.format.type = frame.type;
    const PictureFormat stated{frame.type, frame.width, frame.height};
    if (HasStartCodes(frame.type)) {
        structure = Parse(content, picture.format, picture.key);
    } else {
        if (stated.width != 0)
            picture.format = stated;
        ReadPictureSize(content.bytes, picture.format);
    }
    if (picture.format.width == 0 || picture.format.height == 0)
        picture.format = stated;
    m_known = picture.format;
    if (!content.hasSets && !m_aheadSets)
        picture.sets = {m_sets.data(), m_sets.size()};
    picture.begins = picture.key && (!HasStartCodes(frame.type) || !m_sets.empty());
    return picture;
}

void UnitAssembler::Join(Picture& picture) {
    if (m_ahead.empty())
        return;
    m_joined.swap(m_ahead);
    DropAhead();
    Append(m_joined, picture.bytes);
    picture.bytes = {m_joined.data(), m_joined.size()};
}

// Hands out the field that waits.
void UnitAssembler::TakeField(Pictures& out) {
    if (!std::exchange(m_field.active, false))
        return;
    m_lone.swap(m_field.bytes);
    Picture& picture = out.pictures[out.count++] = m_field.picture;
    picture.bytes = {m_lone.data(), m_lone.size()};
    picture.sets = picture.sets.size == 0 ? View{} : View{m_sets.data(), m_sets.size()};
}

UnitAssembler::Pictures UnitAssembler::Add(const Frame& frame) {
    Pictures out;
    if (frame.type != m_type) {
        TakeField(out);
        out.pictures[0].begins &= out.pictures[0].sets.size == 0;    // the sets are dropped now
        Reset(frame.type);
    }
    const Content content = ContentOf(frame);
    if (content.bytes.size == 0) {
        out.isForeign = frame.payload.size > 0;
        return out;
    }
    if (!content.hasPicture) {
        if (m_ahead.size() + content.bytes.size > kMaxAhead)
            DropAhead();
        if (content.bytes.size > kMaxAhead)
            return out;
        Append(m_ahead, content.bytes);
        m_aheadSets |= content.hasSets;
        m_aheadRandom |= content.isRandom;
        return out;
    }
    Structure structure = Structure::Frame;
    Picture picture = PictureOf(frame, content, structure);
    Join(picture);
    if (structure == Structure::SecondField && m_field.active) {
        Append(m_field.bytes, picture.bytes);
        m_loneFields = 0;
        TakeField(out);
        return out;
    }
    m_loneFields += m_field.active ? 1 : 0;
    TakeField(out);
    if (structure == Structure::FirstField && m_loneFields < kMaxLoneFields) {
        m_field.bytes.assign(picture.bytes.data, picture.bytes.data + picture.bytes.size);
        m_field.picture = picture;
        m_field.active = true;
        return out;
    }
    out.pictures[out.count++] = picture;
    return out;
}

UnitAssembler::Pictures UnitAssembler::Flush() {
    Pictures out;
    TakeField(out);
    return out;
}

}    // namespace movarix
