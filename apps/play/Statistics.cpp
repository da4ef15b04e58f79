#include "Statistics.h"

#include <sys/resource.h>
#include <time.h>

#include <algorithm>

double MonotonicSeconds() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double ProcessorSeconds() {
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// ---- Pictures that were shown --------------------------------------------------------------------------------------

void ShownPictures::Shown(int64_t streamMs, uint64_t count) {
    const std::lock_guard lock(m_mutex);
    if (count == m_count)
        return;
    const double now = MonotonicSeconds();
    if (m_count == 0)
        m_firstAt = now;
    else
        m_now.longestGapMs = std::max(m_now.longestGapMs, (now - m_lastAt) * 1000);
    m_count = count;
    m_lastAt = now;
    m_now.streamMs = streamMs;
}

void ShownPictures::Size(uint32_t width, uint32_t height) {
    const std::lock_guard lock(m_mutex);
    m_now.width = width;
    m_now.height = height;
}

ShownPictures::Now ShownPictures::Get() const {
    const std::lock_guard lock(m_mutex);
    Now now = m_now;
    const double played = m_lastAt - m_firstAt;
    now.perSecond = played > 0 ? static_cast<double>(m_count - 1) / played : 0.0;
    return now;
}

// ---- Counters of the library ---------------------------------------------------------------------------------------

ChannelStatistics SumOf(const std::vector<Figures>& channels) {
    ChannelStatistics sum{};
    for (const Figures& channel : channels) {
        const ChannelStatistics& one = channel.counters;
        for (uint64_t ChannelStatistics::*const counter : {&ChannelStatistics::framesTaken,
                                                           &ChannelStatistics::framesEmptied,
                                                           &ChannelStatistics::framesSkippedLate,
                                                           &ChannelStatistics::framesThinned,
                                                           &ChannelStatistics::metadataFrames,
                                                           &ChannelStatistics::soundFrames,
                                                           &ChannelStatistics::unitsWithoutDecoder,
                                                           &ChannelStatistics::unitsAwaitingKeyFrame,
                                                           &ChannelStatistics::unitsFailed,
                                                           &ChannelStatistics::unitsWithoutPicture,
                                                           &ChannelStatistics::picturesDecoded,
                                                           &ChannelStatistics::picturesNotForDisplay,
                                                           &ChannelStatistics::picturesSmoothed,
                                                           &ChannelStatistics::picturesRefusedSmoothing,
                                                           &ChannelStatistics::picturesLost,
                                                           &ChannelStatistics::picturesReplaced,
                                                           &ChannelStatistics::picturesTaken,
                                                           &ChannelStatistics::picturesPut,
                                                           &ChannelStatistics::picturesHandedOver,
                                                           &ChannelStatistics::picturesNotPutBusy,
                                                           &ChannelStatistics::picturesNotPutNowhere,
                                                           &ChannelStatistics::picturesNotPutOff,
                                                           &ChannelStatistics::queueFrames,
                                                           &ChannelStatistics::queueBytes,
                                                           &ChannelStatistics::soundHeard,
                                                           &ChannelStatistics::soundLostRing,
                                                           &ChannelStatistics::soundLostDecoder,
                                                           &ChannelStatistics::soundNotPlayed})
            sum.*counter += one.*counter;
        for (uint64_t ChannelStatistics::*const age :
             {&ChannelStatistics::ageLast, &ChannelStatistics::ageMean, &ChannelStatistics::age95})
            sum.*age = std::max(sum.*age, one.*age);
        const bool newer = sum.lastCause == CORVANE_CAUSE_NONE || one.lastCauseAgo < sum.lastCauseAgo;
        if (one.lastCause != CORVANE_CAUSE_NONE && newer) {
            sum.lastCause = one.lastCause;
            sum.lastCauseAgo = one.lastCauseAgo;
        }
    }
    return sum;
}

uint64_t ShownOf(const ChannelStatistics& s) {
    return s.picturesPut + s.picturesHandedOver;
}

uint64_t CommittedOf(const ChannelStatistics& s) {
    return s.picturesDecoded - s.picturesNotForDisplay;
}

uint64_t NotShownOf(const ChannelStatistics& s) {
    return s.picturesLost + s.picturesReplaced + s.picturesNotPutBusy + s.picturesNotPutNowhere + s.picturesNotPutOff;
}

uint64_t LostOf(const ChannelStatistics& s) {
    return s.framesEmptied + s.framesSkippedLate + s.unitsWithoutDecoder + s.unitsAwaitingKeyFrame + s.unitsFailed +
           s.unitsWithoutPicture + NotShownOf(s);
}

uint64_t LeftOf(const ChannelStatistics& s) {
    const uint64_t ended = LostOf(s) + ShownOf(s) + s.framesThinned + s.picturesNotForDisplay + s.soundFrames;
    return s.framesTaken > ended ? s.framesTaken - ended : 0;
}

uint64_t SoundLeftOf(const ChannelStatistics& s) {
    const uint64_t ended = s.soundHeard + s.soundLostRing + s.soundLostDecoder + s.soundNotPlayed;
    return s.soundFrames > ended ? s.soundFrames - ended : 0;
}

uint64_t WaitingOf(const ChannelStatistics& s) {
    // A picture may have moved on to another counter between two readings.
    const uint64_t ended = ShownOf(s) + NotShownOf(s);
    return s.queueFrames + (CommittedOf(s) > ended ? CommittedOf(s) - ended : 0);
}

const char* TextOfCause(uint32_t cause) {
    switch (cause) {
    case CORVANE_CAUSE_NONE:
        return "none";
    case CORVANE_CAUSE_QUEUE_FULL:
        return "the queue is full";
    case CORVANE_CAUSE_MEDIA_MODE:
        return "left out by the media mode";
    case CORVANE_CAUSE_TIMES_DO_NOT_RISE:
        return "times that do not rise";
    case CORVANE_CAUSE_EMPTIED:
        return "stopped while they waited";
    case CORVANE_CAUSE_LATE:
        return "too late";
    case CORVANE_CAUSE_THINNED:
        return "left out by --mode";
    case CORVANE_CAUSE_OUT_OF_MEMORY:
        return "out of memory";
    case CORVANE_CAUSE_NO_DECODER:
        return "no decoder";
    case CORVANE_CAUSE_NO_KEY_FRAME:
        return "no key frame";
    case CORVANE_CAUSE_NO_START_CODE:
        return "no start codes";
    case CORVANE_CAUSE_WRONG_TYPE:
        return "not of the type that the container says";
    case CORVANE_CAUSE_DAMAGED:
        return "damaged";
    case CORVANE_CAUSE_SIZE:
        return "too large";
    case CORVANE_CAUSE_DECODER_STUCK:
        return "the decoder stopped answering";
    case CORVANE_CAUSE_HELD_BACK:
        return "held back by the decoder";
    case CORVANE_CAUSE_NO_PICTURE:
        return "units without a picture";
    case CORVANE_CAUSE_NOT_FOR_DISPLAY:
        return "not for display";
    case CORVANE_CAUSE_NO_BUFFER:
        return "no memory for pictures";
    case CORVANE_CAUSE_NOT_ROTATABLE:
        return "pictures of this format cannot be rotated";
    case CORVANE_CAUSE_REPLACED:
        return "newer pictures came first";
    case CORVANE_CAUSE_BUSY:
        return "the X server is too slow";
    case CORVANE_CAUSE_NO_WINDOW:
        return "no window";
    case CORVANE_CAUSE_HIDDEN:
        return "the window is hidden";
    case CORVANE_CAUSE_OFF:
        return "presenting is off";
    case CORVANE_CAUSE_RENDERER_FAILED:
        return "the renderer failed";
    default:
        return "unknown";
    }
}
