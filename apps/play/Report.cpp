#include "Report.h"

#include <sys/resource.h>

#include <array>
#include <charconv>
#include <utility>

namespace {

using Fields = std::vector<std::pair<const char*, std::string>>;

// A number as JSON wants it, whatever the locale.
std::string Text(double value, int digitsBehind = 3) {
    std::array<char, 64> digits;
    const auto [end, error] =
        std::to_chars(digits.data(), digits.data() + digits.size(), value, std::chars_format::fixed, digitsBehind);
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

std::string Object(const Fields& fields, const char* open, const char* between, const char* close) {
    std::string out = open;
    for (const auto& [name, value] : fields) {
        out += &name == &fields.front().first ? "" : between;
        out += std::string("\"") + name + "\": " + value;
    }
    return out + close;
}

double Share(const std::vector<float>& sorted, double part) {
    return sorted.empty()
               ? 0.0
               : static_cast<double>(sorted[static_cast<size_t>(part * static_cast<double>(sorted.size() - 1))]);
}

double NotPresentedShare(const Statistics::Snapshot& now) {
    return now.committed == 0 ? 0.0 : static_cast<double>(now.notPresented) / static_cast<double>(now.committed);
}

std::string Row(const Statistics& channel) {
    const Statistics::Snapshot now = channel.Now();
    const Statistics::Summary end = channel.AtEnd();
    return Object({{"fed", Text(now.fed)},
                   {"committed", Text(now.committed)},
                   {"presented", Text(now.shown)},
                   {"not_presented", Text(now.notPresented)},
                   {"pictures_per_second", Text(end.picturesPerSecond)},
                   {"longest_gap_ms", Text(end.longestGapMs)},
                   {"age_ms_median", Text(Share(end.agesMs, 0.5))},
                   {"age_ms_p95", Text(Share(end.agesMs, 0.95))}},
                  "    {", ", ", "}");
}

}    // namespace

std::string MakeReport(const ReportFacts& facts, const std::vector<const Statistics*>& channels) {
    const Statistics::Snapshot now = channels.front()->Now();
    const Statistics::Summary end = channels.front()->AtEnd();
    Statistics::Snapshot all;
    std::string rows;
    for (const Statistics* const channel : channels) {
        all.Add(channel->Now());
        rows += (rows.empty() ? "\n" : ",\n") + Row(*channel);
    }
    rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    Fields fields = {
        {"input", Text(facts.input)},
        {"codec", Text(facts.codec)},
        {"channels", Text(uint64_t{channels.size()})},
        {"width", Text(uint64_t{end.width})},
        {"height", Text(uint64_t{end.height})},
        {"window_width", Text(uint64_t{facts.windowWidth})},
        {"window_height", Text(uint64_t{facts.windowHeight})},
        {"decoder_kind", Text(uint64_t{end.decoderKind})},
        {"fed", Text(now.fed)},
        {"refused", Text(now.refused)},
        {"shown", Text(now.shown)},
        {"put", Text(now.put)},
        {"lost", Text(now.lost)},
        {"waiting_at_end", Text(now.waiting)},
        {"waiting_bytes_at_end", Text(now.waitingBytes)},
        {"waiting_most", Text(end.waitingMost)},
        {"waiting_bytes_most", Text(end.waitingBytesMost)},
        {"pictures_per_second", Text(end.picturesPerSecond)},
        {"longest_gap_ms", Text(end.longestGapMs)},
        {"age_ms_median", Text(Share(end.agesMs, 0.5))},
        {"age_ms_p95", Text(Share(end.agesMs, 0.95))},
        {"age_ms_worst", Text(Share(end.agesMs, 1.0))},
        {"committed", Text(all.committed)},
        {"presented", Text(all.shown)},
        {"not_presented", Text(all.notPresented)},
        {"not_presented_share", Text(NotPresentedShare(all), 6)},
        {"not_presented_smoothing", Text(all.lostSmoothing)},
        {"processor_seconds", Text(ProcessorSeconds())},
        {"resident_mb_peak", Text(static_cast<double>(usage.ru_maxrss) / 1024)},
    };
    if (channels.size() > 1)
        fields.emplace_back("each", "[" + rows + "\n  ]");
    return Object(fields, "{\n  ", ",\n  ", "\n}\n");
}
