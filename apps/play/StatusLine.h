// One line on the terminal that is rewritten all the time, and short notices of changes. Where standard error is no
// terminal only the notices and the last line are written, each on a line of its own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Statistics.h"

class StatusLine {
public:
    explicit StatusLine(bool quiet);

    void Start(double now);
    // Sound of this codec is not decoded; said beside the state of the sound.
    void SetSilentCodec(const std::string& name) { m_silentCodec = name; }
    // Shows a notice of a change for a while.
    void Notice(const std::string& text);
    // Whether it is time for a line: the figures for it need not be asked for otherwise.
    bool Due(double now) const;
    // Writes the line.
    void Update(double now, double startedAt, int64_t fedMs, const std::vector<Figures>& channels, bool last);
    // A mistake, on a line of its own; also when quiet.
    void Complain(const std::string& text) const;

private:
    void Print(const std::string& text, bool last) const;

    const bool m_quiet;
    const bool m_terminal;
    std::string m_silentCodec;
    std::string m_notice;
    double m_noticeAt = 0;

    // Of the line before.
    double m_at = 0;
    double m_processor = 0;
    uint64_t m_shown = 0;
    uint64_t m_heard = 0;
};
