#include "Statistics.h"

#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace {

// A number as JSON wants it, whatever the locale.
std::string Text(double value) {
    std::array<char, 64> digits;
    const auto [end, error] =
        std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed, 3);
    return std::string(digits.data(), error == std::errc{} ? end : digits.data());
}

std::string Text(uint64_t value) {
    return std::to_string(value);
}

std::string Text(const std::string& value) {
    std::string out = "\"";
    for (const char c : value) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += static_cast<unsigned char>(c) < 0x20 ? ' ' : c;
    }
    return out + '"';
}

}    // namespace

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

void Statistics::Fed(int64_t streamMs, uint32_t bytes) {
    const std::lock_guard lock(m_mutex);
    m_pending.push_back({streamMs, MonotonicSeconds(), bytes});
    ++m_sum.fed;
    ++m_sum.waiting;
    m_sum.waitingBytes += bytes;
    m_worstWaiting = std::max(m_worstWaiting, m_sum.waiting);
    m_worstWaitingBytes = std::max(m_worstWaitingBytes, m_sum.waitingBytes);
}

void Statistics::Refused() {
    const std::lock_guard lock(m_mutex);
    ++m_sum.refused;
}

bool Statistics::Shown(int64_t streamMs, uint32_t width, uint32_t height) {
    const std::lock_guard lock(m_mutex);
    const auto found = std::ranges::find(m_pending, streamMs, &Pending::streamMs);
    if (found == m_pending.end())
        return false;
    const double now = MonotonicSeconds();
    m_sum.ageMs = (now - found->fedAt) * 1000;
    m_ages.push_back(static_cast<float>(m_sum.ageMs));
    const auto end = found + 1;
    m_sum.lost += static_cast<uint64_t>(found - m_pending.begin());
    for (auto pending = m_pending.begin(); pending != end; ++pending) {
        --m_sum.waiting;
        m_sum.waitingBytes -= pending->bytes;
    }
    m_pending.erase(m_pending.begin(), end);
    if (m_sum.shown++ == 0)
        m_firstShownAt = now;
    else
        m_longestGap = std::max(m_longestGap, now - m_lastShownAt);
    m_lastShownAt = now;
    m_sum.shownMs = streamMs;
    m_width = width;
    m_height = height;
    return true;
}

void Statistics::DecoderKind(uint32_t kind) {
    const std::lock_guard lock(m_mutex);
    m_kind = kind;
}

void Statistics::Put() {
    const std::lock_guard lock(m_mutex);
    ++m_put;
}

void Statistics::WindowSize(uint32_t width, uint32_t height) {
    const std::lock_guard lock(m_mutex);
    m_windowWidth = width;
    m_windowHeight = height;
}

Statistics::Snapshot Statistics::Now() const {
    const std::lock_guard lock(m_mutex);
    return m_sum;
}

std::string Statistics::Json(const std::string& input, const char* codec, uint32_t channels) const {
    const std::lock_guard lock(m_mutex);
    std::vector<float> ages = m_ages;
    std::ranges::sort(ages);
    const auto share = [&](double part) {
        return ages.empty()
                   ? 0.0
                   : static_cast<double>(ages[static_cast<size_t>(part * static_cast<double>(ages.size() - 1))]);
    };
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const double played = m_lastShownAt - m_firstShownAt;
    const std::pair<const char*, std::string> fields[] = {
        {"input", Text(input)},
        {"codec", Text(std::string(codec))},
        {"channels", Text(uint64_t{channels})},
        {"width", Text(uint64_t{m_width})},
        {"height", Text(uint64_t{m_height})},
        {"window_width", Text(uint64_t{m_windowWidth})},
        {"window_height", Text(uint64_t{m_windowHeight})},
        {"decoder_kind", Text(uint64_t{m_kind})},
        {"fed", Text(m_sum.fed)},
        {"refused", Text(m_sum.refused)},
        {"shown", Text(m_sum.shown)},
        {"put", Text(m_put)},
        {"lost", Text(m_sum.lost)},
        {"waiting_at_end", Text(m_sum.waiting)},
        {"waiting_bytes_at_end", Text(m_sum.waitingBytes)},
        {"waiting_most", Text(m_worstWaiting)},
        {"waiting_bytes_most", Text(m_worstWaitingBytes)},
        {"pictures_per_second", Text(played > 0 ? static_cast<double>(m_sum.shown - 1) / played : 0.0)},
        {"longest_gap_ms", Text(m_longestGap * 1000)},
        {"age_ms_median", Text(share(0.5))},
        {"age_ms_p95", Text(share(0.95))},
        {"age_ms_worst", Text(share(1.0))},
        {"processor_seconds", Text(ProcessorSeconds())},
        {"resident_mb_peak", Text(static_cast<double>(usage.ru_maxrss) / 1024)},
    };
    std::string out = "{\n";
    for (const auto& [name, value] : fields)
        out += std::string("  \"") + name + "\": " + value + (&name == &std::end(fields)[-1].first ? "\n" : ",\n");
    return out + "}\n";
}
