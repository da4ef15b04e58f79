// Joins frames of input into access units. Some senders put parameter sets into frames of their own, marked as key
// frames; some do so with supplemental information, delimiters or filler, and some with each field of an H.264 picture.
// None of these alone gives a picture: a decoder that got one by itself would seem to have stopped, and with frame
// threads the count of pictures in flight would be wrong by one.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "corvane/decoder.h"
#include "decoders/H264Syntax.h"
#include "frame/MediaFrameImpl.h"

namespace corvane {

// For one stream and one thread.
class AccessUnitAssembler {
public:
    struct Unit {
        FramePtr
            input;    // the frame that the picture belongs to, of two fields the first; null: nothing to decode yet
        EncodedUnit encoded{};
    };
    // The bytes of the unit lie in `frame` or in this object; they are valid until the next call and are followed by
    // limits::kPicturePadding bytes. Raises std::bad_alloc.
    Unit Add(const FramePtr& frame);

    // Whether `frame` is the second field of the picture whose first field waits. Raises std::bad_alloc.
    bool Completes(const MediaFrameImpl& frame);

private:
    // A frame that waits: a copy of the bytes where it has no picture, a reference where it is a first field.
    struct Waiting {
        std::vector<uint8_t> bytes;
        bool parameterSets = false;
        FramePtr field;
    };
    // What a frame contains.
    struct Part {
        bool parameterSets = false;
        bool noPicture = false;    // false also where that is not certain
        std::optional<h264::SliceHeader> field;
        bool idr = false;    // of a field
    };
    Part PartOf(const MediaFrameImpl& frame);
    bool CompletesFirst(const Part& part) const;
    Part FieldOf(const uint8_t* at, const uint8_t* end);
    void ReadParameterSet(const uint8_t* at, const uint8_t* end);
    void Keep(const MediaFrameImpl& frame, bool parameterSets);
    void Join(const MediaFrameImpl& last, Unit& unit);

    h264::ParameterSets m_sets;        // of an H.264 stream
    bool m_hasFields = false;          // some sequence parameter set allows fields
    std::vector<Waiting> m_waiting;    // in the order of input
    FramePtr m_first;                  // the first field in m_waiting, or null
    h264::SliceHeader m_firstSlice;    // of m_first
    uint32_t m_lone = 0;               // fields in a row without a second one
    std::vector<uint8_t> m_bytes;      // of the last unit, where it was joined of several frames
};

}    // namespace corvane
