// Makes pictures of frames. Parameter sets in frames of their own are joined to the next picture, and the two fields of
// an H.264 picture make one. Parameter sets are kept for files that begin later.
#pragma once

#include <array>
#include <cstdint>

#include "FFmpeg.h"
#include "Unit.h"

namespace movarix {

// A frame of pictures as a client gives it.
struct Frame {
    View payload;
    uint32_t type = 0;
    bool key = false;
    int64_t timeMs = 0;
    uint32_t width = 0;    // as the record states it, or 0
    uint32_t height = 0;
};

// For one stream after the other; another type begins anew.
class UnitAssembler {
public:
    // At most two pictures: a field whose second one never came, and another. Their bytes are valid until the next
    // call.
    struct Pictures {
        std::array<Picture, 2> pictures;
        uint32_t count = 0;
        bool isForeign = false;    // the frame is not of its type: no start code, or no JPEG; it is left out
    };

    // Raises std::bad_alloc.
    Pictures Add(const Frame& frame);
    // The field that waits, when nothing follows.
    Pictures Flush();

private:
    // What a payload contains, up to its first picture.
    struct Content {
        View bytes;            // from the first start code
        size_t picture = 0;    // bytes in front of the first picture
        bool hasPicture = false;
        bool hasSets = false;
        bool isRandom = false;    // decoding can begin here
    };
    enum class Structure { Frame, FirstField, SecondField };
    struct Waiting {
        Bytes bytes;
        Picture picture;    // its bytes are set when it is handed out
        bool active = false;
    };

    void Reset(uint32_t type);
    Content ContentOf(const Frame& frame);
    void KeepSet(const View& set, bool first);
    Structure Parse(const Content& content, PictureFormat& format, bool key);
    Picture PictureOf(const Frame& frame, const Content& content, Structure& structure);
    void DropAhead();
    void TakeField(Pictures& out);
    void Join(Picture& picture);

    uint32_t m_type = 0;
    CodecPtr m_codec;                // which the parser needs
    ParserPtr m_parser;              // of H.264, H.265 and MPEG-4
    bool m_mayHaveFields = false;    // H.264, by its last sequence parameter set
    PictureFormat m_known;           // the format of the last picture whose size was known
    Bytes m_sets;                    // the last parameter sets
    Bytes m_ahead;                   // frames without a picture, for the next one
    bool m_aheadSets = false;        // m_ahead has parameter sets
    bool m_aheadRandom = false;      // or says that decoding can begin with the next picture
    Bytes m_joined;                  // the last joined picture
    Bytes m_scratch;                 // for the parser
    Waiting m_field;
    Bytes m_lone;                 // of a field that was handed out
    uint32_t m_loneFields = 0;    // in a row
};

}    // namespace movarix
