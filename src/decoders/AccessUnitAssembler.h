// Joins frames of input into access units. Some senders put parameter sets into frames of their own, marked as key
// frames; some do so with supplemental information, delimiters or filler, and some with each field of an H.264 picture.
// None of these alone gives a picture: a decoder that got one by itself would seem to have stopped, and with frame
// threads the count of pictures in flight would be wrong by one.
//
// In backward play frames arrive newest first, so that a frame of parameter sets arrives after its picture, and the
// parameter sets that a field needs are known only when its group of pictures (GOP) begins. Frames are therefore kept
// until the GOP is complete, and joined in decoding order as in forward play. That costs no time, since nothing of a
// GOP can be decoded before its key frame has arrived.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "corvane/decoder.h"
#include "decoders/H264Syntax.h"
#include "frame/MediaFrameImpl.h"

namespace corvane {

// For one stream in one direction, and one thread.
class AccessUnitAssembler {
public:
    struct Unit {
        FramePtr input;    // the frame that the picture belongs to, of two fields the first; null: no unit
        // In `input`, or in `joined` where the unit comes of several frames. limits::kPicturePadding bytes of zero
        // follow. Valid as long as the unit or a copy of it is kept.
        EncodedUnit encoded{};
        std::shared_ptr<const std::vector<uint8_t>> joined;
    };

    // A unit of one frame.
    static Unit Alone(const FramePtr& frame);

    explicit AccessUnitAssembler(bool backward = false) : m_backward(backward) {}

    // Forward: the unit that `frame` completes. Backward: the newest unit of the GOP that `frame` completes; Next gives
    // the others. A GOP is complete with its key frame where that contains its own parameter sets, and no frame without
    // a picture has come so far; else with the first picture of the next older GOP. Raises std::bad_alloc; then the
    // frame is lost, backward the GOP.
    Unit Add(const FramePtr& frame);

    // Backward: the next older unit of the last GOP.
    Unit Next();

    // Backward: ends the GOP whose frames are kept, as if an older one followed, and returns its newest unit.
    Unit Finish();

    // Whether `frame` is the second field of the picture whose first field waits; backward never. Raises
    // std::bad_alloc.
    bool Completes(const MediaFrameImpl& frame);

    // Frames of backward play that were dropped because no key frame followed within limits::kMaxGopFrames and
    // limits::kMaxGopBytes.
    uint64_t Dropped() const { return m_dropped; }

private:
    // A frame that waits: a copy of the bytes where it has no picture, a reference where it is a first field.
    struct Waiting {
        std::vector<uint8_t> bytes;
        bool parameterSets = false;
        FramePtr field;
    };
    // What a frame contains.
    struct Part {
        bool parameterSets = false;    // in front of the picture, or by themselves
        bool firstSet = false;         // the parameter set that stands in front of all others
        bool noPicture = false;        // false also where that is not certain
        std::optional<h264::SliceHeader> field;
        // Of a field.
        bool idr = false;
        bool reference = false;
    };
    // What is kept of a GOP of backward play.
    struct Gop {
        std::vector<FramePtr> frames;    // newest first
        uint64_t bytes = 0;
        FramePtr oldestPicture;    // the last of `frames` that has a picture
        bool begins = false;       // the key frame is among them
    };
    Part PartOf(const MediaFrameImpl& frame);
    void ReadField(const uint8_t* at, const uint8_t* end, Part& part) const;
    void ReadParameterSet(const uint8_t* at, const uint8_t* end);
    static bool AreOneFrame(const Part& first, const Part& second);
    bool CompletesFirst(const Part& part) const;
    void Keep(const MediaFrameImpl& frame, bool parameterSets);
    void Join(const MediaFrameImpl& last, Unit& unit);
    Unit AddInOrder(const FramePtr& frame);
    void AddBackward(const FramePtr& frame);
    bool EndsGop(const MediaFrameImpl& frame, const Part& part);
    bool PrecedesOldest(const Part& part);
    void Collect(const FramePtr& frame, const Part& part);
    void EndGop();

    bool m_backward;
    h264::ParameterSets m_sets;                       // of an H.264 stream
    bool m_hasSets = false;                           // a parameter set of any kind was seen
    bool m_hasFields = false;                         // some sequence parameter set allows fields
    std::vector<Waiting> m_waiting;                   // in decoding order
    FramePtr m_first;                                 // the first field in m_waiting, or null
    Part m_firstPart;                                 // of m_first
    uint32_t m_lone = 0;                              // fields in a row without a second one
    std::shared_ptr<std::vector<uint8_t>> m_bytes;    // of the last joined unit; reused when nobody keeps that

    // Of backward play.
    Gop m_gop;
    bool m_separate = false;         // some frame came without a picture
    std::vector<Unit> m_complete;    // of the last GOP, oldest first
    uint64_t m_dropped = 0;
};

}    // namespace corvane
