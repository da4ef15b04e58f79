// Puts together what a decoder must get in one piece. Some senders give parameter sets by themselves, marked as key
// frames, some supplemental information, delimiters or filler, and some each field of an H.264 picture: alone none of
// these brings a picture, so a decoder that gets them would seem to have stopped answering, and with frame threads
// another picture would be missing in its place.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "corvane/decoder.h"
#include "decoders/H264Syntax.h"
#include "frame/MediaFrameImpl.h"

namespace corvane {

// For one stream and one thread.
class UnitGatherer {
public:
    struct Unit {
        FramePtr input;    // whose picture this will be: of two fields the first; null when the frame waits
        EncodedUnit encoded{};
    };
    // The bytes are those of `frame` or kept here; either way good until the next call, and followed by
    // limits::kPicturePadding more. Raises std::bad_alloc.
    Unit Add(const FramePtr& frame);

    // Whether `frame` is the other field of one that waits, and so belongs to its picture. Raises std::bad_alloc.
    bool Completes(const MediaFrameImpl& frame);

private:
    // A frame that waits: one without a picture by its bytes, a first field by reference.
    struct Waiting {
        std::vector<uint8_t> bytes;
        bool parameterSets = false;
        FramePtr field;
    };
    // What a frame brings.
    struct Part {
        bool parameterSets = false;
        bool noPicture = false;    // certainly
        std::optional<h264::SliceHeader> field;
        bool idr = false;    // of a field
    };
    Part PartOf(const MediaFrameImpl& frame);
    bool CompletesFirst(const Part& part) const;
    Part FieldOf(const uint8_t* at, const uint8_t* end);
    void ReadParameterSet(const uint8_t* at, const uint8_t* end);
    void Keep(const MediaFrameImpl& frame, bool parameterSets);
    void Join(const MediaFrameImpl& last, Unit& unit);

    h264::ParameterSets m_sets;        // of an H.264 stream, as they came
    bool m_hasFields = false;          // some sequence may have them
    std::vector<Waiting> m_waiting;    // in the order in which they came
    FramePtr m_first;                  // the field in m_waiting, if there is one
    h264::SliceHeader m_firstSlice;    // of m_first
    uint32_t m_lone = 0;               // fields in a row whose other never came
    std::vector<uint8_t> m_bytes;      // of the last unit, where it is no frame as it came
};

}    // namespace corvane
