#include "StatusLine.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace {

constexpr double kStep = 0.5;    // seconds between two lines
constexpr double kNoticeStays = 3;

long long Rounded(double value) {
    return static_cast<long long>(value + 0.5);
}

}    // namespace

StatusLine::StatusLine(bool quiet) : m_quiet(quiet), m_terminal(isatty(STDERR_FILENO) != 0) {}

void StatusLine::Start(double now) {
    m_at = now;
    m_processor = ProcessorSeconds();
}

void StatusLine::Print(const std::string& text, bool last) const {
    std::fprintf(stderr, "%s%s%s", m_terminal ? "\r\033[K" : "", text.c_str(), last || !m_terminal ? "\n" : "");
}

void StatusLine::Notice(const std::string& text) {
    m_notice = text;
    m_noticeAt = MonotonicSeconds();
    if (!m_quiet && !m_terminal)
        Print(text, true);
    m_at -= kStep;    // on the terminal it is seen at once
}

void StatusLine::Complain(const std::string& text) const {
    Print("corvane-play: " + text, true);
}

bool StatusLine::Due(double now) const {
    return !m_quiet && m_terminal && now - m_at >= kStep;
}

void StatusLine::Update(double now, double startedAt, int64_t fedMs, const std::vector<Figures>& channels, bool last) {
    if (m_quiet)
        return;
    const ChannelStatistics sum = SumOf(channels);
    uint64_t refused = 0;
    for (const Figures& channel : channels)
        refused += channel.fed - channel.counters.framesTaken;
    const double processor = ProcessorSeconds();
    const double step = std::max(0.001, last ? now - startedAt : now - m_at);
    const uint64_t shown = last ? ShownOf(sum) : ShownOf(sum) - m_shown;
    const double used = last ? processor : processor - m_processor;
    const bool heard = sum.soundHeard > (last ? 0 : m_heard);
    const char* const sound = sum.soundFrames == 0 ? "none" : heard ? "on" : "off";
    const std::string silent = m_silentCodec.empty() ? "" : " (" + m_silentCodec + " is not decoded)";
    char text[320];
    std::snprintf(text, sizeof(text),
                  "%lld:%02lld  %3lld/s  queue %llu (%llu kB)  shown %llu  lost %llu  refused %llu  age %llu ms  cpu "
                  "%lld%%  sound %s%s",
                  static_cast<long long>(fedMs / 60000), static_cast<long long>(fedMs / 1000 % 60),
                  Rounded(static_cast<double>(shown) / step), static_cast<unsigned long long>(WaitingOf(sum)),
                  static_cast<unsigned long long>(sum.queueBytes / 1024), static_cast<unsigned long long>(ShownOf(sum)),
                  static_cast<unsigned long long>(LostOf(sum)), static_cast<unsigned long long>(refused),
                  static_cast<unsigned long long>(sum.ageLast), Rounded(100 * used / step), sound, silent.c_str());
    const bool noticed = m_terminal && !last && !m_notice.empty() && now - m_noticeAt < kNoticeStays;
    const bool nothingComes = shown == 0 && sum.lastCause != CORVANE_CAUSE_NONE;
    const std::string beside = noticed ? m_notice : nothingComes ? TextOfCause(sum.lastCause) : "";
    Print(beside.empty() ? text : std::string(text) + "  [" + beside + "]", last);
    m_at = now;
    m_processor = processor;
    m_shown = ShownOf(sum);
    m_heard = sum.soundHeard;
}
