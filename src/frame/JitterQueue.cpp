#include "frame/JitterQueue.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "frame/StreamType.h"

namespace corvane {

namespace {

constexpr uint32_t kAudioBit = 0x80000000u;
constexpr uint32_t kMetadataTag = 0x40000000u;
constexpr uint64_t kAudioLimitMs = 13000;
constexpr uint32_t kMetadataLimit = 1000;
constexpr uint32_t kVideoSlackMs = 1000;         // above the buffer time
constexpr int64_t kLongestDurationMs = 11000;    // from here on a step is a gap or a jump
constexpr size_t kMaxSpareNodes = 256;

bool IsStep(int64_t ms) {
    return ms >= 1 && ms < kLongestDurationMs;
}

bool IsTimedVideo(uint32_t tag) {
    return tag < kMetadataTag;
}

}    // namespace

void JitterQueue::Append(const FramePtr& frame, uint32_t tag) {
    if (m_spare.empty())
        m_entries.push_back({frame, tag});
    else {
        m_spare.front() = {frame, tag};
        m_entries.splice(m_entries.end(), m_spare, m_spare.begin());
    }
    m_bytes += frame->MemoryBytes();
}

bool JitterQueue::Push(const FramePtr& frame) {
    m_stepMissing = false;
    const StreamClass streamClass = ClassOf(frame->Header().streamType);
    if (streamClass == StreamClass::Unknown)
        return true;
    if (streamClass == StreamClass::Metadata) {
        if (m_metadata >= kMetadataLimit)
            return false;
        Append(frame, kMetadataTag);
        ++m_metadata;
        return true;
    }
    const bool audio = streamClass == StreamClass::Audio;
    if (audio ? m_audio.sumMs >= kAudioLimitMs : m_video.sumMs >= m_videoLimitMs && m_keyFrames != 0)
        return false;

    Line& line = audio ? m_audio : m_video;
    const int64_t timeMs = TimeMs(*frame);
    const int64_t stepMs = m_reverse ? line.lastTimeMs - timeMs : timeMs - line.lastTimeMs;
    const int64_t durationMs = IsStep(stepMs) ? stepMs : line.lastDurationMs;
    Append(frame, static_cast<uint32_t>(durationMs) | (audio ? kAudioBit : 0));
    m_stepMissing = std::exchange(line.running, true) && !IsStep(stepMs);
    line.lastDurationMs = durationMs;
    line.lastTimeMs = timeMs;
    line.sumMs += static_cast<uint64_t>(durationMs);
    if (!audio && frame->IsKeyFrame())
        ++m_keyFrames;
    m_peak = std::max(m_peak, LevelMs());
    return true;
}

void JitterQueue::MoveFrontTo(Entries& target) {
    const QueueEntry& entry = m_entries.front();
    if (IsTimedVideo(entry.tag)) {
        m_video.sumMs -= entry.tag;
        if (entry.frame->IsKeyFrame())
            --m_keyFrames;
    } else if ((entry.tag & kAudioBit) != 0) {
        m_audio.sumMs -= entry.tag & ~kAudioBit;
    } else {
        --m_metadata;
    }
    m_bytes -= entry.frame->MemoryBytes();
    target.splice(target.end(), m_entries, m_entries.begin());
}

int JitterQueue::Pop(FramePtr& out) {
    if (m_peak < m_bufferMs || m_entries.empty())
        return -1;
    MoveFrontTo(m_spare);
    out = std::move(m_spare.back().frame);
    if (m_spare.size() > kMaxSpareNodes)
        m_spare.pop_back();
    if (LevelMs() == 0) {
        m_peak = 0;
        m_video = Line();
        m_audio = Line();
    }
    return LevelMs() <= m_bufferMs ? 1 : 0;
}

void JitterQueue::SetBufferTime(uint32_t bufferMs) {
    m_bufferMs = std::max(bufferMs, 1u);
    m_videoLimitMs = m_bufferMs + std::min(kVideoSlackMs, UINT32_MAX - m_bufferMs);
}

JitterQueue::Entries JitterQueue::Clear() {
    m_video.sumMs = 0;
    m_audio.sumMs = 0;
    m_keyFrames = 0;
    m_metadata = 0;
    m_bytes = 0;
    m_peak = 0;
    return std::exchange(m_entries, Entries());
}

JitterQueue::Entries JitterQueue::Reset() {
    m_video = Line();
    m_audio = Line();
    return Clear();
}

bool JitterQueue::FrontIsKeyFrame() const {
    const QueueEntry& front = m_entries.front();
    return IsTimedVideo(front.tag) && front.frame->IsKeyFrame();
}

JitterQueue::Entries JitterQueue::Skip(int64_t lateMs) {
    Entries dropped;
    const auto levelMs = static_cast<int64_t>(LevelMs());
    if (m_keyFrames == 0 || levelMs < lateMs)
        return dropped;
    const int64_t targetMs = levelMs - std::max<int64_t>(lateMs, 0);
    while (m_keyFrames > 1 && static_cast<int64_t>(LevelMs()) > targetMs)
        MoveFrontTo(dropped);
    while (!FrontIsKeyFrame())    // there is one: the loop above leaves the last
        MoveFrontTo(dropped);
    return dropped;
}

}    // namespace corvane
