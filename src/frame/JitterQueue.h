// The queue of a channel, measured in milliseconds of play. It gives no frame until it has once reached its buffer
// time, then gives frames until audio and video have run out. No clock and no lock inside; the owner's lock guards it.
//
// Entries that leave other than by Pop are returned, so that the owner can destroy them after unlocking.
#pragma once

#include <cstdint>
#include <list>

#include "frame/MediaFrameImpl.h"

namespace corvane {

// `tag`: video its duration in ms; audio the same with bit 31 set; metadata 0x40000000.
struct QueueEntry {
    FramePtr frame;
    uint32_t tag = 0;
};

class JitterQueue {
public:
    using Entries = std::list<QueueEntry>;    // its moves and splices never allocate, so only Push can fail

    // True when taken, or ignored for its stream type; false when full: video at `bufferTime` + 1000 ms as long as
    // there is a key frame to skip to, audio at 13,000 ms, metadata at 1,000 frames. A video stream without a queued
    // key frame is never refused. Raises std::bad_alloc, and nothing has changed then.
    bool Push(const FramePtr& frame);

    // Whether the frame pushed last took its duration over from the one before: its time did not rise, or jumped. Not
    // for the first of its class since the queue ran empty.
    bool StepWasMissing() const { return m_stepMissing; }

    // -1 nothing to give yet, `out` untouched; 0 a frame, and the queue is still above the buffer time; 1 a frame, and
    // the queue is at or below it.
    int Pop(FramePtr& out);

    // Milliseconds; 0 counts as 1.
    void SetBufferTime(uint32_t bufferMs);
    bool IsBuffering() const { return m_peak < m_bufferMs; }

    // Removes all entries; buffering begins again. Times and durations of the last frames stay.
    [[nodiscard]] Entries Clear();
    // Resets all but the buffer time and the direction.
    [[nodiscard]] Entries Reset();
    // Drops about `lateMs` of play from the front, audio with it, and on to the next key frame. Nothing happens when
    // less is queued or when no key frame is.
    [[nodiscard]] Entries Skip(int64_t lateMs);

    // In reverse, frames come with falling times.
    void SetReverse(bool reverse) { m_reverse = reverse; }

    // Queued play of the longer of video and audio.
    uint64_t LevelMs() const { return m_video.sumMs > m_audio.sumMs ? m_video.sumMs : m_audio.sumMs; }
    uint32_t KeyFrames() const { return m_keyFrames; }
    size_t Count() const { return m_entries.size(); }
    uint64_t Bytes() const { return m_bytes; }    // of the frames' memory

private:
    // One class of timed frames. A duration is below 11 s, so no sum of them can wrap 64 bits.
    struct Line {
        uint64_t sumMs = 0;
        int64_t lastTimeMs = 0;
        int64_t lastDurationMs = 1;
        bool running = false;    // there is a last frame
    };

    void Append(const FramePtr& frame, uint32_t tag);
    void MoveFrontTo(Entries& target);
    bool FrontIsKeyFrame() const;

    Entries m_entries;
    Entries m_spare;    // free nodes for the next pushes: a queue in steady state does not allocate
    Line m_video;       // placeholders too
    Line m_audio;
    uint32_t m_keyFrames = 0;
    uint32_t m_metadata = 0;
    uint64_t m_bytes = 0;
    uint64_t m_peak = 0;    // largest level since the queue last ran empty
    uint32_t m_bufferMs = 1;
    uint32_t m_videoLimitMs = 1001;
    bool m_reverse = false;
    bool m_stepMissing = false;
};

}    // namespace corvane
